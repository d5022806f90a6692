// What needs no platform: the memory form of a file, big-endian integers and lines of text.
#define KQ_MODULE "Source/DOS"
#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "kq/environment.h"
#include "kq/files.h"

KQFileInfo* OpenFileinMemoryKQ(u8* block, i64 length, u32 permission) {
    if (!block) return nullptr;
    KQFileInfo* file = KQ_NEW(KQFileInfo);
    if (!file) return nullptr;
    file->Permission = permission;
    file->MemStart = file->MemCursor = block;
    file->MemEnd = block + std::max<i64>(length, 0);
    KQEnv->Error = KQERR_NONE;
    return file;
}

int FPutStringKQ(KQFileInfo* file, const char* text) {
    if (!file || !text) return 0;
    char* line = KQEnv->ScratchPath;
    size_t length = std::strlen(text);
    if (length > sizeof KQEnv->ScratchPath - 3) {
        KQEnv->Error = KQERR_WRITE;
        return 0;
    }
    std::memmove(line, text, length);
    std::memcpy(line + length, "\r\n", 3);
    return WriteFileKQ(file, line, length + 2);
}

namespace {

// Reads one line, which may be empty; false at the end of the file. The NUL goes over a CR or LF; otherwise one place
// behind the reading position, so that a line without such an end keeps one more byte of what the buffer held.
bool ReadLine(KQFileInfo* file, char* buffer, u32 size) {
    u32 at = 0;
    for (; at < size; ++at) {
        if (!ReadFileKQ(file, buffer + at, 1)) {
            if (at == 0) return false;
            break;
        }
        if (buffer[at] == '\r' || buffer[at] == '\n') {
            buffer[at] = 0;
            return true;
        }
        if (buffer[at] == 0) break;
    }
    buffer[at + 1] = 0;
    return true;
}

}   // namespace

char* FGetStringKQ(KQFileInfo* file, char* buffer, u32 size) {
    if (!file || size == 0) return nullptr;
    do
        if (!ReadLine(file, buffer, size)) return nullptr;
    while (buffer[0] == 0);
    KQEnv->Error = KQERR_NONE;
    return buffer;
}

int PutLongKQ(KQFileInfo* file, i32 value) {
    u32 v = u32(value);
    u8 bytes[4] = {u8(v >> 24), u8(v >> 16), u8(v >> 8), u8(v)};
    return WriteFileKQ(file, bytes, 4);
}

int PutShortKQ(KQFileInfo* file, i16 value) {
    u16 v = u16(value);
    u8 bytes[2] = {u8(v >> 8), u8(v)};
    return WriteFileKQ(file, bytes, 2);
}

int GetULongKQ(KQFileInfo* file, u32* value) {
    u8 b[4] = {};
    if (!ReadFileKQ(file, b, 4)) return 0;
    *value = u32(b[0]) << 24 | u32(b[1]) << 16 | u32(b[2]) << 8 | b[3];
    return 1;
}

int GetUShortKQ(KQFileInfo* file, u16* value) {
    u8 b[2] = {};
    if (!ReadFileKQ(file, b, 2)) return 0;
    *value = u16(b[0] << 8 | b[1]);
    return 1;
}

int GetLongKQ(KQFileInfo* file, i32* value) {
    u32 word;
    if (!GetULongKQ(file, &word)) return 0;
    *value = i32(word);
    return 1;
}

int GetShortKQ(KQFileInfo* file, i16* value) {
    u16 word;
    if (!GetUShortKQ(file, &word)) return 0;
    *value = i16(word);
    return 1;
}
