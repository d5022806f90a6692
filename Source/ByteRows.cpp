// Rows of plain bytes. Big copies of rectangles go past the caches: they would only push out what is still needed, and
// a store that fills a whole line need not fetch it first.
#include "Source/ByteRows.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Source/Parallel.h"
#include "Source/StringStores.h"

namespace kq {

namespace {

constexpr i64 kStreamBytes = i64(16) << 20;

#if defined(KQ_SIMD_X86)

// Bytes ahead of the stores that a target is asked for.
constexpr i64 kAhead = 4096;

KQ_TARGET_AVX512 void StreamAvx512(const u8* from, const u8* ahead, u8* to, i64 bytes) {
    i64 i = std::min(PixelsToAlignment(to, 1, 64), bytes);
    std::memcpy(to, from, size_t(i));
    for (; i + 64 <= bytes; i += 64) {
        PrefetchForRead(ahead + i);
        _mm512_stream_si512(reinterpret_cast<__m512i*>(to + i), _mm512_loadu_si512(from + i));
    }
    std::memcpy(to + i, from + i, size_t(bytes - i));
}

KQ_TARGET_AVX2 void StreamAvx2(const u8* from, const u8* ahead, u8* to, i64 bytes) {
    i64 i = std::min(PixelsToAlignment(to, 1, 32), bytes);
    std::memcpy(to, from, size_t(i));
    for (; i + 32 <= bytes; i += 32) {
        PrefetchForRead(ahead + i);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(to + i),
                            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + i)));
    }
    std::memcpy(to + i, from + i, size_t(bytes - i));
}

// Fills whole registers; returns the bytes done.
KQ_TARGET_AVX2 i64 FillAvx2(u8* to, i64 bytes, u32 pattern) {
    __m256i words = _mm256_set1_epi32(i32(pattern));
    i64 i = 0;
    for (; i + 64 <= bytes; i += 64) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i), words);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i + 32), words);
    }
    return i;
}

KQ_TARGET_AVX512 i64 FillAvx512(u8* to, i64 bytes, u32 pattern) {
    __m512i words = _mm512_set1_epi32(i32(pattern));
    i64 i = 0;
    for (; i + 64 <= bytes; i += 64) _mm512_storeu_si512(to + i, words);
    return i;
}

// Fills whole runs of the pattern, whose 96 bytes hold whole pixels of any size; returns the bytes done.
KQ_TARGET_AVX2 i64 FillRunsAvx2(u8* to, i64 bytes, const u8* pattern) {
    const __m256i* run = reinterpret_cast<const __m256i*>(pattern);
    __m256i first = _mm256_loadu_si256(run), second = _mm256_loadu_si256(run + 1), third = _mm256_loadu_si256(run + 2);
    i64 i = 0;
    for (; i + 96 <= bytes; i += 96) {
        __m256i* place = reinterpret_cast<__m256i*>(to + i);
        _mm256_storeu_si256(place, first);
        _mm256_storeu_si256(place + 1, second);
        _mm256_storeu_si256(place + 2, third);
    }
    return i;
}

// Sets the first byte of whole groups of pixels; returns the pixels done. The target is fetched for the colours that
// stay, so it is asked for ahead.
KQ_TARGET_AVX512 i64 FirstAvx512(u8* to, i64 pixels, u8 value) {
    const __m512i values = _mm512_set1_epi8(char(value));
    i64 i = std::min(PixelsToAlignment(to, 4, 64), pixels);
    for (i64 k = 0; k < i; ++k) to[k * 4] = value;
    for (; i + 16 <= pixels; i += 16) {
        PrefetchForWrite(to + i * 4 + kAhead);
        _mm512_mask_storeu_epi8(to + i * 4, 0x1111111111111111, values);
    }
    return i;
}

KQ_TARGET_AVX2 i64 FirstAvx2(u8* to, i64 pixels, u8 value) {
    __m256i values = _mm256_set1_epi32(value), colours = _mm256_set1_epi32(i32(0xFFFFFF00));
    i64 i = 0;
    for (; i + 8 <= pixels; i += 8) {
        __m256i* place = reinterpret_cast<__m256i*>(to + i * 4);
        PrefetchForWrite(to + i * 4 + kAhead);
        _mm256_storeu_si256(place, _mm256_or_si256(_mm256_and_si256(_mm256_loadu_si256(place), colours), values));
    }
    return i;
}

#endif

// Whole lines of the target by the string instructions.
void StringRow(const u8* from, u8* to, i64 bytes) {
    i64 head = std::min(PixelsToAlignment(to, 1, 64), bytes);
    std::memcpy(to, from, size_t(head));
    StringCopy(to + head, from + head, bytes - head);
}

