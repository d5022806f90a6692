// Rows between the portable and the native pixel of 32 bits.
//
// A native target keeps a byte of each pixel, so that its lines are fetched whatever is done: asking for them ahead,
// and as lines that will be written, is most of the speed.
#include "Source/Reverse32.h"

#include <algorithm>

#include "Source/StringStores.h"

namespace kq {

namespace {

void ToNativePlain(const u8* from, u8* to, i64 count) {
    for (i64 i = 0; i < count; ++i) MovePixel<Form::Argb, Form::Bgrx>(from + i * 4, to + i * 4);
}

void ToPortablePlain(const u8* from, u8* to, i64 count) {
    for (i64 i = 0; i < count; ++i) MovePixel<Form::Bgrx, Form::Argb>(from + i * 4, to + i * 4);
}

#if defined(KQ_SIMD_X86)

KQ_TARGET_AVX2 inline __m256i Reversed(const u8* from) {
    const __m256i order = _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12, 3, 2, 1, 0, 7, 6, 5, 4,
                                           11, 10, 9, 8, 15, 14, 13, 12);
    return _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)), order);
}

KQ_TARGET_AVX2 void ToNativeAvx2(const SourceBytes& row, u8* to, i64 count) {
    const u8* from = row.from;
    const __m256i fourth = _mm256_set1_epi32(i32(0xFF000000));
    i64 i = 0;
    for (; i + 8 <= count; i += 8) {
        PrefetchForRead(from + i * 4 + row.ahead);
        __m256i* target = reinterpret_cast<__m256i*>(to + i * 4);
        PrefetchForWrite(to + i * 4 + row.targetAhead);
        __m256i kept = _mm256_and_si256(_mm256_loadu_si256(target), fourth);
        _mm256_storeu_si256(target, _mm256_or_si256(_mm256_andnot_si256(fourth, Reversed(from + i * 4)), kept));
    }
    ToNativePlain(from + i * 4, to + i * 4, count - i);
}

KQ_TARGET_AVX2 void ToPortableAvx2(const SourceBytes& row, u8* to, i64 count, bool stream) {
    const u8* from = row.from;
    const __m256i opaque = _mm256_set1_epi32(255);
    i64 i = std::min(PixelsToAlignment(to, 4, 32), count);
    ToPortablePlain(from, to, i);
    stream = stream && IsAligned(to + i * 4, 32);
    for (; i + 8 <= count; i += 8) {
        PrefetchForRead(from + i * 4 + row.ahead);
        __m256i* target = reinterpret_cast<__m256i*>(to + i * 4);
        __m256i pixels = _mm256_or_si256(Reversed(from + i * 4), opaque);
        if (stream)
            _mm256_stream_si256(target, pixels);
        else
            _mm256_storeu_si256(target, pixels);
    }
    ToPortablePlain(from + i * 4, to + i * 4, count - i);
}

KQ_TARGET_AVX512 inline __m512i Reversed16(const u8* from) {
    const __m512i order = _mm512_broadcast_i32x4(_mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12));
    return _mm512_shuffle_epi8(_mm512_loadu_si512(from), order);
}

KQ_TARGET_AVX512 void ToNativeAvx512(const SourceBytes& row, u8* to, i64 count) {
    const u8* from = row.from;
    constexpr u64 kColours = 0x7777777777777777;
    i64 i = std::min(PixelsToAlignment(to, 4, 64), count);
    ToNativePlain(from, to, i);
    for (; i + 16 <= count; i += 16) {
        PrefetchForRead(from + i * 4 + row.ahead);
        PrefetchForWrite(to + i * 4 + row.targetAhead);
        _mm512_mask_storeu_epi8(to + i * 4, kColours, Reversed16(from + i * 4));
    }
    ToNativePlain(from + i * 4, to + i * 4, count - i);
}

KQ_TARGET_AVX512 void ToPortableAvx512(const SourceBytes& row, u8* to, i64 count, bool stream) {
    const u8* from = row.from;
    const __m512i opaque = _mm512_set1_epi32(255);
    i64 i = std::min(PixelsToAlignment(to, 4, 64), count);
    ToPortablePlain(from, to, i);
    stream = stream && IsAligned(to + i * 4, 64);
    for (; i + 16 <= count; i += 16) {
        PrefetchForRead(from + i * 4 + row.ahead);
        __m512i pixels = _mm512_or_si512(Reversed16(from + i * 4), opaque);
        if (stream)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(to + i * 4), pixels);
        else
            _mm512_storeu_si512(to + i * 4, pixels);
    }
    ToPortablePlain(from + i * 4, to + i * 4, count - i);
}

#endif

}   // namespace

void ReverseToNative(const SourceBytes& row, u8* to, i64 count, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return ToNativeAvx512(row, to, count);
    if (level == Simd::Avx2) return ToNativeAvx2(row, to, count);
#endif
    ToNativePlain(row.from, to, count);
}

void ReverseToPortable(const SourceBytes& row, u8* to, i64 count, [[maybe_unused]] bool stream,
                       [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return ToPortableAvx512(row, to, count, stream);
    if (level == Simd::Avx2) return ToPortableAvx2(row, to, count, stream);
#endif
    ToPortablePlain(row.from, to, count);
}

}   // namespace kq
