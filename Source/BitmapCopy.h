// Copies of rectangles between blocks of pixels: the clip that all copies share and the walk over the rows.
#pragma once

#include "Source/Pixels.h"

namespace kq {

// A rectangle of the source and its place in the target. 64-bit words, so that no sum of caller's words overflows.
struct CopyPlan {
    i64 sourceX, sourceY;
    i64 width, height;
    i64 targetX, targetY;
};

// Puts the source's size in place of a negative one.
void TakeWholeSize(CopyPlan* plan, i64 sourceWidth, i64 sourceHeight);

// Moves negative target positions to 0 and cuts the size at the target's right and bottom edge. What a negative
// position is moved by is added to the size too, and the cut is what brings it back.
void ClipToTarget(CopyPlan* plan, i64 targetWidth, i64 targetHeight);

// Keeps what lies in `rect` of the source; its place in the target stays the same.
void LimitToRect(CopyPlan* plan, const KQRectT<long>& rect);

// Moves the plan's pixels row by row, top row first. Rows are cut to the memory of both blocks: what the source does
// not hold leaves the target alone.
void CopyPixels(const Block& source, const Block& target, const CopyPlan& plan, Form from, Form to);

// The same for equal depths: rows as bytes, whatever they mean.
void CopyRows(const Block& source, const Block& target, const CopyPlan& plan);

// Sets the first byte of every pixel of `rect`, as far as it lies in the block's memory.
void FillFirstBytes(const Block& target, const KQRectT<long>& rect, u8 value);

}   // namespace kq
