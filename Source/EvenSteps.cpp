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

// The part of each row that is done in whole registers. The second register of a row may start at any multiple of
// `unit`, a power of 2.
struct EvenRows {
    const Sampling& work;
    i64 top, bottom;
    i64 from, to;   // bytes from the rows' first ones
    i64 length;     // target bytes, at least a register
    i64 unit;
    bool stream;

    const u8* Source(i64 y) const { return SourceRow(work, y) + from; }
    u8* Target(i64 y) const { return TargetRow(work, y) + to; }

    // Where the second register of `size` bytes starts.
    i64 SecondRegister(const u8* target, i64 size) const {
        i64 gap = i64(-reinterpret_cast<uptr>(target) & uptr(size - 1));
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
KQ_TARGET_AVX2 inline void FillRow256(const EvenRows& rows, i64 y, i64 ratio, Make make) {
    const u8 *from = rows.Source(y), *ahead = rows.Source(std::min(y + 1, rows.bottom - 1));
    u8* to = rows.Target(y);
    i64 length = rows.length, i = rows.SecondRegister(to, 32);
    auto at = [to](i64 place) { return reinterpret_cast<__m256i*>(to + place); };
    bool stream = rows.stream && IsAligned(to + i, 32);
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

template <class Make>
KQ_TARGET_AVX2 void FillRows256(const EvenRows& rows, i64 ratio, Make make) {
    for (i64 y = rows.top; y < rows.bottom; ++y) FillRow256(rows, y, ratio, make);
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
KQ_TARGET_AVX512 inline void FillRow512(const EvenRows& rows, i64 y, i64 ratio, Make make) {
    const u8 *from = rows.Source(y), *ahead = rows.Source(std::min(y + 1, rows.bottom - 1));
    u8* to = rows.Target(y);
    i64 length = rows.length, i = rows.SecondRegister(to, 64);
    bool stream = rows.stream && IsAligned(to + i, 64);
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

KQ_TARGET_AVX512 void HalveRows512(const EvenRows& rows, const Places& places) {
    Halve512 make{_mm512_load_si512(places.halve)};
    for (i64 y = rows.top; y < rows.bottom; ++y) FillRow512(rows, y, kHalving, make);
}

KQ_TARGET_AVX512 void DoubleRows512(const EvenRows& rows, const Places& places) {
    Double512 make{_mm512_load_si512(places.twice)};
    for (i64 y = rows.top; y < rows.bottom; ++y) FillRow512(rows, y, kDoubling, make);
}

#endif

// Whole registers of the rows; returns the target bytes done of each.
i64 HalveWhole([[maybe_unused]] const EvenRows& rows, [[maybe_unused]] i64 bytes, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512 && rows.length >= 64) {
        HalveRows512(rows, bytes == 1 ? kBytePlaces : kWordPlaces);
        return rows.length;
    }
    if (level == Simd::Avx2 && rows.length >= 32) {
        bytes == 1 ? FillRows256(rows, kHalving, HalveBytes256()) : FillRows256(rows, kHalving, HalveWords256());
        return rows.length;
    }
#endif
    return 0;
}

i64 DoubleWhole([[maybe_unused]] const EvenRows& rows, [[maybe_unused]] i64 bytes, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512 && rows.length >= 64) {
        DoubleRows512(rows, bytes == 1 ? kBytePlaces : kWordPlaces);
        return rows.length;
    }
    if (level == Simd::Avx2 && rows.length >= 32) {
        bytes == 1 ? FillRows256(rows, kDoubling, DoubleBytes256()) : FillRows256(rows, kDoubling, DoubleWords256());
        return rows.length;
    }
#endif
    return 0;
}

}   // namespace

void HalveRows(const Sampling& work, i64 top, i64 bottom, bool stream, Simd level) {
    i64 bytes = work.fromBytes, from = (work.startX >> 16) * bytes, all = work.width * bytes;
    // The last pixel's neighbour may lie outside, which a whole register would read.
    i64 length = std::min(all, (work.rowLength - from) / (2 * bytes) * bytes);
    EvenRows rows{work, top, bottom, from, 0, length, bytes, stream};
    i64 done = HalveWhole(rows, bytes, level);
    for (i64 y = top; done < all && y < bottom; ++y)
        HalvePlain(rows.Source(y) + done * 2, rows.Target(y) + done, (all - done) / bytes, bytes);
}

void DoubleRows(const Sampling& work, i64 top, i64 bottom, bool stream, Simd level) {
    i64 bytes = work.fromBytes, from = (work.startX >> 16) * bytes;
    // With an odd number of half pixels before the first one, it is the second of its pair.
    i64 odd = (work.startX >> 15 & 1) * bytes, all = work.width * bytes - odd;
    EvenRows rows{work, top, bottom, from + odd, odd, all / (2 * bytes) * 2 * bytes, 2 * bytes, stream};
    for (i64 y = top; odd > 0 && y < bottom; ++y)
        std::memcpy(TargetRow(work, y), SourceRow(work, y) + from, size_t(bytes));
    i64 done = DoubleWhole(rows, bytes, level);
    for (i64 y = top; done < all && y < bottom; ++y)
        DoublePlain(rows.Source(y) + done / 2, rows.Target(y) + done, (all - done) / bytes, bytes);
}

}   // namespace kq
