// Rows of every second pixel, and of every pixel twice, a register of target at a time.
#include "Source/EvenSteps.h"

#include <algorithm>

namespace kq {

namespace {

void HalvePlain(const u8* from, u8* to, i64 count, i64 bytes) {
    for (i64 i = 0; i < count; ++i) std::memcpy(to + i * bytes, from + i * 2 * bytes, size_t(bytes));
}

void DoublePlain(const u8* from, u8* to, i64 count, i64 bytes) {
    for (i64 i = 0; i < count; ++i) std::memcpy(to + i * bytes, from + i / 2 * bytes, size_t(bytes));
}

#if defined(KQ_SIMD_X86)

// Each of these does whole registers of `bytes` target bytes, whose source the caller has, and returns the bytes done.

KQ_TARGET_AVX2 inline __m256i Load256(const u8* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
}

KQ_TARGET_AVX2 inline void Store256(u8* to, __m256i bytes) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), bytes);
}

KQ_TARGET_AVX2 i64 HalveBytesAvx2(const u8* from, u8* to, i64 bytes) {
    const __m256i even = _mm256_set1_epi16(255);
    i64 i = 0;
    for (; i + 32 <= bytes; i += 32) {
        __m256i low = _mm256_and_si256(Load256(from + i * 2), even);
        __m256i high = _mm256_and_si256(Load256(from + i * 2 + 32), even);
        Store256(to + i, _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8));
    }
    return i;
}

KQ_TARGET_AVX2 i64 HalveWordsAvx2(const u8* from, u8* to, i64 bytes) {
    i64 i = 0;
    for (; i + 32 <= bytes; i += 32) {
        __m256 low = _mm256_castsi256_ps(Load256(from + i * 2)), high = _mm256_castsi256_ps(Load256(from + i * 2 + 32));
        __m256i even = _mm256_castps_si256(_mm256_shuffle_ps(low, high, 0x88));
        Store256(to + i, _mm256_permute4x64_epi64(even, 0xD8));
    }
    return i;
}

KQ_TARGET_AVX2 i64 DoubleBytesAvx2(const u8* from, u8* to, i64 bytes) {
    i64 i = 0;
    for (; i + 64 <= bytes; i += 64) {
        __m256i pixels = _mm256_permute4x64_epi64(Load256(from + i / 2), 0xD8);
        Store256(to + i, _mm256_unpacklo_epi8(pixels, pixels));
        Store256(to + i + 32, _mm256_unpackhi_epi8(pixels, pixels));
    }
    return i;
}

KQ_TARGET_AVX2 i64 DoubleWordsAvx2(const u8* from, u8* to, i64 bytes) {
    i64 i = 0;
    for (; i + 64 <= bytes; i += 64) {
        __m256i pixels = _mm256_permute4x64_epi64(Load256(from + i / 2), 0xD8);
        Store256(to + i, _mm256_unpacklo_epi32(pixels, pixels));
        Store256(to + i + 32, _mm256_unpackhi_epi32(pixels, pixels));
    }
    return i;
}

// Places of a permutation of two registers' bytes: the even pixels of `bytes` bytes.
struct Places {
    alignas(64) u8 halve[64], low[64], high[64];

    explicit constexpr Places(int bytes) : halve{}, low{}, high{} {
        for (int k = 0; k < 64; ++k) {
            int pixel = k / bytes, channel = k % bytes;
            halve[k] = u8(pixel * 2 * bytes + channel);
            low[k] = u8(pixel / 2 * bytes + channel);
            high[k] = u8(32 + low[k]);
        }
    }
};

constexpr Places kBytePlaces(1), kWordPlaces(4);

KQ_TARGET_AVX512 i64 HalveAvx512(const u8* from, u8* to, i64 bytes, const Places& places) {
    const __m512i order = _mm512_load_si512(places.halve);
    i64 i = 0;
    for (; i + 64 <= bytes; i += 64) {
        __m512i low = _mm512_loadu_si512(from + i * 2), high = _mm512_loadu_si512(from + i * 2 + 64);
        _mm512_storeu_si512(to + i, _mm512_permutex2var_epi8(low, order, high));
    }
    return i;
}

KQ_TARGET_AVX512 i64 DoubleAvx512(const u8* from, u8* to, i64 bytes, const Places& places) {
    const __m512i low = _mm512_load_si512(places.low), high = _mm512_load_si512(places.high);
    i64 i = 0;
    for (; i + 128 <= bytes; i += 128) {
        __m512i pixels = _mm512_loadu_si512(from + i / 2);
        _mm512_storeu_si512(to + i, _mm512_permutexvar_epi8(low, pixels));
        _mm512_storeu_si512(to + i + 64, _mm512_permutexvar_epi8(high, pixels));
    }
    return i;
}

#endif

// Whole registers of the target, at the level given; returns the bytes done.
i64 HalveWide([[maybe_unused]] const u8* from, [[maybe_unused]] u8* to, [[maybe_unused]] i64 length,
              [[maybe_unused]] i64 bytes, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return HalveAvx512(from, to, length, bytes == 1 ? kBytePlaces : kWordPlaces);
    if (level == Simd::Avx2) return bytes == 1 ? HalveBytesAvx2(from, to, length) : HalveWordsAvx2(from, to, length);
#endif
    return 0;
}

i64 DoubleWide([[maybe_unused]] const u8* from, [[maybe_unused]] u8* to, [[maybe_unused]] i64 length,
               [[maybe_unused]] i64 bytes, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return DoubleAvx512(from, to, length, bytes == 1 ? kBytePlaces : kWordPlaces);
    if (level == Simd::Avx2) return bytes == 1 ? DoubleBytesAvx2(from, to, length) : DoubleWordsAvx2(from, to, length);
#endif
    return 0;
}

}   // namespace

void HalveRow(const u8* from, i64 readable, u8* to, i64 count, i64 bytes, Simd level) {
    // The last pixel's neighbour may lie outside, which a whole register would read.
    i64 whole = HalveWide(from, to, std::min(count * bytes, readable / 2), bytes, level);
    HalvePlain(from + whole * 2, to + whole, count - whole / bytes, bytes);
}

void DoubleRow(const u8* from, u8* to, i64 count, i64 bytes, Simd level) {
    i64 whole = DoubleWide(from, to, count * bytes, bytes, level);
    DoublePlain(from + whole / 2, to + whole, count - whole / bytes, bytes);
}

}   // namespace kq
