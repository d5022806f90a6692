// What the tool asks of its host. Each host answers in a file of its own: posix/Host.cpp and win32/Host.cpp.
#pragma once

#include <string>

namespace kqclip {

// Whether standard error is a terminal that a line can be rewritten on.
bool ErrorsGoToTerminal();

// The number of this process, and whether a process of that number runs on this machine.
long ProcessNumber();
bool ProcessRuns(long number);

// The machine's name, letters, digits and '_' only; never empty.
std::string MachineName();

// Makes Control-C, and the wish of the system that the program ends, call `note`, which only sets a flag. A reader that
// goes away (a closed pipe) becomes a failed write.
void OnStopWish(void (*note)(int));

}   // namespace kqclip
