// Disk and memory files behind one handle. Every call of the platform's file layer that the library makes goes
// through here, past the test build's fault switch.
#define KQ_MODULE "PcSource/Pcdos"
#include "kq/files.h"

#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Faults.h"
#include "Source/FileAt.h"
#include "kq/environment.h"
#include "kq/lists.h"
#include "pal/file.h"

namespace {

pal::File* DiskFile(KQFileInfo* file) { return static_cast<pal::File*>(file->Handle); }

pal::Access AccessOf(u32 permission) {
    if (permission == KQFILE_Write) return pal::Access::Write;
    return permission == KQFILE_ReadWrite ? pal::Access::ReadWrite : pal::Access::Read;
}

// After a failed call of the platform: its reason, when that has a code, replaces the pessimistic one.
void MapError() {
    if (u32 code = pal::FileError()) KQEnv->Error = code;
}

// Leaves 0 in `Error` on success and the platform's reason otherwise.
int Finish(bool done) {
    if (done)
        KQEnv->Error = KQERR_NONE;
    else
        MapError();
    return done;
}

// Calls that have no code of their own: `Error` changes only when one fails for a reason that has a code.
int Plain(bool done) {
    if (!done) MapError();
    return done;
}

KQFileInfo* OpenDisk(const char* name, u32 permission, bool create) {
    KQFileInfo* file = KQ_NEW(KQFileInfo);
    if (!file) return nullptr;
    file->Permission = permission;
    if (!kq::FileCallFails()) {
        pal::Access access = AccessOf(permission);
        file->Handle = create ? pal::FileCreate(name, access) : pal::FileOpen(name, access);
        if (!file->Handle) MapError();
    }
    if (file->Handle) return file;
    KQ_FREE(file);
    return nullptr;
}

// Ends a transfer of a memory file.
int Advance(KQFileInfo* file, size_t count) {
    file->MemCursor += count;
    KQEnv->Error = KQERR_NONE;
    return 1;
}

// Where `mode` counts from in a memory file, as an offset: the end is taken one byte short of what it is on disk.
i64 MemoryOrigin(const KQFileInfo* file, u16 mode) {
    if (mode == KQSEEK_Start) return 0;
    if (mode == KQSEEK_Current) return file->MemCursor - file->MemStart;
    return file->MemEnd - file->MemStart - 1;
}

u64 SeekMemory(KQFileInfo* file, i64 offset, u16 mode) {
    i64 before = file->MemCursor - file->MemStart, length = file->MemEnd - file->MemStart;
    i64 target;
    if (__builtin_add_overflow(MemoryOrigin(file, mode), offset, &target)) target = offset > 0 ? length : 0;
    file->MemCursor = file->MemStart + std::clamp<i64>(target, 0, length);
    return u64(before);
}

u64 SeekDisk(KQFileInfo* file, i64 offset, u16 mode) {
    if (kq::FileCallFails()) return 0;
    i64 before = pal::FileTell(DiskFile(file));
    pal::Origin origin = mode == KQSEEK_Start     ? pal::Origin::Start
                         : mode == KQSEEK_Current ? pal::Origin::Current
                                                  : pal::Origin::End;
    if (!kq::FileCallFails()) pal::FileSeek(DiskFile(file), offset, origin);
    return before > 0 ? u64(before) : 0;
}

}   // namespace

KQFileInfo* CreateFileKQ(const char* name, u32 permission, u32, u32) {
    KQEnv->Error = KQERR_CREATE;
    if (!name) return nullptr;
    return OpenDisk(name, permission, true);
}

KQFileInfo* OpenFileKQ(const char* name, u32 permission) {
    if (!name) return nullptr;
    KQEnv->Error = KQERR_NOTFOUND;
    KQFileInfo* file = OpenDisk(name, permission, false);
    if (file) KQEnv->Error = KQERR_NONE;
    return file;
}

int CloseFileKQ(KQFileInfo* file) {
    if (!file) return 0;
    // The handle goes whatever happens; an injected fault stands for one that the platform reports while it closes.
    bool closed = !file->Handle || Plain(pal::FileClose(DiskFile(file)));
    if (file->Handle && kq::FileCallFails()) closed = false;
    KQ_FREE(file);
    return closed;
}

int ReadFileKQ(KQFileInfo* file, void* buffer, size_t count) {
    if (!file) return 0;
    KQEnv->Error = KQERR_READ;
    if (file->MemStart) {
        if (count > size_t(file->MemEnd - file->MemCursor)) return 0;
        if (count) std::memcpy(buffer, file->MemCursor, count);
        return Advance(file, count);
    }
    if (kq::FileCallFails()) return 0;
    i64 got = pal::FileRead(DiskFile(file), buffer, count);
    // No byte at all is the end of the file: a failure, for which the platform has no reason.
    return got == 0 ? 0 : Finish(got > 0);
}

int WriteFileKQ(KQFileInfo* file, const void* buffer, size_t count) {
    if (!file) return 0;
    KQEnv->Error = KQERR_WRITE;
    if (file->MemStart) {
        if (count > size_t(file->MemEnd - file->MemCursor)) return 0;
        if (count) std::memcpy(file->MemCursor, buffer, count);
        return Advance(file, count);
    }
    return !kq::FileCallFails() && Finish(pal::FileWrite(DiskFile(file), buffer, count));
}

u64 SeekFileKQ(KQFileInfo* file, i64 offset, u16 mode) {
    if (!file) return 0;
    return file->MemStart ? SeekMemory(file, offset, mode) : SeekDisk(file, offset, mode);
}

