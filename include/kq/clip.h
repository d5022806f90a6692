// Clips: timed image material, from a film file, a numbered sequence, a still or a list of bitmaps in memory.
//
// What is common stands in KQClip; what depends on a file format goes through the slots of a KQFormatDesc
// (kq/formats.h). A clip is used from one thread at a time.
#pragma once

#include "kq/bitmap.h"
#include "kq/lists.h"
#include "kq/tags.h"
#include "kq/types.h"

struct KQFormatDesc;

// A rational time: seconds are value / scale, and 0.0 when scale is 0.0. Never reduced.
struct KQTimeValue {
    f64 value;
    f64 scale;
};

// A block of format-specific options: `data` points just behind this head, where `length` bytes follow.
struct KQClipOptions {
    u8* data;
    u32 length;
};

// A selectable part of a multi-part file, made by format modules; all words are copied as they stand.
struct KQClipTrack {
    Node node;
    u32 word;
    u32 plain0[2];
    i32 width, height, depth;
    u32 plain1[3];
    u32 more[8];
};

// A run of the edit list: frames start, start + 1, ... of the source, or, when start is negative, the scratch frames
// start, start - 1, ...
struct KQEditRun {
    i32 start;
    i32 count;
};

// Bits of KQClip::flags.
enum : u32 {
    KQCLIP_WRITING = 1,       // created for writing
    KQCLIP_BLEND = 2,         // GetFrameKQ resamples in time by blending; set by the application
    KQCLIP_ALPHA_KNOWN = 4,   // the alpha interpretation is settled
    KQCLIP_OPEN = 8,          // the clip is open
    KQCLIP_IO = 16,           // between BeginClipIOKQ and EndClipIOKQ
};

// A clip. Every field is public to format modules and to the application.
struct KQClip {
    KQFormatDesc* format;     // the module that serves this clip; null until chosen
    KQClipOptions* options;   // owned, null when none
    void* moduleData;         // the module's own
    char* fileSpec;           // owned
    i32 clipId;               // serial number; names this clip's scratch files
    i32 width, height;        // of a frame in pixels
    i32 depth;                // bits a pixel of the source; 32: the source has alpha
    i32 frameCount;           // frames as presented, after edits and pull-down removal
    i32 sourceFrames;         // frames of the source
    f64 frameRate;            // presented frames a second
    f64 sourceRate;           // frames a second of the source, set by the module
    f64 nativeRate;           // sourceRate as the clip was opened
    KQTimeValue startTime;    // time of frame 0
    u32 flags;                // KQCLIP_ bits
    u32 createMode;           // the mode given to CreateClipKQ
    i32 track;                // 1-based entry of tracks; 0: the whole file
    i32 nativeWidth, nativeHeight;   // full size of the source, for scaleMode 4
    i32 scaleMode;            // 0 none, 1 half, 2 quarter, 3 eighth, 4 full source size
    i32 alphaMode;            // 0 none: opaque; 1 grey matte in the colours; 2 the stored alpha
    i32 fieldOrder;           // 0 progressive; 1 or 2 the two field dominances
    i32 pullDown;             // 0 none; 1 to 5 the phase of 3:2 pull-down removal
    i32 alphaInvert;          // non-zero: the stored alpha is inverted
    i32 alphaPremultiplied;   // non-zero: colours are premultiplied by matteColor
    KQFloatRGB matteColor;
    f64 pixelAspect;          // width of a pixel against its height
    u32 backgroundColor;      // packed; fills a bitmap whose frame does not exist or failed
    u32 gbufferMask;          // channels of data planes that the clip offers
    i32 clipVersion;          // 1
    List tracks;              // KQClipTrack nodes; owned
    i32 editCapacity;         // entries allocated in editList
    i32 editCount;            // entries in use
    i32 scratchCount;         // highest scratch frame number handed out
    KQEditRun* editList;      // null until the first edit; owned
    i32 firstNumber;          // number of the first file of a sequence
    i32 numberStep;           // step between the numbers of a sequence
    i32* frameNumbers;        // file number of each source frame; null: number equals index; owned
};

// Tags of OpenClipKQ.
inline constexpr u32 KQTAG_CLIP_NOASK = 8192;          // accept a detected sequence without asking
inline constexpr u32 KQTAG_CLIP_SINGLE = 8193;         // take the file by itself, not as part of a sequence
inline constexpr u32 KQTAG_CLIP_DEFAULT_RATE = 8194;   // f64*: sourceRate the module starts from, in place of 30.0
inline constexpr u32 KQTAG_CLIP_SOURCE = 8195;         // KQClip*: with KQTAG_CLIP_TRACK, make a clone of this clip
inline constexpr u32 KQTAG_CLIP_TRACK = 8196;          // i32: 1-based entry of tracks to present
inline constexpr u32 KQTAG_CLIP_NOGUESS = 8197;        // do not guess the alpha interpretation
inline constexpr u32 KQTAG_CLIP_EXTENSION = 8198;      // four chars: extension code in place of the file name's

// Tags of GetFrameKQ.
inline constexpr u32 KQTAG_FRAME_RECT = 3840;     // KQRectT<long>*: x, y of the frame at the bitmap's top left
inline constexpr u32 KQTAG_FRAME_WIDTH = 3841;    // i32: width at which the whole frame is rendered; default bitmap's
inline constexpr u32 KQTAG_FRAME_HEIGHT = 3842;   // i32: height likewise

// A cleared clip with its defaults; freed with FreeClipKQ. Null and `Error` 1 when out of memory.
KQ_API KQClip* NewClipKQ();

// Opens `fileSpec` through the first format module that takes it. Null on failure with the reason in `Error`. The
// caller ends with CloseClipKQ and FreeClipKQ.
KQ_API KQClip* OpenClipKQ(const char* fileSpec, TagItem* tags);

// Reopens a clip that was closed; non-zero on success. Edits and interpretation survive.
KQ_API int OpenClipKQ(KQClip* clip, TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
KQClip* OpenClipKQ(const char* fileSpec, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return OpenClipKQ(fileSpec, tags.data());
}

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int OpenClipKQ(KQClip* clip, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return OpenClipKQ(clip, tags.data());
}

// Closes the clip's file and deletes its scratch frames. The record stays and may be reopened. Null is ignored.
KQ_API void CloseClipKQ(KQClip* clip);

// Frees the record and what it owns; does not close. Null is ignored.
KQ_API void FreeClipKQ(KQClip* clip);

// Opens the module's input or output; non-zero on success, else `Error` is 17. The tags are not read.
KQ_API int BeginClipIOKQ(KQClip* clip, TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int BeginClipIOKQ(KQClip* clip, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return BeginClipIOKQ(clip, tags.data());
}

// Ends what BeginClipIOKQ began; the result is the module's. The tags are not read.
KQ_API int EndClipIOKQ(KQClip* clip, TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int EndClipIOKQ(KQClip* clip, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return EndClipIOKQ(clip, tags.data());
}

// Puts the frame at `time` (null: 0) for `duration` (null: one frame) into the 32-bit `bitmap`, in straight alpha.
// Non-zero on success. A frame that does not exist fills with the clip's background and succeeds; a frame that fails
// fills likewise and returns 0. Needs BeginClipIOKQ.
KQ_API int GetFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration,
                      TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int GetFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, Tag tag,
               Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return GetFrameKQ(clip, bitmap, time, duration, tags.data());
}
