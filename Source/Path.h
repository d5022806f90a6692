// Where a path separates. `\` and `:` do, except that on Linux a path which holds a `/` is a native path and `/` alone
// separates it.
#pragma once

#include <cstring>

#include "kq/types.h"
#include "pal/file.h"

namespace kq {

// True when `path` is separated by `/` alone.
inline bool IsSlashPath(const char* path) { return pal::SlashPaths() && std::strchr(path, '/') != nullptr; }

// The last separator of `path` at or behind index `first`, or null.
inline const char* LastSeparator(const char* path, size_t first = 0) {
    bool slash = IsSlashPath(path);
    for (size_t i = std::strlen(path); i-- > first;)
        if (slash ? path[i] == '/' : path[i] == '\\' || path[i] == ':') return path + i;
    return nullptr;
}

}   // namespace kq
