// The running program on POSIX.
#include "pal/program.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include <sched.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

namespace pal {

void ProgramPath(char* buffer, size_t size) {
    ssize_t length = readlink("/proc/self/exe", buffer, size - 1);
    buffer[length > 0 ? length : 0] = 0;
}

i32 ProcessorCount() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
    long count = sysconf(_SC_NPROCESSORS_ONLN);
    return count > 0 ? i32(count) : 1;
}

bool EnvironmentVariable(const char* name, char* buffer, size_t size) {
    buffer[0] = 0;
    const char* value = std::getenv(name);
    if (!value || std::strlen(value) >= size) return false;
    std::strcpy(buffer, value);
    return true;
}

void ErrorLine(const char* text) {
    iovec parts[2] = {{const_cast<char*>(text), std::strlen(text)}, {const_cast<char*>("\n"), 1}};
    [[maybe_unused]] ssize_t written = writev(2, parts, 2);
}

void BreakIntoDebugger() { std::raise(SIGTRAP); }

u32 MillisecondClock() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return u32(u64(now.tv_sec) * 1000 + u64(now.tv_nsec) / 1000000);
}

}   // namespace pal