// A row past the caches, which asks for the lines of the one `ahead` while it goes.
void StreamRow(const u8* from, [[maybe_unused]] const u8* ahead, u8* to, i64 bytes, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) return StreamAvx512(from, ahead, to, bytes);
    if (level == Simd::Avx2) return StreamAvx2(from, ahead, to, bytes);
#endif
    std::memcpy(to, from, size_t(bytes));
}

enum class Store : u8 { Plain, Stream, String };

struct CopyWork {
    const RowCopy& copy;
    Store store;
    Simd level;
};

void CopyShare(i64 top, i64 bottom, const void* data) {
    auto& work = *static_cast<const CopyWork*>(data);
    for (i64 y = top; y < bottom; ++y) {
        const u8* from = work.copy.from + y * work.copy.fromStep;
        u8* to = work.copy.to + y * work.copy.toStep;
        switch (work.store) {
        case Store::Stream: StreamRow(from, from + work.copy.fromStep, to, work.copy.bytes, work.level); break;
        case Store::String: StringRow(from, to, work.copy.bytes); break;
        case Store::Plain: std::memcpy(to, from, size_t(work.copy.bytes)); break;
        }
    }
}

// A block as rows of this size, so that it can be shared.
constexpr i64 kPieceBytes = 4096;

struct FillWork {
    u8* to;
    i64 bytes;
    u32 pattern;
    Simd level;
};

void FillPlain(u8* to, i64 bytes, u32 pattern) {
    i64 words = bytes / 4;
    for (i64 i = 0; i < words; ++i) std::memcpy(to + i * 4, &pattern, 4);
    std::memcpy(to + words * 4, &pattern, size_t(bytes - words * 4));
}

// The stores stay in order and in the caches, as the C library's do: a fill is nearly always followed by drawing.
void FillRow(u8* to, i64 bytes, u32 pattern, [[maybe_unused]] Simd level) {
    if ((pattern & 255) * 0x01010101u == pattern) {
        std::memset(to, int(pattern & 255), size_t(bytes));
        return;
    }
    i64 done = 0;
    if (bytes >= kStringBytes && level != Simd::Plain && HasFastStrings()) {
        StringFill(to, u64(pattern) << 32 | pattern, bytes / 8);
        return FillPlain(to + bytes / 8 * 8, bytes % 8, pattern);
    }
#if defined(KQ_SIMD_X86)
    if (level == Simd::Avx512) done = FillAvx512(to, bytes, pattern);
    if (level == Simd::Avx2) done = FillAvx2(to, bytes, pattern);
#endif
    FillPlain(to + done, bytes - done, pattern);
}

void FillShare(i64 first, i64 last, const void* data) {
    auto& work = *static_cast<const FillWork*>(data);
    i64 start = first * kPieceBytes, end = std::min(last * kPieceBytes, work.bytes);
    FillRow(work.to + start, end - start, work.pattern, work.level);
}

struct BlockWork {
    const u8* from;
    u8* to;
    i64 bytes;
};

void BlockShare(i64 first, i64 last, const void* data) {
    auto& work = *static_cast<const BlockWork*>(data);
    i64 start = first * kPieceBytes, end = std::min(last * kPieceBytes, work.bytes);
    if (work.bytes >= kStringTarget && HasFastStrings())
        StringRow(work.from + start, work.to + start, end - start);
    else
        std::memcpy(work.to + start, work.from + start, size_t(end - start));
}

constexpr i64 kPiecePixels = 1024;

struct FirstWork {
    u8* to;
    i64 pixels;
    u8 value;
    Simd level;
};

void FirstPlain(u8* to, i64 pixels, u8 value) {
    for (i64 i = 0; i < pixels; ++i) to[i * 4] = value;
}

void FirstRow(u8* to, i64 pixels, u8 value, [[maybe_unused]] Simd level) {
#if defined(KQ_SIMD_X86)
    if (level != Simd::Plain) {
        i64 done = level == Simd::Avx512 ? FirstAvx512(to, pixels, value) : FirstAvx2(to, pixels, value);
        to += done * 4;
        pixels -= done;
    }
#endif
    FirstPlain(to, pixels, value);
}

void FirstShare(i64 first, i64 last, const void* data) {
    auto& work = *static_cast<const FirstWork*>(data);
    i64 start = first * kPiecePixels, end = std::min(last * kPiecePixels, work.pixels);
    FirstRow(work.to + start * 4, end - start, work.value, work.level);
}

constexpr i64 kRunBytes = 96;

