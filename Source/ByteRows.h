// Rows of plain bytes: copies and fills of whole blocks and of rectangles.
#pragma once

#include "Source/Simd.h"

namespace kq {

// `rows` rows of `bytes` bytes each; the two sides share no memory.
struct RowCopy {
    const u8* from;
    i64 fromStep;
    u8* to;
    i64 toStep;
    i64 bytes, rows;
};

void CopyByteRows(const RowCopy& work, Simd level = BestSimd());

// One block, whose sides may share memory.
void CopyBlock(const u8* from, u8* to, i64 bytes);

// Fills `bytes` bytes with a pattern of 4 bytes, the last one cut.
void FillBlock(u8* to, i64 bytes, u32 pattern, Simd level = BestSimd());

// Fills `rows` rows of `bytes` bytes with pixels of `pixelBytes` bytes, 1 to 4, the last one cut.
void FillPixelRows(u8* to, i64 toStep, i64 bytes, i64 rows, const u8* pixel, i64 pixelBytes, Simd level = BestSimd());

// Sets the first byte of each of `pixels` pixels of 4 bytes.
void FillFirstBytes(u8* to, i64 pixels, u8 value, Simd level = BestSimd());

}   // namespace kq
