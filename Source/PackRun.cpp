// The packers.
//
// Packing finds its runs in a bit map of equal neighbours, which vector code makes for a whole row at once; a packet
// then costs two searches for a bit and a copy. Copies go in whole vectors that may touch what lies behind, as long as
// that is written later or lies in the slack.
#include "Source/PackRun.h"

#include <bit>
#include <cstring>

namespace kq {

namespace {

constexpr i32 kMostValues = 128;   // of a packet

// The first bit from `at` on that is clear. There is one: the last pixel's.
inline i32 NextClear(const u64* words, i32 at) {
    i32 index = at >> 6;
    u64 word = ~words[index] >> (at & 63);
    if (word) return at + std::countr_zero(word);
    at = index << 6;
    do {
        at += 64;
        word = ~words[++index];
    } while (!word);
    return at + std::countr_zero(word);
}

// Copies `bytes` bytes in pieces of 32: up to 31 more are read and written.
inline void CopyOver(u8* to, const u8* from, size_t bytes) {
    size_t i = 0;
    do {
        u64 piece[4];
        std::memcpy(piece, from + i, 32);
        std::memcpy(to + i, piece, 32);
        i += 32;
    } while (i < bytes);
}

// Appends values to the open literal packet, opening and closing packets as they fill.
template <i32 Size>
inline u8* AddLiteral(RunPacker* packer, const u8* values, i32 count, u8* out) {
    while (count > 0) {
        if (!packer->literal) {
            packer->literal = out++;
            packer->count = 0;
        }
        i32 room = kMostValues - packer->count;
        i32 now = count < room ? count : room;
        CopyOver(out, values, size_t(now * Size));
        out += now * Size;
        values += now * Size;
        count -= now;
        packer->count += now;
        *packer->literal = u8(127 + packer->count);
        if (packer->count == kMostValues) packer->literal = nullptr;
    }
    return out;
}

// A run closes the open literal, whose control byte is up to date already.
template <i32 Size>
inline u8* AddRun(RunPacker* packer, const u8* value, i32 count, u8* out) {
    packer->literal = nullptr;
    *out = u8(count - 1);
    std::memcpy(out + 1, value, Size);
    return out + 1 + Size;
}

// Equal neighbours one by one.
template <class Same>
void MarkPlain(i32 width, EqualBits* equal, Same same) {
    i32 words = (width + 63) / 64;
    for (i32 w = 0; w < words; ++w) {
        u64 bits = 0;
        i32 last = width - 1 - w * 64 < 64 ? width - 1 - w * 64 : 64;
        for (i32 i = 0; i < last; ++i) bits |= u64(same(w * 64 + i)) << i;
        equal->words[w] = bits;
    }
    equal->words[words] = 0;
}

inline u32 Load32(const u8* at) {
    u32 word;
    std::memcpy(&word, at, 4);
    return word;
}

// The alpha byte stands first, which is the lowest of the word.
constexpr u32 kColours = 0xFFFFFF00;

// Clears the bits from the last of `width` pixels on.
inline void EndMarks(EqualBits* equal, i32 width) {
    i32 words = (width + 63) / 64;
    equal->words[words] = 0;
    if (width > 0) equal->words[words - 1] &= (u64(1) << ((width - 1) & 63)) - 1;
}

#if defined(KQ_SIMD_X86)

KQ_TARGET_AVX2 void MarkBytesAvx2(const u8* values, i32 width, EqualBits* equal) {
    for (i32 at = 0; at < width; at += 64) {
        u64 bits = 0;
        for (i32 k = 0; k < 64; k += 32) {
            __m256i here = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values + at + k));
            __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values + at + k + 1));
            bits |= u64(u32(_mm256_movemask_epi8(_mm256_cmpeq_epi8(here, next)))) << k;
        }
        equal->words[at >> 6] = bits;
    }
    EndMarks(equal, width);
}

template <u32 Mask>
KQ_TARGET_AVX2 void MarkPixelsAvx2(const u8* pixels, i32 width, EqualBits* equal) {
    const __m256i mask = _mm256_set1_epi32(i32(Mask));
    for (i32 at = 0; at < width; at += 64) {
        u64 bits = 0;
        for (i32 k = 0; k < 64; k += 8) {
            const u8* from = pixels + (at + k) * 4;
            __m256i here = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)), mask);
            __m256i next = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + 4)), mask);
            bits |= u64(u32(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpeq_epi32(here, next))))) << k;
        }
        equal->words[at >> 6] = bits;
    }
    EndMarks(equal, width);
}

KQ_TARGET_AVX512 void MarkBytesAvx512(const u8* values, i32 width, EqualBits* equal) {
    for (i32 at = 0; at < width; at += 64)
        equal->words[at >> 6] =
            _mm512_cmpeq_epi8_mask(_mm512_loadu_si512(values + at), _mm512_loadu_si512(values + at + 1));
    EndMarks(equal, width);
}

