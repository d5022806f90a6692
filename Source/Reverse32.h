// Rows between the portable and the native pixel of 32 bits, which hold the same bytes in opposite order.
#pragma once

#include "Source/Sampling.h"

namespace kq {

// `count` portable pixels to native ones, whose fourth bytes are left alone, and back with alpha 255. `stream` puts a
// portable target past the caches.
void ReverseToNative(const SourceBytes& row, u8* to, i64 count, Simd level);
void ReverseToPortable(const SourceBytes& row, u8* to, i64 count, bool stream, Simd level);

}   // namespace kq
