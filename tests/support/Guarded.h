// Memory with a page on either side that must not be touched: an access outside dies at once.
#pragma once

#include <cstddef>

#include "kq/types.h"

namespace kqtest {

// `size` bytes that end at the guard behind them (`atEnd`) or start at the guard before them; undefined contents.
class Guarded {
public:
    Guarded(size_t size, bool atEnd);
    ~Guarded();
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    u8* Data() const { return data_; }
    size_t Size() const { return size_; }

private:
    u8* data_;
    size_t size_;
    void* whole_;
    size_t wholeSize_;
};

}   // namespace kqtest
