// Files: disk files and blocks of memory behind one handle, with big-endian integers and lines of text.
//
// Creating, opening, reading and writing leave their code in `Error`: a pessimistic one before they try, 0 when they
// have succeeded (CreateFileKQ alone leaves KQERR_CREATE even on success), the platform's reason when that is known.
// The other calls but the seek write `Error` only when they fail and the platform gives a known reason. A null handle
// gives 0 or null at once and leaves `Error` alone. There is no buffering: each call is one call of the platform. A
// handle belongs to one thread at a time.
#pragma once

#include "kq/types.h"

// What a file is opened for. Sharing is between opens of this library, in this process and in others; on Windows other
// programs are held to it as well. An open that is excluded fails with KQERR_ACCESS, and a create then leaves the file
// as it is. Only regular files are kept.
enum KQFilePermission : u32 {
    KQFILE_Read = 0,        // reading, shared with other readers
    KQFILE_Write = 1,       // writing, not shared
    KQFILE_ReadWrite = 2,   // both, not shared
};

// An open file. The caller owns it from open to CloseFileKQ.
struct KQFileInfo {
    u32 Permission;   // KQFilePermission
    u8* MemStart;     // first byte of the memory block; null for a disk file, which alone tells the two apart
    u8* MemEnd;       // one past the last byte of the block
    u8* MemCursor;    // next byte to be read or written
    void* Handle;     // platform handle; null for a memory file
};

// Where SeekFileKQ counts from.
enum : u16 {
    KQSEEK_Start = 0,
    KQSEEK_Current = 1,
    KQSEEK_End = 2,
};

// Creates or empties the file `name`. `type` and `creator` are accepted and ignored. Null on failure.
KQ_API KQFileInfo* CreateFileKQ(const char* name, u32 permission, u32 type, u32 creator);

// Opens the existing file `name`. Null on failure or for a null name.
KQ_API KQFileInfo* OpenFileKQ(const char* name, u32 permission);

// Reads and writes `length` bytes at `block`, which stays the caller's and never grows. Null for a null block; a length
// below 0 counts as 0.
KQ_API KQFileInfo* OpenFileinMemoryKQ(u8* block, i64 length, u32 permission);

// Closes and frees the handle; null is ignored. Returns non-zero when the platform closed the file without a fault: a
// writer that must not lose data looks.
KQ_API int CloseFileKQ(KQFileInfo* file);

// Reads up to `count` bytes; non-zero on success. A disk file that delivers at least one byte succeeds, and the count
// is not told; none at all fails with KQERR_READ. A memory file gives all or nothing.
KQ_API int ReadFileKQ(KQFileInfo* file, void* buffer, size_t count);

// Writes `count` bytes; non-zero on success. A memory file takes all or nothing, whatever its permission.
KQ_API int WriteFileKQ(KQFileInfo* file, const void* buffer, size_t count);

// Moves to `offset` from the start, the present position or the end, and returns the position before the move. On a
// memory file KQSEEK_End lands one byte earlier than on disk: offset 0 is the last byte; targets are held to the block.
KQ_API u64 SeekFileKQ(KQFileInfo* file, i64 offset, u16 mode);

// The length in bytes.
KQ_API i64 GetFileLengthKQ(KQFileInfo* file);

// Deletes the file `name`; non-zero on success.
KQ_API int DeleteFileKQ(const char* name);

// Non-zero when `name` exists, file or folder.
KQ_API int FileExistsKQ(const char* name);

// Makes the folder `name`; non-zero on success. A null name gives 1.
KQ_API int CreateDirKQ(const char* name);

// Deletes the folder `name` with all that is in it; non-zero when the folder itself could be removed. A link to a
// folder is removed, not followed. A null name gives 1, and so does a lack of memory; an empty name gives 0.
KQ_API int DeleteDirKQ(const char* name);

// Writes `text` (at most 253 bytes) and CR LF in one write; non-zero on success.
KQ_API int FPutStringKQ(KQFileInfo* file, const char* text);

// Reads a line without its end (CR, LF or NUL), skipping empty lines; null at the end of the file. `size` must leave
// two bytes of the buffer to spare, and the caller clears the buffer first: a line that ends with the file, or is cut
// by `size`, is followed by one byte of what the buffer held before its NUL.
KQ_API char* FGetStringKQ(KQFileInfo* file, char* buffer, u32 size);

// Write 4 or 2 bytes, most significant first; non-zero on success.
KQ_API int PutLongKQ(KQFileInfo* file, i32 value);

// See PutLongKQ.
KQ_API int PutShortKQ(KQFileInfo* file, i16 value);

// Read 4 or 2 bytes, most significant first; non-zero on success, else `*value` is left alone.
KQ_API int GetLongKQ(KQFileInfo* file, i32* value);

// See GetLongKQ.
KQ_API int GetShortKQ(KQFileInfo* file, i16* value);

// See GetLongKQ.
KQ_API int GetULongKQ(KQFileInfo* file, u32* value);

// See GetLongKQ.
KQ_API int GetUShortKQ(KQFileInfo* file, u16* value);
