// The narrow forms of pixels in files, to and from the four bytes of a bitmap: indexes into a colour table, 16-bit
// words, triples of red, green, blue, single grey bytes. Widening gives alpha 255.
#pragma once

#include <cstddef>

#include "Source/Simd.h"

namespace kq {

// Bytes that the calls below may read behind their source and write behind their target where they say so.
inline constexpr size_t kUnitSlack = 64;

// Colours as the four bytes of a bitmap's pixel.
struct PixelTable {
    u32 pixels[256];
    bool grey;   // entry i is the opaque grey of value i
};

// The table of these three channels of 256 entries.
void FillPixelTable(PixelTable* table, const u8* red, const u8* green, const u8* blue);

// Widens `count` bytes of indexes; `bits` (1, 2, 4 or 8) a pixel, the leftmost in the top bits. `pixels` takes
// count * 8 / bits of them.
void WidenIndexes(const u8* units, size_t count, i32 bits, const PixelTable* table, u8* pixels,
                  Simd level = BestSimd());

// Widens big-endian words of 5 bits a channel, red on top; the low bits of a channel become 0.
void WidenWords(const u8* units, size_t count, u8* pixels);

// Widens red, green, blue. Reads up to kUnitSlack bytes behind the source.
void WidenTriples(const u8* units, size_t count, u8* pixels, Simd level = BestSimd());

// Narrows pixels to red, green, blue, without their alpha. Writes up to kUnitSlack bytes behind the target.
void NarrowToTriples(const u8* pixels, size_t count, u8* units, Simd level = BestSimd());

// Narrows pixels to their red. Writes up to kUnitSlack bytes behind the target.
void NarrowToReds(const u8* pixels, size_t count, u8* units, Simd level = BestSimd());

}   // namespace kq
