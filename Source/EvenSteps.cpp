// Rows of every second pixel, and of every pixel twice, a register of target at a time. The registers at both ends
// overlap their neighbours instead of leaving single pixels over.
#include "Source/EvenSteps.h"

#include <algorithm>

#include "Source/StringStores.h"

namespace kq {

namespace {

void HalvePlain(const u8* from, u8* to, i64 count, i64 bytes) {
    for (i64 i = 0; i < count; ++i) std::memcpy(to + i * bytes, from + i * 2 * bytes, size_t(bytes));
}

void DoublePlain(const u8* from, u8* to, i64 count, i64 bytes) {
    for (i64 i = 0; i < count; ++i) std::memcpy(to + i * bytes, from + i / 2 * bytes, size_t(bytes));
}

// Target bytes of a row: those up to `length` are done in whole registers, of which the second may start at any
// multiple of `unit`, a power of 2.
struct EvenRow {
    SourceBytes source;
    u8* to;
    i64 length, unit;
    bool stream;

    // Where the second register of `size` bytes starts.
    i64 SecondRegister(i64 size) const {
        i64 gap = i64(-reinterpret_cast<uptr>(to) & uptr(size - 1));
        return gap > 0 && (gap & (unit - 1)) == 0 ? gap : size;
    }
};

#if defined(KQ_SIMD_X86)

// Source bytes for two bytes of target.
constexpr i64 kHalving = 4, kDoubling = 1;

// Each of these makes the register of target bytes from `at` on.

struct HalveBytes256 {
    KQ_TARGET_AVX2 __m256i operator()(const u8* from, i64 at) const {
        const __m256i even = _mm256_set1_epi16(255), *pixels = reinterpret_cast<const __m256i*>(from + at * 2);
        __m256i low = _mm256_and_si256(_mm256_loadu_si256(pixels), even);
        __m256i high = _mm256_and_si256(_mm256_loadu_si256(pixels + 1), even);
        return _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8);
    }
};

struct HalveWords256 {
    KQ_TARGET_AVX2 __m256i operator()(const u8* from, i64 at) const {
        const float* pixels = reinterpret_cast<const float*>(from + at * 2);
        __m256 even = _mm256_shuffle_ps(_mm256_loadu_ps(pixels), _mm256_loadu_ps(pixels + 8), 0x88);
        return _mm256_permute4x64_epi64(_mm256_castps_si256(even), 0xD8);
    }
};

// The eight bytes for each lane of 16, in its lower half.
KQ_TARGET_AVX2 inline __m256i Halves256(const u8* from) {
    __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    return _mm256_permute4x64_epi64(_mm256_castsi128_si256(pixels), 0x10);
}

struct DoubleBytes256 {
    KQ_TARGET_AVX2 __m256i operator()(const u8* from, i64 at) const {
        __m256i pixels = Halves256(from + at / 2);
        return _mm256_unpacklo_epi8(pixels, pixels);
    }
};

struct DoubleWords256 {
    KQ_TARGET_AVX2 __m256i operator()(const u8* from, i64 at) const {
        __m256i pixels = Halves256(from + at / 2);
        return _mm256_unpacklo_epi32(pixels, pixels);
    }
};

template <class Make>
KQ_TARGET_AVX2 void FillRow256(const EvenRow& row, i64 ratio, Make make) {
    const u8 *from = row.source.from, *ahead = from + row.source.ahead;
    u8* to = row.to;
    i64 length = row.length;
    auto at = [to](i64 i) { return reinterpret_cast<__m256i*>(to + i); };
    i64 i = row.SecondRegister(32);
    bool stream = row.stream && IsAligned(to + i, 32);
    _mm256_storeu_si256(at(0), make(from, 0));
    for (; i + 32 <= length; i += 32) {
        PrefetchForRead(ahead + i * ratio / 2);
        if (stream)
            _mm256_stream_si256(at(i), make(from, i));
        else
            _mm256_storeu_si256(at(i), make(from, i));
    }
    _mm256_storeu_si256(at(length - 32), make(from, length - 32));
}

// Places of a permutation of bytes, in two registers for every second pixel of `bytes` bytes, in one of 32 for every
// pixel twice.
struct Places {
    alignas(64) u8 halve[64], twice[64];

