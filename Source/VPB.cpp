// The Quantel VPB module: one picture a file, a header of 1024 bytes with a chain of tagged records, then rows of 4:2:2
// Y'CbCr. No file stays open between calls, because each frame of a longer clip is a file of its own.
#define KQ_MODULE "Source/VPB"
#include <cstring>
#include <ctime>

#include "Source/Alloc.h"
#include "Source/ByteOrder.h"
#include "Source/FileAt.h"
#include "Source/Formats.h"
#include "Source/Path.h"
#include "Source/SizeGate.h"
#include "Source/WriteBands.h"
#include "Source/Yuv422.h"
#include "kq/environment.h"

namespace {

constexpr i64 kHeaderSize = 1024;
constexpr i64 kPictureSize = 20;   // of the picture record's value
constexpr i32 kChunkRows = 32;
constexpr i32 kLeastChunkRows = 2;   // on writing
constexpr char kBanner[] = "KQLib Quantel VPB picture, 4:2:2  ";
static_assert(sizeof kBanner == 34 + 1);

// All that is kept of an open clip.
void* const kOpenMark = reinterpret_cast<void*>(uptr(1));

// Tags of the header's records. Their kind is 0 for text and 1 for binary.
enum : u8 { kName = 2, kTitle = 3, kDataSize = 4, kPicture = 16, kProducer = 151, kDate = 152, kPercent = 153 };

// What the picture record says, as far as it is read back.
struct Picture {
    i16 width, height;
    u32 dataOffset;   // of the pixels, behind the header
};

// Looks through the chain of records for the picture's. A record that is not whole within the header ends the search.
bool FindPicture(const u8* header, Picture* picture) {
    constexpr u16 kType = 16;
    for (i64 at = 0; at + 3 <= kHeaderSize;) {
        i64 length = header[at + 2] ? header[at + 2] : 1;
        const u8* value = header + at + 3;
        if (header[at] == kPicture) {
            if (at + 3 + kPictureSize > kHeaderSize) return false;
            if (kq::Big16(value) == kType) {
                *picture = {i16(kq::Big16(value + 4)), i16(kq::Big16(value + 6)), kq::Big32(value + 12)};
                return true;
            }
        }
        at += 3 + length;
    }
    return false;
}

bool ReadHeader(KQFileInfo* file, Picture* picture) {
    u8 header[kHeaderSize];
    if (kq::ReadFileAt(file, 0, header, kHeaderSize) == kHeaderSize) return FindPicture(header, picture);
    KQEnv->Error = KQERR_READ;
    return false;
}

i32 OpenPicture(KQClip* clip, TagItem*) {
    if (clip->moduleData) return 1;
    KQFileInfo* file = OpenFileKQ(clip->fileSpec, KQFILE_Read);
    if (!file) return 0;
    Picture picture;
    bool read = ReadHeader(file, &picture);
    i64 length = GetFileLengthKQ(file);
    CloseFileKQ(file);
    if (!read) return 0;
    if (!kq::FrameClaimIsSane(picture.width, picture.height, i64(picture.width) * picture.height * 2, length)) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    }
    clip->width = picture.width;
    clip->height = picture.height;
    clip->depth = 24;
    clip->sourceFrames = 1;
    clip->moduleData = kOpenMark;
    return 1;
}

void ClosePicture(KQClip*) {}

i32 CreatePicture(KQClip*, u32) { return 1; }

// A buffer for up to `rows` rows, fewer when memory is short; `*rows` tells how many. Null when `least` do not fit.
u8* AllocRows(i64 rowBytes, i32* rows, i32 least) {
    for (; *rows >= least; --*rows)
        if (void* block = KQ_ALLOC(size_t(rowBytes * *rows), 0)) return static_cast<u8*>(block);
    return nullptr;
}

