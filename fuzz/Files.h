// What fuzz targets share whose code reads files by name: the library without a window, files of the input, and a
// check that every block came back.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "Source/UserChannel.h"
#include "kq/environment.h"
#include "kq/memory.h"

namespace fuzz {

inline i64 blocksAtStart = 0;

// Starts the library at the first call, to be cleaned up at the end; messages to the user go nowhere.
inline void StartLibrary() {
    if (KQEnv) return;
    struct Ender {
        ~Ender() { CleanUpKQ(); }
    };
    static Ender ender;
    kq::SetUserListener([](kq::UserText, const char*, void*) { return 1; }, nullptr);
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) std::abort();
    blocksAtStart = i64(KQEnv->AllocCount) - i64(KQEnv->FreeCount);
}

inline void CheckLeaks() {
    if (i64(KQEnv->AllocCount) - i64(KQEnv->FreeCount) != blocksAtStart) std::abort();
}

// A folder of this process, removed at its end.
class Folder {
public:
    Folder() : path_(std::filesystem::temp_directory_path() / ("kqfuzz-" + std::to_string(std::random_device{}()))) {
        std::filesystem::create_directory(path_);
    }
    ~Folder() {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
    }

    std::string File(const char* name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

// Writes the bytes to the file `name` of the process's folder and returns its path.
inline std::string WriteInput(const char* name, const void* bytes, size_t count) {
    static Folder folder;
    std::string path = folder.File(name);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(bytes), std::streamsize(count));
    return path;
}

}   // namespace fuzz
