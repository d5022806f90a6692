// See EditList.h.
#define KQ_MODULE "Source/EditList"
#include "Source/EditList.h"

#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "kq/environment.h"

namespace kq {

namespace {

// Entries by which the list grows; one more to spare than this and it is cut to its length.
constexpr i32 kGrowth = 32;

// Runs that one entry of the index covers, and the longest list that does without.
constexpr i32 kBlock = 16;
constexpr i32 kWalked = 256;

// The index over a long list, in one block of memory with its table.
struct EditIndex {
    const KQEditRun* list;   // what it was made for; null when the list has changed since
    i32 count;
    i32 capacity;   // blocks that there is room for
    i32 blocks;
    i32 compared;   // the next block in rotation
    bool ordered;   // no count is negative: only then can a place be searched

    // Frames before each block, and behind the last.
    i64* Before() { return reinterpret_cast<i64*>(this + 1); }
};

i64 FramesIn(const KQEditRun* list, i32 first, i32 end) {
    i64 frames = 0;
    for (i32 i = first; i < end; ++i) frames += list[i].count;
    return frames;
}

i64 BlockFrames(const KQEditRun* list, i32 count, i32 block) {
    return FramesIn(list, block * kBlock, std::min(count, (block + 1) * kBlock));
}

EditIndex* IndexOf(const KQClip* clip) { return static_cast<EditIndex*>(clip->editIndex); }

void Outdate(KQClip* clip) {
    if (clip->editIndex) IndexOf(clip)->list = nullptr;
}

// Makes room for the index; null when out of memory, which is no failure, since the list can be walked.
EditIndex* IndexWithRoom(KQClip* clip, i32 blocks) {
    EditIndex* index = IndexOf(clip);
    if (index && index->capacity >= blocks) return index;
    KQ_FREE(index);
    u32 error = KQEnv->Error;
    size_t room = size_t(blocks) + size_t(blocks) / 4;
    index = static_cast<EditIndex*>(KQ_ALLOC(sizeof(EditIndex) + (room + 1) * sizeof(i64), 0));
    clip->editIndex = index;
    KQEnv->Error = error;
    if (index) index->capacity = i32(room);
    return index;
}

EditIndex* MakeIndex(KQClip* clip) {
    i32 blocks = (clip->editCount + kBlock - 1) / kBlock;
    EditIndex* index = IndexWithRoom(clip, blocks);
    if (!index) return nullptr;
    index->list = clip->editList;
    index->count = clip->editCount;
    index->blocks = blocks;
    index->compared = 0;
    i64* before = index->Before();
    before[0] = 0;
    for (i32 i = 0; i < blocks; ++i) before[i + 1] = before[i] + BlockFrames(clip->editList, clip->editCount, i);
    index->ordered = std::all_of(clip->editList, clip->editList + clip->editCount,
                                 [](const KQEditRun& run) { return run.count >= 0; });
    return index;
}

bool BlockAgrees(EditIndex* index, i32 block) {
    const i64* before = index->Before();
    return BlockFrames(index->list, index->count, block) == before[block + 1] - before[block];
}

// Whether the next block in rotation is as the index has it: each look-up asks for one, so that a count changed behind
// the library's back comes to light soon even when the frames asked for lie elsewhere.
bool RotationAgrees(EditIndex* index) {
    if (index->compared >= index->blocks) index->compared = 0;
    return BlockAgrees(index, index->compared++);
}

// The index of the list as it stands, or null.
EditIndex* CurrentIndex(KQClip* clip) {
    EditIndex* index = IndexOf(clip);
    if (index && index->list == clip->editList && index->count == clip->editCount && RotationAgrees(index))
        return index;
    return MakeIndex(clip);
}

// Looks for the frame run by run from `run` on, before which `base` frames stand.
bool WalkRuns(const KQClip* clip, i32 frame, i32 run, i64 base, EditPlace* place) {
    for (; run < clip->editCount; ++run) {
        i64 next = base + clip->editList[run].count;
        if (frame < next) {
            *place = {run, i32(frame - base)};
            return true;
        }
        base = next;
    }
    return false;
}

// The first block that ends behind the frame; past the last one when there is none.
i32 BlockOf(EditIndex* index, i32 frame) {
    const i64* ends = index->Before() + 1;
    return i32(std::upper_bound(ends, ends + index->blocks, i64(frame)) - ends);
}

bool SearchRuns(KQClip* clip, i32 frame, EditPlace* place) {
    EditIndex* index = CurrentIndex(clip);
    if (index && index->ordered) {
        i32 block = BlockOf(index, frame);
        if (block < index->blocks && !BlockAgrees(index, block)) {
            index = MakeIndex(clip);
            block = index && index->ordered ? BlockOf(index, frame) : 0;
        }
        if (index && index->ordered)
            return block < index->blocks && WalkRuns(clip, frame, block * kBlock, index->Before()[block], place);
    }
    return WalkRuns(clip, frame, 0, 0, place);
}

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
    if (needed > clip->editCapacity && (needed > 0x7FFFFF00 || !Resize(clip, clip->editCapacity + kGrowth)))
        return false;
    KQEditRun* place = clip->editList + at;
    size_t behind = size_t(clip->editCount - at - 1);
    if (behind) std::memmove(place + count, place + 1, behind * sizeof(KQEditRun));
    for (i32 i = 0; i < count; ++i) place[i] = runs[i];
    clip->editCount = i32(needed);
    Outdate(clip);
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
    Outdate(clip);
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
    u32 error = KQEnv->Error;
    if (clip->editCapacity - clip->editCount > kGrowth && !Resize(clip, clip->editCount)) KQEnv->Error = error;
}

bool PlaceFor(KQClip* clip, i32 frame, EditPlace* place) { return MakeList(clip) && FindRun(clip, frame, place); }

}   // namespace

bool FindRun(KQClip* clip, i32 frame, EditPlace* place) {
    if (frame < 0 || !clip->editList) return false;
    if (clip->editCount <= kWalked) return WalkRuns(clip, frame, 0, 0, place);
    return SearchRuns(clip, frame, place);
}

bool MapFrame(KQClip* clip, i32 frame, i32* number) {
    *number = frame;
    if (frame < 0) return false;
    if (!clip->editList || frame >= clip->sourceFrames) return true;
    EditPlace place;
    if (!FindRun(clip, frame, &place)) return false;
    *number = Advance(clip->editList[place.run].start, place.offset);
    return true;
}

bool HoldsFrame(KQClip* clip, i32 frame) {
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
