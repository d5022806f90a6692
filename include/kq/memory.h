// The memory manager: a first-fit heap in address order on large chunks of the platform's memory.
//
// Two forms exist of both calls. With the caller's source file and line a block has guard words on both sides, fresh
// memory is filled with a pattern that flips at every free, and damage and leaks are reported with that file and
// line; without them the block is bare. Any thread may call, once InitKQ has returned.
#pragma once

#include "kq/lists.h"
#include "kq/types.h"

struct KQMemoryChunk;

// Flags of AllocMemoryKQ.
enum : u32 {
    KQMEM_Clear = 1,     // return zeroed memory
    KQMEM_Guarded = 2,   // guard areas around the block; forced on by the form with file and line, off by the other
    KQMEM_Freed = 4,     // internal: this header is free
};

// AvailableMemoryKQ: physical memory alone.
inline constexpr u32 KQMEM_Physical = 16;

// The header in front of each block of a chunk. Public because leak and corruption tools read it.
struct KQBlockHeader {
    KQBlockHeader* Succ;    // links in the chunk's list of allocated, or of free, blocks
    KQBlockHeader* Pred;
    u8* Data;               // the first byte behind this header
    size_t Size;            // bytes of the data area, guards included
    KQMemoryChunk* Chunk;   // the chunk that owns the block
    u32 Flags;              // KQMEM_ flags
    const char* File;       // the caller's source file, or "Unknown"
    i32 Line;               // the caller's line, or 0
};

// Allocates `size` bytes (0 is valid) with guards; `file` is kept as a pointer and must outlive the block. Returns
// memory aligned to 8 bytes, that of a chunk of its own to 64, to be freed with FreeMemoryKQ; null and `Error` 1 when
// out of memory.
KQ_API void* AllocMemoryKQ(size_t size, u32 flags, const char* file, i16 line);

// The same without guards, file "Unknown", line 0.
KQ_API void* AllocMemoryKQ(size_t size, u32 flags);

// Frees a block of either form. Null is ignored. A pointer that is no live block of this heap, a second free and
// damaged guards are reported through the user channel with the place named here or kept in the block's header.
KQ_API void FreeMemoryKQ(void* block, const char* file, i16 line);

// The same with file "Unknown", line 0.
KQ_API void FreeMemoryKQ(void* block);

// Available physical memory plus available page file, in bytes; with KQMEM_Physical the physical memory alone.
KQ_API u64 AvailableMemoryKQ(u32 flags);
