// The stills module: files of one picture, read and written through the platform's image library, so that numbered
// files are clips.
//
// This front is portable and knows nothing of file formats: which extensions there are, what a file holds and what its
// pixels are is the codec's (Codec.h). Here stand what a clip makes of it and how a file is replaced: a new still is
// written under a temporary name beside its target, opened again, and renamed over the target, so that what was there
// stays whole until its replacement is.
//
// A picture tells its alpha as its format does, so a clip's alpha is known when it is open, and is straight.
#include <KQLib.h>

#include <cctype>
#include <cstring>
#include <filesystem>
#include <new>
#include <random>
#include <string>

#include "modules/stills/Codec.h"
#include "modules/stills/Following.h"

namespace {

namespace fs = std::filesystem;

constexpr i32 kLargest = 32767;   // of a side
constexpr i64 kMostPixels = i64(1) << 28;

// Frames of a sequence that are asked of the codec ahead of the one that is waited for.
constexpr int kAhead = 3;

// Every extension that some codec may know. The library's codes hold three letters; a longer one is a code of four
// that only the extension tag can give.
constexpr const char* kExtensions[] = {"bmp", "cin", "dds", "dpx", "exr", "gif", "hdr", "ico", "iff",
                                       "jp2", "jpg", "jxr", "pbm", "pgm", "pic", "png", "ppm", "psd",
                                       "rgb", "rla", "sgi", "tga", "tif", "wdp", "webp"};

// What the module keeps of an open clip. A clone of a clip has none.
struct Still {
    i32 width = 0, height = 0;   // of the first file
    bool toldSize = false;       // the user knows that sizes differ
    stills::Following following;
};

Still* StillOf(KQClip* clip) { return static_cast<Still*>(clip->moduleData); }

fs::path PathFrom(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

std::string TextOf(const fs::path& path) {
    std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

// The extension of a file name as the codec knows it: lower case, and the short form of those that have two.
std::string ExtensionOf(const char* fileSpec) {
    std::string extension = TextOf(PathFrom(fileSpec).extension());
    if (!extension.empty()) extension.erase(0, 1);
    for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
    static constexpr const char* kLong[][2] = {
        {"tiff", "tif"}, {"jpeg", "jpg"}, {"jpe", "jpg"}, {"jfif", "jpg"}, {"targa", "tga"}};
    for (auto& known : kLong)
        if (extension == known[0]) return known[1];
    return extension;
}

// Runs `call` so that no exception crosses the module's edge; all that are thrown here are for want of memory.
template <class Call>
i32 Guarded(Call call) {
    try {
        return call();
    } catch (const std::exception&) {
        KQEnv->Error = KQERR_NOMEM;
        return 0;
    }
}

u32 CodeOf(const char* extension) {
    u32 code = 0;
    for (int shift = 24; shift >= 0 && *extension; shift -= 8) code |= u32(u8(*extension++)) << shift;
    return code;
}

// Tells the user which file failed and why, and leaves the code. Returns 0.
i32 Refuse(u32 error, const char* fileSpec, const char* what, const char* why) {
    UserMessageKQ("'%s' %s: %s", fileSpec, what, why);
    KQEnv->Error = error;
    return 0;
}

// The code of a failure; `otherwise` when the codec's reason is none that the library has a code for.
u32 ErrorOf(const stills::Problem& problem, u32 otherwise) {
    switch (problem.cause) {
    case stills::Cause::NotFound: return KQERR_NOTFOUND;
    case stills::Cause::NoAccess: return KQERR_ACCESS;
    case stills::Cause::NoMemory: return KQERR_NOMEM;
    case stills::Cause::DiskFull: return KQERR_DISKFULL;
    case stills::Cause::Other: break;
    }
    return otherwise;
}

// What lies outside is a writer's mistake.
bool IsSaneAspect(f64 aspect) { return aspect >= 0.05 && aspect <= 20.0; }

bool IsSaneSize(i32 width, i32 height) {
    return width >= 1 && height >= 1 && width <= kLargest && height <= kLargest && i64(width) * height <= kMostPixels;
}

void TakeHead(KQClip* clip, const stills::Head& head) {
    clip->width = head.width;
    clip->height = head.height;
    clip->depth = head.alpha ? 32 : 24;
    clip->sourceFrames = 1;
    if (IsSaneAspect(head.pixelAspect)) clip->pixelAspect = head.pixelAspect;
    if (clip->flags & KQCLIP_ALPHA_KNOWN) return;
    clip->alphaMode = head.alpha ? 2 : 0;
    clip->alphaPremultiplied = clip->alphaInvert = 0;
    clip->flags |= KQCLIP_ALPHA_KNOWN;
}

i32 OpenStill(KQClip* clip) {
    stills::Head head;
    stills::Problem problem;
    if (!stills::ReadHead(clip->fileSpec, head, problem))
        return Refuse(ErrorOf(problem, KQERR_BADDATA), clip->fileSpec, "cannot be opened", problem.c_str());
    if (!IsSaneSize(head.width, head.height))
        return Refuse(KQERR_BADDATA, clip->fileSpec, "cannot be opened",
                      "a picture of its size is not read; up to 2^28 pixels and 32767 a side are");
    Still* still = StillOf(clip) ? StillOf(clip) : new (std::nothrow) Still;
    if (!still) {
        KQEnv->Error = KQERR_NOMEM;
        return 0;
    }
    still->width = head.width;
    still->height = head.height;
    clip->moduleData = still;
    TakeHead(clip, head);
    return 1;
}

i32 Open(KQClip* clip, TagItem*) {
    return Guarded([&] { return OpenStill(clip); });
}

void Close(KQClip* clip) {
    delete StillOf(clip);
    clip->moduleData = nullptr;
}

// Says which frames will be asked for after this one, and the one itself first, so that it is begun before them.
void ExpectFollowing(KQClip* clip, i32 width, i32 height) {
    Still* still = StillOf(clip);
    if (!still || clip->sourceFrames < 2) return;
    stills::Expect(clip->fileSpec, width, height);
    for (const std::string& path : still->following.After(clip->fileSpec, kAhead))
        stills::Expect(path.c_str(), width, height);
}

// A frame of another size than the first is scaled to it. That is seldom meant, so it counts as damage and is told
// once.
void NoteOtherSize(KQClip* clip, const stills::Head& head) {
    Still* still = StillOf(clip);
    if (!still || clip->sourceFrames < 2 || head.width < 1) return;
    if (head.width == still->width && head.height == still->height) return;
    KQEnv->Error = KQERR_BADDATA;
    if (still->toldSize) return;
    still->toldSize = true;
    UserMessageKQ(
        "'%s' has %d x %d pixels and the first frame %d x %d: such frames are scaled; convert them one by one "
        "to keep their size",
        clip->fileSpec, head.width, head.height, still->width, still->height);
}

// Reads the whole frame at `width` x `height` into rows that lie close together. 0 when there is nothing to see.
i32 ReadWhole(KQClip* clip, u8* pixels, i32 width, i32 height) {
    stills::Head head;
    stills::Problem problem;
    ExpectFollowing(clip, width, height);
    switch (stills::ReadPixels(clip->fileSpec, width, height, pixels, head, problem)) {
    case stills::Pixels::None:
        return Refuse(ErrorOf(problem, KQERR_MODULE), clip->fileSpec, "cannot be read", problem.c_str());
    case stills::Pixels::Damaged: Refuse(KQERR_READ, clip->fileSpec, "is damaged", problem.c_str()); return 1;
    case stills::Pixels::Whole: break;
    }
    NoteOtherSize(clip, head);
    return 1;
}

// `width` and `height` are those of the whole frame; the bitmap shows what lies from the position on.
i32 GetFrame(KQClip* clip, KQBitmap* target, i32, const KQRectT<long>* position, i32 width, i32 height, i32) {
    i32 x = position ? i32(position->x) : 0, y = position ? i32(position->y) : 0;
    if (width < 1 || height < 1) return 1;
    if (x == 0 && y == 0 && width == target->width && height == target->height && target->rowBytes == width * 4) {
        FillBitmapKQ(target, clip->backgroundColor);   // what a damaged file leaves out
        return Guarded([&] { return ReadWhole(clip, target->data, width, height); });
    }
    KQBitmap* whole = AllocBitmapKQ(width, height, 32);
    if (!whole) return 0;
    FillBitmapKQ(whole, clip->backgroundColor);
    i32 read = Guarded([&] { return ReadWhole(clip, whole->data, width, height); });
    if (read) {
        i32 fromX = x > 0 ? x : 0, fromY = y > 0 ? y : 0;
        CopyBitmapKQ(whole, target, fromX, fromY, width - fromX, height - fromY, fromX - x, fromY - y);
    }
    FreeBitmapKQ(whole);
    return read;
}

// Whether files of the clip's extension can be written. Nothing is created before there is a frame.
i32 CheckExtension(KQClip* clip) {
    std::string extension = clip->fileSpec ? ExtensionOf(clip->fileSpec) : "";
    if (!stills::Writes(extension.c_str()))
        return Refuse(KQERR_CREATE, clip->fileSpec ? clip->fileSpec : "", "cannot be created",
                      ("files of the kind ." + extension + " are not written").c_str());
    return 1;
}

i32 Create(KQClip* clip, u32) {
    return Guarded([&] { return CheckExtension(clip); });
}

i32 BeginIO(KQClip*, u32) { return 1; }

i32 EndIO(KQClip*, u32) { return 1; }

// A name beside `target` that nobody has: hidden, and of no extension that is read.
fs::path TemporaryBeside(const fs::path& target) {
    std::random_device random;
    char name[40];
    std::error_code error;
    fs::path path;
    do {
        std::snprintf(name, sizeof name, ".kqstill-%08x%08x", unsigned(random()), unsigned(random()));
        path = target.parent_path() / name;
    } while (fs::exists(path, error) && !error);
    return path;
}

// A new file's life until it is renamed; gone with this object otherwise.
class NewFile {
public:
    explicit NewFile(const char* target) : target_(PathFrom(target)), path_(TemporaryBeside(target_)) {}

    ~NewFile() {
        std::error_code ignored;
        if (!renamed_) fs::remove(path_, ignored);
    }

    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    std::string Path() const { return TextOf(path_); }

    bool Rename(stills::Problem& problem) {
        std::error_code error;
        fs::rename(path_, target_, error);
        if (error) problem = error.message();
        if (error == std::errc::permission_denied) problem.cause = stills::Cause::NoAccess;
        return renamed_ = !error;
    }

private:
    fs::path target_, path_;
    bool renamed_ = false;
};

// Writes, opens again, and renames.
bool Replace(const char* target, const stills::Head& head, const u8* pixels, stills::Problem& problem) {
    NewFile file(target);
    std::string path = file.Path();
    if (!stills::WritePixels(path.c_str(), ExtensionOf(target).c_str(), head, pixels, problem)) return false;
    stills::Head written;
    if (!stills::ReadHead(path.c_str(), written, problem)) return false;
    if (written.width != head.width || written.height != head.height) {
        problem = "what was written has another size";
        return false;
    }
    return file.Rename(problem);
}

// The part of the bitmap that `rect` names, on a frame of the clip's size, with alpha as the clip wants it stored but
// for a matte: the kinds of files tell that alpha is straight. Null when out of memory.
KQBitmap* FrameToWrite(KQClip* clip, const KQBitmap* bitmap, const KQRectT<long>* rect) {
    i32 width = clip->width > 0 ? clip->width : i32(rect->width);
    i32 height = clip->height > 0 ? clip->height : i32(rect->height);
    KQBitmap* frame = AllocBitmapKQ(width, height, 32);
    if (!frame) return nullptr;
    FillBitmapKQ(frame, clip->backgroundColor);
    CopyBitmapKQ(bitmap, frame, i32(rect->x), i32(rect->y), i32(rect->width), i32(rect->height), 0, 0);
    KQClip straight = *clip;
    straight.alphaPremultiplied = 0;
    if (clip->alphaMode != 0) Interpret_Alpha(&straight, frame, frame, nullptr);
    return frame;
}

// Writes `frame` to the clip's file.
i32 WriteFrame(KQClip* clip, const KQBitmap* frame) {
    stills::Head head;
    stills::Problem problem;
    head.width = frame->width;
    head.height = frame->height;
    head.alpha = clip->alphaMode == 2;
    head.pixelAspect = clip->pixelAspect;
    if (frame->width < 1 || frame->height < 1)
        return Refuse(KQERR_BADDATA, clip->fileSpec, "cannot be written", "it has no pixels");
    if (Replace(clip->fileSpec, head, frame->data, problem)) return 1;
    return Refuse(ErrorOf(problem, KQERR_WRITE), clip->fileSpec, "cannot be written", problem.c_str());
}

i32 AddFrame(KQClip* clip, KQBitmap* bitmap, i32, const KQRectT<long>* rect) {
    KQRectT<long> all = {0, 0, bitmap->width, bitmap->height};
    KQBitmap* frame = bitmap->depth == 32 ? FrameToWrite(clip, bitmap, rect ? rect : &all) : nullptr;
    if (!frame) return 0;
    i32 written = Guarded([&] { return WriteFrame(clip, frame); });
    FreeBitmapKQ(frame);
    if (written) ++clip->sourceFrames;
    return written;
}

bool HasCode(const u32* codes, i32 count, u32 code) {
    for (i32 i = 0; i < count; ++i)
        if (codes[i] == code) return true;
    return false;
}

i32 CheckFile(KQFormatDesc* module, const char*, u32, u32, u32 extension) {
    return HasCode(module->importExts, module->importExtCount, extension);
}

constexpr u32 kProperties = KQFORMAT_READS | KQFORMAT_WRITES | KQFORMAT_SCALES;

u32 ImportProperties(KQFormatDesc*) { return kProperties; }

u32 ExportProperties(KQFormatDesc*, KQClip*) { return kProperties; }

// An owned table of the codes of the extensions that `knows` answers for; null when out of memory.
u32* TableOf(bool (*knows)(const char*), i32* count) {
    u32* table = static_cast<u32*>(AllocMemoryKQ(sizeof kExtensions / sizeof kExtensions[0] * sizeof(u32), 0));
    if (!table) return nullptr;
    *count = 0;
    for (const char* extension : kExtensions)
        if (knows(extension)) table[(*count)++] = CodeOf(extension);
    return table;
}

}   // namespace

// Fills the cleared record; see kq/formats.h.
KQ_EXPORT i32 ENTRYPOINT1(KQFormatDesc* module) {
    if (!AddName(&module->node, "Stills")) return 0;
    module->importExts = TableOf(stills::Reads, &module->importExtCount);
    module->exportExts = TableOf(stills::Writes, &module->exportExtCount);
    if (!module->importExts || !module->exportExts) return 0;
    module->maxWidth = module->maxHeight = kLargest;
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
