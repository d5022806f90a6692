// The conversions. Reading, Y' counts in whole units, so that a channel is Y' plus a rounded part that hangs on the
// chroma alone; the wide forms work that part out in 16 bits:
//
//   (c * m + 32767) >> 16 is the high half of c * m, and one more when the low half is above 32768. It is never 32768
//   exactly for the factors here, so the low half's top bit is the carry. A factor too large for 16 bits gives away
//   whole multiples of 65536, which count in units.
//
// Writing, a pixel's two sums are pairs of 16-bit products.
#include "Source/Yuv422.h"

#include <cstring>

namespace kq {

namespace {

inline u8 Clamped(i32 value) { return u8(value < 0 ? 0 : value > 255 ? 255 : value); }

// From pixel `x` on, with the chroma that is in force there.
void ToPixelsFrom(const u8* pairs, i32 x, i32 width, u8* pixels) {
    i32 cb = 0, cr = 0;
    if (x > 0) (x & 1 ? cb : cr) = pairs[x * 2 - 2] - 128;
    if (x > 1) (x & 1 ? cr : cb) = pairs[x * 2 - 4] - 128;
    for (; x < width; ++x) {
        (x & 1 ? cr : cb) = pairs[x * 2] - 128;
        i32 light = pairs[x * 2 + 1] * 65536;
        u8* pixel = pixels + x * 4;
        pixel[0] = 255;
        pixel[1] = Clamped((cr * 91881 + light + 32767) >> 16);
        pixel[2] = Clamped(((-cr * 23401 - cb * 11277) * 2 + light + 32767) >> 16);
        pixel[3] = Clamped((cb * 116130 + light + 32767) >> 16);
    }
}

void ToYuvFrom(const u8* pixels, i32 x, i32 width, u8* pairs) {
    for (; x < width; ++x) {
        const u8* pixel = pixels + x * 4;
        i32 r = pixel[1], g = pixel[2], b = pixel[3];
        i32 chroma = x & 1 ? r * 32768 - g * 27439 - b * 5329 : b * 32768 - g * 21709 - r * 11059;
        pairs[x * 2] = u8((chroma + 0x807FFF) >> 16);
        pairs[x * 2 + 1] = u8((r * 19595 + g * 38470 + b * 7471 + 32767) >> 16);
    }
}

#if defined(KQ_SIMD_X86)

// Two 16-bit factors of a pair of lanes, the lower lane's first.
constexpr i32 Factors(i32 low, i32 high) { return i32(u32(u16(i16(low))) | u32(u16(i16(high))) << 16); }

constexpr i32 kRed = 91881 - 65536;         // times Cr, and once Cr
constexpr i32 kBlue = 116130 - 2 * 65536;   // times Cb, and twice Cb
constexpr i32 kGreenCr = 65536 - 46802;     // and minus once Cr
constexpr i32 kGreenCb = -22554;

KQ_TARGET_AVX2 __m256i RoundedPart(__m256i chroma, i32 factor) {
    __m256i by = _mm256_set1_epi16(i16(factor));
    return _mm256_add_epi16(_mm256_mulhi_epi16(chroma, by), _mm256_srli_epi16(_mm256_mullo_epi16(chroma, by), 15));
}

// Two channels of words, held to bytes, side by side: the first one's byte of each pixel in front.
KQ_TARGET_AVX2 __m256i Beside(__m256i first, __m256i second) {
    const __m256i places =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15));
    return _mm256_shuffle_epi8(_mm256_packus_epi16(first, second), places);
}

// Sixteen pixels; `own` holds their chroma and `before` that of the pixels one to the left.
KQ_TARGET_AVX2 void StoreSixteen(__m256i own, __m256i before, __m256i light, u8* pixels) {
    __m256i cb = _mm256_blend_epi16(own, before, 0xAA), cr = _mm256_blend_epi16(before, own, 0xAA);
    __m256i round = _mm256_set1_epi32(32767);
    __m256i even = _mm256_madd_epi16(before, _mm256_set1_epi32(Factors(kGreenCr, kGreenCb)));
    __m256i odd = _mm256_madd_epi16(own, _mm256_set1_epi32(Factors(kGreenCb, kGreenCr)));
    even = _mm256_srli_epi32(_mm256_add_epi32(even, round), 16);
    __m256i green = _mm256_blend_epi16(even, _mm256_add_epi32(odd, round), 0xAA);
    green = _mm256_add_epi16(light, _mm256_sub_epi16(green, cr));
    __m256i red = _mm256_add_epi16(_mm256_add_epi16(light, cr), RoundedPart(cr, kRed));
    __m256i blue = _mm256_add_epi16(_mm256_add_epi16(light, _mm256_add_epi16(cb, cb)), RoundedPart(cb, kBlue));
    __m256i front = Beside(_mm256_set1_epi16(255), red), back = Beside(green, blue);
    __m256i low = _mm256_unpacklo_epi16(front, back), high = _mm256_unpackhi_epi16(front, back);
    __m256i* to = reinterpret_cast<__m256i*>(pixels);
    _mm256_storeu_si256(to, _mm256_permute2x128_si256(low, high, 0x20));
    _mm256_storeu_si256(to + 1, _mm256_permute2x128_si256(low, high, 0x31));
}

