// Files and folders on Windows.
#include "pal/file.h"

#include <cstring>

#include <windows.h>

#include "pal/allocate.h"
#include "pal/win32/links.h"
#include "pal/win32/wide.h"

namespace pal {

struct File {
    HANDLE handle;
};

struct FolderWalk {
    HANDLE find;
    WIN32_FIND_DATAW data;
    bool first;
    char name[MAX_PATH * 3 + 1];
};

namespace {

thread_local DWORD lastError = 0;

// Notes the error for FileError and returns `result`.
template <class T>
T Failed(T result) {
    lastError = GetLastError();
    return result;
}

template <class T>
T FailedWith(DWORD error, T result) {
    lastError = error;
    return result;
}

File* OpenHandle(const char* path, Access access, DWORD disposition) {
    Wide wide(path);
    if (!wide) return FailedWith<File*>(wide.Error(), nullptr);
    DWORD rights = access == Access::Read    ? GENERIC_READ
                   : access == Access::Write ? GENERIC_WRITE
                                             : GENERIC_READ | GENERIC_WRITE;
    DWORD share = access == Access::Read ? FILE_SHARE_READ : 0;
    // The record comes first: no file is made or emptied that nobody then gets.
    File* file = static_cast<File*>(Allocate(sizeof(File)));
    if (!file) return FailedWith<File*>(ERROR_NOT_ENOUGH_MEMORY, nullptr);
    file->handle = CreateFileW(wide.Get(), rights, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file->handle != INVALID_HANDLE_VALUE) return file;
    Failed(0);
    Free(file);
    return nullptr;
}

// A request of any size goes out in pieces that fit a DWORD.
constexpr size_t kPiece = size_t(1) << 30;

}   // namespace

File* FileOpen(const char* path, Access access) { return OpenHandle(path, access, OPEN_EXISTING); }

File* FileCreate(const char* path, Access access) { return OpenHandle(path, access, CREATE_ALWAYS); }

bool FileClose(File* file) {
    bool closed = CloseHandle(file->handle) != 0;
    if (!closed) lastError = GetLastError();
    Free(file);
    return closed;
}

i64 FileRead(File* file, void* buffer, size_t count) {
    u8* at = static_cast<u8*>(buffer);
    size_t left = count;
    while (left > 0) {
        DWORD got = 0;
        if (!ReadFile(file->handle, at, DWORD(left < kPiece ? left : kPiece), &got, nullptr))
            return left == count ? Failed<i64>(-1) : i64(count - left);
        if (got == 0) break;
        at += got;
        left -= got;
    }
    return i64(count - left);
}

bool FileWrite(File* file, const void* buffer, size_t count) {
    const u8* at = static_cast<const u8*>(buffer);
    while (count > 0) {
        DWORD put = 0;
        if (!WriteFile(file->handle, at, DWORD(count < kPiece ? count : kPiece), &put, nullptr)) return Failed(false);
        if (put == 0) return FailedWith(ERROR_DISK_FULL, false);
        at += put;
        count -= put;
    }
    return true;
}

i64 FileTell(File* file) { return FileSeek(file, 0, Origin::Current); }

i64 FileSeek(File* file, i64 offset, Origin origin) {
    LARGE_INTEGER distance, position;
    distance.QuadPart = offset;
    DWORD method = origin == Origin::Start ? FILE_BEGIN : origin == Origin::Current ? FILE_CURRENT : FILE_END;
    if (!SetFilePointerEx(file->handle, distance, &position, method)) return Failed<i64>(-1);
    return position.QuadPart;
}

i64 FileReadAt(File* file, i64 offset, void* buffer, size_t count) {
    u8* at = static_cast<u8*>(buffer);
    size_t done = 0;
    while (done < count) {
        size_t left = count - done;
        u64 from = u64(offset) + done;
        OVERLAPPED place = {};
        place.Offset = DWORD(from);
        place.OffsetHigh = DWORD(from >> 32);
        DWORD got = 0;
        if (!ReadFile(file->handle, at + done, DWORD(left < kPiece ? left : kPiece), &got, &place)) {
            if (GetLastError() == ERROR_HANDLE_EOF) break;
            return done == 0 ? Failed<i64>(-1) : i64(done);
        }
        if (got == 0) break;
        done += got;
    }
    return i64(done);
}

i64 FileLength(File* file) {
    LARGE_INTEGER length;
    if (!GetFileSizeEx(file->handle, &length)) return Failed<i64>(-1);
    return length.QuadPart;
}

bool FileCut(File* file, i64 length) {
    if (FileSeek(file, length, Origin::Start) < 0) return false;
    return SetEndOfFile(file->handle) || Failed(false);
}

bool FileFlush(File* file) { return FlushFileBuffers(file->handle) || Failed(false); }

bool FileDelete(const char* path) {
    Wide wide(path);
    if (!wide) return FailedWith(wide.Error(), false);
    return DeleteFileW(wide.Get()) || Failed(false);
}

bool FileReplace(const char* from, const char* to) {
    Wide wideFrom(from), wideTo(to);
    if (!wideFrom || !wideTo) return FailedWith(wideFrom ? wideTo.Error() : wideFrom.Error(), false);
    return MoveFileExW(wideFrom.Get(), wideTo.Get(), MOVEFILE_REPLACE_EXISTING) || Failed(false);
}

bool FileQuery(const char* path, FileStatus* status) {
    Wide wide(path);
    if (!wide) return FailedWith(wide.Error(), false);
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(wide.Get(), GetFileExInfoStandard, &data)) return Failed(false);
    if (status) {
        status->folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        status->length = status->folder ? 0 : i64(u64(data.nFileSizeHigh) << 32 | data.nFileSizeLow);
        u64 ticks = u64(data.ftLastWriteTime.dwHighDateTime) << 32 | data.ftLastWriteTime.dwLowDateTime;
        status->modified = i64(ticks / 10000000) - 11644473600;
    }
    return true;
}

