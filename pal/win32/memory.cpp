// Large blocks, named file mappings and the memory status on Windows.
#include "pal/memory.h"

#include <atomic>

#include <windows.h>

#include "pal/allocate.h"
#include "pal/blockcache.h"
#include "pal/win32/wide.h"

namespace pal {

namespace {

std::atomic<i64> blocksOut{0};
BlockCache cache;

struct Shared {
    HANDLE mapping;
    void* view;
};

HANDLE MakeMapping(const char* name, size_t bytes) {
    DWORD high = DWORD(u64(bytes) >> 32), low = DWORD(bytes);
    if (!name) return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, high, low, nullptr);
    Wide wide(name);
    if (!wide) return nullptr;
    return CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, high, low, wide.Get());
}

void* MapBlock(size_t length) { return VirtualAlloc(nullptr, length, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE); }

void UnmapBlock(BlockCache::Block block) { VirtualFree(block.place, 0, MEM_RELEASE); }

// Gives all kept blocks back; whether there was one.
bool EmptyCache() {
    bool any = false;
    for (BlockCache::Block block; cache.TakeAny(&block); any = true) UnmapBlock(block);
    return any;
}

}   // namespace

void* BlockAlloc(size_t bytes) {
    size_t length = BlockCache::Round(bytes);
    if (length < bytes) return nullptr;
    void* block = cache.Take(length);
    if (!block) block = MapBlock(length);
    if (!block && EmptyCache()) block = MapBlock(length);
    if (block) ++blocksOut;
    return block;
}

void BlockFree(void* block, size_t bytes) {
    if (!block) return;
    BlockCache::Block back[BlockCache::kMostLarge];
    int count = cache.Keep({block, BlockCache::Round(bytes)}, back);
    for (int i = 0; i < count; ++i) UnmapBlock(back[i]);
    if (--blocksOut == 0) EmptyCache();   // nobody uses the library any more
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

void* SharedOpen(const char* name, size_t bytes, void** view) {
    auto* shared = AllocateRecord<Shared>();
    if (!shared) return nullptr;
    if (bytes == 0) bytes = 1;
    shared->mapping = MakeMapping(name, bytes);
    if (shared->mapping) shared->view = MapViewOfFile(shared->mapping, FILE_MAP_ALL_ACCESS, 0, 0, bytes);
    if (!shared->view) {
        // A mapping that cannot be viewed stays open: its name is taken as long as this process lives.
        Free(shared);
        return nullptr;
    }
    *view = shared->view;
    return shared;
}

void SharedClose(void* handle) {
    auto* shared = static_cast<Shared*>(handle);
    if (!shared) return;
    UnmapViewOfFile(shared->view);
    CloseHandle(shared->mapping);
    Free(shared);
}

}   // namespace pal
