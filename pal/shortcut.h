// Shortcuts of the host, and the identity of folders by which a loop of shortcuts is known.
#pragma once

#include "kq/types.h"

namespace pal {

// Follows the shortcut at `path` to its end and writes the target's full path, zero-ended, to `target` and whether it
// is a folder to `*folder`. On Linux a shortcut is a symbolic link, on Windows a shell link or a link of the file
// system. False when `path` is none, leads nowhere, or its target's path does not fit `size` bytes.
bool ShortcutResolve(const char* path, char* target, size_t size, bool* folder);

// Tells one folder of the running system from all others, by whatever path it was reached.
struct FolderIdentity {
    u64 volume;
    u64 index;

    bool operator==(const FolderIdentity&) const = default;
};

// Fills `*identity` for the folder at `path`; false when it cannot be asked.
bool FolderIdentify(const char* path, FolderIdentity* identity);

}   // namespace pal
