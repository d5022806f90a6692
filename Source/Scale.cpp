// Point scaling in 16.16 fixed point: every target pixel takes the nearest lower source pixel.
//
// Positions accumulate by addition in 32 bits and wrap as such; truncation and wrap are part of the result. The source
// is not clipped, so a pixel whose place falls outside the source's memory, or outside a row that is padded, leaves the
// target alone.
#include <algorithm>

#include "Source/Sampling.h"
#include "kq/bitmap.h"

namespace {

using kq::Block;
using kq::Form;

// The words of 32 bits that the positions are made of wrap; computed unsigned, where that is defined.
i32 WrapAdd(i32 a, i32 b) { return i32(u32(a) + u32(b)); }
i32 WrapMultiply(i32 a, i32 b) { return i32(u32(a) * u32(b)); }
i32 ToFixed(i32 pixels) { return i32(u32(pixels) << 16); }

// size is not 0. The one quotient that does not fit wraps too.
i32 Step(i32 sourceSize, i32 size) {
    i32 fixed = ToFixed(sourceSize);
    return size == -1 ? i32(0u - u32(fixed)) : fixed / size;
}

// One axis: target places `first` to `end`, whose source positions start at `start` and grow by `step`.
struct Axis {
    i32 start, step;
    i32 first, end;
};

Axis MakeAxis(i32 sourceStart, i32 sourceSize, i32 targetStart, i32 targetSize, i32 targetLimit) {
    Axis axis{ToFixed(sourceStart), Step(sourceSize, targetSize), targetStart,
              i32(std::min<i64>(i64(targetStart) + targetSize, targetLimit))};
    if (targetStart < 0) {
        axis.start = WrapAdd(axis.start, WrapMultiply(i32(0u - u32(targetStart)), axis.step));
        axis.first = 0;
    }
    return axis;
}

struct Plan {
    Axis x, y;
};

struct Place {
    i32 x, y, width, height;
};

Place PlaceOf(const KQRectT<long>* rect, const Block& whole) {
    if (!rect) return {0, 0, whole.width, whole.height};
    return {i32(rect->x), i32(rect->y), i32(rect->width), i32(rect->height)};
}

// Reads the bytes of the pixel at (x, y); those behind the block, or in a row's padding, are 0. False when the pixel
// starts outside.
bool Fetch(const Block& block, i64 x, i64 y, i64 bytes, u8* pixel) {
    i64 offset = block.Offset(x, y);
    if (offset < 0 || offset >= block.size) return false;
    if (block.Padded() && (x < 0 || x >= block.width)) return false;
    if (block.Padded()) bytes = std::min(bytes, (block.width - x) * block.pixelBytes);
    std::memset(pixel, 0, 4);
    std::memcpy(pixel, block.data + offset, size_t(std::min(bytes, block.size - offset)));
    return true;
}

void ScaleChecked(const Block& source, const Block& target, const Plan& plan, Form from, Form to) {
    kq::PixelMove move = kq::PlainMove(from, to);
    i32 sourceY = plan.y.start;
    for (i32 y = plan.y.first; y < plan.y.end; ++y, sourceY = WrapAdd(sourceY, plan.y.step)) {
        i32 sourceX = plan.x.start;
        for (i32 x = plan.x.first; x < plan.x.end; ++x, sourceX = WrapAdd(sourceX, plan.x.step)) {
            u8 pixel[4];
            if (Fetch(source, sourceX >> 16, sourceY >> 16, kq::PixelBytes(from), pixel))
                move(pixel, target.data + target.Offset(x, y));
        }
    }
}

// Whether an axis stays below `limit` in the source, without a wrap of its positions.
bool StaysInside(const Axis& axis, i64 limit) {
    i64 last = axis.start + i64(axis.end - axis.first - 1) * axis.step;
    i64 least = std::min<i64>(axis.start, last), most = std::max<i64>(axis.start, last);
    return least >= 0 && most <= 0x7FFFFFFF && most >> 16 < limit;
}

// The fast way needs positions that do not wrap, pixels of the source's own, and two blocks that share no memory.
bool CanSample(const Block& source, const Block& target, const Plan& plan, Form from) {
    return StaysInside(plan.x, source.width) && StaysInside(plan.y, source.height) && !Overlap(source, target) &&
           source.pixelBytes >= kq::PixelBytes(from);
}

kq::Sampling SamplingOf(const Block& source, const Block& target, const Plan& plan) {
    return {.from = source.data + source.first,
            .fromStep = source.rowBytes,
            .rowLength = i64(source.width) * source.pixelBytes,
            .fromBytes = source.pixelBytes,
            .to = target.data + target.Offset(plan.x.first, plan.y.first),
            .toStep = target.rowBytes,
            .width = plan.x.end - plan.x.first,
            .rows = plan.y.end - plan.y.first,
            .startX = plan.x.start,
            .stepX = plan.x.step,
            .startY = plan.y.start,
            .stepY = plan.y.step};
}

void ScaleBlock(const Block& source, const Block& target, const KQRectT<long>* sourceRect,
                const KQRectT<long>* targetRect, Form from, Form to) {
    Place taken = PlaceOf(sourceRect, source), given = PlaceOf(targetRect, target);
    if (given.width <= 0 || given.height <= 0) return;
    Plan plan{MakeAxis(taken.x, taken.width, given.x, given.width, target.width),
              MakeAxis(taken.y, taken.height, given.y, given.height, target.height)};
    if (plan.x.first >= plan.x.end || plan.y.first >= plan.y.end) return;
    if (CanSample(source, target, plan, from))
        kq::SamplePixels(SamplingOf(source, target, plan), from, to);
    else
        ScaleChecked(source, target, plan, from, to);
}

}   // namespace

void ScaleBitmapKQ(const KQBitmap* source, KQBitmap* target, const KQRectT<long>* sourceRect,
                   const KQRectT<long>* targetRect) {
    if (source->depth != target->depth || (source->depth != 32 && source->depth != 8)) return;
    Form form = source->depth == 32 ? Form::Argb : Form::Byte;
    ScaleBlock(kq::BlockOf(*source), kq::BlockOf(*target), sourceRect, targetRect, form, form);
}

void ScaleBitmapKQ(const KQNativeBitmap* source, KQNativeBitmap* target, const KQRectT<long>* sourceRect,
                   const KQRectT<long>* targetRect) {
    Form from, to;
    if (!kq::NativeForm(source->depth, &from) || !kq::NativeForm(target->depth, &to)) return;
    ScaleBlock(kq::BlockOf(*source), kq::BlockOf(*target), sourceRect, targetRect, from, to);
}

void ScaleBitmapKQ(const KQBitmap* source, KQNativeBitmap* target, const KQRectT<long>* sourceRect,
                   const KQRectT<long>* targetRect) {
    Form to;
    if (!kq::NativeForm(target->depth, &to)) return;
    ScaleBlock(kq::BlockOf(*source), kq::BlockOf(*target), sourceRect, targetRect, Form::Argb, to);
}

void ScaleBitmapKQ(const KQNativeBitmap* source, KQBitmap* target, const KQRectT<long>* sourceRect,
                   const KQRectT<long>* targetRect) {
    if (target->depth != 32) return;
    // The choice goes by the target's depth: 16-bit pixels are read as the three bytes at their place all the same.
    ScaleBlock(kq::BlockOf(*source), kq::BlockOf(*target), sourceRect, targetRect, Form::Bgr, Form::Argb);
}
