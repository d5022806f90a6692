// What the tool asks of its host. Each host answers in a file of its own: posix/Host.cpp and win32/Host.cpp.
#pragma once

#include <filesystem>
#include <string>

namespace kqclip {

// Whether standard error is a terminal that a line can be rewritten on.
bool ErrorsGoToTerminal();

// The number of this process, and whether a process of that number runs on this machine.
long ProcessNumber();
bool ProcessRuns(long number);

// The machine's name, letters, digits and '_' only; never empty.
std::string MachineName();

// Whether the file or folder, or the link of that name, belongs to the user that the process runs for.
bool BelongsToUser(const std::filesystem::path& path);

// Whether standard output goes into a pipe: a write that fails there means that the reader has seen enough.
bool OutputIsPipe();

// Makes Control-C, and the wish of the system that the program ends, call `note`, which only sets a flag. A reader that
// goes away (a closed pipe) becomes a failed write.
void OnStopWish(void (*note)(int));

}   // namespace kqclip
