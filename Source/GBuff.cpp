// Data planes: their records, their retrieval beside the frames, and point scaling of opaque samples.
#define KQ_MODULE "Source/GBuff"
#include "kq/gbuffers.h"

#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Frames.h"
#include "Source/SizeGate.h"

namespace {

constexpr int kChannels = 8;

i32 SampleBytes(GBufferFormat format) {
    constexpr i32 bytes[] = {1, 2, 4, 4, 3, 8, 8};
    return u32(format) < std::size(bytes) ? bytes[format] : 0;
}

// One axis of a scaling in 16.16 fixed point of 32 bits, which wraps: target places first to end, the source position
// at the first, and what it grows by.
struct Axis {
    i32 first, end;
    u32 start, step;

    Axis(i64 sourceAt, i64 sourceSize, i64 targetAt, i64 targetSize, i32 limit);
    i32 SourceAt(i32 place) const { return i32(start + u32(place - first) * step) >> 16; }
};

Axis::Axis(i64 sourceAt, i64 sourceSize, i64 targetAt, i64 targetSize, i32 limit)
    : first(i32(std::clamp<i64>(targetAt, 0, 0x7FFFFFFF))),
      end(i32(std::min<i64>(targetAt + targetSize, limit))),
      start(u32(sourceAt) << 16),
      step(u32(i64(i32(u32(sourceSize) << 16)) / targetSize)) {
    if (targetAt < 0) start += u32(-targetAt) * step;
}

void ScalePlane(const KQGBuffer* source, KQGBuffer* target, const Axis& across, const Axis& down) {
    i64 bytes = source->pixelBytes;
    for (i32 y = down.first; y < down.end; ++y) {
        i64 row = i64(down.SourceAt(y)) * source->rowBytes;
        u8* to = target->data + i64(y) * target->rowBytes + i64(across.first) * target->pixelBytes;
        for (i32 x = across.first; x < across.end; ++x, to += bytes) {
            i64 from = row + i64(across.SourceAt(x)) * bytes;
            // A place outside the source's memory, which only a rectangle beyond it gives, leaves the target alone.
            if (from >= 0 && from + bytes <= source->dataSize) std::memcpy(to, source->data + from, size_t(bytes));
        }
    }
}

// What is asked for, once tags and time are read.
struct PlaneRequest {
    KQClip* clip;
    u32 mask;
    KQGBufferArray* array;
    i32 frame;
    u32 keptRows;   // kKeepEvenRows, kKeepOddRows or 0
    kq::Placement place;
    i32 planeWidth, planeHeight;
};

// The rows of the field that is wanted. The fields are the other way round than those of frames, and doubled.
u32 KeptRows(const KQClip* clip, const KQTimeValue* time, const KQTimeValue* duration) {
    if (!clip->fieldOrder) return 0;
    f64 half = 1.0 / (2.0 * clip->frameRate);
    f64 length = kq::Seconds(duration ? *duration : KQTimeValue{1.0, clip->frameRate});
    if (half != 0.0 && length / half >= 1.02) return 0;
    f64 at = kq::Seconds(kq::TimeOr0(clip, time)) - kq::Seconds(clip->startTime);
    bool oddField = kq::TruncateToI32(2 * at * clip->frameRate + 1e-7) & 1;
    bool oddRows = oddField ? clip->fieldOrder == 2 : clip->fieldOrder == 1;
    return oddRows ? kq::kKeepOddRows : kq::kKeepEvenRows;
}

PlaneRequest ReadRequest(KQClip* clip, u32 mask, KQGBufferArray* array, const KQTimeValue* time,
                         const KQTimeValue* duration, TagItem* tags) {
    TagItem* width = FindTagItem(KQTAG_GBUFFER_WIDTH, tags);
    TagItem* height = FindTagItem(KQTAG_GBUFFER_HEIGHT, tags);
    TagItem* rectTag = FindTagItem(KQTAG_GBUFFER_RECT, tags);
    auto rect = rectTag ? reinterpret_cast<const KQRectT<long>*>(rectTag->Data) : nullptr;
    i32 w = width ? i32(width->Data) : clip->width, h = height ? i32(height->Data) : clip->height;
    PlaneRequest request = {clip,
                            mask & clip->gbufferMask & 0xFF,
                            array,
                            kq::FrameAt(clip, time),
                            KeptRows(clip, time, duration),
                            kq::PlacementOf(rect, w, h),
                            w,
                            h};
    if (rect) {
        request.planeWidth = i32(rect->width);
        request.planeHeight = i32(rect->height);
    }
    return request;
}

bool CanServe(const PlaneRequest& request) {
    const KQClip* clip = request.clip;
    return request.mask && kq::IsOnBitmap(request.place, clip->width, clip->height) && request.frame >= 0 &&
           request.frame < clip->sourceFrames && clip->format && clip->format->GetGBuffers;
}

int CallModule(const PlaneRequest& request) {
    KQClip* clip = request.clip;
    kq::FrameFile file(clip);
    i32 frame = request.frame;
    if (kq::IsSequence(clip, GetImportPropertiesKQ(clip->format))) {
        if (!file.ForReading(frame)) return 0;
        frame = 0;
    }
    return clip->format->GetGBuffers(clip, frame, request.mask, request.array);
}

// Replaces the plane by one of the size asked for; by null when out of memory.
void ScaleChannel(const PlaneRequest& request, KQGBuffer** plane) {
    KQGBuffer* scaled = AllocGBufferKQ(request.planeWidth, request.planeHeight, (*plane)->format);
    KQRectT<long> target = {long(-request.place.x), long(-request.place.y), request.place.width, request.place.height};
    ScaleGBufferKQ(*plane, scaled, nullptr, &target);
    FreeGBufferKQ(*plane);
    *plane = scaled;
}

// Doubles the lines of the kept field.
void DoubleRows(KQGBuffer* plane, u32 keptRows) {
    i32 kept = keptRows == kq::kKeepOddRows ? 1 : 0;
    for (i32 pair = 0; pair < plane->height / 2; ++pair) {
        u8* rows = plane->data + i64(2 * pair) * plane->rowBytes;
        std::memcpy(rows + (1 - kept) * plane->rowBytes, rows + kept * plane->rowBytes, size_t(plane->rowBytes));
    }
}

void ClearBytes(u8* at, i64 count) {
    if (count > 0) std::memset(at, 0, size_t(count));
}

// Clears what the frame does not cover. The band below is cleared by `width` bytes a row, each right behind the last,
// so that of planes with several bytes a sample only its beginning is.
void ClearMargins(KQGBuffer* plane, const kq::Placement& place) {
    kq::Area area = kq::CoveredArea(place, plane->width, plane->height);
    i32 top = std::min(area.top, plane->height), bottom = std::clamp(area.bottom, top, plane->height);
    i32 left = std::min(area.left, plane->width), right = std::clamp(area.right, 0, plane->width);
    ClearBytes(plane->data, i64(top) * plane->rowBytes);
    for (i32 y = top; y < bottom; ++y) {
        u8* row = plane->data + i64(y) * plane->rowBytes;
        ClearBytes(row, i64(left) * plane->pixelBytes);
        ClearBytes(row + i64(right) * plane->pixelBytes, i64(plane->width - right) * plane->pixelBytes);
    }
    i64 below = i64(plane->height - bottom) * plane->width;
    i64 from = i64(bottom) * plane->rowBytes;
    ClearBytes(plane->data + from, std::min<i64>(below, plane->dataSize - from));
}

void FinishChannel(const PlaneRequest& request, bool whole, KQGBuffer** plane) {
    if (*plane && !whole) ScaleChannel(request, plane);
    if (!*plane) return;
    if (request.keptRows) DoubleRows(*plane, request.keptRows);
    ClearMargins(*plane, request.place);
}

}   // namespace

