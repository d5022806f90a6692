// Narrow pixels. A bitmap's pixel as a little-endian word holds alpha in the lowest byte, then red, green, blue.
#include "Source/PixelUnits.h"

#include <cstring>

namespace kq {

namespace {

constexpr u32 Opaque(u32 red, u32 green, u32 blue) { return 255 | red << 8 | green << 16 | blue << 24; }

inline void Put(u8* pixels, size_t index, u32 pixel) { std::memcpy(pixels + index * 4, &pixel, 4); }

void WidenBytes(const u8* units, size_t count, const PixelTable* table, u8* pixels) {
    for (size_t i = 0; i < count; ++i) Put(pixels, i, table->pixels[units[i]]);
}

template <int Bits>
void WidenBits(const u8* units, size_t count, const PixelTable* table, u8* pixels) {
    constexpr int kPixels = 8 / Bits;
    for (size_t i = 0; i < count; ++i)
        for (int k = 0; k < kPixels; ++k)
            Put(pixels, i * kPixels + size_t(k), table->pixels[units[i] >> (8 - Bits - k * Bits) & ((1 << Bits) - 1)]);
}

void WidenTriplesPlain(const u8* units, size_t count, u8* pixels) {
    for (size_t i = 0; i < count; ++i) Put(pixels, i, Opaque(units[i * 3], units[i * 3 + 1], units[i * 3 + 2]));
}

void NarrowToTriplesPlain(const u8* pixels, size_t count, u8* units) {
    for (size_t i = 0; i < count; ++i) std::memcpy(units + i * 3, pixels + i * 4 + 1, 3);
}

void NarrowToRedsPlain(const u8* pixels, size_t count, u8* units) {
    for (size_t i = 0; i < count; ++i) units[i] = pixels[i * 4 + 1];
}

#if defined(KQ_SIMD_X86)

KQ_TARGET_AVX2 __m256i Load(const u8* at) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at)); }

KQ_TARGET_AVX2 void WidenGreyAvx2(const u8* units, size_t count, u8* pixels) {
    const __m256i spread = _mm256_setr_epi8(-1, 0, 0, 0, -1, 1, 1, 1, -1, 2, 2, 2, -1, 3, 3, 3, -1, 4, 4, 4, -1, 5, 5,
                                            5, -1, 6, 6, 6, -1, 7, 7, 7);
    const __m256i opaque = _mm256_set1_epi32(255);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        long long word;
        std::memcpy(&word, units + i, 8);
        __m256i eight = _mm256_set1_epi64x(word);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels + i * 4),
                            _mm256_or_si256(_mm256_shuffle_epi8(eight, spread), opaque));
    }
    for (; i < count; ++i) Put(pixels, i, Opaque(units[i], units[i], units[i]));
}

KQ_TARGET_AVX2 void WidenTriplesAvx2(const u8* units, size_t count, u8* pixels) {
    const __m256i spread = _mm256_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1, 3, 4,
                                            5, -1, 6, 7, 8, -1, 9, 10, 11);
    const __m256i opaque = _mm256_set1_epi32(255);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i* low = reinterpret_cast<const __m128i*>(units + i * 3);
        const __m128i* high = reinterpret_cast<const __m128i*>(units + i * 3 + 12);
        __m256i both = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(low)), _mm_loadu_si128(high), 1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pixels + i * 4),
                            _mm256_or_si256(_mm256_shuffle_epi8(both, spread), opaque));
    }
    WidenTriplesPlain(units + i * 3, count - i, pixels + i * 4);
}

KQ_TARGET_AVX2 void NarrowToTriplesAvx2(const u8* pixels, size_t count, u8* units) {
    const __m256i squeeze = _mm256_setr_epi8(1, 2, 3, 5, 6, 7, 9, 10, 11, 13, 14, 15, -1, -1, -1, -1, 1, 2, 3, 5, 6, 7,
                                             9, 10, 11, 13, 14, 15, -1, -1, -1, -1);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        __m256i eight = _mm256_shuffle_epi8(Load(pixels + i * 4), squeeze);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(units + i * 3), _mm256_castsi256_si128(eight));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(units + i * 3 + 12), _mm256_extracti128_si256(eight, 1));
    }
    NarrowToTriplesPlain(pixels + i * 4, count - i, units + i * 3);
}

