// The order of bytes in files: words most significant byte first; pixels red, green, blue, alpha where a bitmap keeps
// alpha first.
#pragma once

#include <cstddef>

#include "Source/Simd.h"

namespace kq {

// Big-endian words at any alignment.
inline u16 Big16(const u8* at) { return u16(at[0] << 8 | at[1]); }

inline u32 Big32(const u8* at) { return u32(Big16(at)) << 16 | Big16(at + 2); }

inline void PutBig16(u8* at, u16 value) {
    at[0] = u8(value >> 8);
    at[1] = u8(value);
}

inline void PutBig32(u8* at, u32 value) {
    PutBig16(at, u16(value >> 16));
    PutBig16(at + 2, u16(value));
}

// Turns `count` pixels in place from a file's red, green, blue, alpha to alpha, red, green, blue.
void RotateToBitmap(u8* pixels, size_t count, Simd level = BestSimd());

// The way back, from `pixels` to `file`, which are the same or apart.
void RotateToFile(const u8* pixels, u8* file, size_t count, Simd level = BestSimd());

}   // namespace kq