struct PixelRows {
    u8* to;
    i64 toStep, bytes;
    const u8* run;
    Simd level;
};

void FillRuns(u8* to, i64 bytes, const u8* run, [[maybe_unused]] Simd level) {
    i64 done = 0;
#if defined(KQ_SIMD_X86)
    if (level != Simd::Plain) done = FillRunsAvx2(to, bytes, run);
#endif
    for (; done < bytes; done += kRunBytes) std::memcpy(to + done, run, size_t(std::min(kRunBytes, bytes - done)));
}

// Whole runs that stay in the second cache, and long enough to pay for the start of each instruction.
constexpr i64 kPatternBytes = 2048 * kRunBytes;

// A long row repeats its start, which stays in the second cache.
void FillPixelRow(u8* to, i64 bytes, const u8* run, Simd level) {
    if (bytes < 2 * kPatternBytes || level == Simd::Plain || !HasFastStrings()) return FillRuns(to, bytes, run, level);
    FillRuns(to, kPatternBytes, run, level);
    for (i64 done = kPatternBytes; done < bytes; done += kPatternBytes)
        StringCopy(to + done, to, std::min(kPatternBytes, bytes - done));
}

// Rows that repeat the first one.
void PixelRowsShare(i64 top, i64 bottom, const void* data) {
    auto& work = *static_cast<const PixelRows*>(data);
    const u8* first = work.to + top * work.toStep;
    bool repeat = work.level != Simd::Plain && HasFastStrings() && work.bytes >= kStringBytes;
    for (i64 y = top; y < bottom; ++y) {
        u8* row = work.to + y * work.toStep;
        if (repeat && y > top && work.bytes <= kPatternBytes)
            StringCopy(row, first, work.bytes);
        else
            FillPixelRow(row, work.bytes, work.run, work.level);
    }
}

// Rows that follow each other without a gap, as pieces of one.
void PixelBlockShare(i64 first, i64 last, const void* data) {
    auto& work = *static_cast<const PixelRows*>(data);
    i64 start = first * kPatternBytes, end = std::min(last * kPatternBytes, work.bytes);
    FillPixelRow(work.to + start, end - start, work.run, work.level);
}

}   // namespace

void CopyByteRows(const RowCopy& work, Simd level) {
    if (work.bytes <= 0 || work.rows <= 0) return;
    i64 size = work.bytes * work.rows;
    Store store = Store::Plain;
    if (size >= kStringTarget && work.bytes >= kStringBytes && HasFastStrings() && level != Simd::Plain)
        store = Store::String;
    if (size >= kStreamBytes && work.bytes >= 256) store = Store::Stream;
    CopyWork copy{work, store, level};
    ShareRows(CopyShare, &copy, work.rows, size);
}

// A block goes in one piece, or one a processor.
void CopyBlock(const u8* from, u8* to, i64 bytes) {
    bool apart = from + bytes <= to || to + bytes <= from;
    if (bytes <= 0) return;
    if (!apart) {
        std::memmove(to, from, size_t(bytes));
        return;
    }
    BlockWork work{from, to, bytes};
    ShareRows(BlockShare, &work, (bytes + kPieceBytes - 1) / kPieceBytes, bytes);
}

void FillBlock(u8* to, i64 bytes, u32 pattern, Simd level) {
    if (bytes <= 0) return;
    FillWork work{to, bytes, pattern, level};
    ShareRows(FillShare, &work, (bytes + kPieceBytes - 1) / kPieceBytes, bytes);
}

void FillPixelRows(u8* to, i64 toStep, i64 bytes, i64 rows, const u8* pixel, i64 pixelBytes, Simd level) {
    if (bytes <= 0 || rows <= 0) return;
    u8 run[kRunBytes];
    for (i64 k = 0; k < kRunBytes; ++k) run[k] = pixel[k % pixelBytes];
    if (std::abs(toStep) == bytes && bytes % pixelBytes == 0) {
        PixelRows block{toStep < 0 ? to + toStep * (rows - 1) : to, 0, bytes * rows, run, level};
        return ShareRows(PixelBlockShare, &block, (block.bytes + kPatternBytes - 1) / kPatternBytes, block.bytes);
    }
    PixelRows work{to, toStep, bytes, run, level};
    ShareRows(PixelRowsShare, &work, rows, bytes * rows);
}

void FillFirstBytes(u8* to, i64 pixels, u8 value, Simd level) {
    FirstWork work{to, pixels, value, level};
    ShareRows(FirstShare, &work, (pixels + kPiecePixels - 1) / kPiecePixels, pixels * 4);
}

}   // namespace kq
