// The walk over folders. The host's entries tell files from folders, so that nothing is asked per file.
//
// A walk stands on a chain of levels, one for each open folder, which share a path buffer: a level's own path is the
// first `length` bytes of it, and deeper levels append. A shortcut leads to another place, so it gets a buffer of its
// own. What was entered through shortcuts is noted, because a tree of links can spell a folder in more ways than there
// is time for.
#define KQ_MODULE "PcSource/Pcenum"
#include "kq/enumerate.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Faults.h"
#include "Source/Text.h"
#include "Source/Threads.h"
#include "kq/environment.h"
#include "pal/file.h"
#include "pal/shortcut.h"

namespace {

constexpr size_t kPathBytes = 4096;

using FileCallback = int (*)(const char* path, u32 typeCode, uptr user);

// The folders entered through shortcuts.
class EnteredFolders {
public:
    EnteredFolders() = default;
    ~EnteredFolders() { KQ_FREE(folders_); }
    EnteredFolders(const EnteredFolders&) = delete;
    EnteredFolders& operator=(const EnteredFolders&) = delete;

    // Notes a folder; false when it was noted before, or when there is no memory to note it.
    bool Add(const pal::FolderIdentity& folder) {
        for (size_t i = 0; i < count_; ++i)
            if (folders_[i] == folder) return false;
        if (count_ == room_ && !Grow()) return false;
        folders_[count_++] = folder;
        return true;
    }

private:
    bool Grow() {
        size_t room = room_ ? room_ * 2 : 16;
        auto* larger = static_cast<pal::FolderIdentity*>(KQ_ALLOC(room * sizeof(pal::FolderIdentity), 0));
        if (!larger) return false;
        if (count_) std::memcpy(larger, folders_, count_ * sizeof(pal::FolderIdentity));
        KQ_FREE(folders_);
        folders_ = larger;
        room_ = room;
        return true;
    }

    pal::FolderIdentity* folders_ = nullptr;
    size_t count_ = 0;
    size_t room_ = 0;
};

// What all levels of one walk share.
struct Walk {
    FileCallback callback;
    uptr user;
    bool recursive;
    EnteredFolders entered;
};

// One open folder of the walk.
struct Level {
    Level* parent;
    char* path;      // kPathBytes bytes
    size_t length;   // of this folder's path, its separator included
    bool linked;     // reached through a shortcut
};

bool EndsInSeparator(const char* path, size_t length) {
    if (length == 0) return false;
    char last = path[length - 1];
    return last == pal::Separator() || last == '/';
}

// Puts a separator at the end of the path; its new length, or 0 when it does not fit.
size_t CloseWithSeparator(char* path) {
    size_t length = std::strlen(path);
    if (EndsInSeparator(path, length)) return length;
    if (length + 2 > kPathBytes) return 0;
    path[length++] = pal::Separator();
    path[length] = 0;
    return length;
}

bool NamesShortcut(const char* name) {
    for (const char* dot = std::strchr(name, '.'); dot; dot = std::strchr(dot + 1, '.'))
        if (kq::FoldLower(u8(dot[1])) == 'l' && kq::FoldLower(u8(dot[2])) == 'n' && kq::FoldLower(u8(dot[3])) == 'k')
            return true;
    return false;
}

u32 TypeCode(const char* name) {
    char code[4] = {' ', ' ', ' ', ' '};
    if (const char* dot = std::strchr(name, '.')) {
        const char* from = dot + 1;
        for (int i = 0; i < 3 && *from != '.'; ++i) {
            code[i] = char(kq::FoldUpper(u8(*from)));
            if (*from) ++from;
        }
    }
    u32 word;
    std::memcpy(&word, code, 4);
    return word;
}

bool SkipsFolder(const char* name) {
    return name[0] == '{' || std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

bool IdentifyLevel(const Level* level, pal::FolderIdentity* identity) {
    char kept = level->path[level->length];
    level->path[level->length] = 0;
    bool known = pal::FolderIdentify(level->path, identity);
    level->path[level->length] = kept;
    return known;
}

// Whether the walk stands in this folder already.
bool StandsIn(const Level* level, const pal::FolderIdentity& folder) {
    for (; level; level = level->parent) {
        pal::FolderIdentity own;
        if (IdentifyLevel(level, &own) && own == folder) return true;
    }
    return false;
}

void WalkFolder(Walk& walk, Level& level);

// Walks the folder whose path stands in the buffer `path`.
void EnterFolder(Walk& walk, Level& level, char* path, bool linked) {
    Level inside = {&level, path, CloseWithSeparator(path), linked};
    if (inside.length) WalkFolder(walk, inside);
}

// The folder that a shortcut leads to. `path` is the shortcut's own buffer.
void EnterThroughShortcut(Walk& walk, Level& level, char* path) {
    pal::FolderIdentity folder;
    if (pal::FolderIdentify(path, &folder) && !StandsIn(&level, folder) && walk.entered.Add(folder))
        EnterFolder(walk, level, path, true);
}

// A subfolder. Behind a shortcut it may be one that the shortcut was found in.
void EnterSubfolder(Walk& walk, Level& level) {
    pal::FolderIdentity folder;
    if (!level.linked || (pal::FolderIdentify(level.path, &folder) && !StandsIn(&level, folder)))
        EnterFolder(walk, level, level.path, level.linked);
}

void FollowShortcut(Walk& walk, Level& level, const char* name) {
    char target[kPathBytes];
    bool folder = false;
    if (kq::FileCallFails() || !pal::ShortcutResolve(level.path, target, sizeof target, &folder)) return;
    if (!folder)
        walk.callback(target, TypeCode(name), walk.user);
    else if (walk.recursive && name[0] != '{')
        EnterThroughShortcut(walk, level, target);
}

// One entry, whose full path stands in the level's buffer.
void VisitEntry(Walk& walk, Level& level, const pal::FolderEntry& entry) {
    if (entry.link || NamesShortcut(entry.name)) {
        FollowShortcut(walk, level, entry.name);
    } else if (!entry.folder) {
        walk.callback(level.path, TypeCode(entry.name), walk.user);
    } else if (walk.recursive && !SkipsFolder(entry.name)) {
        EnterSubfolder(walk, level);
    }
}

// Walks the folder whose path, with its separator, stands in the level's buffer.
void WalkFolder(Walk& walk, Level& level) {
    if (kq::FileCallFails()) return;
    pal::FolderWalk* folder = pal::FolderOpen(level.path);
    if (!folder) {
        if (pal::FileError() == KQERR_NOMEM) kq::NoteError(KQERR_NOMEM);
        return;
    }
    pal::FolderEntry entry;
    while (!kq::FileCallFails() && pal::FolderNext(folder, &entry)) {
        size_t size = std::strlen(entry.name) + 1;
        if (level.length + size > kPathBytes) continue;
        std::memcpy(level.path + level.length, entry.name, size);
        VisitEntry(walk, level, entry);
    }
    pal::FolderClose(folder);
}

}   // namespace

int EnumFilesKQ(char** folders, const u32*, FileCallback callback, uptr user, int recursive) {
    if (!callback || !folders) return 1;
    for (; *folders; ++folders) {
        char path[kPathBytes];
        size_t length = std::strlen(*folders);
        if (length >= kPathBytes) continue;
        std::memcpy(path, *folders, length + 1);
        Walk walk = {callback, user, recursive != 0, {}};
        Level root = {nullptr, path, CloseWithSeparator(path), false};
        if (root.length) WalkFolder(walk, root);
    }
    return 1;
}
