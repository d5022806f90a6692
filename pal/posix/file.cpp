// Files and folders on POSIX: descriptors, with partial reads and writes and interrupted calls carried on.
#include "pal/file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pal/allocate.h"

namespace pal {

struct File {
    int descriptor;
};

struct FolderWalk {
    DIR* directory;
};

namespace {

thread_local int lastErrno = 0;

// Notes errno for FileError and returns `result`.
template <class T>
T Failed(T result) {
    lastErrno = errno;
    return result;
}

int Flags(Access access) {
    switch (access) {
    // A pipe without another end is empty, or an error, and not a wait without end.
    case Access::Read: return O_RDONLY | O_NONBLOCK;
    case Access::Write: return O_WRONLY | O_NONBLOCK;
    case Access::ReadWrite: return O_RDWR;
    }
    return O_RDONLY;
}

int OpenDescriptor(const char* path, int flags) {
    int descriptor;
    do descriptor = open(path, flags | O_CLOEXEC, 0666);
    while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

// Readers share and writers do not, as on hosts whose opens exclude each other. The lock binds this library's files
// alone. A file system without locks is left as it is.
bool Claim(int descriptor, Access access) {
    return flock(descriptor, (access == Access::Read ? LOCK_SH : LOCK_EX) | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

// A descriptor that only reads cannot cut its file off.
bool Empty(const char* path, int descriptor, Access access) {
    return (access == Access::Read ? truncate(path, 0) : ftruncate(descriptor, 0)) == 0;
}

// What an opened descriptor has to be and do before it is a File; false, with errno, when it is none.
bool Settle(const char* path, int descriptor, Access access, bool empty) {
    struct stat status;
    if (fstat(descriptor, &status) != 0) return false;
    if (S_ISDIR(status.st_mode)) {
        errno = EACCES;
        return false;
    }
    if (access != Access::ReadWrite && fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK) != 0)
        return false;
    if (!S_ISREG(status.st_mode)) return true;
    // Nothing is cut off before the file is ours.
    if (!empty || status.st_size == 0) return Claim(descriptor, access);
    return Claim(descriptor, Access::Write) && Empty(path, descriptor, access) && Claim(descriptor, access);
}

File* Open(const char* path, Access access, bool create) {
    // The record comes first: no file is made or emptied that nobody then gets.
    File* file = static_cast<File*>(Allocate(sizeof(File)));
    if (!file) {
        lastErrno = ENOMEM;
        return nullptr;
    }
    file->descriptor = OpenDescriptor(path, Flags(access) | (create ? O_CREAT : 0));
    if (file->descriptor >= 0 && Settle(path, file->descriptor, access, create)) return file;
    Failed(0);
    if (file->descriptor >= 0) close(file->descriptor);
    Free(file);
    return nullptr;
}

}   // namespace

File* FileOpen(const char* path, Access access) { return Open(path, access, false); }

File* FileCreate(const char* path, Access access) { return Open(path, access, true); }

bool FileClose(File* file) {
    // A child process that is being started may hold the descriptor for a moment longer, and with it the lock.
    flock(file->descriptor, LOCK_UN);
    int result = close(file->descriptor);
    if (result != 0) lastErrno = errno;
    Free(file);
    return result == 0;
}

i64 FileRead(File* file, void* buffer, size_t count) {
    u8* at = static_cast<u8*>(buffer);
    size_t left = count;
    while (left > 0) {
        ssize_t got = read(file->descriptor, at, left);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return left == count ? Failed<i64>(-1) : i64(count - left);
        if (got == 0) break;
        at += got;
        left -= size_t(got);
    }
    return i64(count - left);
}

bool FileWrite(File* file, const void* buffer, size_t count) {
    const u8* at = static_cast<const u8*>(buffer);
    while (count > 0) {
        ssize_t put = write(file->descriptor, at, count);
        if (put < 0 && errno == EINTR) continue;
        if (put == 0) errno = ENOSPC;
        if (put <= 0) return Failed(false);
        at += put;
        count -= size_t(put);
    }
    return true;
}

i64 FileTell(File* file) {
    off_t at = lseek(file->descriptor, 0, SEEK_CUR);
    return at < 0 ? Failed<i64>(-1) : i64(at);
}

i64 FileSeek(File* file, i64 offset, Origin origin) {
    int whence = origin == Origin::Start ? SEEK_SET : origin == Origin::Current ? SEEK_CUR : SEEK_END;
    off_t at = lseek(file->descriptor, off_t(offset), whence);
    return at < 0 ? Failed<i64>(-1) : i64(at);
}

i64 FileReadAt(File* file, i64 offset, void* buffer, size_t count) {
    u8* at = static_cast<u8*>(buffer);
    size_t done = 0;
    while (done < count) {
        ssize_t got = pread(file->descriptor, at + done, count - done, off_t(offset + i64(done)));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return done == 0 ? Failed<i64>(-1) : i64(done);
        if (got == 0) break;
        done += size_t(got);
    }
    return i64(done);
}

i64 FileLength(File* file) {
    struct stat status;
    if (fstat(file->descriptor, &status) != 0) return Failed<i64>(-1);
    return i64(status.st_size);
}

bool FileCut(File* file, i64 length) {
    int result;
    do result = ftruncate(file->descriptor, off_t(length));
    while (result != 0 && errno == EINTR);
    return result == 0 || Failed(false);
}

bool FileFlush(File* file) { return fsync(file->descriptor) == 0 || Failed(false); }

bool FileDelete(const char* path) { return unlink(path) == 0 || Failed(false); }

bool FileReplace(const char* from, const char* to) { return std::rename(from, to) == 0 || Failed(false); }

bool FileQuery(const char* path, FileStatus* status) {
    struct stat s;
    if (stat(path, &s) != 0) return Failed(false);
    if (status) {
        status->folder = S_ISDIR(s.st_mode);
        status->length = status->folder ? 0 : i64(s.st_size);
        status->modified = i64(s.st_mtime);
    }
    return true;
}

bool FolderCreate(const char* path) { return mkdir(path, 0777) == 0 || Failed(false); }

bool FolderRemove(const char* path) {
    if (rmdir(path) == 0) return true;
    struct stat s;
    if (errno == ENOTDIR && lstat(path, &s) == 0 && S_ISLNK(s.st_mode) && unlink(path) == 0) return true;
    return Failed(false);
}

FolderWalk* FolderOpen(const char* path) {
    DIR* directory = opendir(path);
    if (!directory) return Failed<FolderWalk*>(nullptr);
    FolderWalk* walk = static_cast<FolderWalk*>(Allocate(sizeof(FolderWalk)));
    if (!walk) {
        closedir(directory);
        errno = ENOMEM;
        return Failed<FolderWalk*>(nullptr);
    }
    walk->directory = directory;
    return walk;
}

bool FolderNext(FolderWalk* walk, FolderEntry* entry) {
    dirent* found = readdir(walk->directory);
    if (!found) return false;
    unsigned char type = found->d_type;
    if (type == DT_UNKNOWN) {
        struct stat s;
        if (fstatat(dirfd(walk->directory), found->d_name, &s, AT_SYMLINK_NOFOLLOW) == 0)
            type = S_ISDIR(s.st_mode) ? DT_DIR : S_ISLNK(s.st_mode) ? DT_LNK : DT_REG;
    }
    entry->name = found->d_name;
    entry->folder = type == DT_DIR;
    entry->link = type == DT_LNK;
    return true;
}

void FolderClose(FolderWalk* walk) {
    if (!walk) return;
    closedir(walk->directory);
    Free(walk);
}

u32 FileError() { return ErrorCode(u32(lastErrno)); }

u32 ErrorCode(u32 hostError) {
    switch (hostError) {
    case ENOMEM: return KQERR_NOMEM;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return KQERR_DISKFULL;
    case EACCES:
    case EBADF:   // a transfer that the file was not opened for
    case EPERM:
    case EBUSY:
    case EWOULDBLOCK:   // another file of the library excludes this one
    case ETXTBSY:
    case EISDIR: return KQERR_ACCESS;
    case EROFS: return KQERR_WRITEPROTECT;
    case ENOENT:
    case ENOTDIR: return KQERR_NOTFOUND;
    case ENOEXEC: return KQERR_BADFORMAT;
    default: return 0;
    }
}

std::FILE* TextCreate(const char* path) { return std::fopen(path, "we"); }

char Separator() { return '/'; }

bool SlashPaths() { return true; }

}   // namespace pal