// Reads the rows of the picture that the bitmap takes. Returns whether the file had them all; a row that is cut gives
// its first pixels.
bool ReadRows(KQFileInfo* file, const Picture& picture, u8* buffer, i32 bufferRows, KQBitmap* target) {
    i64 rowBytes = i64(picture.width) * 2, offset = kHeaderSize + i64(picture.dataOffset);
    i32 rows = picture.height < target->height ? picture.height : target->height;
    i32 width = picture.width < target->width ? picture.width : target->width;
    for (i32 y = 0; y < rows;) {
        i32 chunk = rows - y < bufferRows ? rows - y : bufferRows;
        i64 got = kq::ReadFileAt(file, offset + y * rowBytes, buffer, size_t(chunk * rowBytes));
        for (i64 at = 0; at < got; at += rowBytes, ++y) {
            i64 pixels = (got - at) / 2;
            u8* row = target->data + i64(y) * target->rowBytes;
            kq::Yuv422ToPixels(buffer + at, pixels < width ? i32(pixels) : width, row);
        }
        if (got < chunk * rowBytes) return false;
    }
    return true;
}

i32 ReadPicture(KQFileInfo* file, const Picture& picture, KQBitmap* target) {
    if (picture.height <= 0) return 1;
    if (picture.width <= 0) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    }
    i32 rows = kChunkRows;
    u8* buffer = AllocRows(i64(picture.width) * 2, &rows, 1);
    if (!buffer) return 0;
    bool whole = ReadRows(file, picture, buffer, rows, target);
    KQ_FREE(buffer);
    KQEnv->Error = whole ? KQERR_NONE : KQERR_READ;
    return 1;
}

i32 GetPicture(KQClip* clip, KQBitmap* target, i32, const KQRectT<long>*, i32, i32, i32) {
    KQFileInfo* file = OpenFileKQ(clip->fileSpec, KQFILE_Read);
    if (!file) return 0;
    Picture picture;
    i32 done = ReadHeader(file, &picture) && ReadPicture(file, picture, target);
    CloseFileKQ(file);
    return done;
}

// The data size that the header tells: that of the byte-swapped width and height, rounded up to 1024. Readers of these
// files expect this number, which is seldom the size of the pixels.
u32 RoundedDataSize(i32 width, i32 height) {
    u32 swappedWidth = __builtin_bswap16(u16(width)), swappedHeight = __builtin_bswap16(u16(height));
    return (swappedWidth * swappedHeight * 2 + 1023) & ~u32(1023);
}

void PutLittle16(u8* at, u16 value) {
    at[0] = u8(value);
    at[1] = u8(value >> 8);
}

// Appends a record to the header and returns its end.
u8* PutRecord(u8* at, u8 tag, u8 kind, const void* value, size_t length) {
    at[0] = tag;
    at[1] = kind;
    at[2] = u8(length);
    std::memcpy(at + 3, value, length);
    return at + 3 + length;
}

void PutPicture(const KQClip* clip, const KQBitmap* bitmap, u8* value) {
    kq::PutBig16(value, 16);
    kq::PutBig16(value + 2, 0);
    kq::PutBig16(value + 4, u16(bitmap->width));
    kq::PutBig16(value + 6, u16(bitmap->height));
    PutLittle16(value + 8, u16(clip->width * 3));
    PutLittle16(value + 10, u16(clip->height * 4));
    kq::PutBig32(value + 12, 0);
    kq::PutBig32(value + 16, RoundedDataSize(bitmap->width, bitmap->height));
}

void PutDate(u8* value) {
    std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    std::memset(value, 0, 16);
    if (!local) return;
    const int words[] = {local->tm_wday, local->tm_mday, local->tm_mon + 1, local->tm_year - 80,
                         local->tm_hour, local->tm_min,  local->tm_sec};
    for (int word : words) {
        PutLittle16(value, u16(word));
        value += 2;
    }
}

// The whole header; what lies behind the last record is filled with ones.
void MakeHeader(const KQClip* clip, const KQBitmap* bitmap, u8* header) {
    const char* separator = kq::LastSeparator(clip->fileSpec, 1);
    const char* name = separator ? separator + 1 : clip->fileSpec;
    size_t nameLength = std::strlen(name) < 255 ? std::strlen(name) : 255;
    u32 dataSize = RoundedDataSize(bitmap->width, bitmap->height);
    u8 size[4], picture[kPictureSize], percent[2], date[16];
    PutLittle16(size, u16(dataSize));
    PutLittle16(size + 2, u16(dataSize >> 16));
    PutPicture(clip, bitmap, picture);
    kq::PutBig16(percent, 100);
    PutDate(date);
    std::memset(header, 0xFF, kHeaderSize);
    u8* at = PutRecord(header, kTitle, 0, "Picture", 7);
    at = PutRecord(at, kDataSize, 1, size, sizeof size);
    at = PutRecord(at, kName, 0, name, nameLength);
    at = PutRecord(at, kPicture, 1, picture, sizeof picture);
    at = PutRecord(at, kProducer, 0, kBanner, 34);
    at = PutRecord(at, kPercent, 1, percent, sizeof percent);
    PutRecord(at, kDate, 1, date, sizeof date);
}

