// Rows of every second pixel, and of every pixel twice: the scalings whose permutation is the same everywhere, so that
// they need no table.
#pragma once

#include "Source/Sampling.h"

namespace kq {

// Rows `top` to `bottom`, the last not included, of a work whose pixels have 1 or 4 bytes on both sides and whose stepX
// is 131072 (every second pixel) or 32768 (every pixel twice). `stream` puts the target past the caches, where it is
// aligned.
void HalveRows(const Sampling& work, i64 top, i64 bottom, bool stream, Simd level);
void DoubleRows(const Sampling& work, i64 top, i64 bottom, bool stream, Simd level);

}   // namespace kq
