// Rectangles of pixels that are moved with a choice of columns and rows: what copies, conversions and scalings come to
// when both sides are known to lie in memory.
#pragma once

#include "Source/Pixels.h"
#include "Source/Simd.h"

namespace kq {

// Target pixel (x, y) is source pixel ((startX + x * stepX) >> 16, (startY + y * stepY) >> 16) of the rows at `from`.
// All places lie in the source's rows, of which `rowLength` bytes may be read, and the two sides share no memory.
struct Sampling {
    const u8* from;
    i64 fromStep;   // bytes from a row to the next, negative when they go up in memory
    i64 rowLength;
    i32 fromBytes;   // bytes from a pixel to the next; 0: those of the form
    u8* to;
    i64 toStep;
    i64 width, rows;
    i64 startX, stepX, startY, stepY;
};

// Source bytes of a row, and how far the row that comes next lies from this one on both sides: kernels ask for its
// lines while they work.
struct SourceBytes {
    const u8* from;
    i64 ahead, targetAhead;
};

inline const u8* SourceRow(const Sampling& work, i64 y) {
    return work.from + ((work.startY + y * work.stepY) >> 16) * work.fromStep;
}

inline u8* TargetRow(const Sampling& work, i64 y) { return work.to + y * work.toStep; }

// Moves the pixels with the kernels of `level`; big work is spread over the processors when the library's own thread
// calls. Every level gives the same bytes.
void SamplePixels(const Sampling& work, Form from, Form to, Simd level = BestSimd());

// The plain form that the others are held to.
void SamplePlain(const Sampling& work, Form from, Form to);

}   // namespace kq
