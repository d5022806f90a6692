// A lock between processes, held through a file: the folder beside it belongs to whoever holds the lock.
#pragma once

#include "kq/types.h"

namespace pal {

// A lock that is held; opaque.
struct FileLock;

// Makes the file `path` and locks it without waiting. Null when another holder has it (`*taken` true), within this
// process too, and when the file cannot be made or locked (`*taken` false). The host gives the lock up when the
// process ends, however it ends.
FileLock* LockTake(const char* path, bool* taken);

// Deletes the file and gives the lock up. Null is ignored.
void LockRelease(FileLock* lock);

}   // namespace pal