i64 GetFileLengthKQ(KQFileInfo* file) {
    if (!file) return 0;
    if (file->MemStart) return file->MemEnd - file->MemStart;
    if (kq::FileCallFails()) return 0;
    i64 length = pal::FileLength(DiskFile(file));
    return Plain(length >= 0) ? length : 0;
}

namespace kq {

i64 ReadFileAt(KQFileInfo* file, i64 offset, void* buffer, size_t count) {
    KQEnv->Error = KQERR_READ;
    if (offset < 0) return -1;
    if (file->MemStart) {
        i64 length = file->MemEnd - file->MemStart;
        i64 left = offset < length ? length - offset : 0;
        if (u64(left) < count) count = size_t(left);
        if (count) std::memcpy(buffer, file->MemStart + (length - left), count);
        if (count > 0) KQEnv->Error = KQERR_NONE;
        return i64(count);
    }
    if (FileCallFails()) return -1;
    i64 got = pal::FileReadAt(DiskFile(file), offset, buffer, count);
    if (got != 0) Finish(got > 0);
    return got;
}

int CutFile(KQFileInfo* file, i64 length) {
    if (file->MemStart || FileCallFails()) return 0;
    bool cut = pal::FileCut(DiskFile(file), length);
    SeekFileKQ(file, 0, KQSEEK_End);
    return cut;
}

}   // namespace kq

int DeleteFileKQ(const char* name) { return name && !kq::FileCallFails() && Plain(pal::FileDelete(name)); }

int FileExistsKQ(const char* name) { return name && !kq::FileCallFails() && Plain(pal::FileQuery(name, nullptr)); }

int CreateDirKQ(const char* name) {
    if (!name) return 1;
    return !kq::FileCallFails() && Plain(pal::FolderCreate(name));
}

namespace {

// The path of the entry at hand, in one block that grows with the tree's depth. Nothing of a level stays on the stack
// or open while the level below is emptied, so that depth costs neither.
class TreePath {
public:
    TreePath() = default;
    TreePath(const TreePath&) = delete;
    TreePath& operator=(const TreePath&) = delete;

    ~TreePath() { KQ_FREE(text_); }

    // Starts at a folder's name, without the separator that it may end in: behind a link to a folder that would name
    // the folder. A lone separator stays, and so does that of a drive, which without it is another folder.
    bool Start(const char* name) {
        if (!Append(name, std::strlen(name))) return false;
        while (length_ > 1 && IsSeparator(text_[length_ - 1]) && !EndsInDrive()) text_[--length_] = 0;
        return true;
    }

    // Goes down to an entry of the folder; `Leave` with the result of Length before it goes up again.
    bool Enter(const char* name) {
        char separator = pal::Separator();
        if (!IsSeparator(text_[length_ - 1]) && !Append(&separator, 1)) return false;
        return Append(name, std::strlen(name));
    }

    void Leave(size_t length) {
        length_ = length;
        text_[length] = 0;
    }

    size_t Length() const { return length_; }

    const char* Text() const { return text_; }

private:
    static bool IsSeparator(char c) { return c == pal::Separator() || c == '/'; }

    bool EndsInDrive() const { return !pal::SlashPaths() && text_[length_ - 2] == ':'; }

    bool Append(const char* text, size_t count) {
        if (length_ + count >= capacity_) {
            size_t capacity = (length_ + count + 1) * 2;
            char* grown = static_cast<char*>(KQ_ALLOC(capacity, 0));
            if (!grown) return false;
            if (text_) std::memcpy(grown, text_, length_);
            KQ_FREE(text_);
            text_ = grown;
            capacity_ = capacity;
        }
        std::memcpy(text_ + length_, text, count);
        Leave(length_ + count);
        return true;
    }

    char* text_ = nullptr;
    size_t length_ = 0;
    size_t capacity_ = 0;
};

bool RemoveFolder(const char* path) { return !kq::FileCallFails() && Plain(pal::FolderRemove(path)); }

// Deletes a file or a link; a link to a folder is a folder to some hosts.
void DeleteEntry(const char* path, bool link) {
    if (!DeleteFileKQ(path) && link) RemoveFolder(path);
}

// Deletes the files and links of the folder and adds the names of its folders to `folders`.
void DeleteFiles(TreePath& path, List* folders) {
    pal::FolderWalk* walk = kq::FileCallFails() ? nullptr : pal::FolderOpen(path.Text());
    if (!walk) return;
    size_t length = path.Length();
    pal::FolderEntry entry;
    while (pal::FolderNext(walk, &entry)) {
        if (std::strcmp(entry.name, ".") == 0 || std::strcmp(entry.name, "..") == 0) continue;
        if (entry.folder)
            Add_Node(folders, entry.name);
        else if (path.Enter(entry.name))
            DeleteEntry(path.Text(), entry.link);
        path.Leave(length);
    }
    pal::FolderClose(walk);
}

// Empties the folder and removes it; what stands in the way below shows only in the result at the top.
bool DeleteTree(TreePath& path) {
    List folders;
    NewList(&folders);
    DeleteFiles(path, &folders);
    size_t length = path.Length();
    while (Node* folder = RemHead(&folders)) {
        if (path.Enter(folder->Name)) DeleteTree(path);
        path.Leave(length);
        KQ_FREE(folder->Name);
        KQ_FREE(folder);
    }
    return RemoveFolder(path.Text());
}

}   // namespace

int DeleteDirKQ(const char* name) {
    if (!name) return 1;
    if (!*name) return 0;   // the present folder's root is nobody's wish
    TreePath path;
    if (!path.Start(name)) return 1;
    // An empty folder goes here, and so does a link to a folder, which must not be followed.
    if (RemoveFolder(path.Text())) return 1;
    return DeleteTree(path);
}
