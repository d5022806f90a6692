// See RowFilter.h. Each loop is written so that the compiler vectorises it: no branch, no carried value, the row's
// ends without special cases. Two are written out beside it, whose bytes the compiler would widen the long way.
#include "Source/RowFilter.h"

#include <algorithm>

#include "Source/Simd.h"

namespace kq {

// The machine averages bytes upwards; where that rounded, one is too many.
KQ_LOOP void AveragesLoop(u8* __restrict target, const u8* above, const u8* below, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i)
        target[i] = u8(u8((u32(above[i]) + below[i] + 1) >> 1) - ((above[i] ^ below[i]) & 1));
}

static void Averages(u8* target, const u8* above, const u8* below, size_t bytes);

KQ_VECTOR_FORMS(void, Averages, (u8 * target, const u8* above, const u8* below, size_t bytes),
                (target, above, below, bytes))

// Whole registers start on a cache line of the target, as all rows of most frames do.
void AverageRows(u8* target, const u8* above, const u8* below, size_t bytes) {
    size_t head = std::min(size_t(-uptr(target) & 63), bytes);
    Averages(target, above, below, head);
    Averages(target + head, above + head, below + head, bytes - head);
}

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

KQ_LOOP void BlendAnyLoop(u8* target, const u8* const* sources, const Weight* weights, int count, size_t bytes) {
    switch (count) {
    case 1: return BlendOf<1>(target, sources, weights, bytes);
    case 2: return BlendOf<2>(target, sources, weights, bytes);
    case 3: return BlendOf<3>(target, sources, weights, bytes);
    case 4: return BlendOf<4>(target, sources, weights, bytes);
    default: return BlendOf<5>(target, sources, weights, bytes);
    }
}

static void BlendAny(u8* target, const u8* const* sources, const Weight* weights, int count, size_t bytes);

KQ_VECTOR_FORMS(void, BlendAny, (u8 * target, const u8* const* sources, const Weight* weights, int count, size_t bytes),
                (target, sources, weights, count, bytes))

#if defined(KQ_SIMD_X86)

namespace {

// Whole registers of a blend of two frames without a weight of one; returns the bytes done. Bytes become words and back
// within the lanes of a register, so that no order is lost.
KQ_TARGET_AVX512 size_t BlendTwo512(u8* target, const u8* const* sources, const Weight* weights, size_t bytes) {
    const u8 *first = sources[0], *second = sources[1];
    const __m512i a = _mm512_set1_epi16(i16(weights[0])), b = _mm512_set1_epi16(i16(weights[1]));
    const __m512i none = _mm512_setzero_si512(), byte = _mm512_set1_epi16(255);
    size_t i = 0;
    for (; i + 64 <= bytes; i += 64) {
        __m512i s = _mm512_loadu_si512(first + i), t = _mm512_loadu_si512(second + i);
        __m512i low = _mm512_add_epi16(_mm512_mulhi_epu16(_mm512_unpacklo_epi8(s, none), a),
                                       _mm512_mulhi_epu16(_mm512_unpacklo_epi8(t, none), b));
        __m512i high = _mm512_add_epi16(_mm512_mulhi_epu16(_mm512_unpackhi_epi8(s, none), a),
                                        _mm512_mulhi_epu16(_mm512_unpackhi_epi8(t, none), b));
        _mm512_storeu_si512(target + i, _mm512_packus_epi16(_mm512_and_si512(low, byte), _mm512_and_si512(high, byte)));
    }
    return i;
}

KQ_TARGET_AVX2 size_t BlendTwo256(u8* target, const u8* const* sources, const Weight* weights, size_t bytes) {
    const u8 *first = sources[0], *second = sources[1];
    const __m256i a = _mm256_set1_epi16(i16(weights[0])), b = _mm256_set1_epi16(i16(weights[1]));
    const __m256i none = _mm256_setzero_si256(), byte = _mm256_set1_epi16(255);
    size_t i = 0;
    for (; i + 32 <= bytes; i += 32) {
        __m256i s = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(first + i));
        __m256i t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(second + i));
        __m256i low = _mm256_add_epi16(_mm256_mulhi_epu16(_mm256_unpacklo_epi8(s, none), a),
                                       _mm256_mulhi_epu16(_mm256_unpacklo_epi8(t, none), b));
        __m256i high = _mm256_add_epi16(_mm256_mulhi_epu16(_mm256_unpackhi_epi8(s, none), a),
                                        _mm256_mulhi_epu16(_mm256_unpackhi_epi8(t, none), b));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + i),
                            _mm256_packus_epi16(_mm256_and_si256(low, byte), _mm256_and_si256(high, byte)));
    }
    return i;
}

