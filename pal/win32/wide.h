// UTF-8 to UTF-16 and back, at the border to Windows.
#pragma once

#include "kq/types.h"

namespace pal {

// `text` as UTF-16 in a buffer of its own, of any length; null when out of memory or when it is no valid UTF-8, which
// `Error` tells apart.
class Wide {
public:
    explicit Wide(const char* text);
    ~Wide();
    Wide(const Wide&) = delete;
    Wide& operator=(const Wide&) = delete;

    explicit operator bool() const { return text_ != nullptr; }

    const wchar_t* Get() const { return text_; }

    // The system's error number for what went wrong: out of memory, or a name that cannot be. 0 when nothing did.
    unsigned long Error() const { return error_; }

private:
    wchar_t* text_;
    unsigned long error_ = 0;
    wchar_t small_[280];
};

// Writes `wide` as UTF-8; false, with an empty text, when it does not fit `size` bytes.
bool Narrow(const wchar_t* wide, char* buffer, size_t size);

}   // namespace pal