// Converts and writes the bands' rows; an odd row's last pair is half a pair.
i32 WriteRows(KQFileInfo* file, kq::WriteBands* bands, i32 width) {
    while (kq::NextBand(bands)) {
        const KQBitmap& band = bands->band;
        for (i32 y = 0; y < band.height; ++y)
            kq::PixelsToYuv422(bands->rows + i64(y) * band.rowBytes, width, bands->out + i64(y) * width * 2);
        if (!WriteFileKQ(file, bands->out, size_t(band.height) * size_t(width) * 2)) return 0;
    }
    return 1;
}

bool IsEmpty(const KQBitmap* bitmap) { return bitmap->width == 0 || bitmap->height == 0; }

bool BeginRows(kq::WriteBands* bands, KQClip* clip, const KQBitmap* bitmap) {
    const kq::BandNeeds needs = {.bytes = bitmap->rowBytes * kChunkRows,
                                 .leastRows = kLeastChunkRows,
                                 .alphaIsUsed = false,
                                 .outRow = size_t(bitmap->width) * 2};
    return kq::BeginBands(bands, clip, bitmap, needs);
}

// Fills the file up to a multiple of the header's size.
i32 WritePadding(KQFileInfo* file, const KQBitmap* bitmap) {
    constexpr u8 kZeros[kHeaderSize] = {};
    size_t rest = size_t(bitmap->width) * size_t(bitmap->height) * 2 % kHeaderSize;
    return rest == 0 || WriteFileKQ(file, kZeros, kHeaderSize - rest);
}

i32 WritePicture(KQClip* clip, KQFileInfo* file, const KQBitmap* bitmap, kq::WriteBands* bands) {
    u8 header[kHeaderSize];
    MakeHeader(clip, bitmap, header);
    return WriteFileKQ(file, header, kHeaderSize) && (IsEmpty(bitmap) || WriteRows(file, bands, bitmap->width)) &&
           WritePadding(file, bitmap);
}

// Creates the file and writes it; what cannot be closed was not written.
i32 WriteNewFile(KQClip* clip, const KQBitmap* bitmap, kq::WriteBands* bands) {
    KQFileInfo* file = CreateFileKQ(clip->fileSpec, KQFILE_ReadWrite, KQCode4("VPB "), KQ_ANYCODE);
    if (!file) return 0;
    i32 written = WritePicture(clip, file, bitmap, bands);
    if (CloseFileKQ(file) || !written) return written;
    if (!KQEnv->Error) KQEnv->Error = KQERR_WRITE;
    return 0;
}

// Each frame is a file of its own, which the clip's specification names by now. An older file of the name stays until
// there is memory for the new one. A file that could not be written to its end stays as it is.
i32 AddPicture(KQClip* clip, KQBitmap* bitmap, i32, const KQRectT<long>*) {
    if (bitmap->depth != 32 || !kq::FrameMayBeWritten(bitmap->width, bitmap->height)) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    }
    kq::WriteBands bands{};
    if (!IsEmpty(bitmap) && !BeginRows(&bands, clip, bitmap)) return 0;
    i32 written = WriteNewFile(clip, bitmap, &bands);
    kq::EndBands(&bands);
    if (written) ++clip->sourceFrames;
    return written;
}

}   // namespace

KQFormatDesc* kq::MakeVPBModule() {
    constexpr u32 kProperties = KQFORMAT_READS | KQFORMAT_WRITES;
    KQFormatDesc* module = NewFormatModule({"Quantel VPB", KQCode4("VPB "), KQ_ANYCODE, 0x76706200});
    if (!module) return nullptr;
    module->Open = OpenPicture;
    module->Close = ClosePicture;
    module->Create = CreatePicture;
    module->GetFrame = GetPicture;
    module->AddFrame = AddPicture;
    module->ImportProperties = FixedImportProperties<kProperties>;
    module->ExportProperties = FixedExportProperties<kProperties>;
    return module;
}
