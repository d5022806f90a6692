// Copies between portable and native bitmaps, all reduced to one walk over the rows of two blocks.
//
// The calls clip by the target alone and leave the source's columns to the caller; here every row is cut to the memory
// that both bitmaps own, so that a wrong rectangle reads a neighbouring row at worst. Rows that are padded are cut at
// their own ends: padding holds no pixels.
#include "Source/BitmapCopy.h"

#include <algorithm>

#include "Source/ByteRows.h"
#include "Source/Sampling.h"
#include "kq/bitmap.h"

namespace kq {

namespace {

// Cuts a run of `count` pixels of `bytes` bytes, the first at `offset`, to a block of `size` bytes. Returns how many
// fall out at the front.
i64 CutRun(i64 offset, i64 step, i64 bytes, i64 size, i64* count) {
    i64 front = offset < 0 ? (-offset + step - 1) / step : 0;
    i64 fit = size - offset < bytes ? 0 : (size - offset - bytes) / step + 1;
    *count = std::min(*count, fit) - front;
    return front;
}

// The far edge of a rectangle's side, cut so that words of any size do not overflow.
i64 EdgeOf(i64 start, i64 size) {
    constexpr i64 kFar = i64(1) << 40;
    return std::clamp(start, -kFar, kFar) + std::clamp(size, -kFar, kFar);
}

// Cuts a run of `count` pixels that starts in column `x` to the row's own columns, where the row is padded. Returns how
// many fall out at the front.
i64 CutPadding(const Block& block, i64 x, i64* count) {
    if (!block.Padded()) return 0;
    i64 front = std::max<i64>(0, -x);
    *count = std::min(*count, block.width - x) - front;
    return front;
}

// Rows that both bitmaps have, cut to the memory of both: `run` moves `count` pixels from one address to the other.
template <class Run>
void WalkRows(const Block& source, const Block& target, const CopyPlan& plan, i64 sourceBytes, i64 targetBytes,
              Run run) {
    i64 top = std::max<i64>({0, -plan.sourceY, -plan.targetY});
    i64 bottom = std::min({plan.height, source.height - plan.sourceY, target.height - plan.targetY});
    for (i64 y = top; y < bottom; ++y) {
        i64 count = plan.width, cut = CutPadding(source, plan.sourceX, &count);
        i64 from = source.Offset(plan.sourceX + cut, plan.sourceY + y);
        i64 to = target.Offset(plan.targetX + cut, plan.targetY + y);
        i64 front = CutRun(from, source.pixelBytes, sourceBytes, source.size, &count);
        from += front * source.pixelBytes;
        to += front * target.pixelBytes;
        front = CutRun(to, target.pixelBytes, targetBytes, target.size, &count);
        if (count <= 0) continue;
        run(source.data + from + front * source.pixelBytes, target.data + to + front * target.pixelBytes, count);
    }
}

// Whether all of the plan's rows, from (x, y) on, lie in rows of the bitmap and in its memory.
bool HoldsAll(const Block& block, i64 x, i64 y, const CopyPlan& plan, i64 bytes) {
    if (plan.width <= 0 || plan.height <= 0 || y < 0 || y + plan.height > block.height) return false;
    if (x < 0 || x + plan.width > block.width) return false;   // rows that run into each other are walked in order
    for (i64 row : {y, y + plan.height - 1}) {
        i64 start = block.Offset(x, row), end = start + (plan.width - 1) * block.pixelBytes + bytes;
        if (start < 0 || end > block.size) return false;
    }
    return true;
}

bool CanSample(const Block& source, const Block& target, const CopyPlan& plan, Form from, Form to) {
    return !Overlap(source, target) && HoldsAll(source, plan.sourceX, plan.sourceY, plan, PixelBytes(from)) &&
           HoldsAll(target, plan.targetX, plan.targetY, plan, PixelBytes(to));
}

Sampling SamplingOf(const Block& source, const Block& target, const CopyPlan& plan) {
    return {.from = source.data + source.Offset(plan.sourceX, plan.sourceY),
            .fromStep = source.rowBytes,
            .rowLength = plan.width * source.pixelBytes,
            .fromBytes = source.pixelBytes,
            .to = target.data + target.Offset(plan.targetX, plan.targetY),
            .toStep = target.rowBytes,
            .width = plan.width,
            .rows = plan.height,
            .startX = 0,
            .stepX = 65536,
            .startY = 0,
            .stepY = 65536};
}

}   // namespace

void TakeWholeSize(CopyPlan* plan, i64 sourceWidth, i64 sourceHeight) {
    if (plan->width < 0) plan->width = sourceWidth;
    if (plan->height < 0) plan->height = sourceHeight;
}

void ClipToTarget(CopyPlan* plan, i64 targetWidth, i64 targetHeight) {
    if (plan->targetX < 0) {
        plan->sourceX -= plan->targetX;
        plan->width -= plan->targetX;
        plan->targetX = 0;
    }
    if (plan->targetY < 0) {
        plan->sourceY -= plan->targetY;
        plan->height -= plan->targetY;
        plan->targetY = 0;
    }
    plan->width = std::min(plan->width, targetWidth - plan->targetX);
    plan->height = std::min(plan->height, targetHeight - plan->targetY);
}

void LimitToRect(CopyPlan* plan, const KQRectT<long>& rect) {
    i64 left = std::max(plan->sourceX, EdgeOf(rect.x, 0)), top = std::max(plan->sourceY, EdgeOf(rect.y, 0));
    i64 right = std::min(plan->sourceX + plan->width, EdgeOf(rect.x, rect.width));
    i64 bottom = std::min(plan->sourceY + plan->height, EdgeOf(rect.y, rect.height));
    *plan = {left,
             top,
             right - left,
             bottom - top,
             plan->targetX + left - plan->sourceX,
             plan->targetY + top - plan->sourceY};
}

void FillFirstBytes(const Block& target, const KQRectT<long>& rect, u8 value) {
    i64 left = EdgeOf(rect.x, 0);
    i64 bottom = std::min<i64>(EdgeOf(rect.y, rect.height), target.height);
    for (i64 y = std::max<i64>(rect.y, 0); y < bottom; ++y) {
        i64 count = EdgeOf(rect.width, 0), offset = target.Offset(left, y);
        i64 front = CutRun(offset, target.pixelBytes, 1, target.size, &count);
        for (i64 i = 0; i < count; ++i) target.data[offset + (front + i) * target.pixelBytes] = value;
    }
}

void CopyPixels(const Block& source, const Block& target, const CopyPlan& plan, Form from, Form to) {
    if (CanSample(source, target, plan, from, to)) return SamplePixels(SamplingOf(source, target, plan), from, to);
    PixelMove move = PlainMove(from, to);
    WalkRows(source, target, plan, PixelBytes(from), PixelBytes(to), [&](const u8* s, u8* t, i64 count) {
        for (i64 i = 0; i < count; ++i) move(s + i * source.pixelBytes, t + i * target.pixelBytes);
    });
}

void CopyRows(const Block& source, const Block& target, const CopyPlan& plan) {
    if (!Overlap(source, target) && HoldsAll(source, plan.sourceX, plan.sourceY, plan, source.pixelBytes) &&
        HoldsAll(target, plan.targetX, plan.targetY, plan, target.pixelBytes)) {
        RowCopy copy{source.data + source.Offset(plan.sourceX, plan.sourceY),
                     source.rowBytes,
                     target.data + target.Offset(plan.targetX, plan.targetY),
                     target.rowBytes,
                     plan.width * source.pixelBytes,
                     plan.height};
        return CopyByteRows(copy);
    }
    WalkRows(source, target, plan, source.pixelBytes, target.pixelBytes,
             [&](const u8* s, u8* t, i64 count) { std::memmove(t, s, size_t(count * source.pixelBytes)); });
}

}   // namespace kq