// The differences of whole registers of pixels, alpha left out; notes the pixels done.
KQ_TARGET_AVX512 u64 Difference512(const u8* one, const u8* other, size_t pixels, size_t* done) {
    const __m512i colours = _mm512_set1_epi32(i32(0xFFFFFF00));
    __m512i sum = _mm512_setzero_si512();
    size_t i = 0;
    for (; i + 16 <= pixels; i += 16) {
        __m512i a = _mm512_and_si512(_mm512_loadu_si512(one + i * 4), colours);
        __m512i b = _mm512_and_si512(_mm512_loadu_si512(other + i * 4), colours);
        sum = _mm512_add_epi64(sum, _mm512_sad_epu8(a, b));
    }
    *done = i;
    return u64(_mm512_reduce_add_epi64(sum));
}

KQ_TARGET_AVX2 u64 Difference256(const u8* one, const u8* other, size_t pixels, size_t* done) {
    const __m256i colours = _mm256_set1_epi32(i32(0xFFFFFF00));
    __m256i sum = _mm256_setzero_si256();
    size_t i = 0;
    for (; i + 8 <= pixels; i += 8) {
        __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(one + i * 4));
        __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(other + i * 4));
        sum = _mm256_add_epi64(sum, _mm256_sad_epu8(_mm256_and_si256(a, colours), _mm256_and_si256(b, colours)));
    }
    *done = i;
    return u64(_mm256_extract_epi64(sum, 0)) + u64(_mm256_extract_epi64(sum, 1)) + u64(_mm256_extract_epi64(sum, 2)) +
           u64(_mm256_extract_epi64(sum, 3));
}

}   // namespace

#endif

void BlendRows(u8* target, const u8* const* sources, const Weight* weights, int count, size_t bytes) {
    size_t done = 0;
#if defined(KQ_SIMD_X86)
    if (count == 2 && weights[0] <= 65535 && weights[1] <= 65535) {
        if (SimdInUse() == Simd::Avx512) done = BlendTwo512(target, sources, weights, bytes);
        if (SimdInUse() == Simd::Avx2) done = BlendTwo256(target, sources, weights, bytes);
    }
#endif
    if (done == bytes) return;
    const u8* rest[kMostBlended];
    for (int k = 0; k < count; ++k) rest[k] = sources[k] + done;
    BlendAny(target + done, rest, weights, count, bytes - done);
}

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

namespace {

u64 DifferencePlain(const u8* one, const u8* other, size_t pixels) {
    u64 sum = 0;
    for (size_t i = 0; i < pixels * 4; ++i) {
        int difference = int(one[i]) - int(other[i]);
        if (i & 3) sum += u64(difference < 0 ? -difference : difference);
    }
    return sum;
}

}   // namespace

u64 ColourDifference(const u8* one, const u8* other, size_t pixels) {
    size_t done = 0;
    u64 sum = 0;
#if defined(KQ_SIMD_X86)
    if (SimdInUse() == Simd::Avx512) sum = Difference512(one, other, pixels, &done);
    if (SimdInUse() == Simd::Avx2) sum = Difference256(one, other, pixels, &done);
#endif
    return sum + DifferencePlain(one + done * 4, other + done * 4, pixels - done);
}

}   // namespace kq