    explicit constexpr Places(int bytes) : halve{}, twice{} {
        for (int k = 0; k < 64; ++k) {
            int pixel = k / bytes, channel = k % bytes;
            halve[k] = u8(pixel * 2 * bytes + channel);
            twice[k] = u8(pixel / 2 * bytes + channel);
        }
    }
};

constexpr Places kBytePlaces(1), kWordPlaces(4);

struct Halve512 {
    __m512i places;

    KQ_TARGET_AVX512 __m512i operator()(const u8* from, i64 at) const {
        __m512i low = _mm512_loadu_si512(from + at * 2), high = _mm512_loadu_si512(from + at * 2 + 64);
        return _mm512_permutex2var_epi8(low, places, high);
    }
};

struct Double512 {
    __m512i places;

    KQ_TARGET_AVX512 __m512i operator()(const u8* from, i64 at) const {
        __m256i pixels = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + at / 2));
        return _mm512_permutexvar_epi8(places, _mm512_castsi256_si512(pixels));
    }
};

template <class Make>
KQ_TARGET_AVX512 void FillRow512(const EvenRow& row, i64 ratio, Make make) {
    const u8 *from = row.source.from, *ahead = from + row.source.ahead;
    u8* to = row.to;
    i64 length = row.length;
    i64 i = row.SecondRegister(64);
    bool stream = row.stream && IsAligned(to + i, 64);
    _mm512_storeu_si512(to, make(from, 0));
    for (; i + 64 <= length; i += 64) {
        PrefetchForRead(ahead + i * ratio / 2);
        if (ratio > 1) PrefetchForRead(ahead + i * 2 + 64);
        if (stream)
            _mm512_stream_si512(reinterpret_cast<__m512i*>(to + i), make(from, i));
        else
            _mm512_storeu_si512(to + i, make(from, i));
    }
    _mm512_storeu_si512(to + length - 64, make(from, length - 64));
}

KQ_TARGET_AVX512 void HalveRow512(const EvenRow& row, const Places& places) {
    FillRow512(row, kHalving, Halve512{_mm512_load_si512(places.halve)});
}

KQ_TARGET_AVX512 void DoubleRow512(const EvenRow& row, const Places& places) {
    FillRow512(row, kDoubling, Double512{_mm512_load_si512(places.twice)});
}

i64 RegisterBytes(Simd level) { return level == Simd::Avx512 ? 64 : 32; }

#endif

}   // namespace

void HalveRow(const SourceBytes& source, [[maybe_unused]] i64 readable, u8* to, i64 count, i64 bytes,
              [[maybe_unused]] bool stream, [[maybe_unused]] Simd level) {
    i64 whole = 0;
#if defined(KQ_SIMD_X86)
    // The last pixel's neighbour may lie outside, which a whole register would read.
    i64 length = std::min(count * bytes, (readable >> 1) & -bytes);
    if (level != Simd::Plain && length >= RegisterBytes(level)) {
        EvenRow row{source, to, whole = length, bytes, stream};
        if (level == Simd::Avx512)
            HalveRow512(row, bytes == 1 ? kBytePlaces : kWordPlaces);
        else
            bytes == 1 ? FillRow256(row, kHalving, HalveBytes256()) : FillRow256(row, kHalving, HalveWords256());
    }
#endif
    // The sizes are powers of 2, and a division costs as much as a short row.
    if (whole < count * bytes) HalvePlain(source.from + whole * 2, to + whole, count - whole / bytes, bytes);
}

void DoubleRow(const SourceBytes& source, u8* to, i64 count, i64 bytes, [[maybe_unused]] bool stream,
               [[maybe_unused]] Simd level) {
    i64 whole = 0;
#if defined(KQ_SIMD_X86)
    i64 length = (count & -2) * bytes;
    if (level != Simd::Plain && length >= RegisterBytes(level)) {
        EvenRow row{source, to, whole = length, 2 * bytes, stream};
        if (level == Simd::Avx512)
            DoubleRow512(row, bytes == 1 ? kBytePlaces : kWordPlaces);
        else
            bytes == 1 ? FillRow256(row, kDoubling, DoubleBytes256()) : FillRow256(row, kDoubling, DoubleWords256());
    }
#endif
    if (whole < count * bytes) DoublePlain(source.from + whole / 2, to + whole, count - whole / bytes, bytes);
}

}   // namespace kq
