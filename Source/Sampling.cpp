// Rectangles of pixels moved by the fastest form that the machine and the work allow: which kernel, in which strips,
// past the caches or not, on how many processors.
#include "Source/Sampling.h"

#include <algorithm>

#include "Source/Parallel.h"
#include "Source/Reverse32.h"
#include "Source/Shuffle.h"
#include "Source/Words555.h"

namespace kq {

namespace {

// Targets from this size on go past the caches: the frame would push out its own source. Smaller ones are worth
// keeping for who reads them next.
constexpr i64 kStreamBytes = i64(16) << 20;

// Rows from which on a table is worth making.
constexpr i64 kTableRows = 3;

const u8* SourceRow(const Sampling& work, i64 y) {
    return work.from + ((work.startY + y * work.stepY) >> 16) * work.fromStep;
}

u8* TargetRow(const Sampling& work, i64 y) { return work.to + y * work.toStep; }

template <Form from, Form to>
void PlainRows(const Sampling& work, i64 top, i64 bottom) {
    for (i64 y = top; y < bottom; ++y) {
        const u8* source = SourceRow(work, y);
        u8* target = TargetRow(work, y);
        i64 position = work.startX;
        for (i64 x = 0; x < work.width; ++x, position += work.stepX, target += PixelBytes(to))
            MovePixel<from, to>(source + (position >> 16) * work.fromBytes, target);
    }
}

using RowsCall = void (*)(const Sampling& work, i64 top, i64 bottom);

template <Form from>
RowsCall PlainRowsTo(Form to) {
    switch (to) {
    case Form::Argb: return PlainRows<from, Form::Argb>;
    case Form::Rgb555: return PlainRows<from, Form::Rgb555>;
    case Form::Bgr: return PlainRows<from, Form::Bgr>;
    default: return PlainRows<from, Form::Bgrx>;
    }
}

RowsCall PlainRowsOf(Form from, Form to) {
    switch (from) {
    case Form::Byte: return PlainRows<Form::Byte, Form::Byte>;
    case Form::Argb: return PlainRowsTo<Form::Argb>(to);
    case Form::Rgb555: return PlainRowsTo<Form::Rgb555>(to);
    case Form::Bgr: return PlainRowsTo<Form::Bgr>(to);
    default: return PlainRowsTo<Form::Bgrx>(to);
    }
}

// Bytes from a strip's start to the next aligned place, 1 to `size`, when all rows have it at the same place and it
// falls between pixels (or between their bytes, where that is no matter). Else `size`, and nothing may be streamed.
i64 HeadOf(const Sampling& work, const u8* strip, i64 targetBytes, i64 size, bool* aligned) {
    i64 gap = i64(-reinterpret_cast<uptr>(strip) & uptr(size - 1));
    *aligned = work.toStep % size == 0 && (targetBytes == 3 || gap % targetBytes == 0);
    return *aligned && gap > 0 ? gap : size;
}

// A target that is read, for the byte that stays, is in the caches already.
bool WantsStream(const Sampling& work, Form to) {
    return to != Form::Bgrx && work.width * PixelBytes(to) * work.rows >= kStreamBytes;
}

// One strip with its table, whose rows the processors share.
template <class Table>
struct StripWork {
    const Sampling& work;
    const Table& table;
    i64 window;
    i64 first;   // target byte of a row where the strip starts
    bool stream;
};

void WideRows(i64 top, i64 bottom, const void* data) {
    auto& strip = *static_cast<const StripWork<WideTable>*>(data);
    for (i64 y = top; y < bottom; ++y)
        ShuffleRowAvx512(strip.table, strip.window, SourceRow(strip.work, y), TargetRow(strip.work, y) + strip.first,
                         strip.stream);
}

void LaneRows(i64 top, i64 bottom, const void* data) {
    auto& strip = *static_cast<const StripWork<LaneTable>*>(data);
    for (i64 y = top; y < bottom; ++y)
        ShuffleRowAvx2(strip.table, SourceRow(strip.work, y), TargetRow(strip.work, y) + strip.first, strip.stream);
}

// Makes the table with the narrowest window that holds every entry; 0 when none does.
template <class Table>
i64 MakeNarrowest(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, Table* table) {
    if constexpr (Table::kSize == 16) return MakeTable(work, from, to, first, count, head, 32, table) ? 32 : 0;
    for (i64 window : {64, 128, 256})
        if (MakeTable(work, from, to, first, count, head, window, table)) return window;
    return 0;
}

// Strip by strip, with one table for all rows of a strip. False when the first strip's bytes lie too far apart; a later
// one, which may differ by a pixel, goes the plain way.
template <class Table>
bool SampleByTables(const Sampling& work, Form from, Form to, RowsCall plain, RangeRoutine rows) {
    i64 targetBytes = PixelBytes(to), most = kStripBytes / targetBytes;
    for (i64 first = 0; first < work.width; first += most) {
        i64 count = std::min(most, work.width - first);
        Table table;
        bool aligned;
        i64 head = HeadOf(work, work.to + first * targetBytes, targetBytes, Table::kSize, &aligned);
        i64 window = MakeNarrowest(work, from, to, first, count, head, &table);
        if (window == 0 && first == 0) return false;
        if (window == 0) {
            Sampling rest = work;
            rest.to += first * targetBytes;
            rest.width -= first;
            rest.startX += first * work.stepX;
            plain(rest, 0, work.rows);
            return true;
        }
        StripWork<Table> strip{work, table, window, first * targetBytes, aligned && WantsStream(work, to)};
        ShareRows(rows, &strip, work.rows, count * work.rows);
    }
    return true;
}

bool SampleShuffled(const Sampling& work, Form from, Form to, RowsCall plain, Simd level) {
    if (level == Simd::Plain || work.rows < kTableRows || !IsShuffle(from, to)) return false;
    if (level == Simd::Avx2) return SampleByTables<LaneTable>(work, from, to, plain, LaneRows);
    return SampleByTables<WideTable>(work, from, to, plain, WideRows);
}

// Rows whose pixels follow each other on both sides.
struct WordWork {
    const Sampling& work;
    bool stream;
    Simd level;
};

void ToNativeRows(i64 top, i64 bottom, const void* data) {
    auto& words = *static_cast<const WordWork*>(data);
    for (i64 y = top; y < bottom; ++y)
        ReverseToNative(SourceRow(words.work, y) + (words.work.startX >> 16) * 4, TargetRow(words.work, y),
                        words.work.width, words.level);
}

void ToPortableRows(i64 top, i64 bottom, const void* data) {
    auto& words = *static_cast<const WordWork*>(data);
    for (i64 y = top; y < bottom; ++y)
        ReverseToPortable(SourceRow(words.work, y) + (words.work.startX >> 16) * 4, TargetRow(words.work, y),
                          words.work.width, words.stream, words.level);
}

// Between the two pixels of 32 bits, column by column.
bool SampleReversed(const Sampling& work, Form from, Form to, Simd level) {
    bool toNative = from == Form::Argb && to == Form::Bgrx;
    bool toPortable = (from == Form::Bgrx || from == Form::Bgr) && to == Form::Argb;
    if (work.stepX != 65536 || work.fromBytes != 4 || !(toNative || toPortable)) return false;
    WordWork words{work, WantsStream(work, to), level};
    ShareRows(toNative ? ToNativeRows : ToPortableRows, &words, work.rows, work.width * work.rows);
    return true;
}

void PackRows(i64 top, i64 bottom, const void* data) {
    auto& words = *static_cast<const WordWork*>(data);
    for (i64 y = top; y < bottom; ++y)
        PackRow555(SourceRow(words.work, y) + (words.work.startX >> 16) * 4, TargetRow(words.work, y), words.work.width,
                   words.stream, words.level);
}

void UnpackRows(i64 top, i64 bottom, const void* data) {
    auto& words = *static_cast<const WordWork*>(data);
    for (i64 y = top; y < bottom; ++y)
        UnpackRow555(SourceRow(words.work, y) + (words.work.startX >> 16) * 2, TargetRow(words.work, y),
                     words.work.width, words.stream, words.level);
}

// Scales portable pixels a chunk at a time and packs each.
struct ScaledPackWork {
    const Sampling& work;
    Simd level;
};

void ScaledPackRows(i64 top, i64 bottom, const void* data) {
    constexpr i64 kChunk = 512;
    auto& words = *static_cast<const ScaledPackWork*>(data);
    alignas(64) u8 chunk[kChunk * 4];
    for (i64 y = top; y < bottom; ++y)
        for (i64 x = 0; x < words.work.width; x += kChunk) {
            Sampling part = words.work;
            part.from = SourceRow(words.work, y);
            part.startX += x * part.stepX;
            part.startY = part.stepY = 0;
            part.width = std::min(kChunk, words.work.width - x);
            part.to = chunk;
            PlainRows<Form::Argb, Form::Argb>(part, 0, 1);
            PackRow555(chunk, TargetRow(words.work, y) + x * 2, part.width, false, words.level);
        }
}

// The moves between the portable and the 16-bit pixel.
bool SampleWords(const Sampling& work, Form from, Form to, Simd level) {
    bool whole = work.stepX == 65536 && work.fromBytes == PixelBytes(from);
    bool packs = from == Form::Argb && to == Form::Rgb555 && work.fromBytes == 4;
    WordWork words{work, WantsStream(work, to), level};
    if (packs && whole)
        ShareRows(PackRows, &words, work.rows, work.width * work.rows);
    else if (packs) {
        ScaledPackWork scaled{work, level};
        ShareRows(ScaledPackRows, &scaled, work.rows, work.width * work.rows);
    } else if (whole && from == Form::Rgb555 && to == Form::Argb)
        ShareRows(UnpackRows, &words, work.rows, work.width * work.rows);
    else
        return false;
    return true;
}

struct PlainWork {
    const Sampling& work;
    RowsCall rows;
};

void ShareOfPlain(i64 top, i64 bottom, const void* data) {
    auto& plain = *static_cast<const PlainWork*>(data);
    plain.rows(plain.work, top, bottom);
}

}   // namespace

void SamplePixels(const Sampling& work, Form from, Form to, Simd level) {
    if (work.width <= 0 || work.rows <= 0) return;
    RowsCall plain = PlainRowsOf(from, to);
    if (SampleReversed(work, from, to, level)) return;
    if (SampleShuffled(work, from, to, plain, level) || SampleWords(work, from, to, level)) return;
    PlainWork all{work, plain};
    ShareRows(ShareOfPlain, &all, work.rows, work.width * work.rows);
}

void SamplePlain(const Sampling& work, Form from, Form to) {
    if (work.width > 0) PlainRowsOf(from, to)(work, 0, work.rows);
}

}   // namespace kq
