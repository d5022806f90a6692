// What stands on the plain file calls alone: big-endian integers and lines of text.
#define KQ_MODULE "Source/DOS"
#include <cstring>

#include "kq/environment.h"
#include "kq/files.h"

int FPutStringKQ(KQFileInfo* file, const char* text) {
    if (!file || !text) return 0;
    char* line = KQEnv->ScratchPath;
    size_t length = std::strlen(text);
    if (length > sizeof KQEnv->ScratchPath - 3) return 0;
    std::memmove(line, text, length);
    std::memcpy(line + length, "\r\n", 3);
    return WriteFileKQ(file, line, length + 2);
}

char* FGetStringKQ(KQFileInfo* file, char* buffer, u32 size) {
    if (!file) return nullptr;
    for (;;) {
        u32 at = 0;
        bool ended = false;
        while (at < size && !ended) {
            if (!ReadFileKQ(file, buffer + at, 1)) {
                if (at == 0) return nullptr;
                break;
            }
            char c = buffer[at];
            if (c == '\r' || c == '\n' || c == 0)
                ended = true;
            else
                ++at;
        }
        buffer[ended ? at : at + 1] = 0;
        if (buffer[0] != 0) break;
    }
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
