// The Filmstrip module: all frames of a clip as raw pictures in one file, each above a strip with its time code and
// number, and a trailer at the very end that says what the file holds.
//
// A picture goes straight between the file and the pixels, in bands that stay in the cache while their bytes are put
// in order.
#define KQ_MODULE "Source/Filmstrp"
#include "Source/Filmstrp.h"

#include "Source/Alloc.h"
#include "Source/ByteOrder.h"
#include "Source/FileAt.h"
#include "Source/FilmLabel.h"
#include "Source/Formats.h"
#include "Source/SizeGate.h"
#include "Source/WriteBands.h"
#include "kq/environment.h"

namespace {

constexpr u32 kSignature = KQCode4("Rand");
constexpr i64 kTrailerSize = 36;
constexpr i32 kBand = 128 << 10;   // bytes moved at a time: a part of any second-level cache

// Reads the trailer; false when the file is too short for one or it is none of ours. The file's length is not held
// against the number of frames: a cut film still shows what it has.
bool ReadTrailer(KQFileInfo* file, kq::FilmTrailer* trailer) {
    i64 length = GetFileLengthKQ(file);
    u8 bytes[kTrailerSize];
    if (length < kTrailerSize || kq::ReadFileAt(file, length - kTrailerSize, bytes, kTrailerSize) != kTrailerSize) {
        KQEnv->Error = KQERR_READ;
        return false;
    }
    *trailer = {kq::Big32(bytes),      i32(kq::Big32(bytes + 4)), kq::Big16(bytes + 8),      i16(kq::Big16(bytes + 12)),
                kq::Big16(bytes + 14), kq::Big16(bytes + 16),     i16(kq::Big16(bytes + 18))};
    if (trailer->signature != kSignature || trailer->packing != 0) return false;
    i64 picture = i64(trailer->width) * trailer->height * 4;
    if (trailer->frames >= 0 && kq::FrameClaimIsSane(trailer->width, trailer->height, picture, length)) return true;
    KQEnv->Error = KQERR_BADDATA;
    return false;
}

kq::Film* FilmOf(KQClip* clip) { return static_cast<kq::Film*>(clip->moduleData); }

void FreeFilm(KQClip* clip) {
    kq::Film* film = FilmOf(clip);
    if (!film) return;
    CloseFileKQ(film->file);
    KQ_FREE(film);
    clip->moduleData = nullptr;
}

i32 OpenFilm(KQClip* clip, TagItem*) {
    if (clip->moduleData) return 1;
    kq::Film* film = KQ_NEW(kq::Film);
    if (!film) return 0;
    clip->moduleData = film;
    film->file = OpenFileKQ(clip->fileSpec, KQFILE_Read);
    if (!film->file || !ReadTrailer(film->file, &film->trailer)) {
        FreeFilm(clip);
        return 0;
    }
    clip->width = film->trailer.width;
    clip->height = film->trailer.height;
    clip->depth = 32;
    clip->sourceFrames = film->trailer.frames;
    clip->sourceRate = film->trailer.rate;
    return 1;
}

// Reads pixels from `offset` on into `pixels`, in the bitmap's byte order. Returns the bytes that the file had.
i64 ReadPixels(KQFileInfo* file, i64 offset, u8* pixels, i64 bytes) {
    i64 done = 0;
    while (done < bytes) {
        i64 band = bytes - done < kBand ? bytes - done : kBand;
        i64 got = kq::ReadFileAt(file, offset + done, pixels + done, size_t(band));
        if (got <= 0) break;
        kq::RotateToBitmap(pixels + done, size_t(got / 4));
        done += got;
        if (got < band) break;
    }
    return done;
}

// Always succeeds. Pixels that the file does not hold to the last byte stay as they are, and `Error` is KQERR_READ
// then.
i32 GetFilmFrame(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>*, i32, i32, i32) {
    kq::Film* film = FilmOf(clip);
    if (!film) return 0;
    const kq::FilmTrailer& t = film->trailer;
    i64 row = i64(t.width) * 4;
    i64 wanted = row * t.height < target->dataSize ? row * t.height : target->dataSize;
    i64 offset = 0;   // the tallest frames of the longest film pass 64 bits
    bool far = __builtin_mul_overflow((i64(t.leading) + t.height) * row, i64(frame), &offset);
    i64 there = far || offset < 0 ? 0 : (GetFileLengthKQ(film->file) - offset) & ~i64(3);
    i64 got = there > 0 ? ReadPixels(film->file, offset, target->data, there < wanted ? there : wanted) : 0;
    KQEnv->Error = got == wanted ? KQERR_NONE : KQERR_READ;
    return 1;
}

i32 CreateFilm(KQClip* clip, u32) {
    FreeFilm(clip);
    kq::Film* film = KQ_NEW(kq::Film);
    if (!film) return 0;
    film->file = CreateFileKQ(clip->fileSpec, KQFILE_ReadWrite, KQCode4("Film"), KQ_ANYCODE);
    if (!film->file) {
        KQ_FREE(film);
        return 0;
    }
    clip->moduleData = film;
    return 1;
}

i32 WritePicture(KQClip* clip, KQFileInfo* file, const KQBitmap* bitmap) {
    kq::WriteBands bands;
    i32 written = kq::BeginBands(&bands, clip, bitmap, {.bytes = kBand});
    while (written && kq::NextBand(&bands)) {
        kq::RotateToFile(bands.rows, bands.band.data, size_t(bands.band.dataSize / 4));
        written = WriteFileKQ(file, bands.band.data, size_t(bands.band.dataSize));
    }
    kq::EndBands(&bands);
    return written;
}

// Without memory for a label its place is taken by rows of the picture as they lie in memory.
i32 WriteRowsForLabel(KQFileInfo* file, const KQBitmap* bitmap) {
    i32 written = 1;
    for (i32 row = 0; row < kq::kLabelRows && written; ++row) {
        i32 from = row < bitmap->height ? row : bitmap->height - 1;
        const u8* pixels = bitmap->data + i64(from) * bitmap->rowBytes;
        written = from < 0 || WriteFileKQ(file, pixels, size_t(bitmap->rowBytes));
    }
    return written;
}

i32 WriteLabel(KQClip* clip, KQFileInfo* file, const KQBitmap* bitmap, i32 frame) {
    KQBitmap* label = AllocBitmapKQ(bitmap->width, kq::kLabelRows, 32);
    if (!label) return WriteRowsForLabel(file, bitmap);
    kq::DrawLabel(label, frame, clip->sourceRate);
    kq::RotateToFile(label->data, label->data, size_t(label->dataSize / 4));
    i32 written = WriteFileKQ(file, label->data, size_t(label->dataSize));
    FreeBitmapKQ(label);
    return written;
}

// What a failed write left of a frame is taken back, so that the frames before it, and a trailer behind them, still
// make a film. A picture whose label failed counts; the label's place stays empty.
i32 AddFilmFrame(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>*) {
    kq::Film* film = FilmOf(clip);
    if (!film) return 0;
    if (!kq::FrameMayBeWritten(bitmap->width, bitmap->height)) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    }
    if (!kq::MoveTo(film->file, film->end)) {
        KQEnv->Error = KQERR_WRITE;
        return 0;
    }
    if (!WritePicture(clip, film->file, bitmap)) {
        kq::CutFile(film->file, film->end);
        return 0;
    }
    ++clip->sourceFrames;
    i32 labelled = WriteLabel(clip, film->file, bitmap, frame);
    if (!labelled) kq::CutFile(film->file, film->end + bitmap->dataSize);
    film->end += bitmap->dataSize + i64(bitmap->rowBytes) * kq::kLabelRows;
    return labelled;
}

