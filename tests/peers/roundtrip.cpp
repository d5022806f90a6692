// Raw frames out of a clip's file and into one, for decoders of other make to be held against.
//
//   roundtrip read FILE RAW                      every frame of FILE, alpha red green blue, one after the other; prints
//                                                width, height, depth, frames and rate
//   roundtrip batch LIST                         the same for each line of LIST, whose words are such arguments
//   roundtrip write FILE RAW WIDTH HEIGHT [rate=R] [alpha=0|1|2] [invert=0|1] [premultiplied=0|1] [pack=0|1]
//                                                frames of RAW into a new FILE, by its extension; a VPB file takes one
//
// Frames are read as the file has them: the alpha interpretation is mode 2, straight. Exit code 0 when all went well.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "KQLib.h"
#include "kq/clip.h"
#include "kq/formats.h"
#include "kq/frames.h"

namespace {

int Fail(const char* what) {
    std::fprintf(stderr, "roundtrip: %s (error %u)\n", what, unsigned(GetErrorKQ()));
    return 1;
}

int ReadFrames(const char* path, const char* raw) {
    KQClip* clip = OpenClipKQ(path, KQTAG_CLIP_SINGLE, 1, KQTAG_CLIP_NOGUESS, 1, 0);
    if (!clip) return Fail("cannot open");
    clip->alphaMode = 2;
    clip->alphaPremultiplied = clip->alphaInvert = 0;
    std::printf("%d %d %d %d %.17g\n", clip->width, clip->height, clip->depth, clip->frameCount, clip->frameRate);
    KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
    std::FILE* out = std::fopen(raw, "wb");
    int failed = !bitmap || !out || !BeginClipIOKQ(clip, nullptr);
    for (i32 i = 0; !failed && i < clip->frameCount; ++i) {
        std::memset(bitmap->data, 0, size_t(bitmap->dataSize));
        // The slot itself, so that a rate of 0 does no harm.
        failed = !clip->format->GetFrame(clip, bitmap, i, nullptr, clip->width, clip->height, 0) ||
                 std::fwrite(bitmap->data, 1, size_t(bitmap->dataSize), out) != size_t(bitmap->dataSize);
    }
    if (out && std::fclose(out) != 0) failed = 1;
    FreeBitmapKQ(bitmap);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
    return failed ? Fail("a frame failed") : 0;
}

KQFormatDesc* ModuleFor(const std::string& path) {
    size_t dot = path.rfind('.');
    u32 code = 0;
    for (size_t i = 1; dot != std::string::npos && i <= 3 && dot + i < path.size(); ++i)
        code |= u32(u8(path[dot + i])) << (32 - 8 * i);
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ) {
        auto module = reinterpret_cast<KQFormatDesc*>(node);
        for (i32 i = 0; i < module->importExtCount; ++i)
            if (module->importExts[i] == code) return module;
    }
    return nullptr;
}

void SetPacking(KQClip* clip, u32 word) {
    clip->options = static_cast<KQClipOptions*>(AllocMemoryKQ(sizeof(KQClipOptions) + sizeof word, 0));
    clip->options->data = reinterpret_cast<u8*>(clip->options + 1);
    clip->options->length = sizeof word;
    std::memcpy(clip->options->data, &word, sizeof word);
}

void SetOption(KQClip* clip, const char* option) {
    const char* value = std::strchr(option, '=');
    if (!value) return;
    std::string name(option, value++);
    if (name == "rate") clip->frameRate = clip->sourceRate = std::atof(value);
    if (name == "alpha") clip->alphaMode = std::atoi(value);
    if (name == "invert") clip->alphaInvert = std::atoi(value);
    if (name == "premultiplied") clip->alphaPremultiplied = std::atoi(value);
    if (name == "pack") SetPacking(clip, u32(std::atoi(value)));
}

int WriteFrames(const char* path, const char* raw, i32 width, i32 height, char** options, int count) {
    KQClip* clip = NewClipKQ();
    clip->format = ModuleFor(path);
    if (!clip->format) return Fail("no module writes this");
    clip->fileSpec = MakeFileSpecKQ(path);
    clip->width = width;
    clip->height = height;
    clip->frameRate = clip->sourceRate = 25;
    clip->alphaMode = 2;
    clip->alphaPremultiplied = 0;
    for (int i = 0; i < count; ++i) SetOption(clip, options[i]);
    KQBitmap* bitmap = AllocBitmapKQ(width, height, 32);
    std::FILE* in = std::fopen(raw, "rb");
    int failed = !bitmap || !in || !CreateClipKQ(clip, 0);
    for (i32 i = 0; !failed && std::fread(bitmap->data, 1, size_t(bitmap->dataSize), in) == size_t(bitmap->dataSize);
         ++i) {
        KQTimeValue time = {f64(i), clip->frameRate};
        failed = !AddFrameKQ(clip, bitmap, &time, nullptr, nullptr);
    }
    if (in) std::fclose(in);
    FreeBitmapKQ(bitmap);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
    return failed ? Fail("a frame failed") : 0;
}

int Usage() {
    std::fprintf(stderr, "roundtrip read FILE RAW | write FILE RAW WIDTH HEIGHT [name=value ...] | batch LIST\n");
    return 2;
}

// One piece of work; its words stand from `words` on.
int RunOne(int count, char** words) {
    std::string verb = count > 0 ? words[0] : "";
    if (verb == "read" && count == 3) return ReadFrames(words[1], words[2]);
    if (verb == "write" && count >= 5)
        return WriteFrames(words[1], words[2], std::atoi(words[3]), std::atoi(words[4]), words + 5, count - 5);
    return Usage();
}

// Ends with the first line that fails, and tells which.
int RunBatch(const char* list) {
    std::FILE* file = std::fopen(list, "r");
    if (!file) return Fail("cannot open the list");
    int result = 0;
    char line[1000];
    for (int number = 1; !result && std::fgets(line, sizeof line, file); ++number) {
        std::vector<char*> words;
        for (char* word = std::strtok(line, " \r\n"); word; word = std::strtok(nullptr, " \r\n")) words.push_back(word);
        result = RunOne(int(words.size()), words.data());
        if (result) std::fprintf(stderr, "line %d of the list\n", number);
    }
    std::fclose(file);
    return result;
}

int Run(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "batch") == 0) return RunBatch(argv[2]);
    return RunOne(argc - 1, argv + 1);
}

}   // namespace

int main(int argc, char** argv) {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    InitFormatModulesKQ(nullptr);
    int result = Run(argc, argv);
    CleanUpKQ();
    return result;
}
