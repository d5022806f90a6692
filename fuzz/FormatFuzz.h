// What the fuzz targets of the format modules share: the input as a file, opened by the module, and every kind of
// frame asked of it. A clip that opens has a size that the gate let through.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "Source/Formats.h"
#include "kq/bitmap.h"
#include "kq/clip.h"
#include "kq/environment.h"
#include "kq/memory.h"

namespace kqfuzz {

// A file of this process alone.
inline std::string InputPath(const char* extension) {
    static const std::string name = "kqfuzz-" + std::to_string(std::random_device()());
    return (std::filesystem::temp_directory_path() / (name + extension)).string();
}

inline void WriteInput(const std::string& path, const u8* data, size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) std::abort();
}

// Larger pictures than this say nothing new and take their time.
inline constexpr i64 kMostPixels = 1 << 16;

inline void ReadFrames(KQFormatDesc* module, KQClip* clip) {
    if (clip->width <= 0 || clip->height <= 0 || clip->sourceFrames < 0) std::abort();
    if (i64(clip->width) * clip->height > kMostPixels) return;
    KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
    for (i32 frame : {0, 1, 2, clip->sourceFrames - 1, 0x7FFFFFFF})
        module->GetFrame(clip, bitmap, frame, nullptr, clip->width, clip->height, 0);
    FreeBitmapKQ(bitmap);
}

// The library and one module of it, from the first input to the end of the program.
struct Library {
    explicit Library(KQFormatDesc* (*make)()) {
        TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
        if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags) || !(module = make())) std::abort();
    }
    ~Library() {
        kq::FreeFormatModule(module);
        CleanUpKQ();
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    KQFormatDesc* module = nullptr;
};

// One input against the module that `make` makes.
inline int Run(KQFormatDesc* (*make)(), const char* extension, const u8* data, size_t size) {
    static Library library(make);
    static const std::string path = InputPath(extension);
    WriteInput(path, data, size);
    KQClip clip = {};
    clip.format = library.module;
    clip.fileSpec = const_cast<char*>(path.c_str());
    clip.sourceRate = 30.0;
    if (library.module->Open(&clip, nullptr)) ReadFrames(library.module, &clip);
    library.module->Close(&clip);
    std::remove(path.c_str());
    return 0;
}

}   // namespace kqfuzz
