// Faces of collections. Asked for a face of one, the system gives the bytes from the face's directory to the end of the
// file, with offsets that count from the file's beginning: only the whole file can be used, and the difference of the
// lengths tells where the face is.
#include "pal/win32/fontbytes.h"

#include <cstring>

namespace pal {

namespace {

u32 Big32(const u8* at) { return u32(at[0]) << 24 | u32(at[1]) << 16 | u32(at[2]) << 8 | at[3]; }

}   // namespace

bool FindFace(const u8* bytes, size_t length, size_t faceLength, size_t* directory) {
    *directory = 0;
    if (length < 12 || std::memcmp(bytes, "ttcf", 4) != 0) return true;
    if (faceLength > length) return false;
    size_t place = length - faceLength, faces = Big32(bytes + 8);
    for (size_t i = 0; i < faces && 12 + i * 4 + 4 <= length; ++i) {
        if (Big32(bytes + 12 + i * 4) != place) continue;
        *directory = place;
        return true;
    }
    return false;
}

}   // namespace pal
