// The shell's namespace on POSIX: the desktop folder of the XDG user directories, and below it the tree of files.
#include "pal/shell.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <sys/stat.h>

#include "pal/allocate.h"

namespace pal {

struct ShellFolder {
    DIR* directory;
    char path[PATH_MAX];   // with a separator at its end
};

struct ShellItem {
    char name[NAME_MAX + 1];
};

namespace {

// Writes the two texts behind each other; false, with an empty text, when they do not fit.
bool Join(char (&out)[PATH_MAX], const char* first, const char* second) {
    size_t before = std::strlen(first), behind = std::strlen(second);
    bool fits = before + behind < PATH_MAX;
    if (fits) {
        std::memmove(out, first, before);
        std::memcpy(out + before, second, behind + 1);
    } else {
        out[0] = 0;
    }
    return fits;
}

// The value of a line `XDG_DESKTOP_DIR="..."`, false for any other line. It stands in double quotes, with a backslash
// in front of a character that is meant, and is absolute or begins with $HOME.
bool ReadDesktopLine(char* line, const char* home, char (&desktop)[PATH_MAX]) {
    constexpr char kKey[] = "XDG_DESKTOP_DIR=\"";
    line += std::strspn(line, " \t");
    if (std::strncmp(line, kKey, sizeof kKey - 1) != 0) return false;
    char* value = line + sizeof kKey - 1;
    char* to = value;
    for (char* from = value; *from && *from != '"' && *from != '\n'; ++from) {
        if (*from == '\\' && from[1]) ++from;
        *to++ = *from;
    }
    *to = 0;
    if (std::strncmp(value, "$HOME", 5) == 0) return Join(desktop, home, value + 5);
    return value[0] == '/' && Join(desktop, value, "");
}

// The file with the user's directories; an empty text when its path is too long.
void ConfigurationPath(const char* home, char (&path)[PATH_MAX]) {
    constexpr char kName[] = "/user-dirs.dirs";
    const char* folder = std::getenv("XDG_CONFIG_HOME");
    if (folder && folder[0] == '/') {
        Join(path, folder, kName);
        return;
    }
    if (Join(path, home, "/.config")) Join(path, path, kName);
}

// The desktop folder as the user's configuration names it, by default `Desktop` in the home folder.
void DesktopPath(const char* home, char (&desktop)[PATH_MAX]) {
    char path[PATH_MAX];
    Join(desktop, home, "/Desktop");
    ConfigurationPath(home, path);
    std::FILE* file = std::fopen(path, "re");
    if (!file) return;
    char line[PATH_MAX + 64];
    char named[PATH_MAX];
    while (std::fgets(line, sizeof line, file))
        if (ReadDesktopLine(line, home, named)) Join(desktop, named, "");
    std::fclose(file);
}

bool IsDot(const char* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

ShellFolder* Open(const char* path) {
    size_t length = std::strlen(path);
    DIR* directory = length + 1 < PATH_MAX ? opendir(path) : nullptr;
    if (!directory) return nullptr;
    ShellFolder* folder = AllocateRecord<ShellFolder>();
    if (!folder) {
        closedir(directory);
        return nullptr;
    }
    folder->directory = directory;
    std::memcpy(folder->path, path, length + 1);
    if (path[length - 1] != '/') std::strcpy(folder->path + length, "/");
    return folder;
}

// An item's path; false when it is too long.
bool ItemPath(const ShellFolder* folder, const ShellItem* item, char (&path)[PATH_MAX]) {
    return Join(path, folder->path, item->name);
}

}   // namespace

ShellFolder* ShellOpenDesktop(void*) {
    const char* home = std::getenv("HOME");
    if (!home || !home[0]) home = "/";
    char desktop[PATH_MAX];
    DesktopPath(home, desktop);
    ShellFolder* folder = Open(desktop);
    return folder ? folder : Open(home);
}

ShellFolder* ShellOpenPath(const char* path, void*) { return Open(path); }

ShellFolder* ShellOpenItem(ShellFolder* parent, ShellItem* item, void*) {
    char path[PATH_MAX];
    return ItemPath(parent, item, path) ? Open(path) : nullptr;
}

void ShellCloseFolder(ShellFolder* folder) {
    if (!folder) return;
    closedir(folder->directory);
    Free(folder);
}

ShellItem* ShellNext(ShellFolder* folder) {
    dirent* found;
    do found = readdir(folder->directory);
    while (found && IsDot(found->d_name));
    ShellItem* item = found ? AllocateRecord<ShellItem>() : nullptr;
    if (item) std::strcpy(item->name, found->d_name);
    return item;
}

void ShellFreeItem(ShellItem* item) { Free(item); }

// A link is what it leads to; one that leads nowhere, a device, a pipe and a socket are neither file nor folder.
bool ShellQuery(ShellFolder* folder, ShellItem* item, ShellAttributes* attributes) {
    char path[PATH_MAX];
    struct stat status;
    *attributes = {};
    if (!ItemPath(folder, item, path) || stat(path, &status) != 0) return true;
    attributes->folder = S_ISDIR(status.st_mode);
    attributes->fileSystem = attributes->folder || S_ISREG(status.st_mode);
    return true;
}

bool ShellGetName(ShellFolder* folder, ShellItem* item, ShellName kind, char* name, size_t size) {
    char path[PATH_MAX];
    if (!Join(path, kind == ShellName::Parsing ? folder->path : "", item->name)) return false;
    size_t bytes = std::strlen(path) + 1;
    if (bytes > size) return false;
    std::memcpy(name, path, bytes);
    return true;
}

}   // namespace pal
