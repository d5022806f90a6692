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

// A block of format-specific options: `data` points just behind this head, where `length` bytes follow. One allocation
// of AllocMemoryKQ; copied whole, and the copy's `data` points into the copy.
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
    MinNode openNode;         // the library's link in the environment's list of open clips; cleared while closed
    void* editIndex;          // the library's index over an editList of more than 256 runs, or null; owned. Who changes
                              // counts of such a list in place frees it (FreeMemoryKQ) and sets null here
};

// The layout that format modules compile against.
static_assert(sizeof(KQTimeValue) == 16 && offsetof(KQTimeValue, scale) == 8);
static_assert(sizeof(KQClipOptions) == 16 && offsetof(KQClipOptions, length) == 8);
static_assert(offsetof(KQClipTrack, word) == 32 && offsetof(KQClipTrack, width) == 44);
static_assert(offsetof(KQClipTrack, depth) == 52 && sizeof(KQClipTrack) == 104);
static_assert(sizeof(KQEditRun) == 8);
static_assert(offsetof(KQClip, moduleData) == 16 && offsetof(KQClip, clipId) == 32);
static_assert(offsetof(KQClip, frameCount) == 48 && offsetof(KQClip, frameRate) == 56);
static_assert(offsetof(KQClip, startTime) == 80 && offsetof(KQClip, flags) == 96 && offsetof(KQClip, track) == 104);
static_assert(offsetof(KQClip, scaleMode) == 116 && offsetof(KQClip, alphaMode) == 120);
static_assert(offsetof(KQClip, matteColor) == 144 && offsetof(KQClip, pixelAspect) == 176);
static_assert(offsetof(KQClip, backgroundColor) == 184 && offsetof(KQClip, clipVersion) == 192);
static_assert(offsetof(KQClip, tracks) == 200 && offsetof(KQClip, editCapacity) == 224);
static_assert(offsetof(KQClip, editList) == 240 && offsetof(KQClip, firstNumber) == 248);
static_assert(offsetof(KQClip, frameNumbers) == 256 && sizeof(KQClip) == 288);

// Tags of OpenClipKQ.
inline constexpr u32 KQTAG_CLIP_NOASK = 8192;          // accept a detected sequence without asking
inline constexpr u32 KQTAG_CLIP_SINGLE = 8193;         // take the file by itself, not as part of a sequence
inline constexpr u32 KQTAG_CLIP_DEFAULT_RATE = 8194;   // f64*: sourceRate the module starts from, in place of 30.0
inline constexpr u32 KQTAG_CLIP_SOURCE = 8195;         // KQClip*: with KQTAG_CLIP_TRACK, make a clone of this clip
inline constexpr u32 KQTAG_CLIP_TRACK = 8196;          // i32: 1-based entry of tracks to present
inline constexpr u32 KQTAG_CLIP_NOGUESS = 8197;        // do not guess the alpha interpretation
inline constexpr u32 KQTAG_CLIP_EXTENSION = 8198;      // four chars: extension code in place of the file name's

// Tags of SetClipOptionsKQ.
inline constexpr u32 KQTAG_CLIP_RATE = 4096;            // f64*: sets frameRate
inline constexpr u32 KQTAG_CLIP_FIELDS = 4097;          // i32: sets fieldOrder
inline constexpr u32 KQTAG_CLIP_PULLDOWN = 4098;        // i32: sets pullDown, and works out rates and frameCount again
inline constexpr u32 KQTAG_CLIP_ALPHA = 4099;           // i32: sets alphaMode
inline constexpr u32 KQTAG_CLIP_ALPHA_INVERT = 4100;    // i32: sets alphaInvert
inline constexpr u32 KQTAG_CLIP_PREMULTIPLIED = 4101;   // i32: sets alphaPremultiplied
inline constexpr u32 KQTAG_CLIP_MATTE = 4102;           // const KQFloatRGB*: copied to matteColor
inline constexpr u32 KQTAG_CLIP_ASPECT = 4103;          // f64*: sets pixelAspect
inline constexpr u32 KQTAG_CLIP_WIDTH = 4104;           // i32: sets width, reduced by scaleMode
inline constexpr u32 KQTAG_CLIP_HEIGHT = 4105;          // i32: sets height, reduced by scaleMode

// Tags of GetFrameKQ.
inline constexpr u32 KQTAG_FRAME_RECT = 3840;     // KQRectT<long>*: x, y of the frame at the bitmap's top left
inline constexpr u32 KQTAG_FRAME_WIDTH = 3841;    // i32: width at which the whole frame is rendered; default bitmap's
inline constexpr u32 KQTAG_FRAME_HEIGHT = 3842;   // i32: height likewise