i32 WriteZeros(KQFileInfo* file, i64 count) {
    static constexpr u8 kZeros[16 * 1024] = {};
    i32 written = 1;
    for (; count > 0 && written; count -= i64(sizeof kZeros))
        written = WriteFileKQ(file, kZeros, count < i64(sizeof kZeros) ? size_t(count) : sizeof kZeros);
    return written;
}

// The rate that a trailer can hold. A tenth is added, so that 29.97 counts as 30.
u16 TrailerRate(f64 rate) {
    rate += 0.1;
    return rate > -2147483648.0 && rate < 2147483648.0 ? u16(i32(rate)) : u16(0);
}

i32 WriteTrailer(KQClip* clip, KQFileInfo* file) {
    u8 bytes[kTrailerSize] = {};
    kq::PutBig32(bytes, kSignature);
    kq::PutBig32(bytes + 4, u32(clip->sourceFrames));
    kq::PutBig16(bytes + 12, u16(clip->width));
    kq::PutBig16(bytes + 14, u16(clip->height));
    kq::PutBig16(bytes + 16, kq::kLabelRows);
    kq::PutBig16(bytes + 18, TrailerRate(clip->sourceRate));
    return WriteFileKQ(file, bytes, sizeof bytes);
}

// The spare block and the trailer. On a disk that has no room for the block the trailer goes without it: the film can
// be read all the same, and `Error` tells what failed first.
void FinishFilm(KQClip* clip, KQFileInfo* file, i64 end) {
    u32 error = KQERR_NONE;
    if (!kq::MoveTo(file, end)) {
        KQEnv->Error = KQERR_WRITE;
        return;
    }
    if (!WriteZeros(file, i64(clip->width) * 4 * kq::kLabelRows)) {
        error = KQEnv->Error;
        kq::CutFile(file, end);
    }
    if (!WriteTrailer(clip, file) && !error) error = KQEnv->Error;
    KQEnv->Error = error;
}

void CloseFilm(KQClip* clip) {
    kq::Film* film = FilmOf(clip);
    if (!film) return;
    bool written = (clip->flags & KQCLIP_WRITING) && film->file->Permission != KQFILE_Read;
    if (written) FinishFilm(clip, film->file, film->end);
    if (!CloseFileKQ(film->file) && written && !KQEnv->Error) KQEnv->Error = KQERR_WRITE;
    film->file = nullptr;
    FreeFilm(clip);
}

}   // namespace

KQFormatDesc* kq::MakeFilmstripModule() {
    constexpr u32 kProperties = KQFORMAT_PROP_1 | KQFORMAT_MULTIFRAME | KQFORMAT_READS | KQFORMAT_WRITES;
    KQFormatDesc* module = NewFormatModule({"Filmstrip", KQCode4("Film"), KQ_ANYCODE, 0x666C6D00});
    if (!module) return nullptr;
    module->Open = OpenFilm;
    module->Close = CloseFilm;
    module->Create = CreateFilm;
    module->GetFrame = GetFilmFrame;
    module->AddFrame = AddFilmFrame;
    module->ImportProperties = FixedImportProperties<kProperties>;
    module->ExportProperties = FixedExportProperties<kProperties>;
    return module;
}