KQGBuffer* AllocGBufferKQ(i32 width, i32 height, GBufferFormat format) {
    i32 bytes = SampleBytes(format);
    if (!kq::SizeFits(width, height, bytes * 8)) return nullptr;
    KQGBuffer* buffer = KQ_NEW(KQGBuffer);
    if (!buffer) return nullptr;
    buffer->width = width;
    buffer->height = height;
    buffer->pixelBytes = bytes;
    buffer->rowBytes = width * bytes;
    buffer->format = format;
    buffer->dataSize = height * buffer->rowBytes;
    buffer->data = static_cast<u8*>(KQ_ALLOC(size_t(buffer->dataSize), 0));
    if (buffer->data) return buffer;
    KQ_FREE(buffer);
    return nullptr;
}

void FreeGBufferKQ(KQGBuffer* buffer) {
    if (!buffer) return;
    KQ_FREE(buffer->data);
    KQ_FREE(buffer);
}

void FreeGBufferArrayKQ(KQGBufferArray* array) {
    if (!array) return;
    for (KQGBuffer*& plane : array->planes) {
        FreeGBufferKQ(plane);
        plane = nullptr;
    }
}

void ScaleGBufferKQ(const KQGBuffer* source, KQGBuffer* target, const KQRectT<long>* sourceRect,
                    const KQRectT<long>* targetRect) {
    if (!source || !target) return;
    KQRectT<long> from = sourceRect ? *sourceRect : KQRectT<long>{0, 0, source->width, source->height};
    KQRectT<long> to = targetRect ? *targetRect : KQRectT<long>{0, 0, target->width, target->height};
    if (to.width <= 0 || to.height <= 0 || source->pixelBytes != target->pixelBytes) return;
    Axis across(i32(from.x), i32(from.width), i32(to.x), i32(to.width), target->width);
    Axis down(i32(from.y), i32(from.height), i32(to.y), i32(to.height), target->height);
    ScalePlane(source, target, across, down);
}

int GetGBuffersKQ(KQClip* clip, u32 mask, KQGBufferArray* array, const KQTimeValue* time, const KQTimeValue* duration,
                  TagItem* tags) {
    if (!clip || !mask || !array) return 0;
    PlaneRequest request = ReadRequest(clip, mask, array, time, duration, tags);
    if (!CanServe(request) || !CallModule(request)) return 0;
    bool whole = request.place.x == 0 && request.place.y == 0 && request.place.width == clip->width &&
                 request.place.height == clip->height;
    for (int channel = 0; channel < kChannels; ++channel)
        if (request.mask >> channel & 1) FinishChannel(request, whole, &array->planes[channel]);
    return 1;
}

KQGBuffer* GetGBufferKQ(KQClip* clip, u32 mask, const KQTimeValue* time, const KQTimeValue* duration, TagItem* tags) {
    u32 lowest = mask & (0 - mask);
    if (!lowest || lowest >= 1u << kChannels) return nullptr;
    KQGBufferArray array = {};
    int done = GetGBuffersKQ(clip, lowest, &array, time, duration, tags);
    int channel = __builtin_ctz(lowest);
    KQGBuffer* plane = done ? array.planes[channel] : nullptr;
    if (done) array.planes[channel] = nullptr;
    FreeGBufferArrayKQ(&array);
    return plane;
}
