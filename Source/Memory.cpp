// Placeholder of the memory manager while its real form is built: counts and faults only.
#include "kq/memory.h"

#include <cstdlib>
#include <cstring>

#include "Source/Faults.h"
#include "kq/environment.h"

void* AllocMemoryKQ(size_t size, u32 flags, const char*, i16) {
    void* block = kq::AllocationFails() ? nullptr : std::malloc(size ? size : 1);
    if (!block) {
        KQEnv->Error = KQERR_NOMEM;
        return nullptr;
    }
    if (flags & KQMEM_Clear) std::memset(block, 0, size);
    ++KQEnv->AllocCount;
    return block;
}

void* AllocMemoryKQ(size_t size, u32 flags) { return AllocMemoryKQ(size, flags, "Unknown", 0); }

void FreeMemoryKQ(void* block, const char*, i16) {
    if (!block) return;
    ++KQEnv->FreeCount;
    std::free(block);
}

void FreeMemoryKQ(void* block) { FreeMemoryKQ(block, "Unknown", 0); }

u64 AvailableMemoryKQ(u32) { return 0; }
