// The running program on Windows.
#include "pal/program.h"

#include <cstdio>
#include <cstring>

#include <windows.h>

#include "pal/win32/wide.h"

namespace pal {

void ProgramPath(char* buffer, size_t size) {
    wchar_t path[1024];
    char narrow[3 * 1024];
    DWORD length = GetModuleFileNameW(nullptr, path, 1024);
    if (length == 0 || length >= 1024 || !Narrow(path, narrow, sizeof narrow)) narrow[0] = 0;
    size_t count = std::strlen(narrow);
    if (count >= size) count = size - 1;
    std::memcpy(buffer, narrow, count);
    buffer[count] = 0;
}

i32 ProcessorCount() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwNumberOfProcessors > 0 ? i32(info.dwNumberOfProcessors) : 1;
}

bool EnvironmentVariable(const char* name, char* buffer, size_t size) {
    buffer[0] = 0;
    wchar_t value[1024];
    Wide wide(name);
    DWORD length = wide ? GetEnvironmentVariableW(wide.Get(), value, 1024) : 0;
    return length > 0 && length < 1024 && Narrow(value, buffer, size);
}

void ErrorLine(const char* text) {
    std::fprintf(stderr, "%s\n", text);
    std::fflush(stderr);
}

void BreakIntoDebugger() { DebugBreak(); }

u32 MillisecondClock() { return GetTickCount(); }

}   // namespace pal