bool FolderCreate(const char* path) {
    Wide wide(path);
    if (!wide) return FailedWith(wide.Error(), false);
    return CreateDirectoryW(wide.Get(), nullptr) || Failed(false);
}

bool FolderRemove(const char* path) {
    Wide wide(path);
    if (!wide) return FailedWith(wide.Error(), false);
    return RemoveDirectoryW(wide.Get()) || Failed(false);
}

FolderWalk* FolderOpen(const char* path) {
    size_t length = std::strlen(path);
    char* pattern = static_cast<char*>(Allocate(length + 3));
    FolderWalk* walk = static_cast<FolderWalk*>(Allocate(sizeof(FolderWalk)));
    if (pattern && walk) {
        std::memcpy(pattern, path, length);
        if (length == 0 || (path[length - 1] != '\\' && path[length - 1] != '/')) pattern[length++] = '\\';
        std::strcpy(pattern + length, "*");
        Wide wide(pattern);
        walk->find = wide ? FindFirstFileW(wide.Get(), &walk->data) : INVALID_HANDLE_VALUE;
        walk->first = true;
        if (walk->find != INVALID_HANDLE_VALUE) {
            Free(pattern);
            return walk;
        }
        lastError = wide ? GetLastError() : wide.Error();
    } else {
        lastError = ERROR_NOT_ENOUGH_MEMORY;
    }
    Free(pattern);
    Free(walk);
    return nullptr;
}

bool FolderNext(FolderWalk* walk, FolderEntry* entry) {
    do {
        if (!walk->first && !FindNextFileW(walk->find, &walk->data)) return false;
        walk->first = false;
    } while (!Narrow(walk->data.cFileName, walk->name, sizeof walk->name));
    entry->name = walk->name;
    entry->link = IsLink(walk->data.dwFileAttributes, walk->data.dwReserved0);
    entry->folder = (walk->data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !entry->link;
    return true;
}

void FolderClose(FolderWalk* walk) {
    if (!walk) return;
    FindClose(walk->find);
    Free(walk);
}

u32 FileError() { return ErrorCode(lastError); }

u32 ErrorCode(u32 hostError) {
    switch (hostError) {
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY: return KQERR_NOMEM;
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_DISK_FULL: return KQERR_DISKFULL;
    case ERROR_ACCESS_DENIED:
    case ERROR_INVALID_ACCESS:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION: return KQERR_ACCESS;
    case ERROR_WRITE_PROTECT: return KQERR_WRITEPROTECT;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND: return KQERR_NOTFOUND;
    case ERROR_READ_FAULT: return KQERR_READ;
    case ERROR_WRITE_FAULT: return KQERR_WRITE;
    case ERROR_BAD_FORMAT: return KQERR_BADFORMAT;
    default: return 0;
    }
}

std::FILE* TextCreate(const char* path) {
    Wide wide(path);
    return wide ? _wfopen(wide.Get(), L"w") : nullptr;
}

char Separator() { return '\\'; }

bool SlashPaths() { return false; }

}   // namespace pal
