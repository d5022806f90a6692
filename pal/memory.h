// Large blocks, named shared memory and the memory status of the host.
#pragma once

#include "kq/types.h"

namespace pal {

// What the address of every block is a multiple of. No two blocks share a stretch of memory of this size and alignment.
inline constexpr size_t kBlockAlignment = 65536;

// A block of at least `bytes`, contents undefined. Null when the host has none. From any thread.
void* BlockAlloc(size_t bytes);

// Gives a block back. `bytes` is what BlockAlloc was called with. Null is ignored. Some blocks are kept for the next
// BlockAlloc, up to 96 MB of them, until the last block that is out comes back or memory is short. From any thread.
void BlockFree(void* block, size_t bytes);

// Blocks that are out at present, for tests that look for leaks.
i64 BlocksOut();

struct MemoryStatus {
    u32 percentInUse;   // of the physical memory
    u64 physicalTotal, physicalFree;   // bytes
    u64 pageTotal, pageFree;           // bytes of page file or swap
};

// Fills `status`; false when the host does not tell.
bool MemoryQuery(MemoryStatus* status);

// Maps `bytes` of memory (at least 1) shared between processes under `name`, making it zero-filled when it does not
// exist; a null name gives memory that nobody else finds. Returns a handle, null on failure (also when it exists and is
// smaller), with `*view` at the memory.
void* SharedOpen(const char* name, size_t bytes, void** view);

// Unmaps and closes; the memory goes with its last user.
void SharedClose(void* handle);

}   // namespace pal
