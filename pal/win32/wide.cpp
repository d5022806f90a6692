// UTF-8 to UTF-16 and back.
#include "pal/win32/wide.h"

#include <windows.h>

#include "pal/allocate.h"

namespace pal {

Wide::Wide(const char* text) : text_(small_) {
    int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (length > int(sizeof small_ / sizeof small_[0])) text_ = static_cast<wchar_t*>(Allocate(size_t(length) * 2));
    if (!text_) error_ = ERROR_NOT_ENOUGH_MEMORY;
    if (length <= 0) {
        text_ = nullptr;
        error_ = ERROR_PATH_NOT_FOUND;
    }
    if (text_) MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, -1, text_, length);
}

Wide::~Wide() {
    if (text_ != small_) Free(text_);
}

bool Narrow(const wchar_t* wide, char* buffer, size_t size) {
    if (WideCharToMultiByte(CP_UTF8, 0, wide, -1, buffer, int(size), nullptr, nullptr) > 0) return true;
    if (size > 0) buffer[0] = 0;
    return false;
}

}   // namespace pal
