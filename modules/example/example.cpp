// A whole format module: reads and writes a film of raw frames, on the public headers alone.
//
// The library finds `example.ifm` when the application scans the folder that holds it, calls ENTRYPOINT1 once to hear
// what the module takes, unloads it, and loads it again when a clip needs it. A module keeps what belongs to a clip in
// the clip's moduleData, since many clips may be open; here that is the open file.
//
// The file, all integers big-endian: "KQEX", width, height, frames, frames a second in thousandths (4 bytes each),
// then the frames: 4 bytes a pixel, alpha, red, green, blue, the top row first.
#include <KQLib.h>

namespace {

constexpr i32 kMark = i32(KQCode4("KQEX"));
constexpr i64 kHeadSize = 20;

KQFileInfo* FileOf(KQClip* clip) { return static_cast<KQFileInfo*>(clip->moduleData); }

i64 FrameSize(const KQClip* clip) { return i64(clip->width) * clip->height * 4; }

// A file may claim anything: sizes are held to what it can contain before anybody allocates for them.
bool IsSane(const KQClip* clip, i64 fileLength) {
    if (clip->width < 1 || clip->height < 1 || clip->width > 32767 || clip->height > 32767) return false;
    return clip->sourceFrames >= 1 && clip->sourceFrames <= (fileLength - kHeadSize) / FrameSize(clip);
}

bool ReadHead(KQClip* clip, KQFileInfo* file) {
    i32 mark, rate;
    bool read = GetLongKQ(file, &mark) && GetLongKQ(file, &clip->width) && GetLongKQ(file, &clip->height) &&
                GetLongKQ(file, &clip->sourceFrames) && GetLongKQ(file, &rate);
    if (!read || mark != kMark || rate < 1 || !IsSane(clip, GetFileLengthKQ(file))) return false;
    clip->sourceRate = rate / 1000.0;
    clip->depth = 32;
    return true;
}

bool WriteHead(KQClip* clip, KQFileInfo* file) {
    SeekFileKQ(file, 0, KQSEEK_Start);
    return PutLongKQ(file, kMark) && PutLongKQ(file, clip->width) && PutLongKQ(file, clip->height) &&
           PutLongKQ(file, clip->sourceFrames) && PutLongKQ(file, i32(clip->frameRate * 1000.0 + 0.5));
}

// Fills size, depth, count and rate from the file. Between calls no file stays open: that is what BeginIO is for.
i32 Open(KQClip* clip, TagItem*) {
    KQFileInfo* file = OpenFileKQ(clip->fileSpec, KQFILE_Read);
    if (!file) return 0;
    bool good = ReadHead(clip, file);
    CloseFileKQ(file);
    if (!good) KQEnv->Error = KQERR_OPENFAILED;
    return good;
}

// Also called when input or output was never ended.
void Close(KQClip* clip) {
    CloseFileKQ(FileOf(clip));
    clip->moduleData = nullptr;
}

i32 Create(KQClip* clip, u32) {
    KQFileInfo* file = CreateFileKQ(clip->fileSpec, KQFILE_Write, 0, 0);
    if (!file) return 0;
    clip->sourceFrames = 0;
    bool good = WriteHead(clip, file);
    return CloseFileKQ(file) && good;
}

i32 BeginIO(KQClip* clip, u32 writing) {
    CloseFileKQ(FileOf(clip));
    clip->moduleData = OpenFileKQ(clip->fileSpec, writing ? KQFILE_ReadWrite : KQFILE_Read);
    return clip->moduleData != nullptr;
}

// The head is written last, when the number of frames is known.
i32 EndIO(KQClip* clip, u32 writing) {
    bool good = !writing || WriteHead(clip, FileOf(clip));
    bool closed = CloseFileKQ(FileOf(clip));
    clip->moduleData = nullptr;
    return good && closed;
}

// Without KQFORMAT_SCALES the target always has the clip's size, and rectangle and size need no look.
i32 GetFrame(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>*, i32, i32, i32) {
    SeekFileKQ(FileOf(clip), kHeadSize + frame * FrameSize(clip), KQSEEK_Start);
    return ReadFileKQ(FileOf(clip), target->data, size_t(target->dataSize));
}

// Appends the part of the bitmap that `rect` names, with alpha as the clip wants it stored.
i32 AddFrame(KQClip* clip, KQBitmap* bitmap, i32, const KQRectT<long>* rect) {
    KQBitmap* frame = AllocBitmapKQ(clip->width, clip->height, 32);
    if (!frame) return 0;
    FillBitmapKQ(frame, clip->backgroundColor);
    CopyBitmapKQ(bitmap, frame, i32(rect->x), i32(rect->y), i32(rect->width), i32(rect->height), 0, 0);
    Interpret_Alpha(clip, frame, frame, nullptr);
    SeekFileKQ(FileOf(clip), kHeadSize + clip->sourceFrames * FrameSize(clip), KQSEEK_Start);
    i32 written = WriteFileKQ(FileOf(clip), frame->data, size_t(frame->dataSize));
    FreeBitmapKQ(frame);
    if (written) ++clip->sourceFrames;
    return written;
}

// Tables decide without the code which files the module gets; it sees those files here, once it is loaded.
i32 CheckFile(KQFormatDesc*, const char*, u32, u32, u32 extension) { return extension == KQExtension("kqx"); }

constexpr u32 kProperties = KQFORMAT_MULTIFRAME | KQFORMAT_READS | KQFORMAT_WRITES;

u32 ImportProperties(KQFormatDesc*) { return kProperties; }

u32 ExportProperties(KQFormatDesc*, KQClip*) { return kProperties; }

}   // namespace

// Fills the cleared record. What hangs on it comes from AllocMemoryKQ, because the library frees it; that is also so
// when the entry gives up half-way with 0.
KQ_EXPORT i32 ENTRYPOINT1(KQFormatDesc* module) {
    if (!AddName(&module->node, "Example")) return 0;
    module->importExts = static_cast<u32*>(AllocMemoryKQ(sizeof(u32), 0));
    if (!module->importExts) return 0;
    module->importExts[0] = KQExtension("kqx");
    module->importExtCount = 1;
    module->maxWidth = module->maxHeight = 32767;
    module->fileType = module->fileCreator = KQ_ANYCODE;
    module->Open = Open;
    module->Close = Close;
    module->Create = Create;
    module->BeginIO = BeginIO;
    module->EndIO = EndIO;
    module->GetFrame = GetFrame;
    module->AddFrame = AddFrame;
    module->CheckFile = CheckFile;
    module->ImportProperties = ImportProperties;
    module->ExportProperties = ExportProperties;
    return 1;
}
