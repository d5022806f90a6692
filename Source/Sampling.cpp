// Rectangles of pixels moved by the fastest form that the machine and the work allow: which kernel, in which strips,
// past the caches or not, on how many processors.
#include "Source/Sampling.h"

#include <algorithm>

#include "Source/ByteRows.h"
#include "Source/EvenSteps.h"
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

// A target that keeps bytes of its own is read, and in the caches then.
bool WantsStream(const Sampling& work, Form to) {
    return to != Form::Bgrx && work.width * PixelBytes(to) * work.rows >= kStreamBytes;
}

// A strip of columns whose target bytes a kernel makes row by row. The processors share its rows.
template <class Kernel>
struct Strip {
    const Sampling& work;
    const Kernel& kernel;
    i64 first;   // target byte of a row where the strip starts
    i64 bytes;   // of a row
};

// The machine reads on along a row by itself, but not from one row to the next, least of all upwards: each kernel asks
// for the row behind its own.
template <class Kernel>
void StripRows(i64 top, i64 bottom, const void* data) {
    auto& strip = *static_cast<const Strip<Kernel>*>(data);
    for (i64 y = top; y < bottom; ++y) {
        const u8* from = SourceRow(strip.work, y);
        i64 next = std::min(y + 1, bottom - 1);
        i64 ahead = SourceRow(strip.work, next) - from, targetAhead = (next - y) * strip.work.toStep;
        strip.kernel({from, ahead, targetAhead}, TargetRow(strip.work, y) + strip.first);
    }
}

template <class Kernel>
void RunStrip(const Strip<Kernel>& strip) {
    ShareRows(StripRows<Kernel>, &strip, strip.work.rows, strip.bytes * strip.work.rows);
}

// Bytes from a strip's start to the next aligned place, 1 to `size`, when all rows have it at the same place and it
// falls between pixels (or between their bytes, where that is no matter). Else `size`, and nothing may be streamed.
i64 HeadOf(const Sampling& work, const u8* strip, i64 targetBytes, i64 size, bool* aligned) {
    i64 gap = i64(-reinterpret_cast<uptr>(strip) & uptr(size - 1));
    *aligned = work.toStep % size == 0 && (targetBytes == 3 || gap % targetBytes == 0);
    return *aligned && gap > 0 ? gap : size;
}

struct WideKernel {
    using Table = WideTable;
    const Table& table;
    i64 window;
    bool stream;

    void operator()(const SourceBytes& from, u8* to) const { ShuffleRowAvx512(table, window, from, to, stream); }
};

struct LaneKernel {
    using Table = LaneTable;
    const Table& table;
    i64 window;
    bool stream;

    void operator()(const SourceBytes& from, u8* to) const { ShuffleRowAvx2(table, from, to, stream); }
};

// Makes the table with the narrowest window that holds every entry; 0 when none does.
template <class Table>
i64 MakeNarrowest(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, Table* table) {
    if constexpr (Table::kSize == 16) return MakeTable(work, from, to, first, count, head, 32, table) ? 32 : 0;
    for (i64 window : {64, 128, 256})
        if (MakeTable(work, from, to, first, count, head, window, table)) return window;
    return 0;
}

// The columns from `first` on.
Sampling From(const Sampling& work, Form to, i64 first) {
    Sampling rest = work;
    rest.to += first * PixelBytes(to);
    rest.width -= first;
    rest.startX += first * work.stepX;
    return rest;
}

// Strip by strip, with one table for all rows of a strip. False when the first strip's bytes lie too far apart; a later
// one, which may differ by a pixel, goes the plain way.
template <class Kernel>
bool SampleByTables(const Sampling& work, Form from, Form to, RowsCall plain) {
    i64 targetBytes = PixelBytes(to), most = kStripBytes / targetBytes;
    for (i64 first = 0; first < work.width; first += most) {
        i64 count = std::min(most, work.width - first);
        typename Kernel::Table table;
        bool aligned;
        i64 head = HeadOf(work, work.to + first * targetBytes, targetBytes, Kernel::Table::kSize, &aligned);
        i64 window = MakeNarrowest(work, from, to, first, count, head, &table);
        if (window == 0 && first == 0) return false;
        if (window == 0) {
            plain(From(work, to, first), 0, work.rows);
            return true;
        }
        Kernel kernel{table, window, aligned && WantsStream(work, to)};
        RunStrip<Kernel>({work, kernel, first * targetBytes, count * targetBytes});
    }
    return true;
}

bool SampleShuffled(const Sampling& work, Form from, Form to, RowsCall plain, Simd level) {
    if (level == Simd::Plain || work.rows < kTableRows || !IsShuffle(from, to)) return false;
    if (level == Simd::Avx2) return SampleByTables<LaneKernel>(work, from, to, plain);
    return SampleByTables<WideKernel>(work, from, to, plain);
}

// All columns at once, with a kernel that needs no table.
template <class Kernel>
void SampleRows(const Sampling& work, Form to, Simd level) {
    Kernel kernel{work, WantsStream(work, to), level};
    RunStrip<Kernel>({work, kernel, 0, work.width * PixelBytes(to)});
}

