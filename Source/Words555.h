// Rows between the portable 32-bit pixel and the 16-bit one.
#pragma once

#include "Source/Sampling.h"

namespace kq {

// `count` portable pixels to 16 bits, and back with alpha 255. `stream` puts the target past the caches, once it is
// aligned.
void PackRow555(const SourceBytes& row, u8* to, i64 count, bool stream, Simd level);
void UnpackRow555(const SourceBytes& row, u8* to, i64 count, bool stream, Simd level);

}   // namespace kq
