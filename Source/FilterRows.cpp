// The row filters of a fetched frame: one field interpolated to a frame, and vertical smoothing. They work in place on
// whole rows, alpha like the colours; a frame of one row stays as it is.
#define KQ_MODULE "Source/FilterRows"
#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Frames.h"
#include "Source/Parallel.h"
#include "Source/RowFilter.h"

namespace kq {

namespace {

u8* Row(KQBitmap* bitmap, i32 y) { return bitmap->data + i64(y) * bitmap->rowBytes; }

void CopyRow(KQBitmap* bitmap, i32 from, i32 to) {
    std::memcpy(Row(bitmap, to), Row(bitmap, from), size_t(bitmap->rowBytes));
}

// Interpolates every second row from `first` on that has neighbours above and below.
void Interpolate(KQBitmap* bitmap, i32 first) {
    struct Work {
        KQBitmap* bitmap;
        i32 first;
    } all{bitmap, first};
    auto rows = [](i64 top, i64 bottom, const void* data) {
        auto& work = *static_cast<const Work*>(data);
        for (i64 k = top; k < bottom; ++k) {
            i32 y = i32(work.first + 2 * k);
            AverageRows(Row(work.bitmap, y), Row(work.bitmap, y - 1), Row(work.bitmap, y + 1),
                        size_t(work.bitmap->rowBytes));
        }
    };
    i64 count = std::max<i64>(0, (i64(bitmap->height) - first) / 2);
    ShareRows(rows, &all, count, i64(bitmap->width) * bitmap->height * 4);
}

void KeepEvenRows(KQBitmap* bitmap) {
    Interpolate(bitmap, 1);
    if (bitmap->height % 2 == 0) CopyRow(bitmap, bitmap->height - 2, bitmap->height - 1);
}

void KeepOddRows(KQBitmap* bitmap) {
    CopyRow(bitmap, 1, 0);
    Interpolate(bitmap, 2);
    if (bitmap->height % 2 == 1) CopyRow(bitmap, bitmap->height - 2, bitmap->height - 1);
}

// Each row is smoothed from unfiltered ones: the row above is kept as it was. Without memory for it nothing is done.
void Smooth(KQBitmap* bitmap) {
    size_t bytes = size_t(bitmap->rowBytes);
    i32 last = bitmap->height - 1;
    u8* above = static_cast<u8*>(KQ_ALLOC(bytes, 0));
    if (!above) return;
    std::memcpy(above, Row(bitmap, 0), bytes);
    HalveRow(Row(bitmap, 0), Row(bitmap, 1), bytes);
    for (i32 y = 1; y < last; ++y) SmoothRow(Row(bitmap, y), above, Row(bitmap, y + 1), bytes);
    HalveRow(Row(bitmap, last), above, bytes);
    KQ_FREE(above);
}

}   // namespace

void FilterRows(KQBitmap* bitmap, u32 flags) {
    if (bitmap->height < 2) return;
    if (flags & kKeepEvenRows)
        KeepEvenRows(bitmap);
    else if (flags & kKeepOddRows)
        KeepOddRows(bitmap);
    else if (flags & kSmooth)
        Smooth(bitmap);
}

}   // namespace kq
