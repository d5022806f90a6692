// Links of the file system.
#include "pal/win32/links.h"

#include <cwchar>

namespace pal {

bool IsLink(DWORD attributes, DWORD tag) {
    if (attributes == INVALID_FILE_ATTRIBUTES || !(attributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
    return tag == 0 || tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT;
}

wchar_t* PlainPath(wchar_t* full) {
    if (std::wcsncmp(full, L"\\\\?\\", 4) != 0) return full;
    if (std::wcsncmp(full + 4, L"UNC\\", 4) != 0) return full + 4;
    full[6] = L'\\';   // the share's path begins with two
    return full + 6;
}

}   // namespace pal
