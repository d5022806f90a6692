// The loops over rows of bytes behind field extraction, smoothing, blending and the comb measure.
//
// Rows are plain bytes, all channels alike. Sizes are in bytes, those of the two differences in 32-bit pixels. No two
// rows overlap unless a comment allows it. The results are exact: the wide forms give what the plain ones give.
#pragma once

#include "kq/types.h"

namespace kq {

// A weight of a blend: 65536 is one. Products are cut to whole numbers, sums wrap in 8 bits.
using Weight = u32;

// target = (above + below) >> 1. `above` and `below` may be the same row.
void AverageRows(u8* target, const u8* above, const u8* below, size_t bytes);

// row = (above + 2 * row + below) >> 2, where `above` holds the unfiltered row above and takes the unfiltered row for
// the next call.
void SmoothRow(u8* row, u8* above, const u8* below, size_t bytes);

// row = (row + other) >> 1.
void HalveRow(u8* row, const u8* other, size_t bytes);

// Most frames that one pass of BlendRows takes.
inline constexpr int kMostBlended = 5;

// target = the sum of (source * weight) >> 16 over `count` sources, 1 to kMostBlended. A source may be the target.
void BlendRows(u8* target, const u8* const* sources, const Weight* weights, int count, size_t bytes);

// One row of a blend by fields: (((above + below) >> 1) * between + row * own) >> 16, stored in the target or added to
// it in 8 bits. At the frame's edges the one neighbour stands for both.
struct FieldRow {
    const u8 *above, *row, *below;
    Weight own, between;
};
void SetFieldRow(u8* target, const FieldRow& from, size_t bytes);
void AddFieldRow(u8* target, const FieldRow& from, size_t bytes);

// The sum of the absolute differences of red, green and blue over two rows of pixels.
u64 ColourDifference(const u8* one, const u8* other, size_t pixels);

}   // namespace kq
