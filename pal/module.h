// Shared libraries that are loaded while the program runs.
#pragma once

#include "kq/types.h"

namespace pal {

// A loaded library; opaque. The host counts the loads of one file.
struct Module;

// Loads the library `path` with all that it needs. Null on failure, with the host's reason in `reason` (cut at `size`,
// which is above 0).
Module* ModuleOpen(const char* path, char* reason, size_t size);

// The address of the exported `name`, or null.
void* ModuleSymbol(Module* module, const char* name);

// Gives one load back; the code is gone with the last. Null is ignored.
void ModuleClose(Module* module);

}   // namespace pal
