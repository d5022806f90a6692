// Where the application's text resources lie: in the program's folder, or at the absolute path that it gave.
#pragma once

#include <cstring>

#include "Source/Path.h"
#include "kq/environment.h"

namespace kq {

inline bool IsAbsolutePath(const char* path) {
    if (path[0] == '/' || path[0] == '\\') return true;
    return !pal::SlashPaths() && path[0] != 0 && path[1] == ':';
}

// Writes the path of the resource `name` to ScratchPath and returns that; null when it does not fit, or when there is
// no name.
inline char* ResourcePath(const char* name) {
    if (!name) return nullptr;
    const char* folder = IsAbsolutePath(name) || !KQEnv->AppDir ? "" : KQEnv->AppDir;
    size_t folderLength = std::strlen(folder), nameSize = std::strlen(name) + 1;
    if (folderLength + nameSize > sizeof KQEnv->ScratchPath) return nullptr;
    std::memcpy(KQEnv->ScratchPath, folder, folderLength);
    std::memcpy(KQEnv->ScratchPath + folderLength, name, nameSize);
    return KQEnv->ScratchPath;
}

}   // namespace kq
