// Rows of 8-bit 4:2:2 Y'CbCr to and from pixels, in the exact 16.16 arithmetic of the format.
//
// A pixel is two bytes, chroma and Y'; even pixels of a row carry Cb and odd ones Cr, so that each pixel of a row uses
// the latest of both. Chroma is kept with 128 added.
#pragma once

#include "Source/Simd.h"

namespace kq {

// Converts a row of `width` pixels of `pairs` to opaque pixels. Before the row's first Cr that is 0.
void Yuv422ToPixels(const u8* pairs, i32 width, u8* pixels, Simd level = BestSimd());

// Converts a row of `width` pixels; each takes its chroma from itself alone.
void PixelsToYuv422(const u8* pixels, i32 width, u8* pairs, Simd level = BestSimd());

}   // namespace kq
