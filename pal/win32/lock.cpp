// Locks by a file that nobody else may open, which the system deletes with its last handle.
#include "pal/lock.h"

#include <windows.h>

#include "pal/allocate.h"
#include "pal/win32/wide.h"

namespace pal {

struct FileLock {
    HANDLE handle;
};

FileLock* LockTake(const char* path, bool* taken) {
    *taken = false;
    Wide wide(path);
    FileLock* lock = AllocateRecord<FileLock>();
    HANDLE handle = INVALID_HANDLE_VALUE;
    if (wide && lock) {
        handle = CreateFileW(wide.Get(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, OPEN_ALWAYS,
                             FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        if (handle == INVALID_HANDLE_VALUE) *taken = GetLastError() == ERROR_SHARING_VIOLATION;
    }
    if (handle == INVALID_HANDLE_VALUE) {
        Free(lock);
        return nullptr;
    }
    lock->handle = handle;
    return lock;
}

void LockRelease(FileLock* lock) {
    if (!lock) return;
    CloseHandle(lock->handle);
    Free(lock);
}

}   // namespace pal
