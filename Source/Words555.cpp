// Rows between the portable 32-bit pixel and the 16-bit one, 16 pixels at a time.
//
// A portable pixel read as a little-endian word is 0xBBGGRRAA: the channels' top bits only have to be shifted into
// place, and back.
#include "Source/Words555.h"

#include <algorithm>

#include "Source/StringStores.h"

namespace kq {

namespace {

void PackPlain(const u8* from, u8* to, i64 count) {
    for (i64 i = 0; i < count; ++i) MovePixel<Form::Argb, Form::Rgb555>(from + i * 4, to + i * 2);
}

void UnpackPlain(const u8* from, u8* to, i64 count) {
    for (i64 i = 0; i < count; ++i) MovePixel<Form::Rgb555, Form::Argb>(from + i * 2, to + i * 4);
}

#if defined(KQ_SIMD_X86)

KQ_TARGET_AVX512 inline __m256i Pack16(const u8* from) {
    __m512i pixels = _mm512_loadu_si512(from);
    __m512i red = _mm512_and_si512(_mm512_srli_epi32(pixels, 1), _mm512_set1_epi32(0x7C00));
    __m512i green = _mm512_and_si512(_mm512_srli_epi32(pixels, 14), _mm512_set1_epi32(0x03E0));
    __m512i blue = _mm512_srli_epi32(pixels, 27);
    return _mm512_cvtepi32_epi16(_mm512_or_si512(_mm512_or_si512(red, green), blue));
}

KQ_TARGET_AVX512 void PackAvx512(const SourceBytes& row, u8* to, i64 count, bool stream) {
    const u8* from = row.from;
    i64 i = std::min(PixelsToAlignment(to, 2, 64), count);
    PackPlain(from, to, i);
    stream = stream && IsAligned(to + i * 2, 64);
    for (; i + 32 <= count; i += 32) {
        PrefetchForRead(from + i * 4 + row.ahead);
        PrefetchForRead(from + i * 4 + row.ahead + 64);
        __m512i words = _mm512_inserti64x4(_mm512_castsi256_si512(Pack16(from + i * 4)), Pack16(from + i * 4 + 64), 1);
        if (stream)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(to + i * 2), words);
        else
            _mm512_storeu_si512(to + i * 2, words);
    }
    PackPlain(from + i * 4, to + i * 2, count - i);
}

KQ_TARGET_AVX512 void UnpackAvx512(const SourceBytes& row, u8* to, i64 count, bool stream) {
    const u8* from = row.from;
    i64 i = std::min(PixelsToAlignment(to, 4, 64), count);
    UnpackPlain(from, to, i);
    stream = stream && IsAligned(to + i * 4, 64);
    for (; i + 16 <= count; i += 16) {
        PrefetchForRead(from + i * 2 + row.ahead);
        __m512i words = _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + i * 2)));
        __m512i blue = _mm512_slli_epi32(words, 27);
        __m512i green = _mm512_and_si512(_mm512_slli_epi32(words, 14), _mm512_set1_epi32(0x00F80000));
        __m512i red = _mm512_and_si512(_mm512_slli_epi32(words, 1), _mm512_set1_epi32(0x0000F800));
        __m512i pixels = _mm512_or_si512(_mm512_or_si512(blue, green), _mm512_or_si512(red, _mm512_set1_epi32(255)));
        if (stream)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(to + i * 4), pixels);
        else
            _mm512_storeu_si512(to + i * 4, pixels);
    }
    UnpackPlain(from + i * 2, to + i * 4, count - i);
}

KQ_TARGET_AVX2 inline __m256i Pack8(const u8* from) {
    __m256i pixels = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    __m256i red = _mm256_and_si256(_mm256_srli_epi32(pixels, 1), _mm256_set1_epi32(0x7C00));
    __m256i green = _mm256_and_si256(_mm256_srli_epi32(pixels, 14), _mm256_set1_epi32(0x03E0));
    return _mm256_or_si256(_mm256_or_si256(red, green), _mm256_srli_epi32(pixels, 27));
}

KQ_TARGET_AVX2 void PackAvx2(const SourceBytes& row, u8* to, i64 count, bool stream) {
    const u8* from = row.from;
    i64 i = std::min(PixelsToAlignment(to, 2, 32), count);
    PackPlain(from, to, i);
    stream = stream && IsAligned(to + i * 2, 32);
    for (; i + 16 <= count; i += 16) {
        PrefetchForRead(from + i * 4 + row.ahead);
        __m256i words = _mm256_packus_epi32(Pack8(from + i * 4), Pack8(from + i * 4 + 32));
        words = _mm256_permute4x64_epi64(words, 0xD8);
        __m256i* target = reinterpret_cast<__m256i*>(to + i * 2);
        if (stream)
            _mm256_stream_si256(target, words);
        else
            _mm256_storeu_si256(target, words);
    }
    PackPlain(from + i * 4, to + i * 2, count - i);
}

KQ_TARGET_AVX2 void UnpackAvx2(const SourceBytes& row, u8* to, i64 count, bool stream) {
    const u8* from = row.from;
    i64 i = std::min(PixelsToAlignment(to, 4, 32), count);
    UnpackPlain(from, to, i);
    stream = stream && IsAligned(to + i * 4, 32);
    for (; i + 8 <= count; i += 8) {
        PrefetchForRead(from + i * 2 + row.ahead);
        __m256i words = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i * 2)));
        __m256i blue = _mm256_slli_epi32(words, 27);
        __m256i green = _mm256_and_si256(_mm256_slli_epi32(words, 14), _mm256_set1_epi32(0x00F80000));
        __m256i red = _mm256_and_si256(_mm256_slli_epi32(words, 1), _mm256_set1_epi32(0x0000F800));
        __m256i pixels = _mm256_or_si256(_mm256_or_si256(blue, green), _mm256_or_si256(red, _mm256_set1_epi32(255)));
        __m256i* target = reinterpret_cast<__m256i*>(to + i * 4);
        if (stream)
            _mm256_stream_si256(target, pixels);
        else
            _mm256_storeu_si256(target, pixels);
    }
    UnpackPlain(from + i * 2, to + i * 4, count - i);
}

#endif

}   // namespace

void PackRow555(const SourceBytes& row, u8* to, i64 count, [[maybe_unused]] bool stream, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return PackAvx512(row, to, count, stream);
    if (level == Simd::Avx2) return PackAvx2(row, to, count, stream);
#endif
    PackPlain(row.from, to, count);
}

void UnpackRow555(const SourceBytes& row, u8* to, i64 count, [[maybe_unused]] bool stream,
                  [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return UnpackAvx512(row, to, count, stream);
    if (level == Simd::Avx2) return UnpackAvx2(row, to, count, stream);
#endif
    UnpackPlain(row.from, to, count);
}

}   // namespace kq