namespace {

// A copy of all of the source to a bitmap of the same size.
bool IsWhole(const kq::CopyPlan& plan, const KQBitmap& source, const KQBitmap& target) {
    return source.width == target.width && source.height == target.height && plan.sourceX == 0 && plan.sourceY == 0 &&
           plan.targetX == 0 && plan.targetY == 0 && plan.width == source.width && plan.height == source.height;
}

template <class Source>
kq::CopyPlan PlanOf(const Source& source, i32 sourceX, i32 sourceY, i32 width, i32 height, i32 targetX, i32 targetY) {
    kq::CopyPlan plan{sourceX, sourceY, width, height, targetX, targetY};
    kq::TakeWholeSize(&plan, source.width, source.height);
    return plan;
}

template <class Source, class Target>
kq::CopyPlan Clipped(const Source& source, const Target& target, i32 sourceX, i32 sourceY, i32 width, i32 height,
                     i32 targetX, i32 targetY) {
    kq::CopyPlan plan = PlanOf(source, sourceX, sourceY, width, height, targetX, targetY);
    kq::ClipToTarget(&plan, target.width, target.height);
    return plan;
}

// Between native bitmaps nothing is clipped to the target.
void CopyNative(const KQNativeBitmap& source, const KQNativeBitmap& target, const kq::CopyPlan& plan) {
    kq::Form from, to;
    if (source.depth == target.depth)
        kq::CopyRows(kq::BlockOf(source), kq::BlockOf(target), plan);
    else if (kq::NativeForm(source.depth, &from) && kq::NativeForm(target.depth, &to))
        kq::CopyPixels(kq::BlockOf(source), kq::BlockOf(target), plan, from, to);
}

}   // namespace