KQ_TARGET_AVX2 void NarrowToRedsAvx2(const u8* pixels, size_t count, u8* units) {
    const __m256i byte = _mm256_set1_epi32(255);
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    size_t i = 0;
    for (; i + 32 <= count; i += 32) {
        __m256i part[4];
        for (size_t k = 0; k < 4; ++k)
            part[k] = _mm256_and_si256(_mm256_srli_epi32(Load(pixels + i * 4 + k * 32), 8), byte);
        __m256i bytes =
            _mm256_packus_epi16(_mm256_packus_epi32(part[0], part[1]), _mm256_packus_epi32(part[2], part[3]));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(units + i), _mm256_permutevar8x32_epi32(bytes, order));
    }
    NarrowToRedsPlain(pixels + i * 4, count - i, units + i);
}

KQ_TARGET_AVX512 void WidenTriplesAvx512(const u8* units, size_t count, u8* pixels) {
    alignas(64) u8 places[64];
    for (int i = 0; i < 64; ++i) places[i] = u8(i & 3 ? i / 4 * 3 + (i & 3) - 1 : 0);
    const __m512i spread = _mm512_load_si512(places);
    const __m512i opaque = _mm512_set1_epi32(255);
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m512i triples = _mm512_loadu_si512(units + i * 3);
        _mm512_storeu_si512(pixels + i * 4, _mm512_or_si512(_mm512_permutexvar_epi8(spread, triples), opaque));
    }
    WidenTriplesPlain(units + i * 3, count - i, pixels + i * 4);
}

KQ_TARGET_AVX512 void NarrowToTriplesAvx512(const u8* pixels, size_t count, u8* units) {
    alignas(64) u8 places[64] = {};
    for (int i = 0; i < 48; ++i) places[i] = u8(i / 3 * 4 + i % 3 + 1);
    const __m512i squeeze = _mm512_load_si512(places);
    size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        __m512i sixteen = _mm512_permutexvar_epi8(squeeze, _mm512_loadu_si512(pixels + i * 4));
        _mm512_storeu_si512(units + i * 3, sixteen);
    }
    NarrowToTriplesPlain(pixels + i * 4, count - i, units + i * 3);
}

#endif

}   // namespace

void FillPixelTable(PixelTable* table, const u8* red, const u8* green, const u8* blue) {
    table->grey = true;
    for (u32 i = 0; i < 256; ++i) {
        table->pixels[i] = Opaque(red[i], green[i], blue[i]);
        if (table->pixels[i] != Opaque(i, i, i)) table->grey = false;
    }
}

void WidenIndexes(const u8* units, size_t count, i32 bits, const PixelTable* table, u8* pixels, Simd level) {
    switch (bits) {
    case 1: return WidenBits<1>(units, count, table, pixels);
    case 2: return WidenBits<2>(units, count, table, pixels);
    case 4: return WidenBits<4>(units, count, table, pixels);
    default: break;
    }
#if defined(KQ_SIMD_X86)
    if (table->grey && level != Simd::Plain) return WidenGreyAvx2(units, count, pixels);
#endif
    (void)level;
    WidenBytes(units, count, table, pixels);
}

void WidenWords(const u8* units, size_t count, u8* pixels) {
    for (size_t i = 0; i < count; ++i) {
        u32 word = u32(units[i * 2]) << 8 | units[i * 2 + 1];
        Put(pixels, i, Opaque((word >> 10 & 31) << 3, (word >> 5 & 31) << 3, (word & 31) << 3));
    }
}

void WidenTriples(const u8* units, size_t count, u8* pixels, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return WidenTriplesAvx512(units, count, pixels);
    if (level == Simd::Avx2) return WidenTriplesAvx2(units, count, pixels);
#endif
    (void)level;
    WidenTriplesPlain(units, count, pixels);
}

void NarrowToTriples(const u8* pixels, size_t count, u8* units, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return NarrowToTriplesAvx512(pixels, count, units);
    if (level == Simd::Avx2) return NarrowToTriplesAvx2(pixels, count, units);
#endif
    (void)level;
    NarrowToTriplesPlain(pixels, count, units);
}

void NarrowToReds(const u8* pixels, size_t count, u8* units, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level != Simd::Plain) return NarrowToRedsAvx2(pixels, count, units);
#endif
    (void)level;
    NarrowToRedsPlain(pixels, count, units);
}

}   // namespace kq
