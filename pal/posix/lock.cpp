// Locks by flock. The file is deleted while the lock is held, so one that was opened before may be gone from its
// folder when its lock comes: such a file locks nothing and the path is tried again.
#include "pal/lock.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pal/allocate.h"

namespace pal {

struct FileLock {
    int descriptor;
    char* path;
};

namespace {

bool StillAt(int descriptor, const char* path) {
    struct stat held, named;
    return fstat(descriptor, &held) == 0 && stat(path, &named) == 0 && held.st_dev == named.st_dev &&
           held.st_ino == named.st_ino;
}

// A locked descriptor of the file that stands at `path`, or -1.
int LockDescriptor(const char* path, bool* taken) {
    for (;;) {
        int descriptor = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (descriptor < 0) return -1;
        if (flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            *taken = errno == EWOULDBLOCK;
            close(descriptor);
            return -1;
        }
        if (StillAt(descriptor, path)) return descriptor;
        close(descriptor);
    }
}

}   // namespace

FileLock* LockTake(const char* path, bool* taken) {
    *taken = false;
    FileLock* lock = AllocateRecord<FileLock>();
    size_t size = std::strlen(path) + 1;
    char* copy = static_cast<char*>(Allocate(size));
    if (copy) std::memcpy(copy, path, size);
    int descriptor = lock && copy ? LockDescriptor(path, taken) : -1;
    if (descriptor < 0) {
        Free(copy);
        Free(lock);
        return nullptr;
    }
    *lock = {descriptor, copy};
    return lock;
}

void LockRelease(FileLock* lock) {
    if (!lock) return;
    unlink(lock->path);
    close(lock->descriptor);
    Free(lock->path);
    Free(lock);
}

}   // namespace pal
