// The Filmstrip module: all frames of a clip as raw pictures in one file, each above a strip with its time code and
// number, and a trailer at the very end that says what the file holds.
//
// A picture goes straight between the file and the pixels, in bands that stay in the cache while their bytes are put
// in order.
#define KQ_MODULE "Source/Filmstrp"
#include "Source/Alloc.h"
#include "Source/ByteOrder.h"
#include "Source/FileAt.h"
#include "Source/Formats.h"
#include "Source/SizeGate.h"
#include "kq/environment.h"

namespace {

constexpr u32 kSignature = KQCode4("Rand");
constexpr i64 kTrailerSize = 36;
constexpr i32 kBand = 128 << 10;   // bytes moved at a time: a part of any second-level cache

struct Trailer {
    u32 signature;
    i32 frames;
    u16 packing;
    i16 width;
    u16 height;
    u16 leading;   // rows of label a frame
    i16 rate;
};

// What the module keeps of an open clip.
struct Film {
    KQFileInfo* file;
    Trailer trailer;   // of a clip that is read
};

// Reads the trailer; false when the file is too short for one or it is none of ours. The file's length is not held
// against the number of frames: a cut film still shows what it has.
bool ReadTrailer(KQFileInfo* file, Trailer* trailer) {
    i64 length = GetFileLengthKQ(file);
    u8 bytes[kTrailerSize];
    if (length < kTrailerSize || kq::ReadFileAt(file, length - kTrailerSize, bytes, kTrailerSize) != kTrailerSize) {
        KQEnv->Error = KQERR_READ;
        return false;
    }
    *trailer = {kq::Big32(bytes),      i32(kq::Big32(bytes + 4)), kq::Big16(bytes + 8),      i16(kq::Big16(bytes + 12)),
                kq::Big16(bytes + 14), kq::Big16(bytes + 16),     i16(kq::Big16(bytes + 18))};
    if (trailer->signature != kSignature || trailer->packing != 0) return false;
    if (kq::FileClaimIsSane(trailer->width, trailer->height, trailer->frames, 0, length)) return true;
    KQEnv->Error = KQERR_BADDATA;
    return false;
}

Film* FilmOf(KQClip* clip) { return static_cast<Film*>(clip->moduleData); }

void FreeFilm(KQClip* clip) {
    Film* film = FilmOf(clip);
    if (!film) return;
    CloseFileKQ(film->file);
    KQ_FREE(film);
    clip->moduleData = nullptr;
}

i32 OpenFilm(KQClip* clip, TagItem*) {
    if (clip->moduleData) return 1;
    Film* film = KQ_NEW(Film);
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
    Film* film = FilmOf(clip);
    if (!film) return 0;
    const Trailer& t = film->trailer;
    i64 row = i64(t.width) * 4;
    i64 wanted = row * t.height < target->dataSize ? row * t.height : target->dataSize;
    i64 offset = (i64(t.leading) + t.height) * frame * row;
    i64 there = offset < 0 ? 0 : (GetFileLengthKQ(film->file) - offset) & ~i64(3);
    i64 got = there > 0 ? ReadPixels(film->file, offset, target->data, there < wanted ? there : wanted) : 0;
    KQEnv->Error = got == wanted ? KQERR_NONE : KQERR_READ;
    return 1;
}

i32 WritesNothing(KQClip*, u32) { return 0; }

i32 AddsNothing(KQClip*, KQBitmap*, i32, const KQRectT<long>*) { return 0; }

}   // namespace

KQFormatDesc* kq::MakeFilmstripModule() {
    constexpr u32 kProperties = KQFORMAT_PROP_1 | KQFORMAT_MULTIFRAME | KQFORMAT_READS;
    KQFormatDesc* module = NewFormatModule({"Filmstrip", KQCode4("Film"), KQ_ANYCODE, 0x666C6D00});
    if (!module) return nullptr;
    module->Open = OpenFilm;
    module->Close = FreeFilm;
    module->Create = WritesNothing;
    module->GetFrame = GetFilmFrame;
    module->AddFrame = AddsNothing;
    module->ImportProperties = FixedImportProperties<kProperties>;
    module->ExportProperties = FixedExportProperties<kProperties>;
    return module;
}
