// Shared libraries by LoadLibraryW. A library finds those that it needs beside itself first.
#include "pal/module.h"

#include <cstdio>

#include <windows.h>

#include "pal/win32/wide.h"

namespace pal {

namespace {

HMODULE Load(const wchar_t* path) {
    wchar_t full[1024];
    DWORD length = GetFullPathNameW(path, 1024, full, nullptr);
    if (length == 0 || length >= 1024) return LoadLibraryW(path);
    return LoadLibraryExW(full, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

}   // namespace

Module* ModuleOpen(const char* path, char* reason, size_t size) {
    *reason = 0;
    Wide wide(path);
    HMODULE handle = wide ? Load(wide.Get()) : nullptr;
    if (!handle) std::snprintf(reason, size, "the system's error is %lu", static_cast<unsigned long>(GetLastError()));
    return reinterpret_cast<Module*>(handle);
}

void* ModuleSymbol(Module* module, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(module), name));
}

void ModuleClose(Module* module) {
    if (module) FreeLibrary(reinterpret_cast<HMODULE>(module));
}

}   // namespace pal
