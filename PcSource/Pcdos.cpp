// Disk and memory files behind one handle. Every call of the platform's file layer that the library makes goes
// through here, past the test build's fault switch.
#define KQ_MODULE "PcSource/Pcdos"
#include "kq/files.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Faults.h"
#include "Source/FileAt.h"
#include "Source/Path.h"
#include "kq/environment.h"
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

KQFileInfo* OpenDisk(const char* name, u32 permission, bool create) {
    KQFileInfo* file = KQ_NEW(KQFileInfo);
    if (!file) return nullptr;
    file->Permission = permission;
    if (!kq::FileCallFails())
        file->Handle = create ? pal::FileCreate(name, AccessOf(permission)) : pal::FileOpen(name, AccessOf(permission));
    if (file->Handle) return file;
    MapError();
    KQ_FREE(file);
    return nullptr;
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

KQFileInfo* OpenFileinMemoryKQ(u8* block, i64 length, u32 permission) {
    if (!block) return nullptr;
    KQFileInfo* file = KQ_NEW(KQFileInfo);
    if (!file) return nullptr;
    file->Permission = permission;
    file->MemStart = file->MemCursor = block;
    file->MemEnd = block + length;
    KQEnv->Error = KQERR_NONE;
    return file;
}

int CloseFileKQ(KQFileInfo* file) {
    if (!file) return 0;
    bool closed = !file->Handle || (pal::FileClose(DiskFile(file)) && !kq::FileCallFails());
    KQ_FREE(file);
    return closed;
}

int ReadFileKQ(KQFileInfo* file, void* buffer, size_t count) {
    if (!file) return 0;
    KQEnv->Error = KQERR_READ;
    if (file->MemStart) {
        if (count > size_t(file->MemEnd - file->MemCursor)) return 0;
        std::memcpy(buffer, file->MemCursor, count);
        file->MemCursor += count;
        KQEnv->Error = KQERR_NONE;
        return 1;
    }
    i64 got = kq::FileCallFails() ? -1 : pal::FileRead(DiskFile(file), buffer, count);
    if (got == 0) return 0;
    return Finish(got > 0);
}

int WriteFileKQ(KQFileInfo* file, const void* buffer, size_t count) {
    if (!file) return 0;
    KQEnv->Error = KQERR_WRITE;
    if (file->MemStart) {
        if (count > size_t(file->MemEnd - file->MemCursor)) return 0;
        std::memcpy(file->MemCursor, buffer, count);
        file->MemCursor += count;
        KQEnv->Error = KQERR_NONE;
        return 1;
    }
    return Finish(!kq::FileCallFails() && pal::FileWrite(DiskFile(file), buffer, count));
}

u64 SeekFileKQ(KQFileInfo* file, i64 offset, u16 mode) {
    if (!file) return 0;
    if (file->MemStart) {
        u64 before = u64(file->MemCursor - file->MemStart);
        i64 length = file->MemEnd - file->MemStart;
        i64 base = mode == KQSEEK_Start ? 0 : mode == KQSEEK_Current ? i64(before) : length - 1;
        i64 target = base;
        if (__builtin_add_overflow(base, offset, &target)) target = offset > 0 ? length : 0;
        if (target > length) target = length;
        if (target < 0) target = 0;
        file->MemCursor = file->MemStart + target;
        return before;
    }
    if (kq::FileCallFails()) return 0;
    i64 before = pal::FileTell(DiskFile(file));
    pal::Origin origin = mode == KQSEEK_Start     ? pal::Origin::Start
                         : mode == KQSEEK_Current ? pal::Origin::Current
                                                  : pal::Origin::End;
    pal::FileSeek(DiskFile(file), offset, origin);
    return before > 0 ? u64(before) : 0;
}

i64 GetFileLengthKQ(KQFileInfo* file) {
    if (!file) return 0;
    if (file->MemStart) return file->MemEnd - file->MemStart;
    i64 length = kq::FileCallFails() ? -1 : pal::FileLength(DiskFile(file));
    return length > 0 ? length : 0;
}

namespace kq {

i64 ReadFileAt(KQFileInfo* file, i64 offset, void* buffer, size_t count) {
    KQEnv->Error = KQERR_READ;
    if (offset < 0) return -1;
    if (file->MemStart) {
        i64 length = file->MemEnd - file->MemStart;
        i64 left = offset < length ? length - offset : 0;
        if (u64(left) < count) count = size_t(left);
        std::memcpy(buffer, file->MemStart + (length - left), count);
        if (count > 0) KQEnv->Error = KQERR_NONE;
        return i64(count);
    }
    i64 got = FileCallFails() ? -1 : pal::FileReadAt(DiskFile(file), offset, buffer, count);
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

int DeleteFileKQ(const char* name) {
    if (!name || kq::FileCallFails()) return 0;
    return pal::FileDelete(name);
}

int FileExistsKQ(const char* name) {
    if (!name || kq::FileCallFails()) return 0;
    return pal::FileQuery(name, nullptr);
}

int CreateDirKQ(const char* name) {
    if (!name) return 1;
    return !kq::FileCallFails() && pal::FolderCreate(name);
}

int DeleteDirKQ(const char* name) {
    if (!name) return 1;
    return 0;
}
