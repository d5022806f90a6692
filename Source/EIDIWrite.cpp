// Pixels to frames of ElectricImage files.
//
// The frame goes out in bands: each is brought to the values that the file holds, packed, and written with whole
// packets only. The literal packet that is open at a band's end waits for the pixels of the next one, so that the file
// is the same as if the frame had been packed in one piece.
#define KQ_MODULE "Source/EIDIWrite"
#include <algorithm>
#include <bit>
#include <cstring>

#include "Source/ByteOrder.h"
#include "Source/EIDI.h"
#include "Source/FileAt.h"
#include "Source/PackRun.h"
#include "Source/PixelUnits.h"
#include "Source/SizeGate.h"
#include "Source/WriteBands.h"
#include "kq/environment.h"

namespace kq {

namespace {

constexpr u16 kVersion = 5;
constexpr i32 kBand = 64 << 10;    // bytes of pixels packed at a time
constexpr i64 kLengthField = 24;   // of the frame's header
constexpr size_t kOpenPacket = 1 + 128 * 4;

// Bytes of a pixel in the file: grey mattes are kept as bytes, and only a real alpha channel is kept as such.
i32 ValueSize(const KQClip* clip) { return clip->alphaMode == 2 ? 4 : clip->alphaMode == 1 ? 1 : 3; }

bool Packs(const KQClip* clip) {
    u32 word = 1;
    if (clip->options && clip->options->length >= sizeof word) std::memcpy(&word, clip->options->data, sizeof word);
    return word != 0;
}

struct FrameWriter {
    KQFileInfo* file;
    i32 size;   // bytes of a value
    bool packs;
    RunPacker packer;
    EqualBits equal;
    u8* values;    // a row of narrow values
    u8* out;       // the band as it goes to the file
    i64 written;   // bytes of pixels so far
};

// Entries of the colour table: a grey ramp, or the first one of it.
i32 Colours(const FrameWriter& writer) { return writer.size == 1 ? kEIDIMostColours : 1; }

i32 WriteVersion(KQFileInfo* file) {
    u8 bytes[kEIDIFileHead] = {};
    PutBig16(bytes, kVersion);
    PutBig32(bytes + 2, 1);
    return WriteFileKQ(file, bytes, sizeof bytes);
}

// The header, with no length yet, and the colour table.
i32 WriteHeader(const KQClip* clip, const KQBitmap* bitmap, const FrameWriter& writer) {
    u8 bytes[kEIDIFrameHead + kEIDIMostColours * 3] = {};
    i32 colours = Colours(writer);
    f64 time = clip->sourceRate != 0 ? clip->sourceFrames / clip->sourceRate : 0.0;
    PutBig32(bytes, std::bit_cast<u32>(static_cast<float>(time)));
    for (u8* rectangle : {bytes + 4, bytes + 14}) {
        PutBig16(rectangle + 4, u16(bitmap->height));
        PutBig16(rectangle + 6, u16(bitmap->width));
    }
    bytes[12] = writer.size == 1 ? 8 : 24;
    bytes[13] = writer.size == 1;
    bytes[22] = writer.packs;
    bytes[23] = writer.size == 4 ? 8 : 0;
    PutBig16(bytes + 28, u16(colours));
    for (i32 i = 0; i < colours * 3; ++i) bytes[kEIDIFrameHead + i] = u8(i / 3);
    return WriteFileKQ(writer.file, bytes, size_t(kEIDIFrameHead + colours * 3));
}

// A row of pixels as values, packed or plain, at `out`; returns the end.
u8* PutRow(FrameWriter* writer, const u8* pixels, i32 width, u8* out) {
    u8* values = writer->packs ? writer->values : out;
    if (writer->size == 1) NarrowToReds(pixels, size_t(width), values);
    if (writer->size == 3) NarrowToTriples(pixels, size_t(width), values);
    if (!writer->packs) {
        if (writer->size == 4) std::memcpy(out, pixels, size_t(width) * 4);
        return out + width * writer->size;
    }
    switch (writer->size) {
    case 1:
        MarkEqualBytes(values, width, &writer->equal);
        return PackBytes(&writer->packer, values, width, &writer->equal, out);
    case 3:
        MarkEqualColours(pixels, width, &writer->equal);
        return PackTriples(&writer->packer, values, width, &writer->equal, out);
    default:
        MarkEqualPixels(pixels, width, &writer->equal);
        return PackQuads(&writer->packer, pixels, width, &writer->equal, out);
    }
}

// Writes what lies in the buffer up to `end`.
i32 WriteValues(FrameWriter* writer, const u8* end) {
    writer->written += end - writer->out;
    return WriteFileKQ(writer->file, writer->out, size_t(end - writer->out));
}

// Writes all but the open packet, which moves to the front; returns the end of what stays, null when the write failed.
u8* WriteClosedPackets(FrameWriter* writer, u8* end) {
    u8* closed = writer->packer.literal ? writer->packer.literal : end;
    size_t open = size_t(end - closed);
    if (closed > writer->out && !WriteValues(writer, closed)) return nullptr;
    std::memmove(writer->out, closed, open);
    if (open) writer->packer.literal = writer->out;
    return writer->out + open;
}

i32 WriteBandsOfFrame(FrameWriter* writer, WriteBands* bands) {
    u8* end = writer->out;
    while (end && NextBand(bands)) {
        const KQBitmap& band = bands->band;
        for (i32 y = 0; y < band.height; ++y)
            end = PutRow(writer, bands->rows + i64(y) * band.rowBytes, band.width, end);
        end = WriteClosedPackets(writer, end);
    }
    if (!end) return 0;
    return end == writer->out || WriteValues(writer, end);
}

i32 WritePixels(KQClip* clip, const KQBitmap* bitmap, FrameWriter* writer) {
    WriteBands bands;
    size_t row = size_t(bitmap->width) * size_t(writer->size), values = row + kPackSlack;
    const BandNeeds needs = {.bytes = kBand,
                             .alphaIsUsed = writer->size != 3,
                             .outFixed = values + kOpenPacket + PackedBound(0),
                             .outRow = row + row / 64 + 8};
    if (!BeginBands(&bands, clip, bitmap, needs)) return 0;
    writer->values = bands.out;
    writer->out = bands.out + values;
    i32 written = WriteBandsOfFrame(writer, &bands);
    EndBands(&bands);
    return written;
}

// Writes the frame that begins at `start`, with its length once that is known. Returns where it ends, 0 on failure.
i64 WriteFrame(KQClip* clip, const KQBitmap* bitmap, FrameWriter* writer, i64 start) {
    if (!WriteHeader(clip, bitmap, *writer) || !WritePixels(clip, bitmap, writer)) return 0;
    i64 length = writer->written;
    if (!MoveTo(writer->file, start + kLengthField)) {
        KQEnv->Error = KQERR_WRITE;
        return 0;
    }
    if (!PutLongKQ(writer->file, i32(u32(length)))) return 0;
    return start + kEIDIFrameHead + Colours(*writer) * 3 + length;
}

bool Fits(const KQBitmap* bitmap) {
    return bitmap->depth == 32 && kq::FrameMayBeWritten(bitmap->width, bitmap->height);
}

}   // namespace

// What a failed write left of a frame is taken back, so that the file still holds the frames before it, and nothing
// else.
i32 AddEIDIFrame(KQClip* clip, KQBitmap* bitmap, i32, const KQRectT<long>*) {
    EIDIClip* data = static_cast<EIDIClip*>(clip->moduleData);
    if (!data) return 0;
    if (!Fits(bitmap)) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    }
    FrameWriter writer = {};
    writer.file = data->file;
    writer.size = ValueSize(clip);
    writer.packs = Packs(clip);
    if (!MoveTo(data->file, data->end)) {
        KQEnv->Error = KQERR_WRITE;
        return 0;
    }
    i64 start = clip->sourceFrames == 0 ? kEIDIFileHead : data->end;
    i64 end = clip->sourceFrames != 0 || WriteVersion(data->file) ? WriteFrame(clip, bitmap, &writer, start) : 0;
    if (end == 0) {
        CutFile(data->file, data->end);
        return 0;
    }
    data->end = end;
    ++clip->sourceFrames;
    return 1;
}

}   // namespace kq
