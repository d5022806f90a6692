// Rows of every second pixel, and of every pixel twice: the scalings whose permutation is the same everywhere, so that
// they need no table.
#pragma once

#include "Source/Sampling.h"

namespace kq {

// `count` pixels of `bytes` bytes, 1 or 4, from every second one at `from`, of which `readable` bytes may be read.
void HalveRow(const u8* from, i64 readable, u8* to, i64 count, i64 bytes, Simd level);

// `count` pixels of `bytes` bytes, 1 or 4, each one at `from` twice; an odd last one once.
void DoubleRow(const u8* from, u8* to, i64 count, i64 bytes, Simd level);

}   // namespace kq