KQ_TARGET_AVX2 void ToPixelsAvx2(const u8* pairs, i32 width, u8* pixels) {
    i32 x = width < 2 ? width : 2;
    ToPixelsFrom(pairs, 0, x, pixels);
    const __m256i low = _mm256_set1_epi16(255), middle = _mm256_set1_epi16(128);
    for (; x + 16 <= width; x += 16) {
        __m256i here = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pairs + x * 2));
        __m256i left = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pairs + x * 2 - 2));
        StoreSixteen(_mm256_sub_epi16(_mm256_and_si256(here, low), middle),
                     _mm256_sub_epi16(_mm256_and_si256(left, low), middle), _mm256_srli_epi16(here, 8), pixels + x * 4);
    }
    ToPixelsFrom(pairs, x, width, pixels);
}

// Eight pixels as 32-bit lanes with chroma in the lowest byte and light in the next.
KQ_TARGET_AVX2 __m256i EightPairs(const u8* pixels) {
    __m256i p = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels));
    __m256i green = _mm256_and_si256(p, _mm256_set1_epi16(255)), ends = _mm256_srli_epi16(p, 8);
    __m256i light = _mm256_madd_epi16(green, _mm256_set1_epi32(Factors(0, 38470 / 2)));
    light = _mm256_add_epi32(_mm256_add_epi32(light, light), _mm256_set1_epi32(32767));
    light = _mm256_add_epi32(light, _mm256_madd_epi16(ends, _mm256_set1_epi32(Factors(19595, 7471))));
    const __m256i endFactors =
        _mm256_set1_epi64x(i64(u64(u32(Factors(-32768, 5329))) << 32 | u32(Factors(11059, -32768))));
    const __m256i greenFactors = _mm256_set1_epi64x(i64(u64(u32(Factors(0, 27439))) << 32 | u32(Factors(0, 21709))));
    __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(ends, endFactors), _mm256_madd_epi16(green, greenFactors));
    __m256i chroma = _mm256_srli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(0x807FFF), sum), 16);
    return _mm256_or_si256(chroma, _mm256_and_si256(_mm256_srli_epi32(light, 8), _mm256_set1_epi32(0xFF00)));
}

KQ_TARGET_AVX2 void ToYuvAvx2(const u8* pixels, i32 width, u8* pairs) {
    i32 x = 0;
    for (; x + 16 <= width; x += 16) {
        __m256i both = _mm256_packus_epi32(EightPairs(pixels + x * 4), EightPairs(pixels + x * 4 + 32));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pairs + x * 2), _mm256_permute4x64_epi64(both, 0xD8));
    }
    ToYuvFrom(pixels, x, width, pairs);
}

KQ_TARGET_AVX512 __m512i RoundedPart(__m512i chroma, i32 factor) {
    __m512i by = _mm512_set1_epi16(i16(factor));
    return _mm512_add_epi16(_mm512_mulhi_epi16(chroma, by), _mm512_srli_epi16(_mm512_mullo_epi16(chroma, by), 15));
}

// Where the bytes of sixteen pixels from `first` on lie in two vectors of packed channels: alpha and red, green and
// blue, eight of each in turn.
struct PixelPlaces {
    alignas(64) u8 bytes[64];

    constexpr explicit PixelPlaces(int first) : bytes() {
        for (int i = 0; i < 64; ++i) {
            int pixel = first + i / 4, channel = i % 4;
            bytes[i] = u8(channel / 2 * 64 + pixel / 8 * 16 + channel % 2 * 8 + pixel % 8);
        }
    }
};

constexpr PixelPlaces kFirstPixels(0), kLastPixels(16);

