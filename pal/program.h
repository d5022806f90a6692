// The running program and its surroundings.
#pragma once

#include "kq/types.h"

namespace pal {

// Writes the full path of the executable, zero-ended, cut at `size` - 1 bytes; an empty text when the host does not
// tell it.
void ProgramPath(char* buffer, size_t size);

// Processors that this process may use, at least 1.
i32 ProcessorCount();

// Copies the environment variable `name`; false when it is not set or does not fit, with `buffer` an empty text.
bool EnvironmentVariable(const char* name, char* buffer, size_t size);

// Writes `text` and a line end to standard error in one piece.
void ErrorLine(const char* text);

// Stops in the debugger, or ends the program when there is none.
void BreakIntoDebugger();

// Milliseconds of a clock that never goes back; wraps after 49 days.
u32 MillisecondClock();

}   // namespace pal
