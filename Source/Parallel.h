// Rows of pixels shared by the processors.
#pragma once

#include "kq/types.h"

namespace kq {

// Does rows `top` to `bottom`, the last not included.
using RangeRoutine = void (*)(i64 top, i64 bottom, const void* data);

// Runs `routine` over rows 0 to `rows`: on all processors when they write enough bytes to pay for that and the
// calling thread may use them, else in the calling thread.
void ShareRows(RangeRoutine routine, const void* data, i64 rows, i64 bytes);

// Notes that the calling thread is the library's own, which alone may use all processors, or that it is so no longer.
void NoteOwnThread(bool own);

}   // namespace kq
