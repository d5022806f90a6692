// Frames into a clip: changed and inserted ones as scratch files that the edit list names, added ones through the
// module.
//
// A scratch file holds a bitmap's bytes and nothing else. It is written in full under another name and then takes its
// own, whether that exists or not: a full disk cannot cost what was stored before, and nothing has to be asked first.
#define KQ_MODULE "Source/EditFrame"
#include <cstring>

#include "Source/EditList.h"
#include "Source/Faults.h"
#include "Source/Frames.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/frames.h"
#include "pal/file.h"

namespace kq {

namespace {

// A scratch file's path, out of the environment's buffer.
struct ScratchName {
    char path[sizeof KQEnvironment::ScratchPath];

    // A frame that is being written lies under the name of its alpha, which no frame uses.
    bool Make(KQClip* clip, i32 number, bool unfinished) {
        const char* made = Make_TempName(clip, number, unfinished);
        if (made) std::strcpy(path, made);
        return made != nullptr;
    }
};

// Whether the host is sure that there is no such file; what cannot be asked is not missing.
bool IsMissing(const char* path) {
    return !FileCallFails() && !pal::FileQuery(path, nullptr) && pal::FileError() == KQERR_NOTFOUND;
}

// Deletes an unfinished file; the reason why it is unfinished stays in `Error`.
int Abandon(const char* path, u32 reason) {
    u32 code = KQEnv->Error ? KQEnv->Error : reason;
    DeleteFileKQ(path);
    KQEnv->Error = code;
    return 0;
}

// Writes a complete file or leaves none.
int WriteWhole(const char* path, const KQBitmap* bitmap) {
    KQFileInfo* file = CreateFileKQ(path, KQFILE_Write, 0, 0);
    if (!file) return 0;
    int written = WriteFileKQ(file, bitmap->data, size_t(bitmap->dataSize));
    int closed = CloseFileKQ(file);
    return written && closed ? 1 : Abandon(path, KQERR_WRITE);
}

int WriteScratch(KQClip* clip, i32 number, const KQBitmap* bitmap) {
    ScratchName name, unfinished;
    if (!name.Make(clip, number, false) || !unfinished.Make(clip, number, true)) {
        KQEnv->Error = KQERR_CREATE;
        return 0;
    }
    if (!WriteWhole(unfinished.path, bitmap)) return 0;
    KQEnv->Error = KQERR_WRITE;
    if (!FileCallFails()) {
        if (pal::FileReplace(unfinished.path, name.path)) {
            KQEnv->Error = KQERR_NONE;
            return 1;
        }
        KQEnv->Error = pal::FileError();
    }
    return Abandon(unfinished.path, KQERR_WRITE);
}

// The number for a frame that has no scratch file yet; 0 when they have run out.
i32 NewNumber(KQClip* clip) {
    if (clip->scratchCount < 0 || clip->scratchCount == 0x7FFFFFFF) return 0;
    return -++clip->scratchCount;
}

// Stores a bitmap as presented frame `frame`; 0 when its file or its place in the list cannot be had.
int StoreFrame(KQClip* clip, i32 frame, const KQBitmap* bitmap) {
    i32 number;
    if (!HoldsFrame(clip, frame)) return 0;
    if (MapFrame(clip, frame, &number) && number < 0) return WriteScratch(clip, number, bitmap);
    number = NewNumber(clip);
    if (!number || !WriteScratch(clip, number, bitmap)) return 0;
    if (SetFrame(clip, frame, number)) return 1;
    ScratchName name;
    return name.Make(clip, number, false) ? Abandon(name.path, KQERR_NOMEM) : 0;
}

// Reads presented frame `frame` when it lies in scratch; false when it does not or cannot be read.
bool ReadStored(KQClip* clip, i32 frame, KQBitmap* bitmap) {
    i32 number;
    return MapFrame(clip, frame, &number) && number < 0 && ReadScratch(clip, number, bitmap);
}

// Fetches presented frame `frame` as it lies in the source, or the background.
void FetchPlain(KQClip* clip, i32 frame, KQBitmap* bitmap) {
    if (!FetchFrame(clip, frame, bitmap, 0, nullptr, bitmap->width, bitmap->height))
        FillBitmapKQ(bitmap, clip->backgroundColor);
}

// Copies the odd rows, or the even ones.
void CopyRows(const KQBitmap* from, KQBitmap* to, bool odd) {
    for (i32 y = odd; y < to->height; y += 2) {
        i64 offset = i64(y) * to->rowBytes;
        std::memcpy(to->data + offset, from->data + offset, size_t(to->rowBytes));
    }
}

// A presented frame under pull-down, put back over the source frames that it is made of. `base` is the source frame
// before the first of them.
struct Spread {
    KQClip* clip;
    const KQBitmap* bitmap;
    KQBitmap* work;
    i32 base;

    int StoreWhole() { return StoreFrame(clip, base + 1, bitmap); }

    // Puts the frame's field into the work bitmap and stores that.
    int StoreEarlier(i32 frame) { return StoreField(frame, clip->fieldOrder == 1); }
    int StoreLater(i32 frame) { return StoreField(frame, clip->fieldOrder == 2); }

    int StoreField(i32 frame, bool odd) {
        CopyRows(bitmap, work, odd);
        return StoreFrame(clip, frame, work);
    }

    // A whole frame whose field also stands in the stored frame before it.
    int WithFrameBefore() {
        if (!StoreWhole()) return 0;
        if (base >= 0 && ReadStored(clip, base, work)) StoreEarlier(base);
        return 1;
    }

