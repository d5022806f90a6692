// Shortcuts on POSIX: symbolic links.
#include "pal/shortcut.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

namespace pal {

bool ShortcutResolve(const char* path, char* target, size_t size, bool* folder) {
    struct stat status;
    if (lstat(path, &status) != 0 || !S_ISLNK(status.st_mode)) return false;
    char resolved[PATH_MAX];
    if (!realpath(path, resolved) || stat(resolved, &status) != 0) return false;
    size_t length = std::strlen(resolved);
    if (length >= size) return false;
    std::memcpy(target, resolved, length + 1);
    *folder = S_ISDIR(status.st_mode);
    return true;
}

bool FolderIdentify(const char* path, FolderIdentity* identity) {
    struct stat status;
    if (stat(path, &status) != 0) return false;
    *identity = {u64(status.st_dev), u64(status.st_ino)};
    return true;
}

}   // namespace pal
