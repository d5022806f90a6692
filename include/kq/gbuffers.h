// Data planes beside a clip's frames, such as those of a 3D renderer: samples that the format module and the
// application know the meaning of, and that the library moves as opaque bytes.
#pragma once

#include "kq/clip.h"
#include "kq/rect.h"
#include "kq/tags.h"
#include "kq/types.h"

// What a plane's samples are, as module and application agree; for the library, how many bytes one has.
enum GBufferFormat : u32 {
    KQGBUFFER_Format0 = 0,   // 1 byte
    KQGBUFFER_Format1 = 1,   // 2 bytes
    KQGBUFFER_Format2 = 2,   // 4 bytes
    KQGBUFFER_Format3 = 3,   // 4 bytes
    KQGBUFFER_Format4 = 4,   // 3 bytes
    KQGBUFFER_Format5 = 5,   // 8 bytes
    KQGBUFFER_Format6 = 6,   // 8 bytes
};

// One plane.
struct KQGBuffer {
    i32 width, height;
    i32 pixelBytes;   // bytes of a sample
    i32 rowBytes;     // width * pixelBytes
    GBufferFormat format;
    u8* data;       // the samples, the top row first; owned
    i32 dataSize;   // height * rowBytes
    u32 reserved;   // 0
};

// The planes of one frame: entry i belongs to bit 1 << i of a channel mask.
struct KQGBufferArray {
    KQGBuffer* planes[8];
};

static_assert(offsetof(KQGBuffer, format) == 16 && offsetof(KQGBuffer, data) == 24 && sizeof(KQGBuffer) == 40);
static_assert(sizeof(KQGBufferArray) == 64);

// Tags of GetGBuffersKQ and GetGBufferKQ.
inline constexpr u32 KQTAG_GBUFFER_RECT = 12288;     // KQRectT<long>*: x, y of the frame at the plane's top left, and
                                                     // the plane's size; default 0, 0 and the size asked for
inline constexpr u32 KQTAG_GBUFFER_WIDTH = 12289;    // i32: width at which the frame is rendered; default the clip's
inline constexpr u32 KQTAG_GBUFFER_HEIGHT = 12290;   // i32: height likewise

// A plane with undefined samples, freed with FreeGBufferKQ. An unknown format has samples of 0 bytes. Null for a size
// that is negative or too large for the record, and when out of memory.
KQ_API KQGBuffer* AllocGBufferKQ(i32 width, i32 height, GBufferFormat format);

// Frees the plane; null is ignored.
KQ_API void FreeGBufferKQ(KQGBuffer* buffer);

// Frees all planes of the array and clears it. Null is ignored.
KQ_API void FreeGBufferArrayKQ(KQGBufferArray* array);

// Resamples `sourceRect` into `targetRect` by point sampling, as ScaleBitmapKQ does; null rectangles mean the whole.
// Both planes have one format. Does nothing for a null plane; the target is clipped, the source rectangle must lie in
// the source.
KQ_API void ScaleGBufferKQ(const KQGBuffer* source, KQGBuffer* target, const KQRectT<long>* sourceRect,
                           const KQRectT<long>* targetRect);

// Fetches the planes of the channels in `mask` that the clip offers, for the source frame at `time` (null: 0) and for
// `duration` (null: one frame; a single field when it is shorter). The caller clears the array before and frees it with
// FreeGBufferArrayKQ after, also when the call fails. Entries of other channels stay. Non-zero on success; 0 for a null
// clip, for a mask that is empty or of which the clip offers nothing, for a frame outside the source or off the planes,
// and when the module or the frame's file fails. Edits, pull-down and alpha do not touch planes.
KQ_API int GetGBuffersKQ(KQClip* clip, u32 mask, KQGBufferArray* array, const KQTimeValue* time,
                         const KQTimeValue* duration, TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
int GetGBuffersKQ(KQClip* clip, u32 mask, KQGBufferArray* array, const KQTimeValue* time, const KQTimeValue* duration,
                  Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return GetGBuffersKQ(clip, mask, array, time, duration, tags.data());
}

// The plane of the lowest bit set in `mask`, which the caller frees with FreeGBufferKQ; null for an empty mask and for
// what GetGBuffersKQ refuses.
KQ_API KQGBuffer* GetGBufferKQ(KQClip* clip, u32 mask, const KQTimeValue* time, const KQTimeValue* duration,
                               TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
KQGBuffer* GetGBufferKQ(KQClip* clip, u32 mask, const KQTimeValue* time, const KQTimeValue* duration, Tag tag,
                        Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return GetGBufferKQ(clip, mask, time, duration, tags.data());
}