// The first source byte of a row's columns.
SourceBytes StartOf(const Sampling& work, const SourceBytes& row) {
    return {row.from + (work.startX >> 16) * work.fromBytes, row.ahead, row.targetAhead};
}

// A row of whole columns, made by one call.
template <void (*Make)(const SourceBytes& row, u8* to, i64 pixels, bool stream, Simd level)>
struct RowKernel {
    const Sampling& work;
    bool stream;
    Simd level;

    void operator()(const SourceBytes& row, u8* to) const { Make(StartOf(work, row), to, work.width, stream, level); }
};

// The fourth byte stays as it is, so nothing can go past the caches.
void NativeRow(const SourceBytes& row, u8* to, i64 pixels, bool, Simd level) {
    ReverseToNative(row, to, pixels, level);
}

// Between the two pixels of 32 bits, column by column.
bool SampleReversed(const Sampling& work, Form from, Form to, Simd level) {
    bool toNative = from == Form::Argb && to == Form::Bgrx;
    bool toPortable = (from == Form::Bgrx || from == Form::Bgr) && to == Form::Argb;
    if (work.stepX != 65536 || work.fromBytes != 4 || !(toNative || toPortable)) return false;
    if (toNative)
        SampleRows<RowKernel<NativeRow>>(work, to, level);
    else
        SampleRows<RowKernel<ReverseToPortable>>(work, to, level);
    return true;
}

// Scales portable pixels a chunk at a time and packs each.
struct ScaledPackKernel {
    const Sampling& work;
    bool stream;
    Simd level;

    void operator()(const SourceBytes& row, u8* to) const {
        constexpr i64 kChunk = 512;
        alignas(64) u8 chunk[kChunk * 4];
        for (i64 x = 0; x < work.width; x += kChunk) {
            Sampling part = From(work, Form::Rgb555, x);
            part.from = row.from;
            part.startY = part.stepY = 0;
            part.width = std::min(kChunk, part.width);
            part.to = chunk;
            PlainRows<Form::Argb, Form::Argb>(part, 0, 1);
            PackRow555({chunk, 0, 0}, to + x * 2, part.width, false, level);
        }
    }
};

// The moves between the portable and the 16-bit pixel.
bool SampleWords(const Sampling& work, Form from, Form to, Simd level) {
    bool whole = work.stepX == 65536 && work.fromBytes == PixelBytes(from);
    bool packs = from == Form::Argb && to == Form::Rgb555 && work.fromBytes == 4;
    if (packs && whole)
        SampleRows<RowKernel<PackRow555>>(work, to, level);
    else if (packs)
        SampleRows<ScaledPackKernel>(work, to, level);
    else if (whole && from == Form::Rgb555 && to == Form::Argb)
        SampleRows<RowKernel<UnpackRow555>>(work, to, level);
    else
        return false;
    return true;
}

struct EvenWork {
    const Sampling& work;
    bool stream;
    Simd level;
};

void ShareOfHalves(i64 top, i64 bottom, const void* data) {
    auto& even = *static_cast<const EvenWork*>(data);
    HalveRows(even.work, top, bottom, even.stream, even.level);
}

void ShareOfDoubles(i64 top, i64 bottom, const void* data) {
    auto& even = *static_cast<const EvenWork*>(data);
    DoubleRows(even.work, top, bottom, even.stream, even.level);
}

// Every second pixel, or every pixel twice.
bool SampleEven(const Sampling& work, Form from, Form to, Simd level) {
    bool moves = from == to && (from == Form::Byte || from == Form::Argb) && work.fromBytes == PixelBytes(from);
    if (!moves || level == Simd::Plain || (work.stepX != 131072 && work.stepX != 32768)) return false;
    EvenWork even{work, WantsStream(work, to), level};
    ShareRows(work.stepX == 131072 ? ShareOfHalves : ShareOfDoubles, &even, work.rows,
              work.width * work.rows * PixelBytes(to));
    return true;
}

// Whole rows of pixels that do not change.
bool SampleCopied(const Sampling& work, Form from, Form to, Simd level) {
    bool moves = from == to && (from == Form::Byte || from == Form::Argb || from == Form::Bgr);
    if (!moves || work.fromBytes != PixelBytes(from) || work.stepX != 65536 || work.stepY != 65536) return false;
    const u8* start = SourceRow(work, 0) + (work.startX >> 16) * work.fromBytes;
    CopyByteRows({start, work.fromStep, work.to, work.toStep, work.width * work.fromBytes, work.rows}, level);
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
    if (SampleCopied(work, from, to, level) || SampleReversed(work, from, to, level)) return;
    if (SampleEven(work, from, to, level) || SampleShuffled(work, from, to, plain, level)) return;
    if (SampleWords(work, from, to, level)) return;
    PlainWork all{work, plain};
    ShareRows(ShareOfPlain, &all, work.rows, work.width * work.rows * 4);   // a pixel at a time, of whatever size
}

void SamplePlain(const Sampling& work, Form from, Form to) {
    if (work.width > 0) PlainRowsOf(from, to)(work, 0, work.rows);
}

}   // namespace kq
