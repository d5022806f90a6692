// Run-length packing of pixel rows: a control byte c stands for (c & 127) + 1 values; below 128 one value follows, to
// be repeated, from 128 on all the values follow. A value is one, two, three or four bytes. Packets run on over the
// ends of rows.
#pragma once

#include <cstddef>

#include "Source/Simd.h"

namespace kq {

// Most pixels of a row that is packed.
inline constexpr i32 kMostPackedWidth = 32767;

// Bytes that may be touched behind the bytes that a call here writes, and be read behind a row.
inline constexpr size_t kPackSlack = 320;

// Neighbours that are equal, a bit a pixel: bit i of the row tells whether pixels i and i + 1 are the same.
struct EqualBits {
    u64 words[(kMostPackedWidth + 63) / 64 + 1];
};

// A packer in the middle of a frame. The literal packet at the end of a row stays open for the next row's pixels.
struct RunPacker {
    u8* literal = nullptr;   // control byte of the open literal packet in the output, null when none is open
    i32 count = 0;           // its values
};

// Marks equal neighbours in a row of `width` values: single bytes; pixels, compared without their alpha or with it.
// The bits from the last pixel on are clear, up to the end of its word and one word more.
void MarkEqualBytes(const u8* values, i32 width, EqualBits* equal, Simd level = BestSimd());
void MarkEqualColours(const u8* pixels, i32 width, EqualBits* equal, Simd level = BestSimd());
void MarkEqualPixels(const u8* pixels, i32 width, EqualBits* equal, Simd level = BestSimd());

// Pack a row of `width` values, whose equal neighbours are marked, at `out`, and return the end. Of bytes a run needs
// four equal ones and a pixel behind them in the row, of wider values two. The control byte of an open literal is up
// to date when they return. Up to kPackSlack bytes may be touched behind the end; a row adds no more than
// PackedBound(bytes of the row).
u8* PackBytes(RunPacker* packer, const u8* values, i32 width, const EqualBits* equal, u8* out);
u8* PackTriples(RunPacker* packer, const u8* values, i32 width, const EqualBits* equal, u8* out);
u8* PackQuads(RunPacker* packer, const u8* values, i32 width, const EqualBits* equal, u8* out);

// Most bytes that a row of `bytes` bytes gives, the slack behind them included.
constexpr size_t PackedBound(size_t bytes) { return bytes + bytes / 64 + 8 + kPackSlack; }

// An unpacker in the middle of a frame: what is left of the packet that the last call stopped in.
struct RunUnpacker {
    i32 count = 0;      // values left
    bool run = false;   // they repeat `value`
    u8 value[4] = {};
};

// Unpacks up to `want` values of `size` bytes (1 to 4) from `*in`, which moves behind what was used, to `out`. Returns
// the values written, fewer when the input up to `end` does not hold more. Bytes behind the values written are left
// alone, bytes behind the `want` values too.
size_t UnpackRuns(RunUnpacker* unpacker, i32 size, const u8** in, const u8* end, u8* out, size_t want,
                  Simd level = BestSimd());

// The same to opaque pixels: of single bytes as greys, of triples as red, green, blue.
size_t UnpackGreyPixels(RunUnpacker* unpacker, const u8** in, const u8* end, u8* pixels, size_t want,
                        Simd level = BestSimd());
size_t UnpackTriplePixels(RunUnpacker* unpacker, const u8** in, const u8* end, u8* pixels, size_t want,
                          Simd level = BestSimd());

}   // namespace kq