KQ_TARGET_AVX512 void StoreThirtyTwo(__m512i own, __m512i before, __m512i light, u8* pixels) {
    constexpr __mmask32 kOdd = 0xAAAAAAAA;
    __m512i cb = _mm512_mask_blend_epi16(kOdd, own, before), cr = _mm512_mask_blend_epi16(kOdd, before, own);
    __m512i round = _mm512_set1_epi32(32767);
    __m512i even = _mm512_madd_epi16(before, _mm512_set1_epi32(Factors(kGreenCr, kGreenCb)));
    __m512i odd = _mm512_madd_epi16(own, _mm512_set1_epi32(Factors(kGreenCb, kGreenCr)));
    even = _mm512_srli_epi32(_mm512_add_epi32(even, round), 16);
    __m512i green = _mm512_mask_blend_epi16(kOdd, even, _mm512_add_epi32(odd, round));
    green = _mm512_add_epi16(light, _mm512_sub_epi16(green, cr));
    __m512i red = _mm512_add_epi16(_mm512_add_epi16(light, cr), RoundedPart(cr, kRed));
    __m512i blue = _mm512_add_epi16(_mm512_add_epi16(light, _mm512_add_epi16(cb, cb)), RoundedPart(cb, kBlue));
    // Packing holds the channels to bytes.
    __m512i front = _mm512_packus_epi16(_mm512_set1_epi16(255), red), back = _mm512_packus_epi16(green, blue);
    const __m512i first = _mm512_load_si512(kFirstPixels.bytes), last = _mm512_load_si512(kLastPixels.bytes);
    _mm512_storeu_si512(pixels, _mm512_permutex2var_epi8(front, first, back));
    _mm512_storeu_si512(pixels + 64, _mm512_permutex2var_epi8(front, last, back));
}

KQ_TARGET_AVX512 void ToPixelsAvx512(const u8* pairs, i32 width, u8* pixels) {
    i32 x = width < 2 ? width : 2;
    ToPixelsFrom(pairs, 0, x, pixels);
    const __m512i low = _mm512_set1_epi16(255), middle = _mm512_set1_epi16(128);
    for (; x + 32 <= width; x += 32) {
        __m512i here = _mm512_loadu_si512(pairs + x * 2), left = _mm512_loadu_si512(pairs + x * 2 - 2);
        StoreThirtyTwo(_mm512_sub_epi16(_mm512_and_si512(here, low), middle),
                       _mm512_sub_epi16(_mm512_and_si512(left, low), middle), _mm512_srli_epi16(here, 8),
                       pixels + x * 4);
    }
    ToPixelsFrom(pairs, x, width, pixels);
}

KQ_TARGET_AVX512 void ToYuvAvx512(const u8* pixels, i32 width, u8* pairs) {
    const __m512i endFactors =
        _mm512_set1_epi64(i64(u64(u32(Factors(-32768, 5329))) << 32 | u32(Factors(11059, -32768))));
    const __m512i greenFactors = _mm512_set1_epi64(i64(u64(u32(Factors(0, 27439))) << 32 | u32(Factors(0, 21709))));
    i32 x = 0;
    for (; x + 16 <= width; x += 16) {
        __m512i p = _mm512_loadu_si512(pixels + x * 4);
        __m512i green = _mm512_and_si512(p, _mm512_set1_epi16(255)), ends = _mm512_srli_epi16(p, 8);
        __m512i light = _mm512_madd_epi16(green, _mm512_set1_epi32(Factors(0, 38470 / 2)));
        light = _mm512_add_epi32(_mm512_add_epi32(light, light), _mm512_set1_epi32(32767));
        light = _mm512_add_epi32(light, _mm512_madd_epi16(ends, _mm512_set1_epi32(Factors(19595, 7471))));
        __m512i sum = _mm512_add_epi32(_mm512_madd_epi16(ends, endFactors), _mm512_madd_epi16(green, greenFactors));
        __m512i chroma = _mm512_srli_epi32(_mm512_sub_epi32(_mm512_set1_epi32(0x807FFF), sum), 16);
        __m512i both =
            _mm512_or_si512(chroma, _mm512_and_si512(_mm512_srli_epi32(light, 8), _mm512_set1_epi32(0xFF00)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pairs + x * 2), _mm512_cvtepi32_epi16(both));
    }
    ToYuvFrom(pixels, x, width, pairs);
}

#endif

}   // namespace

void Yuv422ToPixels(const u8* pairs, i32 width, u8* pixels, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return ToPixelsAvx512(pairs, width, pixels);
    if (level == Simd::Avx2) return ToPixelsAvx2(pairs, width, pixels);
#endif
    (void)level;
    ToPixelsFrom(pairs, 0, width, pixels);
}

void PixelsToYuv422(const u8* pixels, i32 width, u8* pairs, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return ToYuvAvx512(pixels, width, pairs);
    if (level == Simd::Avx2) return ToYuvAvx2(pixels, width, pairs);
#endif
    (void)level;
    ToYuvFrom(pixels, 0, width, pairs);
}

}   // namespace kq
