// Frames of ElectricImage files to pixels.
//
// The file comes in through one buffer of bounded size. A frame is one long stream of values, whatever its rows: a
// packet may cross their ends. Most kinds unpack straight into the bitmap; the others a few rows at a time into a strip
// that stays in the cache, from which they are widened.
#define KQ_MODULE "Source/EIDIRead"
#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/EIDI.h"
#include "Source/FileAt.h"
#include "Source/PackRun.h"
#include "Source/PixelUnits.h"
#include "kq/bitmap.h"
#include "kq/environment.h"

namespace kq {

namespace {

constexpr i64 kMostBuffer = 128 << 10;   // of packed bytes read at a time
constexpr i32 kStripValues = 8192;       // of narrow values widened at a time, and at least a row

// The bytes of a frame on their way from the file.
struct Stream {
    KQFileInfo* file;
    i64 next;   // file position behind the buffer
    u8* buffer;
    size_t capacity;
    const u8 *in, *end;   // what is not used yet
    bool fileEnds;
};

// Moves what is left to the front and reads on.
void Refill(Stream* stream) {
    size_t left = size_t(stream->end - stream->in);
    std::memmove(stream->buffer, stream->in, left);
    i64 got = ReadFileAt(stream->file, stream->next, stream->buffer + left, stream->capacity - left);
    stream->fileEnds = got < i64(stream->capacity - left);
    got = std::max<i64>(got, 0);
    stream->next += got;
    stream->in = stream->buffer;
    stream->end = stream->buffer + left + got;
}

// Plain values need no buffer.
size_t ReadPlain(Stream* stream, i32 size, u8* out, size_t want) {
    i64 got = ReadFileAt(stream->file, stream->next, out, want * size_t(size));
    if (got <= 0) return 0;
    stream->next += got;
    return size_t(got) / size_t(size);
}

// How a frame lies in its stream and in the bitmap.
struct Layout {
    i32 size;          // bytes of a value
    i32 pixels;        // pixels of a value
    i32 rowValues;     // values of a row
    i32 shownPixels;   // pixels of a row that the bitmap takes
    i32 shownRows;
    bool whole;   // rows follow each other in the bitmap as they do in the stream
};

Layout LayoutOf(const EIDIFrame& frame, const KQBitmap* target) {
    Layout layout;
    i32 bits = frame.Bits();
    layout.size = bits < 8 ? 1 : bits / 8;
    layout.pixels = bits < 8 ? 8 / bits : 1;
    layout.rowValues = frame.Width() / layout.pixels;
    i32 rowPixels = layout.rowValues * layout.pixels;
    layout.shownPixels = std::min(rowPixels, target->width);
    layout.shownRows = std::min(frame.Height(), target->height);
    layout.whole = rowPixels == target->width && target->rowBytes == target->width * 4;
    return layout;
}

struct FrameReader {
    Stream stream;
    RunUnpacker unpacker;
    PixelTable table;
    Layout layout;
    i32 bits;
    bool packed;
    bool direct;   // no strip: what is unpacked are the bitmap's pixels
    u8* strip;     // values, in front of the stream's buffer in the same block
    i32 stripRows;
};

// Values of four bytes are pixels already, and packed greys and triples unpack to pixels.
bool IsDirect(const FrameReader& reader) {
    bool widens = reader.bits == 24 || (reader.bits == 8 && reader.table.grey);
    return reader.layout.whole && (reader.bits == 32 || (reader.packed && widens));
}

// Bytes of a value as it is read.
size_t OutSize(const FrameReader* reader) { return reader->direct ? 4 : size_t(reader->layout.size); }

size_t Unpack(FrameReader* reader, u8* out, size_t want) {
    Stream* s = &reader->stream;
    if (reader->direct && reader->layout.size == 1)
        return UnpackGreyPixels(&reader->unpacker, &s->in, s->end, out, want);
    if (reader->direct && reader->layout.size == 3)
        return UnpackTriplePixels(&reader->unpacker, &s->in, s->end, out, want);
    return UnpackRuns(&reader->unpacker, reader->layout.size, &s->in, s->end, out, want);
}

size_t ReadPacked(FrameReader* reader, u8* out, size_t want) {
    size_t done = 0;
    for (;;) {
        done += Unpack(reader, out + done * OutSize(reader), want - done);
        if (done == want || reader->stream.fileEnds) return done;
        Refill(&reader->stream);
    }
}

size_t ReadValues(FrameReader* reader, u8* out, size_t want) {
    if (reader->packed) return ReadPacked(reader, out, want);
    return ReadPlain(&reader->stream, reader->layout.size, out, want);
}

void Widen(const FrameReader* reader, const u8* values, size_t count, u8* pixels) {
    switch (reader->layout.size) {
    case 1: return WidenIndexes(values, count, reader->bits, &reader->table, pixels);
    case 2: return WidenWords(values, count, pixels);
    case 3: return WidenTriples(values, count, pixels);
    default: std::memcpy(pixels, values, count * 4);
    }
}

// One row of values, of which the bitmap may take fewer pixels than there are. A value that stands for several pixels
// is cut in a pixel buffer of its own.
void WidenRow(const FrameReader* reader, const u8* values, size_t count, u8* pixels) {
    const Layout& layout = reader->layout;
    size_t shown = std::min(count, size_t(layout.shownPixels / layout.pixels));
    Widen(reader, values, shown, pixels);
    size_t rest = size_t(layout.shownPixels % layout.pixels);
    if (shown == count || rest == 0) return;
    u8 last[8 * 4];
    Widen(reader, values + shown, 1, last);
    std::memcpy(pixels + shown * size_t(layout.pixels) * 4, last, rest * 4);
}

// Rows of values through the strip. Returns whether the file had them all.
bool ReadStrip(FrameReader* reader, i32 rows, u8* pixels, i32 rowBytes) {
    const Layout& layout = reader->layout;
    size_t want = size_t(rows) * size_t(layout.rowValues);
    size_t got = ReadValues(reader, reader->strip, want);
    if (layout.whole) {
        Widen(reader, reader->strip, got, pixels);
    } else {
        size_t row = size_t(layout.rowValues), size = size_t(layout.size);
        for (size_t at = 0; at < got; at += row, pixels += rowBytes)
            WidenRow(reader, reader->strip + at * size, std::min(row, got - at), pixels);
    }
    return got == want;
}

bool ReadPixels(FrameReader* reader, KQBitmap* target) {
    const Layout& layout = reader->layout;
    if (layout.rowValues == 0) return true;
    if (reader->direct) {
        size_t want = size_t(layout.rowValues) * size_t(layout.shownRows);
        return ReadValues(reader, target->data, want) == want;
    }
    for (i32 row = 0; row < layout.shownRows; row += reader->stripRows) {
        i32 rows = std::min(reader->stripRows, layout.shownRows - row);
        if (!ReadStrip(reader, rows, target->data + i64(row) * target->rowBytes, target->rowBytes)) return false;
    }
    return true;
}

// The strip and the buffer in one block. The buffer has a margin of a fifth over the frame's bytes, for packets that
// grow the data; when memory is short both are made smaller, down to one row. Plain values need no buffer.
bool AllocBuffers(FrameReader* reader) {
    const Layout& layout = reader->layout;
    i64 rowBytes = i64(layout.rowValues) * layout.size;
    i64 leastBuffer = reader->packed ? rowBytes * 120 / 100 + 1024 : 0;
    i64 mostBuffer = reader->packed ? std::max(leastBuffer, kMostBuffer) : 0;
    i64 buffer = std::clamp(rowBytes * layout.shownRows * 120 / 100, leastBuffer, mostBuffer);
    i32 rows = !reader->direct && layout.rowValues > 0 ? std::max(1, kStripValues / layout.rowValues) : 1;
    for (;;) {
        i64 strip = reader->direct ? 0 : rows * rowBytes + i64(kUnitSlack);
        reader->strip = static_cast<u8*>(KQ_ALLOC(size_t(strip + buffer), 0));
        reader->stripRows = rows;
        if (reader->strip) {
            reader->stream.buffer = reader->strip + strip;
            reader->stream.capacity = size_t(buffer);
            return true;
        }
        if (buffer <= leastBuffer && rows <= 1) return false;
        buffer = std::max(leastBuffer, buffer / 2);
        rows = std::max(1, rows / 2);
    }
}

i32 ReadFrame(EIDIClip* data, i64 offset, KQBitmap* target) {
    FrameReader reader = {};
    reader.layout = LayoutOf(data->frame, target);
    reader.bits = data->frame.Bits();
    reader.packed = data->frame.packed != 0;
    FillPixelTable(&reader.table, data->red, data->green, data->blue);
    reader.direct = IsDirect(reader);
    if (!AllocBuffers(&reader)) return 0;
    reader.stream.file = data->file;
    reader.stream.next = offset + data->frame.HeadSize();
    reader.stream.in = reader.stream.end = reader.stream.buffer;
    bool whole = ReadPixels(&reader, target);
    KQ_FREE(reader.strip);
    KQEnv->Error = whole ? KQERR_NONE : KQERR_READ;
    return 1;
}

// Where frame `index` begins; -1 when it is not there. A frame that was not found at opening is looked for again from
// the last known one on: the file may have grown.
i64 FindFrame(EIDIClip* data, i32 index) {
    if (index < 0) return -1;
    if (index < data->found) return data->offsets[index];
    i32 at = data->found > 0 ? data->found - 1 : 0;
    i64 offset = data->found > 0 ? data->offsets[at] : kEIDIFileHead;
    EIDIFrame frame;
    for (; at < index; ++at) {
        if (!ReadEIDIFrame(data->file, offset, &frame)) return -1;
        offset += frame.Size();
    }
    return offset;
}

}   // namespace

i32 GetEIDIFrame(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>*, i32, i32, i32) {
    EIDIClip* data = static_cast<EIDIClip*>(clip->moduleData);
    if (!data) return 0;
    i64 offset = FindFrame(data, frame);
    if (offset < 0 || !ReadEIDIHeader(data, offset)) return 0;
    if (!IsSaneEIDISize(data->file, data->frame)) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    }
    if (ReadFrame(data, offset, target)) return 1;
    FillBitmapKQ(target, clip->backgroundColor);
    return 0;
}

}   // namespace kq
