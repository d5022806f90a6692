// See EditList.h.
#define KQ_MODULE "Source/EditList"
#include "Source/EditList.h"

#include <cstring>

#include "Source/Alloc.h"

namespace kq {

namespace {

// Entries by which the list grows; one more to spare than this and it is cut to its length.
constexpr i32 kGrowth = 32;

bool MakeList(KQClip* clip) {
    if (clip->editList) return true;
    clip->editList = static_cast<KQEditRun*>(KQ_ALLOC(kGrowth * sizeof(KQEditRun), 0));
    if (!clip->editList) return false;
    clip->editCapacity = kGrowth;
    clip->editCount = 1;
    clip->editList[0] = {0, clip->sourceFrames};
    return true;
}

// Moves the list to a block of `capacity` entries; false, with the list as it was, when out of memory.
bool Resize(KQClip* clip, i32 capacity) {
    auto list = static_cast<KQEditRun*>(KQ_ALLOC(size_t(capacity) * sizeof(KQEditRun), 0));
    if (!list) return false;
    if (clip->editCount > 0) std::memcpy(list, clip->editList, size_t(clip->editCount) * sizeof(KQEditRun));
    KQ_FREE(clip->editList);
    clip->editList = list;
    clip->editCapacity = capacity;
    return true;
}

// Puts `count` runs in the place of run `at`, growing the list first.
bool ReplaceRun(KQClip* clip, i32 at, const KQEditRun* runs, i32 count) {
    i64 needed = i64(clip->editCount) + count - 1;
    if (needed > clip->editCapacity && (needed > 0x7FFFFFFF - kGrowth || !Resize(clip, clip->editCapacity + kGrowth)))
        return false;
    KQEditRun* place = clip->editList + at;
    size_t behind = size_t(clip->editCount - at - 1);
    if (behind) std::memmove(place + count, place + 1, behind * sizeof(KQEditRun));
    for (i32 i = 0; i < count; ++i) place[i] = runs[i];
    clip->editCount = i32(needed);
    return true;
}

// The run in up to three pieces: what stands before the frame at `offset`, what comes in its place, and what remains.
struct Split {
    KQEditRun pieces[3];
    i32 count = 0;

    void Add(i32 start, i32 frames) { pieces[count++] = {start, frames}; }
    void AddHead(KQEditRun run, i32 frames) {
        if (frames > 0) Add(run.start, frames);
    }
    void AddRest(KQEditRun run, i32 from) {
        if (from < run.count) Add(Advance(run.start, from), run.count - from);
    }
};

// Joins runs that continue each other. A joined count goes to the entry before the one read and not to the last one
// written: behind a first joint, that entry is dropped already, and the count with it. The walk ends with the source's
// frames; the runs behind its end stay.
void Compact(KQClip* clip) {
    if (clip->editCount < 2) return;
    KQEditRun* list = clip->editList;
    i64 frames = list[0].count;
    i32 following = Advance(list[0].start, list[0].count);
    i32 read = 1, write = 1;
    for (; read < clip->editCount && frames < clip->sourceFrames; ++read) {
        KQEditRun run = list[read];
        if (run.start == following)
            list[read - 1].count = i32(u32(list[read - 1].count) + u32(run.count));
        else
            list[write++] = run;
        frames += run.count;
        following = Advance(run.start, run.count);
    }
    i32 kept = clip->editCount - read;
    std::memmove(list + write, list + read, size_t(kept) * sizeof(KQEditRun));
    clip->editCount = write + kept;
    if (clip->editCapacity - clip->editCount > kGrowth) Resize(clip, clip->editCount);
}

bool PlaceFor(KQClip* clip, i32 frame, EditPlace* place) { return MakeList(clip) && FindRun(clip, frame, place); }

}   // namespace

bool FindRun(const KQClip* clip, i32 frame, EditPlace* place) {
    if (frame < 0 || !clip->editList) return false;
    i64 base = 0;
    for (i32 i = 0; i < clip->editCount; ++i) {
        i64 next = base + clip->editList[i].count;
        if (frame < next) {
            *place = {i, i32(frame - base)};
            return true;
        }
        base = next;
    }
    return false;
}

bool MapFrame(const KQClip* clip, i32 frame, i32* number) {
    *number = frame;
    if (frame < 0) return false;
    if (!clip->editList || frame >= clip->sourceFrames) return true;
    EditPlace place;
    if (!FindRun(clip, frame, &place)) return false;
    *number = Advance(clip->editList[place.run].start, place.offset);
    return true;
}

bool HoldsFrame(const KQClip* clip, i32 frame) {
    EditPlace place;
    if (clip->editList) return FindRun(clip, frame, &place);
    return frame >= 0 && frame < clip->sourceFrames;
}

int SetFrame(KQClip* clip, i32 frame, i32 number) {
    i32 present;
    if (MapFrame(clip, frame, &present) && present == number) return 1;
    EditPlace place;
    if (!PlaceFor(clip, frame, &place)) return 0;
    KQEditRun run = clip->editList[place.run];
    if (run.count == 1) {
        clip->editList[place.run].start = number;
        return 1;
    }
    Split split;
    split.AddHead(run, place.offset);
    split.Add(number, 1);
    split.AddRest(run, place.offset + 1);
    if (!ReplaceRun(clip, place.run, split.pieces, split.count)) return 0;
    Compact(clip);
    return 1;
}

int RemoveFrame(KQClip* clip, i32 frame) {
    EditPlace place;
    if (!PlaceFor(clip, frame, &place)) return 0;
    KQEditRun run = clip->editList[place.run];
    Split split;
    split.AddHead(run, place.offset);
    split.AddRest(run, place.offset + 1);
    if (!ReplaceRun(clip, place.run, split.pieces, split.count)) return 0;
    if (split.count == 2) Compact(clip);
    return 1;
}

int InsertBehind(KQClip* clip, i32 frame, i32 number) {
    EditPlace place;
    if (!PlaceFor(clip, frame, &place)) return 0;
    KQEditRun run = clip->editList[place.run];
    Split split;
    if (frame == 0 || place.offset > 0) {
        split.Add(run.start, place.offset + 1);
        split.Add(number, 1);
        split.Add(Advance(run.start, place.offset + 1), run.count - place.offset - 1);
    } else {
        split.Add(run.start, run.count);
        split.Add(number, 1);
    }
    return ReplaceRun(clip, place.run, split.pieces, split.count);
}

int InsertBefore(KQClip* clip, i32 frame, i32 number) {
    EditPlace place;
    if (!PlaceFor(clip, frame, &place)) return 0;
    KQEditRun run = clip->editList[place.run];
    Split split;
    split.AddHead(run, place.offset);
    split.Add(number, 1);
    split.AddRest(run, place.offset);
    return ReplaceRun(clip, place.run, split.pieces, split.count);
}

}   // namespace kq
