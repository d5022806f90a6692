// Large blocks, named file mappings and the memory status on Windows.
#include "pal/memory.h"

#include <atomic>

#include <windows.h>

#include "pal/blockcache.h"

namespace pal {

namespace {

std::atomic<i64> blocksOut{0};
BlockCache cache;

}   // namespace

void* BlockAlloc(size_t bytes) {
    size_t length = BlockCache::Round(bytes);
    if (length < bytes) return nullptr;
    void* block = length == BlockCache::kBytes ? cache.Take() : nullptr;
    if (!block) block = VirtualAlloc(nullptr, length, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (block) ++blocksOut;
    return block;
}

void BlockFree(void* block, size_t bytes) {
    if (!block) return;
    --blocksOut;
    if (BlockCache::Round(bytes) != BlockCache::kBytes || !cache.Keep(block)) VirtualFree(block, 0, MEM_RELEASE);
}

i64 BlocksOut() { return blocksOut; }

bool MemoryQuery(MemoryStatus* status) {
    MEMORYSTATUSEX memory;
    memory.dwLength = sizeof memory;
    if (!GlobalMemoryStatusEx(&memory)) return false;
    status->percentInUse = memory.dwMemoryLoad;
    status->physicalTotal = memory.ullTotalPhys;
    status->physicalFree = memory.ullAvailPhys;
    status->pageTotal = memory.ullTotalPageFile;
    status->pageFree = memory.ullAvailPageFile;
    return true;
}

void* SharedOpen(const char*, size_t, void**) { return nullptr; }

void SharedClose(void*) {}

}   // namespace pal
