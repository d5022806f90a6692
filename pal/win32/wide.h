// UTF-8 to UTF-16 and back, at the border to Windows.
#pragma once

#include "kq/types.h"

namespace pal {

// `text` as UTF-16 in a buffer of its own, of any length; null when out of memory or when it is no valid UTF-8.
class Wide {
public:
    explicit Wide(const char* text);
    ~Wide();
    Wide(const Wide&) = delete;
    Wide& operator=(const Wide&) = delete;

    explicit operator bool() const { return text_ != nullptr; }

    const wchar_t* Get() const { return text_; }

private:
    wchar_t* text_;
    wchar_t small_[280];
};

// Writes `wide` as UTF-8; false, with an empty text, when it does not fit `size` bytes.
bool Narrow(const wchar_t* wide, char* buffer, size_t size);

}   // namespace pal
