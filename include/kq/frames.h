// Frames into a clip, the alpha of frames that go out, and the guesses at how a clip was made.
//
// A clip is edited without touching its file: changed and inserted frames lie in the scratch folder, and the clip's
// edit list says which of its frames is which. All calls belong to the clip's one thread.
#pragma once

#include "kq/bitmap.h"
#include "kq/clip.h"
#include "kq/rect.h"
#include "kq/tags.h"
#include "kq/types.h"

struct KQNativeBitmap;

// Tag of AddFrameKQ.
inline constexpr u32 KQTAG_FRAME_SOURCE_RECT = 3844;   // KQRectT<long>*: part of the bitmap to add; default the whole

// Replaces the frame at `time` (null: frame 0) by `bitmap`, which has 32 bits and the clip's size. Under pull-down the
// frame is split over the source frames that it is made of. The duration and the tags are not read. Non-zero on
// success; 0 with the reason in `Error` when memory or the scratch file cannot be had, with what was stored before
// intact, and for a frame that the clip does not have. Under pull-down a second half that cannot be stored is no
// failure.
KQ_API int ModifyFrameKQ(KQClip* clip, const KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration,
                         TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int ModifyFrameKQ(KQClip* clip, const KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, Tag tag,
                  Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return ModifyFrameKQ(clip, bitmap, time, duration, tags.data());
}

// Writes `bitmap` through the clip's module as the frame at `time` (null: 0), at the end of the file for most formats;
// a clip of a format that holds one frame a file is written as a sequence. The clip's alpha settings are applied by the
// module. The result is that of the module: non-zero on success; 0 when it fails (`Error` 17 unless it left a code of
// its own), and for a clip whose module does not write.
KQ_API int AddFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration,
                      TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int AddFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, Tag tag,
               Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return AddFrameKQ(clip, bitmap, time, duration, tags.data());
}

// Takes the frame at `time` (null: 0) out of what the clip presents. Non-zero on success; 0 for a null clip, a frame at
// or past frameCount and when out of memory.
KQ_API int DeleteFrameKQ(KQClip* clip, const KQTimeValue* time);

// Inserts a frame behind the frame at `time` (null: 0); it reads as background until it is modified. Behind the first
// frame of a run of the edit list other than the first run, it lands behind that whole run. Results as DeleteFrameKQ.
KQ_API int InsertFrameAfterKQ(KQClip* clip, const KQTimeValue* time);

// Inserts a frame before the frame at `time` (null: 0), which reads as background until it is modified. Results as
// DeleteFrameKQ.
KQ_API int InsertFrameBeforeKQ(KQClip* clip, const KQTimeValue* time);

// Writes `source`, in straight alpha, to `target` as the clip's file is to hold it: grey matte, stored, inverted or
// matted alpha by the clip's fields. Both have 32 bits and the same size, and may be the same bitmap. The whole bitmap
// is done whatever `rect` says. 0 for a null or another depth.
KQ_API int Interpret_Alpha(const KQClip* clip, const KQBitmap* source, KQBitmap* target, const KQRectT<long>* rect);

// The same to a display format of 16, 24 or 32 bits, which has no alpha.
KQ_API int Interpret_Alpha(const KQClip* clip, const KQBitmap* source, KQNativeBitmap* target,
                           const KQRectT<long>* rect);

// Looks for the cadence of 3:2 pull-down in up to three stretches of 20 frames. Non-zero when one was found: `pullDown`
// is set through SetClipOptionsKQ, and `fieldOrder` to the dominance; else both are as they were. Opens and closes a
// closed clip. Nobody else may use the clip meanwhile.
KQ_API int GuessPullDownKQ(KQClip* clip);

// Looks at the first frame and sets alphaMode, alphaInvert, alphaPremultiplied and matteColor. Non-zero when the frame
// could be examined; else the fields are as they were. Opens and closes a closed clip.
KQ_API int GuessAlphaKQ(KQClip* clip);