    // A whole frame whose field also stands in the stored frame behind it.
    int WithFrameBehind() {
        if (!StoreWhole()) return 0;
        if (base + 2 < clip->sourceFrames && ReadStored(clip, base + 2, work)) StoreLater(base + 2);
        return 1;
    }

    // A frame whose two fields stand in two frames.
    int OverTwoFrames() {
        if (base + 1 <= 0 || !ReadStored(clip, base, work)) FetchPlain(clip, base + 1, work);
        if (!StoreEarlier(base + 1)) return 0;
        if (base + 2 >= clip->sourceFrames) return 1;
        FetchPlain(clip, base + 2, work);
        StoreLater(base + 2);
        return 1;
    }
};

int ModifyUnderPullDown(KQClip* clip, i32 frame, const KQBitmap* bitmap) {
    i64 u = i64(frame) + clip->pullDown - 1;
    i64 base = (u & 3) + (u >> 2) * 5 - clip->pullDown;
    if (base < -0x40000000 || base > 0x7FFFFFF0) return 0;
    KQBitmap* work = AllocBitmapKQ(bitmap->width, bitmap->height, bitmap->depth);
    if (!work) return 0;
    Spread spread = {clip, bitmap, work, i32(base)};
    int done = 0;
    switch (u & 3) {
    case 0: done = spread.WithFrameBefore(); break;
    case 1: done = spread.StoreWhole(); break;
    case 2: done = spread.WithFrameBehind(); break;
    case 3: done = spread.OverTwoFrames(); break;
    }
    FreeBitmapKQ(work);
    return done;
}

// Whether the clip presents a frame at `time`; its index.
bool IsPresented(KQClip* clip, const KQTimeValue* time, i32* frame) {
    if (!clip) return false;
    *frame = FrameAt(clip, time);
    return *frame >= 0 && *frame < clip->frameCount;
}

int Insert(KQClip* clip, const KQTimeValue* time, int (*insert)(KQClip* clip, i32 frame, i32 number)) {
    i32 frame;
    if (!IsPresented(clip, time, &frame) || clip->frameCount == 0x7FFFFFFF) return 0;
    i32 number = NewNumber(clip);
    if (!number || !insert(clip, frame, number)) return 0;
    ++clip->frameCount;
    return 1;
}

// What the slot returns is the caller's answer, whatever it is.
int CallAddFrame(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect) {
    int result = clip->format->AddFrame ? clip->format->AddFrame(clip, bitmap, frame, rect) : 0;
    if (!result && KQEnv->Error == KQERR_NONE) KQEnv->Error = KQERR_MODULE;
    return result;
}

}   // namespace

// An inserted frame has no file until it is modified, and a reopened clip's are gone: a missing one is no failure and
// leaves `Error` alone.
bool ReadScratch(KQClip* clip, i32 number, KQBitmap* bitmap) {
    u32 before = KQEnv->Error;
    const char* name = Make_TempName(clip, number, 0);
    if (!name) {
        KQEnv->Error = KQERR_NOTFOUND;
        return false;
    }
    KQFileInfo* file = OpenFileKQ(name, KQFILE_Read);
    if (!file) {
        if (KQEnv->Error == KQERR_NOTFOUND && IsMissing(name)) KQEnv->Error = before;
        return false;
    }
    bool complete = GetFileLengthKQ(file) >= bitmap->dataSize;
    bool done = complete && (bitmap->dataSize == 0 || ReadFileKQ(file, bitmap->data, size_t(bitmap->dataSize)));
    u32 code = KQEnv->Error ? KQEnv->Error : u32(KQERR_READ);
    CloseFileKQ(file);
    if (!done) KQEnv->Error = code;
    return done;
}

}   // namespace kq

int ModifyFrameKQ(KQClip* clip, const KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue*, TagItem*) {
    if (!clip || !bitmap) return 0;
    i32 frame = kq::FrameAt(clip, time);
    return clip->pullDown ? kq::ModifyUnderPullDown(clip, frame, bitmap) : kq::StoreFrame(clip, frame, bitmap);
}

int DeleteFrameKQ(KQClip* clip, const KQTimeValue* time) {
    i32 frame;
    if (!kq::IsPresented(clip, time, &frame) || !kq::RemoveFrame(clip, frame)) return 0;
    --clip->frameCount;
    return 1;
}

int InsertFrameAfterKQ(KQClip* clip, const KQTimeValue* time) { return kq::Insert(clip, time, kq::InsertBehind); }

int InsertFrameBeforeKQ(KQClip* clip, const KQTimeValue* time) { return kq::Insert(clip, time, kq::InsertBefore); }

int AddFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue*, TagItem* tags) {
    if (!clip || !clip->format || !bitmap) return 0;
    u32 properties = GetExportPropertiesKQ(clip);
    if (!(properties & KQFORMAT_WRITES)) return 0;
    KQEnv->Error = KQERR_NONE;
    kq::FrameFile file(clip);
    if (kq::IsSequence(clip, properties)) {
        u32 number = u32(clip->sourceFrames) * u32(clip->numberStep) + u32(clip->firstNumber);
        if (!file.ForWriting(i32(number))) {
            if (KQEnv->Error == KQERR_NONE) KQEnv->Error = KQERR_CREATE;
            return 0;
        }
    }
    KQRectT<long> whole = {0, 0, bitmap->width, bitmap->height};
    TagItem* given = FindTagItem(KQTAG_FRAME_SOURCE_RECT, tags);
    auto rect = given ? reinterpret_cast<const KQRectT<long>*>(given->Data) : nullptr;
    return kq::CallAddFrame(clip, bitmap, kq::FrameAt(clip, time), rect ? rect : &whole);
}
