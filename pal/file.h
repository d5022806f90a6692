// Files and folders of the host. Paths are UTF-8; on Windows they become UTF-16 here and nowhere else.
//
// Each call that fails leaves a code for FileError in the calling thread. Nothing here is locked: a File belongs to
// one thread at a time.
#pragma once

#include <cstdio>

#include "kq/types.h"

namespace pal {

// An open disk file; opaque, made by FileOpen and ended by FileClose.
struct File;

// What a file is opened for. Read shares with other readers; the others share with nobody. Windows keeps everybody to
// that; on POSIX it binds the files that are open here, in this process and others, and no other program. What is no
// regular file is not claimed.
enum class Access { Read, Write, ReadWrite };

// Opens an existing file. Null on failure; a folder is a failure.
File* FileOpen(const char* path, Access access);

// Creates the file, or empties one that exists. Null on failure.
File* FileCreate(const char* path, Access access);

// Closes and frees. False when the host reported a fault, which for a written file can mean lost data.
bool FileClose(File* file);

// Reads up to `count` bytes, fewer only at the end of the file. Returns the bytes read, or -1.
i64 FileRead(File* file, void* buffer, size_t count);

// Writes all `count` bytes; false on failure, after which the position is undefined.
bool FileWrite(File* file, const void* buffer, size_t count);

// The position in bytes from the start, or -1.
i64 FileTell(File* file);

// Where FileSeek counts from.
enum class Origin { Start, Current, End };

// Moves the position, which may lie behind the end. Returns the new position, or -1.
i64 FileSeek(File* file, i64 offset, Origin origin);

// Reads up to `count` bytes from `offset` on, fewer only at the end of the file. Returns the bytes read, or -1. The
// position afterwards is undefined.
i64 FileReadAt(File* file, i64 offset, void* buffer, size_t count);

// The length in bytes, or -1.
i64 FileLength(File* file);

// Cuts the file to `length` bytes; false on failure. The position afterwards is undefined.
bool FileCut(File* file, i64 length);

// Puts what was written on the medium; false on failure.
bool FileFlush(File* file);

// Deletes a file; false on failure.
bool FileDelete(const char* path);

// Renames `from` to `to`, replacing what stands there in one step; false on failure, with both left as they were.
bool FileReplace(const char* from, const char* to);

// What is known of a path without opening it. A link tells of its target.
struct FileStatus {
    bool folder;
    i64 length;     // bytes; 0 for a folder
    i64 modified;   // seconds since 1970-01-01 UTC
};

// Fills `status` (may be null: existence alone); false when the path does not exist or cannot be asked.
bool FileQuery(const char* path, FileStatus* status);

// Makes a folder; false on failure, also when it exists.
bool FolderCreate(const char* path);

// Removes an empty folder, or a link to a folder; false on failure.
bool FolderRemove(const char* path);

// A walk over a folder's entries, in the host's order; opaque.
struct FolderWalk;

// One entry. `name` is valid until the next call on the walk.
struct FolderEntry {
    const char* name;
    bool folder;   // a real folder, not a link to one
    bool link;     // a symbolic link or junction
};

// Begins a walk; null when the folder cannot be read or memory is short.
FolderWalk* FolderOpen(const char* path);

// The next entry, "." and ".." included; false at the end.
bool FolderNext(FolderWalk* walk, FolderEntry* entry);

// Ends the walk; null is ignored.
void FolderClose(FolderWalk* walk);

// The KQERR_ code for the last failure of a call of this header in this thread; 0 when the host's reason is none that
// the library has a code for.
u32 FileError();

// The same for a number of the host's own: errno on POSIX, the last error on Windows.
u32 ErrorCode(u32 hostError);

// Creates or empties a text file, whose lines end as the host ends them; null on failure, without a code for FileError.
// Closed by std::fclose.
std::FILE* TextCreate(const char* path);

// The separator that paths made by the library use.
char Separator();

// True when `/` alone separates a path that holds one.
bool SlashPaths();

}   // namespace pal
