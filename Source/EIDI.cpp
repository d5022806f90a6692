// The ElectricImage module: a file of frames that each tell their own size, depth and colours, packed or plain, with a
// time stamp that gives the rate. This file opens and closes; EIDIRead.cpp and EIDIWrite.cpp move the pixels.
//
// Opening walks the frames once and keeps where each one begins, so that any frame is one seek away.
#define KQ_MODULE "Source/EIDI"
#include "Source/EIDI.h"

#include <cmath>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/ByteOrder.h"
#include "Source/FileAt.h"
#include "Source/Formats.h"
#include "Source/SizeGate.h"
#include "kq/environment.h"

namespace kq {

namespace {

// The least that a frame takes in a file: its header and one colour.
constexpr i64 kLeastFrame = kEIDIFrameHead + 3;

bool IsDepth(i32 bits) { return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16 || bits == 24; }

bool IsValid(const EIDIFrame& frame) {
    if (!IsDepth(frame.depth) || frame.indexed > 1 || frame.packed > 1) return false;
    if (frame.alphaDepth != 0 && !(frame.alphaDepth == 8 && frame.depth == 24)) return false;
    return frame.colours >= 1 && frame.colours <= kEIDIMostColours && frame.colourIndex < i32(frame.colours);
}

EIDIClip* DataOf(KQClip* clip) { return static_cast<EIDIClip*>(clip->moduleData); }

void FreeEIDI(KQClip* clip) {
    EIDIClip* data = DataOf(clip);
    if (!data) return;
    CloseFileKQ(data->file);
    KQ_FREE(data->offsets);
    KQ_FREE(data);
    clip->moduleData = nullptr;
}

// Reads the start of the file and the first frame's header.
bool ReadHead(EIDIClip* data) {
    u8 head[kEIDIFileHead];
    if (ReadFileAt(data->file, 0, head, sizeof head) != kEIDIFileHead) {
        KQEnv->Error = KQERR_READ;
        return false;
    }
    data->version = Big16(head);
    data->frames = Big32(head + 2);
    if (!ReadEIDIHeader(data, kEIDIFileHead)) return false;
    if (data->frames <= 0x7FFFFFFF && IsSaneEIDISize(data->file, data->frame)) return true;
    KQEnv->Error = KQERR_BADDATA;
    return false;
}

bool AllocOffsets(EIDIClip* data) {
    i64 room = (GetFileLengthKQ(data->file) - kEIDIFileHead) / kLeastFrame;
    i64 count = i64(data->frames) < room ? i64(data->frames) : room;
    data->offsets = static_cast<i64*>(KQ_ALLOC(size_t(count) * sizeof(i64), 0));
    if (!data->offsets) return false;
    data->offsetCount = i32(count);
    for (i64 i = 0; i < count; ++i) data->offsets[i] = -1;
    return true;
}

// Finds the frames up to the first one that is cut or damaged, and the rate from the times of the last two.
void WalkFrames(KQClip* clip, EIDIClip* data) {
    i64 length = GetFileLengthKQ(data->file), at = kEIDIFileHead;
    f64 last = 0, before = 0;
    i32 found = 0;
    EIDIFrame frame;
    for (; found < data->offsetCount; ++found) {
        if (!ReadEIDIFrame(data->file, at, &frame) || at + frame.HeadSize() > length) break;
        data->offsets[found] = at;
        at += frame.Size();
        before = last;
        last = frame.time;
    }
    data->found = found;
    if (found >= 2 && last - before > 0 && std::isfinite(last - before)) clip->sourceRate = 1.0 / (last - before);
}

i32 OpenEIDI(KQClip* clip, TagItem*) {
    if (clip->moduleData) return 1;
    EIDIClip* data = KQ_NEW(EIDIClip);
    if (!data) return 0;
    clip->moduleData = data;
    data->file = OpenFileKQ(clip->fileSpec, KQFILE_Read);
    if (!data->file || !ReadHead(data) || !AllocOffsets(data)) {
        FreeEIDI(clip);
        return 0;
    }
    clip->width = data->frame.Width();
    clip->height = data->frame.Height();
    clip->depth = data->frame.Bits();
    clip->sourceFrames = i32(data->frames);
    WalkFrames(clip, data);
    KQEnv->Error = KQERR_NONE;
    return 1;
}

// The option block that says whether frames are packed; they are.
bool MakeOptions(KQClip* clip) {
    if (clip->options) return true;
    constexpr u32 kPack = 1;
    auto options = static_cast<KQClipOptions*>(KQ_ALLOC(sizeof(KQClipOptions) + sizeof kPack, 0));
    if (!options) return false;
    options->data = reinterpret_cast<u8*>(options + 1);
    options->length = sizeof kPack;
    std::memcpy(options->data, &kPack, sizeof kPack);
    clip->options = options;
    return true;
}

i32 CreateEIDI(KQClip* clip, u32) {
    FreeEIDI(clip);
    EIDIClip* data = KQ_NEW(EIDIClip);
    if (!data) return 0;
    clip->moduleData = data;
    if (MakeOptions(clip))
        data->file = CreateFileKQ(clip->fileSpec, KQFILE_ReadWrite, KQCode4("EIDI"), KQCode4("EIAD"));
    if (data->file) return 1;
    FreeEIDI(clip);
    return 0;
}

void CloseEIDI(KQClip* clip) {
    EIDIClip* data = DataOf(clip);
    if (!data) return;
    bool written = (clip->flags & KQCLIP_WRITING) && data->file->Permission != KQFILE_Read;
    u32 error = KQERR_NONE;
    if (written) {
        if (!MoveTo(data->file, 2))
            error = KQERR_WRITE;
        else if (!PutLongKQ(data->file, clip->sourceFrames))
            error = KQEnv->Error;
    }
    if (!CloseFileKQ(data->file) && written && !error) error = KQEnv->Error ? KQEnv->Error : u32(KQERR_WRITE);
    if (written) KQEnv->Error = error;
    data->file = nullptr;
    FreeEIDI(clip);
}

}   // namespace

f64 EIDITime(u32 bits) {
    i32 exponent = i32(bits >> 23 & 255);
    u32 fraction = bits & 0x7FFFFF;
    if (exponent == 0 && fraction == 0) return 0.0;
    if (exponent == 255) return HUGE_VAL;
    f64 value = std::ldexp(1.0 + f64(fraction) / 8388608.0, exponent - 127);
    return bits >> 31 ? -value : value;
}

bool IsSaneEIDISize(KQFileInfo* file, const EIDIFrame& frame) {
    // The densest packet: a control byte and a value of a byte at least for 128 values of up to 8 pixels.
    i64 most = i64(frame.packed ? 128 : 1) * 8;
    i64 bits = i64(frame.Width()) * frame.Height() * frame.Bits();
    return FrameClaimIsSane(frame.Width(), frame.Height(), bits / most, GetFileLengthKQ(file));
}

i32 ReadEIDIFrame(KQFileInfo* file, i64 offset, EIDIFrame* frame) {
    u8 bytes[kEIDIFrameHead];
    if (ReadFileAt(file, offset, bytes, sizeof bytes) != kEIDIFrameHead) {
        KQEnv->Error = KQERR_READ;
        return 0;
    }
    frame->time = EIDITime(Big32(bytes));
    frame->top = i16(Big16(bytes + 4));
    frame->left = i16(Big16(bytes + 6));
    frame->bottom = i16(Big16(bytes + 8));
    frame->right = i16(Big16(bytes + 10));
    frame->depth = bytes[12];
    frame->indexed = bytes[13];
    frame->packed = bytes[22];
    frame->alphaDepth = bytes[23];
    frame->dataLength = Big32(bytes + 24);
    frame->colours = Big16(bytes + 28);
    frame->colourIndex = i16(Big16(bytes + 30));
    return IsValid(*frame);
}

i32 ReadEIDIHeader(EIDIClip* clip, i64 offset) {
    if (!ReadEIDIFrame(clip->file, offset, &clip->frame)) return 0;
    u8 table[kEIDIMostColours * 3] = {};
    i64 size = clip->frame.colours * 3;
    if (ReadFileAt(clip->file, offset + kEIDIFrameHead, table, size_t(size)) != size) {
        KQEnv->Error = KQERR_READ;
        return 0;
    }
    for (size_t i = 0; i < kEIDIMostColours; ++i) {
        clip->red[i] = table[i * 3];
        clip->green[i] = table[i * 3 + 1];
        clip->blue[i] = table[i * 3 + 2];
    }
    return 1;
}

KQFormatDesc* MakeElectricImageModule() {
    constexpr u32 kProperties = KQFORMAT_PROP_1 | KQFORMAT_MULTIFRAME | KQFORMAT_READS | KQFORMAT_WRITES;
    KQFormatDesc* module = NewFormatModule({"ElectricImage", KQCode4("EIDI"), KQCode4("EIAD"), 0x65690000});
    if (!module) return nullptr;
    module->Open = OpenEIDI;
    module->Close = CloseEIDI;
    module->Create = CreateEIDI;
    module->GetFrame = GetEIDIFrame;
    module->AddFrame = AddEIDIFrame;
    module->ImportProperties = FixedImportProperties<kProperties>;
    module->ExportProperties = FixedExportProperties<kProperties>;
    return module;
}

}   // namespace kq
