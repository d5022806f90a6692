// Rows of every second pixel, and of every pixel twice: the scalings whose permutation is the same everywhere, so that
// they need no table.
#pragma once

#include "Source/Sampling.h"

namespace kq {

// `count` pixels of `bytes` bytes, 1 or 4, from every second one of the row, of which `readable` bytes may be read.
// `stream` puts the target past the caches, once it is aligned.
void HalveRow(const SourceBytes& row, i64 readable, u8* to, i64 count, i64 bytes, bool stream, Simd level);

// `count` pixels of `bytes` bytes, 1 or 4, each one of the row twice; an odd last one once.
void DoubleRow(const SourceBytes& row, u8* to, i64 count, i64 bytes, bool stream, Simd level);

}   // namespace kq
