// Large blocks straight from the kernel, POSIX shared memory, and the memory status from /proc.
#include "pal/memory.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pal {

namespace {

std::atomic<i64> blocksOut{0};

struct Shared {
    void* view;
    size_t bytes;
    char name[256];
};

}   // namespace

void* BlockAlloc(size_t bytes) {
    void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) return nullptr;
    ++blocksOut;
    return block;
}

void BlockFree(void* block, size_t bytes) {
    if (!block) return;
    --blocksOut;
    munmap(block, bytes);
}

i64 BlocksOut() { return blocksOut; }

bool MemoryQuery(MemoryStatus* status) {
    std::FILE* file = std::fopen("/proc/meminfo", "r");
    if (!file) return false;
    *status = {};
    char line[128];
    u64 available = 0;
    while (std::fgets(line, sizeof line, file)) {
        unsigned long long kilobytes;
        if (std::sscanf(line, "MemTotal: %llu", &kilobytes) == 1) status->physicalTotal = kilobytes * 1024;
        if (std::sscanf(line, "MemAvailable: %llu", &kilobytes) == 1) available = kilobytes * 1024;
        if (std::sscanf(line, "SwapTotal: %llu", &kilobytes) == 1) status->pageTotal = kilobytes * 1024;
        if (std::sscanf(line, "SwapFree: %llu", &kilobytes) == 1) status->pageFree = kilobytes * 1024;
    }
    std::fclose(file);
    status->physicalFree = available;
    if (status->physicalTotal > 0)
        status->percentInUse = u32(100 * (status->physicalTotal - available) / status->physicalTotal);
    return status->physicalTotal > 0;
}

void* SharedOpen(const char*, size_t, void**) { return nullptr; }

void SharedClose(void*) {}

}   // namespace pal