// A cleared clip with its defaults and the next clipId; freed with FreeClipKQ. Null and `Error` 1 when out of memory.
KQ_API KQClip* NewClipKQ();

// Opens `fileSpec` (copied) through the first module of the registry that takes it; a numbered file of a single-frame
// format becomes an image sequence. Null on failure, with the reason in `Error`: 1, 11 no such file, 14 no module takes
// it, 16 the module refuses it, 17 the module failed, 18 the user refused the sequence. The caller ends with
// CloseClipKQ and FreeClipKQ. With KQTAG_CLIP_SOURCE and KQTAG_CLIP_TRACK `fileSpec` is not looked at: the result is a
// clone of the source that presents one of its tracks. The module sees the tags as well.
KQ_API KQClip* OpenClipKQ(const char* fileSpec, TagItem* tags);

// Reopens a clip that was closed; non-zero on success. Edits and interpretation survive, but scratch frames are gone
// and read as background. 0 for a null clip, for one without a module (`Error` 0) and when the module fails.
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

// Creates the file of a clip for writing; `mode` is kept in createMode and given to the module. The caller has set
// fileSpec, size, rate and format; a null format takes the first module of the registry. Non-zero on success; 0 for a
// null clip, for a module that does not write (`Error` 0) and with `Error` 17 when the module fails.
KQ_API int CreateClipKQ(KQClip* clip, u32 mode);

// Closes the clip's file and deletes its scratch frames. The record stays and may be reopened. Null is ignored.
// CleanUpKQ closes what is still open then.
KQ_API void CloseClipKQ(KQClip* clip);

// Frees the record and what it owns; does not close. Null is ignored.
KQ_API void FreeClipKQ(KQClip* clip);

// Copies every field of `source` but clipId, moduleData and gbufferMask to `target`, or to a new clip when `target` is
// null; options, fileSpec, tracks, edit list and frame numbers are copies of their own and replace the target's. The
// result is the clip, or null with `Error` 1 and the target as it was. Scratch frames are not copied: they belong to
// the source's clipId.
KQ_API KQClip* CloneClipKQ(const KQClip* source, KQClip* target);

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

// Sets what the tags name, in their order. With KQTAG_CLIP_PULLDOWN the rates and frameCount follow at the end: a
// phase of 1 to 5 presents four fifths of the source's frames, 0 goes back to all of them; a clip that is there
// already is left alone. With KQTAG_CLIP_RATE in the same call the source's rate follows the given one, else both
// start from nativeRate. A null clip is ignored, and so is a null where a pointer is expected.
KQ_API void SetClipOptionsKQ(KQClip* clip, TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
void SetClipOptionsKQ(KQClip* clip, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    SetClipOptionsKQ(clip, tags.data());
}

// Shows the options dialog of the clip's format. What was chosen becomes the default of the format's next clips. Does
// nothing for a null clip, one without a module or a format without a dialog.
KQ_API void ClipOptionsKQ(KQClip* clip);

// Makes the scratch folder lie in the folder of `fileSpec` (up to its last separator) in place of the program's; null
// goes back to that. To be called before the first edit: frames in the scratch folder used so far go with it.
KQ_API void SetScratchDirKQ(const char* fileSpec);

// Writes the name for a new file of the clip to `result`: `baseName` (may be null), "[#####]" when it will be a
// sequence, and the format's first extension. Empty for a null clip or one without a module. `result` holds what
// `baseName` needs and 12 bytes more.
KQ_API void MakeDefaultClipNameKQ(KQClip* clip, const char* baseName, char* result);

// The path of scratch frame `number` (negative) of the clip, of its alpha when `alpha` is non-zero; makes the folder
// when there is none. The text stands in a buffer of the environment and is good until the next call of the library.
// Null for a number of 0 or above, a null clip, and a folder whose path is too long for the buffer.
KQ_API char* Make_TempName(KQClip* clip, i32 number, int alpha);

// Puts the frame at `time` (null: 0) for `duration` (null: one frame) into the 32-bit `bitmap`, in straight alpha.
// Non-zero on success. A frame that does not exist fills with the clip's background and succeeds; a frame that fails
// fills likewise and returns 0. A frame that the end of its file cuts succeeds with the pixels that are there and leaves
// KQERR_READ in `Error`. Needs BeginClipIOKQ.
KQ_API int GetFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration,
                      TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int GetFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, Tag tag,
               Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return GetFrameKQ(clip, bitmap, time, duration, tags.data());
}
