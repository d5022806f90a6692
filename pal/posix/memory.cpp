// Large blocks straight from the kernel, POSIX shared memory, and the memory status from /proc.
#include "pal/memory.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "pal/blockcache.h"

namespace pal {

namespace {

std::atomic<i64> blocksOut{0};
BlockCache cache;

struct Shared {
    void* view;
    size_t bytes;
    char name[256];
};

void* Map(size_t length) {
    void* block = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : block;
}

size_t Misaligned(const void* block) { return reinterpret_cast<uptr>(block) % kBlockAlignment; }

// The kernel places maps side by side, and all of ours are multiples of the alignment long: the plain map is nearly
// always aligned. Otherwise a longer one is cut on both sides.
void* MapAligned(size_t length) {
    void* block = Map(length);
    if (!block || !Misaligned(block)) return block;
    munmap(block, length);
    if (length > SIZE_MAX - kBlockAlignment) return nullptr;
    u8* longer = static_cast<u8*>(Map(length + kBlockAlignment));
    if (!longer) return nullptr;
    size_t front = kBlockAlignment - Misaligned(longer);
    munmap(longer, front);
    if (front < kBlockAlignment) munmap(longer + front + length, kBlockAlignment - front);
    return longer + front;
}

}   // namespace

void* BlockAlloc(size_t bytes) {
    size_t length = BlockCache::Round(bytes);
    if (length < bytes) return nullptr;
    void* block = length == BlockCache::kBytes ? cache.Take() : nullptr;
    if (!block) block = MapAligned(length);
    if (block) ++blocksOut;
    return block;
}

void BlockFree(void* block, size_t bytes) {
    if (!block) return;
    --blocksOut;
    size_t length = BlockCache::Round(bytes);
    if (length != BlockCache::kBytes || !cache.Keep(block)) munmap(block, length);
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
