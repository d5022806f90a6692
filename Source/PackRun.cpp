// The packers and the unpacker.
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

// The first bit from `at` on that is set, or `end`. The word behind the last pixel's is clear.
inline i32 NextSet(const u64* words, i32 at, i32 end) {
    i32 index = at >> 6;
    u64 word = words[index] >> (at & 63);
    if (word) return at + std::countr_zero(word);
    at = index << 6;
    do {
        at += 64;
        if (at >= end) return end;
        word = words[++index];
    } while (!word);
    return at + std::countr_zero(word);
}

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

inline void Copy16(u8* to, const u8* from) {
    u64 a, b;
    std::memcpy(&a, from, 8);
    std::memcpy(&b, from + 8, 8);
    std::memcpy(to, &a, 8);
    std::memcpy(to + 8, &b, 8);
}

// Copies `bytes` bytes in pieces of 16: up to 15 more are read and written.
inline void CopyOver(u8* to, const u8* from, size_t bytes) {
    for (size_t i = 0; i < bytes; i += 16) Copy16(to + i, from + i);
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

// Packs a row in which every bit of `starts` is a place where a run may open. Pixels between runs are literal.
template <i32 Size>
u8* PackRow(RunPacker* packer, const u8* values, i32 width, const u64* starts, const u64* equal, u8* out) {
    i32 at = 0;
    while (at < width) {
        i32 start = NextSet(starts, at, width);
        if (start > at) out = AddLiteral<Size>(packer, values + at * Size, start - at, out);
        if (start == width) break;
        i32 end = NextClear(equal, start) + 1;
        i32 count = end - start < kMostValues ? end - start : kMostValues;
        out = AddRun<Size>(packer, values + start * Size, count, out);
        at = start + count;
    }
    return out;
}

// A whole packet's worth may be written and read ahead of what is used, which spares the loops below every test.
constexpr size_t kPacketRoom = kMostValues + 32;

// Repeats a value of `Size` bytes; writes whole vectors.
template <i32 Size>
inline void FillOver(u8* to, const u8* value, size_t bytes) {
    u8 pattern[Size == 3 ? 48 : 16];
    for (size_t i = 0; i < sizeof pattern; i += Size) std::memcpy(pattern + i, value, Size);
    for (size_t i = 0; i < bytes; i += sizeof pattern)
        for (size_t k = 0; k < sizeof pattern; k += 16) Copy16(to + i + k, pattern + k);
}

// Whole packets while input and output have room for any: the values written. `out` may be written up to the room
// kept behind each packet; the input left over holds enough values to write that part again.
template <i32 Size>
size_t UnpackWholePackets(const u8** in, const u8* end, u8* out, size_t want) {
    const u8* from = *in;
    size_t done = 0;
    while (want - done >= kPacketRoom && size_t(end - from) >= 1 + kPacketRoom * Size + 128) {
        u32 control = *from++;
        size_t bytes = size_t((control & 127) + 1) * Size;
        u8* to = out + done * Size;
        if (control & 128) {
            CopyOver(to, from, bytes);
            from += bytes;
        } else {
            FillOver<Size>(to, from, bytes);
            from += Size;
        }
        done += (control & 127) + 1;
    }
    *in = from;
    return done;
}

// What is at hand of the packet that is open, up to `want` values.
template <i32 Size>
size_t UnpackOpenPacket(RunUnpacker* unpacker, const u8** in, const u8* end, u8* out, size_t want) {
    size_t count = size_t(unpacker->count) < want ? size_t(unpacker->count) : want;
    if (unpacker->run) {
        for (size_t i = 0; i < count; ++i) std::memcpy(out + i * Size, unpacker->value, Size);
    } else {
        size_t there = size_t(end - *in) / Size;
        if (there < count) count = there;
        std::memcpy(out, *in, count * Size);
        *in += count * Size;
    }
    unpacker->count -= i32(count);
    return count;
}

// Opens the next packet; false when the input does not hold its control byte and first value.
template <i32 Size>
bool OpenPacket(RunUnpacker* unpacker, const u8** in, const u8* end) {
    if (end - *in < 1 + Size) return false;
    u32 control = *(*in)++;
    unpacker->count = i32(control & 127) + 1;
    unpacker->run = control < 128;
    if (!unpacker->run) return true;
    std::memcpy(unpacker->value, *in, Size);
    *in += Size;
    return true;
}

template <i32 Size>
size_t Unpack(RunUnpacker* unpacker, const u8** in, const u8* end, u8* out, size_t want) {
    size_t done = 0;
    while (done < want) {
        if (unpacker->count == 0) {
            done += UnpackWholePackets<Size>(in, end, out + done * Size, want - done);
            if (done == want || !OpenPacket<Size>(unpacker, in, end)) break;
        }
        size_t got = UnpackOpenPacket<Size>(unpacker, in, end, out + done * Size, want - done);
        if (got == 0) break;
        done += got;
    }
    return done;
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

size_t UnpackRuns(RunUnpacker* unpacker, i32 size, const u8** in, const u8* end, u8* out, size_t want) {
    switch (size) {
    case 1: return Unpack<1>(unpacker, in, end, out, want);
    case 2: return Unpack<2>(unpacker, in, end, out, want);
    case 3: return Unpack<3>(unpacker, in, end, out, want);
    default: return Unpack<4>(unpacker, in, end, out, want);
    }
}

}   // namespace kq