template <u32 Mask>
KQ_TARGET_AVX512 void MarkPixelsAvx512(const u8* pixels, i32 width, EqualBits* equal) {
    const __m512i mask = _mm512_set1_epi32(i32(Mask));
    for (i32 at = 0; at < width; at += 64) {
        u64 bits = 0;
        for (i32 k = 0; k < 64; k += 16) {
            const u8* from = pixels + (at + k) * 4;
            __m512i differ = _mm512_xor_si512(_mm512_loadu_si512(from), _mm512_loadu_si512(from + 4));
            bits |= u64(u16(_mm512_testn_epi32_mask(differ, mask))) << k;
        }
        equal->words[at >> 6] = bits;
    }
    EndMarks(equal, width);
}

#endif

template <u32 Mask>
void MarkPixels(const u8* pixels, i32 width, EqualBits* equal, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return MarkPixelsAvx512<Mask>(pixels, width, equal);
    if (level == Simd::Avx2) return MarkPixelsAvx2<Mask>(pixels, width, equal);
#endif
    (void)level;
    MarkPlain(width, equal, [=](i32 i) { return ((Load32(pixels + i * 4) ^ Load32(pixels + i * 4 + 4)) & Mask) == 0; });
}

// Packs a row in which every bit of `starts` is a place where a run may open. Pixels between runs are literal. A word
// of the map at a time: the runs that end in it cost a search for two bits each and no memory.
template <i32 Size>
u8* PackRow(RunPacker* state, const u8* values, i32 width, const u64* starts, const u64* equal, u8* out) {
    RunPacker packer = *state;   // no byte that is written can be one of a local's
    i32 literal = 0;             // the first pixel that is not written yet
    for (i32 base = 0, at = 0; base < width;) {
        u64 open = starts[base >> 6] & ~u64(0) << at, ends = ~equal[base >> 6];
        at = 0;
        while (open && at < 64) {
            i32 start = std::countr_zero(open);
            u64 end = ends & ~u64(0) << start;
            i32 count = end ? std::countr_zero(end) + 1 - start : NextClear(equal, base + 64) + 1 - base - start;
            if (count > kMostValues) count = kMostValues;
            if (base + start > literal)
                out = AddLiteral<Size>(&packer, values + literal * Size, base + start - literal, out);
            out = AddRun<Size>(&packer, values + (base + start) * Size, count, out);
            at = start + count;
            literal = base + at;
            open = at < 64 ? open & ~u64(0) << at : 0;
        }
        base = at < 64 ? base + 64 : literal & ~63;
        at = at < 64 ? 0 : literal & 63;
    }
    if (literal < width) out = AddLiteral<Size>(&packer, values + literal * Size, width - literal, out);
    *state = packer;
    return out;
}

}   // namespace

void MarkEqualBytes(const u8* values, i32 width, EqualBits* equal, Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return MarkBytesAvx512(values, width, equal);
    if (level == Simd::Avx2) return MarkBytesAvx2(values, width, equal);
#endif
    (void)level;
    MarkPlain(width, equal, [=](i32 i) { return values[i] == values[i + 1]; });
}

void MarkEqualColours(const u8* pixels, i32 width, EqualBits* equal, Simd level) {
    MarkPixels<kColours>(pixels, width, equal, level);
}

void MarkEqualPixels(const u8* pixels, i32 width, EqualBits* equal, Simd level) {
    MarkPixels<0xFFFFFFFF>(pixels, width, equal, level);
}

u8* PackBytes(RunPacker* packer, const u8* values, i32 width, const EqualBits* equal, u8* out) {
    EqualBits starts;
    i32 words = (width + 63) / 64;
    for (i32 i = 0; i < words; ++i) {
        u64 here = equal->words[i], next = equal->words[i + 1];
        starts.words[i] = here & (here >> 1 | next << 63) & (here >> 2 | next << 62);
    }
    starts.words[words] = 0;
    // A run needs a fifth pixel in the row: none opens on the fourth from the end.
    if (width >= 4) starts.words[(width - 4) >> 6] &= ~(u64(1) << ((width - 4) & 63));
    return PackRow<1>(packer, values, width, starts.words, equal->words, out);
}

u8* PackTriples(RunPacker* packer, const u8* values, i32 width, const EqualBits* equal, u8* out) {
    return PackRow<3>(packer, values, width, equal->words, equal->words, out);
}

u8* PackQuads(RunPacker* packer, const u8* values, i32 width, const EqualBits* equal, u8* out) {
    return PackRow<4>(packer, values, width, equal->words, equal->words, out);
}

}   // namespace kq
