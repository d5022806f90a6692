// What the frame calls share: times as frame indexes, the part of a bitmap that a frame covers, the file of a
// sequence's frame, and the fetch of one source frame.
#pragma once

#include "kq/bitmap.h"
#include "kq/clip.h"
#include "kq/formats.h"
#include "kq/rect.h"
#include "kq/types.h"

namespace kq {

// The whole number toward zero, held to 32 bits; what is no number gives the least one, which is past every end.
constexpr i32 TruncateToI32(f64 value) {
    if (!(value > -2147483648.0)) return -2147483647 - 1;
    return value < 2147483647.0 ? i32(value) : 2147483647;
}

constexpr f64 Seconds(const KQTimeValue& time) { return time.scale == 0.0 ? 0.0 : time.value / time.scale; }

// `time`, or the start of frame 0 for null.
KQTimeValue TimeOr0(const KQClip* clip, const KQTimeValue* time);

// The presented frame at `time` (null: 0), unlimited. The small addition lets a time computed as n / rate land on n.
i32 FrameAt(const KQClip* clip, const KQTimeValue* time);

// Where a frame is rendered: at width x height, with (x, y) of it at the bitmap's top left corner.
struct Placement {
    i64 x, y;
    i32 width, height;

    // Whether the frame covers the whole bitmap of `clipWidth` x `clipHeight` one to one.
    bool IsWhole(const KQBitmap* bitmap, i32 clipWidth, i32 clipHeight) const;
};

// The place that `rect` (null: 0, 0) and a size describe.
Placement PlacementOf(const KQRectT<long>* rect, i32 width, i32 height);

// The part of a bitmap of `bitmapWidth` x `bitmapHeight` that a placed frame covers: left <= x < right. Empty parts
// have right <= left or bottom <= top.
struct Area {
    i32 left, top, right, bottom;
};
Area CoveredArea(const Placement& place, i32 bitmapWidth, i32 bitmapHeight);

// Whether any part of the frame lies on a bitmap of this size.
bool IsOnBitmap(const Placement& place, i32 bitmapWidth, i32 bitmapHeight);

// Whether each frame of the clip is a file of its own, going by these properties of its module.
inline bool IsSequence(const KQClip* clip, u32 properties) {
    return clip->frameCount >= 2 && !(properties & KQFORMAT_MULTIFRAME);
}

// Puts the file of one frame in the place of a sequence's specification while it lives.
class FrameFile {
public:
    explicit FrameFile(KQClip* clip) : clip_(clip), kept_(clip->fileSpec) {}
    ~FrameFile();
    FrameFile(const FrameFile&) = delete;
    FrameFile& operator=(const FrameFile&) = delete;

    // The existing file of source frame `frame`; false when there is none.
    bool ForReading(i32 frame);

    // The file to be written for number `number`; false when the number does not fit the name.
    bool ForWriting(i32 number);

private:
    char* RoomForName() const;

    KQClip* clip_;
    char* kept_;
    char* file_ = nullptr;
};

// What a fetch does to the frame.
enum FetchFlags : u32 {
    kKeepEvenRows = 1,   // interpolate the odd rows
    kKeepOddRows = 2,    // interpolate the even rows
    kSmooth = 4,         // vertical smoothing
    kReadAlpha = 8,      // interpret alpha
};

// Puts presented frame `frame`, as it lies in the edit list, into the 32-bit `bitmap`: pull-down, blending and the
// choice of a field are the caller's. A null `rect` means 0, 0. 1 also for a frame that does not exist, which reads as
// background; 0 with the background filled when the module or the frame's file fails, and without input begun.
int FetchFrame(KQClip* clip, i32 frame, KQBitmap* bitmap, u32 flags, const KQRectT<long>* rect, i32 width, i32 height);

// How a frame was asked for, passed down from GetFrameKQ.
struct FrameRequest {
    KQClip* clip;
    KQBitmap* bitmap;
    const KQRectT<long>* rect;
    i32 width, height;
    f64 time, duration;   // seconds
    f64 origin;           // seconds of the clip's frame 0
};

// The same for presented frame `frame` of the request, through pull-down removal when the clip has it.
int FetchPresented(const FrameRequest& request, i32 frame, KQBitmap* bitmap, u32 flags);

// Blend.cpp: the request resampled in time.
int BlendByFrames(const FrameRequest& request);
int BlendByFields(const FrameRequest& request);

// FilterRows.cpp: the row flags on a 32-bit bitmap; the first one set counts.
void FilterRows(KQBitmap* bitmap, u32 flags);

// InterpretAlpha.cpp: what the clip says of alpha, done to the pixels of `area` after reading.
void ReadAlpha(const KQClip* clip, KQBitmap* bitmap, const Area& area);

// EditFrame.cpp: fills `bitmap` with the bytes of scratch frame `number`; false when the file is short or unreadable,
// with the reason in `Error`, and when there is none, with `Error` as it was.
bool ReadScratch(KQClip* clip, i32 number, KQBitmap* bitmap);

}   // namespace kq
