// What format modules need of an open file beyond the public calls: reads at a stated place that tell how many bytes
// came, and taking back what a failed write left behind.
#pragma once

#include "kq/files.h"

namespace kq {

// Reads up to `count` bytes from `offset` on. Returns the bytes read, fewer only at the end of the file; 0 when there
// are none and -1 on failure, both with `Error` as ReadFileKQ leaves it. The position afterwards is undefined.
i64 ReadFileAt(KQFileInfo* file, i64 offset, void* buffer, size_t count);

// Moves to `position` and makes sure: non-zero when the file stands there. A writer must not go on elsewhere.
inline int MoveTo(KQFileInfo* file, i64 position) {
    SeekFileKQ(file, position, KQSEEK_Start);
    return SeekFileKQ(file, 0, KQSEEK_Current) == u64(position);
}

// Cuts a disk file to `length` bytes and moves to its end; non-zero on success. `Error` is left alone, so that it
// keeps the reason for which the tail is taken back.
int CutFile(KQFileInfo* file, i64 length);

}   // namespace kq
