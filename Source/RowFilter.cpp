// See RowFilter.h. Each loop is written so that the compiler vectorises it: no branch, no carried value, the row's
// ends without special cases.
#include "Source/RowFilter.h"

#include <algorithm>

#include "Source/Simd.h"

namespace kq {

KQ_LOOP void AverageRowsLoop(u8* __restrict target, const u8* above, const u8* below, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) target[i] = u8((u32(above[i]) + below[i]) >> 1);
}

KQ_VECTOR_FORMS(void, AverageRows, (u8 * target, const u8* above, const u8* below, size_t bytes),
                (target, above, below, bytes))

KQ_LOOP void SmoothRowLoop(u8* __restrict row, u8* __restrict above, const u8* __restrict below, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) {
        u8 old = row[i];
        row[i] = u8(u16(above[i] + 2 * old + below[i]) >> 2);
        above[i] = old;
    }
}

KQ_VECTOR_FORMS(void, SmoothRow, (u8 * row, u8* above, const u8* below, size_t bytes), (row, above, below, bytes))

KQ_LOOP void HalveRowLoop(u8* __restrict row, const u8* __restrict other, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) row[i] = u8((u32(row[i]) + other[i]) >> 1);
}

KQ_VECTOR_FORMS(void, HalveRow, (u8 * row, const u8* other, size_t bytes), (row, other, bytes))

namespace {

// A weight of one does not fit products of 16 bits: with `Whole` it comes through a mask instead, which a blend without
// such a weight need not pay for.
template <int Count, bool Whole>
__attribute__((always_inline)) inline void BlendLoop(u8* target, const u8* const* sources, const Weight* weights,
                                                     size_t bytes) {
    const u8* s[Count];
    u16 part[Count];
    u8 whole[Count];
    for (int k = 0; k < Count; ++k) {
        s[k] = sources[k];
        part[k] = u16(weights[k]);
        whole[k] = weights[k] > 65535 ? 255 : 0;
    }
#pragma GCC ivdep
    for (size_t i = 0; i < bytes; ++i) {
        u8 sum = 0;
        for (int k = 0; k < Count; ++k) {
            sum = u8(sum + u16(u32(u16(s[k][i])) * part[k] >> 16));
            if constexpr (Whole) sum = u8(sum + (s[k][i] & whole[k]));
        }
        target[i] = sum;
    }
}

template <int Count>
__attribute__((always_inline)) inline void BlendOf(u8* target, const u8* const* sources, const Weight* weights,
                                                   size_t bytes) {
    bool whole = false;
    for (int k = 0; k < Count; ++k) whole |= weights[k] > 65535;
    if (whole)
        BlendLoop<Count, true>(target, sources, weights, bytes);
    else
        BlendLoop<Count, false>(target, sources, weights, bytes);
}

}   // namespace

KQ_LOOP void BlendRowsLoop(u8* target, const u8* const* sources, const Weight* weights, int count, size_t bytes) {
    switch (count) {
    case 1: return BlendOf<1>(target, sources, weights, bytes);
    case 2: return BlendOf<2>(target, sources, weights, bytes);
    case 3: return BlendOf<3>(target, sources, weights, bytes);
    case 4: return BlendOf<4>(target, sources, weights, bytes);
    default: return BlendOf<5>(target, sources, weights, bytes);
    }
}

KQ_VECTOR_FORMS(void, BlendRows,
                (u8 * target, const u8* const* sources, const Weight* weights, int count, size_t bytes),
                (target, sources, weights, count, bytes))

KQ_LOOP void SetFieldRowLoop(u8* __restrict target, const FieldRow& from, size_t bytes) {
    const u8 *above = from.above, *row = from.row, *below = from.below;
    u32 own = from.own, between = from.between;
    for (size_t i = 0; i < bytes; ++i)
        target[i] = u8((((u32(above[i]) + below[i]) >> 1) * between + row[i] * own) >> 16);
}

KQ_VECTOR_FORMS(void, SetFieldRow, (u8 * target, const FieldRow& from, size_t bytes), (target, from, bytes))

KQ_LOOP void AddFieldRowLoop(u8* __restrict target, const FieldRow& from, size_t bytes) {
    const u8 *above = from.above, *row = from.row, *below = from.below;
    u32 own = from.own, between = from.between;
    for (size_t i = 0; i < bytes; ++i)
        target[i] = u8(target[i] + ((((u32(above[i]) + below[i]) >> 1) * between + row[i] * own) >> 16));
}

KQ_VECTOR_FORMS(void, AddFieldRow, (u8 * target, const FieldRow& from, size_t bytes), (target, from, bytes))

// Sums of up to 2^20 pixels fit 32 bits: 3 * 255 * 2^20 < 2^32.
KQ_LOOP u32 PartDifferenceLoop(const u8* one, const u8* other, size_t pixels) {
    u32 sum = 0;
    for (size_t i = 0; i < pixels * 4; ++i) {
        int difference = int(one[i]) - int(other[i]);
        u32 colour = (i & 3) ? 1 : 0;
        sum += u32(difference < 0 ? -difference : difference) * colour;
    }
    return sum;
}

static u32 PartDifference(const u8* one, const u8* other, size_t pixels);

KQ_VECTOR_FORMS(u32, PartDifference, (const u8* one, const u8* other, size_t pixels), (one, other, pixels))

u64 ColourDifference(const u8* one, const u8* other, size_t pixels) {
    constexpr size_t kPart = size_t(1) << 20;
    u64 sum = 0;
    for (size_t at = 0; at < pixels; at += kPart)
        sum += PartDifference(one + at * 4, other + at * 4, std::min(kPart, pixels - at));
    return sum;
}

}   // namespace kq
