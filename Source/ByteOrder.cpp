// Rotation of pixels by one byte. A little-endian word of a pixel rotated left by 8 bits moves its last byte to the
// front. All forms work on any alignment, and in place too.
#include "Source/ByteOrder.h"

#include <cstring>

namespace kq {

namespace {

// `Bits` is 8 towards the bitmap's order and 24 towards the file's.
template <int Bits>
void RotatePlain(const u8* from, u8* to, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        u32 word;
        std::memcpy(&word, from + i * 4, 4);
        word = word << Bits | word >> (32 - Bits);
        std::memcpy(to + i * 4, &word, 4);
    }
}

#if defined(KQ_SIMD_X86)

template <int Bits>
KQ_TARGET_AVX2 void RotateAvx2(const u8* from, u8* to, size_t count) {
    size_t i = 0;
    const __m256i order = Bits == 8 ? _mm256_setr_epi8(3, 0, 1, 2, 7, 4, 5, 6, 11, 8, 9, 10, 15, 12, 13, 14, 3, 0, 1, 2,
                                                       7, 4, 5, 6, 11, 8, 9, 10, 15, 12, 13, 14)
                                    : _mm256_setr_epi8(1, 2, 3, 0, 5, 6, 7, 4, 9, 10, 11, 8, 13, 14, 15, 12, 1, 2, 3, 0,
                                                       5, 6, 7, 4, 9, 10, 11, 8, 13, 14, 15, 12);
    for (; i + 32 <= count; i += 32) {
        const __m256i* in = reinterpret_cast<const __m256i*>(from + i * 4);
        __m256i* out = reinterpret_cast<__m256i*>(to + i * 4);
        for (int k = 0; k < 4; ++k)
            _mm256_storeu_si256(out + k, _mm256_shuffle_epi8(_mm256_loadu_si256(in + k), order));
    }
    RotatePlain<Bits>(from + i * 4, to + i * 4, count - i);
}

template <int Bits>
KQ_TARGET_AVX512 void RotateAvx512(const u8* from, u8* to, size_t count) {
    size_t i = 0;
    for (; i + 64 <= count; i += 64)
        for (size_t k = i * 4; k < i * 4 + 256; k += 64)
            _mm512_storeu_si512(to + k, _mm512_rol_epi32(_mm512_loadu_si512(from + k), Bits));
    RotatePlain<Bits>(from + i * 4, to + i * 4, count - i);
}

#endif

template <int Bits>
void Rotate(const u8* from, u8* to, size_t count, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return RotateAvx512<Bits>(from, to, count);
    if (level == Simd::Avx2) return RotateAvx2<Bits>(from, to, count);
#endif
    (void)level;
    RotatePlain<Bits>(from, to, count);
}

}   // namespace

void RotateToBitmap(u8* pixels, size_t count, Simd level) { Rotate<8>(pixels, pixels, count, level); }

void RotateToFile(const u8* pixels, u8* file, size_t count, Simd level) { Rotate<24>(pixels, file, count, level); }

}   // namespace kq
