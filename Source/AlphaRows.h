// The pixel loops of alpha interpretation, in both directions.
//
// A pixel is a 32-bit word as it lies in memory on a little-endian machine: alpha lowest, then red, green, blue.
// `flip` is 255 where the alpha is to be complemented, else 0. Source and target are the same row or apart.
#pragma once

#include "kq/types.h"

namespace kq {

// The colour that a picture is matted against, each channel 0 to 255.
struct Matte {
    i32 red, green, blue;
};

// Alpha becomes 255.
void OpaqueRow(u32* pixels, size_t count);

// Alpha is complemented.
void InvertRow(u32* pixels, size_t count);

// Alpha becomes (red + green + blue) / 3, and the colours those of `colour`, whose lowest byte is 0.
void GreyMatteRow(u32* pixels, size_t count, u32 colour);

// Undoes the matte: with a the alpha after `flip`, each colour c becomes (c * 255 - (255 - a) * m) / a, cut toward
// zero and held to a byte. Colours stay where a is 0.
void UnmatteRow(u32* pixels, size_t count, u32 flip, const Matte& matte);

// target: the source's colours with the alpha (alpha & keep) ^ flip.
void CopyAlphaRow(u32* target, const u32* source, size_t count, u32 keep, u32 flip);

// target: opaque grey of alpha ^ flip.
void GreyOutRow(u32* target, const u32* source, size_t count, u32 flip);

// target: alpha as in CopyAlphaRow, each colour ((255 - s) * m + c * s) / 255 with s the source's alpha.
void MatteRow(u32* target, const u32* source, size_t count, u32 keep, u32 flip, const Matte& matte);

}   // namespace kq