void CopyBitmapKQ(const KQBitmap* source, KQBitmap* target, i32 sourceX, i32 sourceY, i32 width, i32 height,
                  i32 targetX, i32 targetY) {
    kq::CopyPlan plan = Clipped(*source, *target, sourceX, sourceY, width, height, targetX, targetY);
    if (IsWhole(plan, *source, *target)) {
        kq::CopyBlock(source->data, target->data, std::min(source->dataSize, target->dataSize));
        return;
    }
    if (source->depth != target->depth || (source->depth != 32 && source->depth != 8)) return;
    kq::Block from = kq::BlockOf(*source), to = kq::BlockOf(*target);
    kq::Form form = source->depth == 32 ? kq::Form::Argb : kq::Form::Byte;
    // Within one bitmap the pixels move one by one, so that a row pushed to the right repeats its start.
    if (kq::Overlap(from, to))
        kq::CopyPixels(from, to, plan, form, form);
    else
        kq::CopyRows(from, to, plan);
}

void CopyBitmapKQ(const KQBitmap* source, KQNativeBitmap* target, i32 sourceX, i32 sourceY, i32 width, i32 height,
                  i32 targetX, i32 targetY) {
    kq::Form form;
    if (source->depth != 32 || !kq::NativeForm(target->depth, &form)) return;
    kq::CopyPlan plan = Clipped(*source, *target, sourceX, sourceY, width, height, targetX, targetY);
    kq::CopyPixels(kq::BlockOf(*source), kq::BlockOf(*target), plan, kq::Form::Argb, form);
}

void CopyBitmapKQ(const KQNativeBitmap* source, KQBitmap* target, i32 sourceX, i32 sourceY, i32 width, i32 height,
                  i32 targetX, i32 targetY) {
    kq::Form form;
    if (target->depth != 32 || !kq::NativeForm(source->depth, &form)) return;
    kq::CopyPlan plan = Clipped(*source, *target, sourceX, sourceY, width, height, targetX, targetY);
    kq::CopyPixels(kq::BlockOf(*source), kq::BlockOf(*target), plan, form, kq::Form::Argb);
}

void CopyBitmapKQ(const KQNativeBitmap* source, KQNativeBitmap* target, i32 x, i32 y, i32 width, i32 height,
                  i32 targetX, i32 targetY) {
    CopyNative(*source, *target, PlanOf(*source, x, y, width, height, targetX, targetY));
}

void CopyBitmapKQ(const KQNativeBitmap* source, KQNativeBitmap* target, const KQRectT<long>* rect, i32 x, i32 y,
                  i32 width, i32 height, i32 targetX, i32 targetY) {
    const KQRectT<long> whole{0, 0, source->width, source->height};
    kq::CopyPlan plan = PlanOf(*source, x, y, width, height, targetX, targetY);
    kq::LimitToRect(&plan, rect ? *rect : whole);
    CopyNative(*source, *target, plan);
}
