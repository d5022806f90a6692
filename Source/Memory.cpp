// The memory manager: allocation and release of blocks, guards and fills, alerts and the leak report.
//
// Each block has a header that names its caller, and lies in a chunk (MemoryChunk.h). With guards the data area is the
// caller's memory between two guard areas. Everything happens under MemoryLock, alerts included.
#include "kq/memory.h"

#include <cstdio>
#include <cstring>

#include "Source/Faults.h"
#include "Source/MemoryChunk.h"
#include "Source/Startup.h"
#include "Source/UserChannel.h"
#include "kq/environment.h"
#include "pal/file.h"
#include "pal/memory.h"
#include "pal/program.h"
#include "pal/thread.h"

namespace {

using kq::kHeaderBytes;

constexpr size_t kGuardWords = 16;
constexpr size_t kGuardBytes = kGuardWords * sizeof(u32);
constexpr u32 kFrontGuard = 0xABADCAFE;
constexpr u32 kBackGuard = 0xDEADBEEF;

// Holds the memory lock. There is none early in the start and late in the clean-up, when only one thread is there.
class MemoryLocked {
public:
    MemoryLocked() : region_(reinterpret_cast<pal::Region*>(KQEnv->MemoryLock)) {
        if (region_) pal::RegionEnter(region_);
    }
    ~MemoryLocked() {
        if (region_) pal::RegionExit(region_);
    }
    MemoryLocked(const MemoryLocked&) = delete;
    MemoryLocked& operator=(const MemoryLocked&) = delete;

private:
    pal::Region* region_;
};

// Shows an alert with the place that it names; an answer of "Cancel" stops in the debugger, where the fault was found.
void Alert(const char* format, const char* file, i32 line) {
    if (!kq::AskAlert(format, file ? file : "Unknown", line)) pal::BreakIntoDebugger();
}

u8* BehindBlock(const KQBlockHeader* header) { return header->Data + header->Size; }

KQBlockHeader* HeaderBehind(const KQBlockHeader* header) {
    return reinterpret_cast<KQBlockHeader*>(BehindBlock(header));
}

void LinkBlockBefore(KQBlockHeader* header, KQBlockHeader* next) {
    header->Succ = next;
    header->Pred = next->Pred;
    next->Pred->Succ = header;
    next->Pred = header;
}

void UnlinkBlock(KQBlockHeader* header) {
    header->Pred->Succ = header->Succ;
    header->Succ->Pred = header->Pred;
}

// ---- Allocation

// Takes `need` bytes off the free block, whole when the rest could not hold a header, and moves it to Blocks.
void TakeFree(KQBlockHeader* block, size_t need) {
    KQBlockHeader* next = HeaderBehind(block);
    if (block->Size - need >= kHeaderBytes) {
        size_t rest = block->Size - need - kHeaderBytes;
        kq::ReplaceFree(block, kq::WriteFreeHeader(block->Chunk, block->Data + need, rest));
        block->Size = need;
    } else {
        kq::UnlinkFree(block);
    }
    kq::LowerBound(block->Chunk);
    LinkBlockBefore(block, next);
}

// A block of `need` bytes at the start of a new chunk, which is as large as is usual, or smaller when memory is short.
// The halving ends at `need`.
KQBlockHeader* TakeFromNewChunk(size_t need) {
    size_t want = need > kq::kChunkData ? need : kq::kChunkData;
    KQMemoryChunk* chunk = kq::MakeChunk(want);
    while (!chunk) {
        want /= 2;
        if (want < need || want < kq::kLeastChunkData) return nullptr;
        chunk = kq::MakeChunk(want);
    }
    auto* block = reinterpret_cast<KQBlockHeader*>(chunk->Free.Head);
    TakeFree(block, need);
    return block;
}

// The rounded request, with guards when asked for; 0 when it leaves the range of sizes, *fits then false.
bool BytesNeeded(size_t size, u32 flags, size_t* need) {
    *need = (size + 7) & ~size_t(7);
    if (flags & KQMEM_Guarded) *need += 2 * kGuardBytes;
    return *need >= size;
}

void FillWords(u8* place, u32 word) {
    u32 words[kGuardWords];
    for (u32& w : words) w = word;
    std::memcpy(place, words, sizeof words);
}

// Guards and contents; returns the caller's pointer.
u8* Dress(KQBlockHeader* block) {
    u8* user = block->Data;
    size_t size = block->Size;
    if (block->Flags & KQMEM_Guarded) {
        FillWords(block->Data, kFrontGuard);
        FillWords(BehindBlock(block) - kGuardBytes, kBackGuard);
        user += kGuardBytes;
        size -= 2 * kGuardBytes;
    }
    if (block->Flags & KQMEM_Clear)
        std::memset(user, 0, size);
    else if (block->Flags & KQMEM_Guarded)
        std::memset(user, u8(KQEnv->FillToggle ^ 0xAA), size);
    return user;
}

void* Allocate(size_t size, u32 flags, const char* file, i32 line) {
    MemoryLocked locked;
    size_t need;
    KQBlockHeader* block = nullptr;
    if (!kq::AllocationFails() && BytesNeeded(size, flags, &need)) {
        block = kq::FindFree(need);
        if (block)
            TakeFree(block, need);
        else
            block = TakeFromNewChunk(need);
    }
    if (!block) {
        KQEnv->Error = KQERR_NOMEM;
        return nullptr;
    }
    block->File = file;
    block->Line = line;
    block->Flags = flags & ~KQMEM_Freed;
    ++KQEnv->AllocCount;
    ++block->Chunk->UseCount;
    return Dress(block);
}

// ---- Release

// The header at `address`, if that is where a header of one of our chunks can stand.
KQBlockHeader* HeaderAt(uptr address) {
    KQMemoryChunk* chunk = kq::ChunkAt(address);
    if (!chunk) return nullptr;
    size_t offset = address - reinterpret_cast<uptr>(chunk);
    if (offset < sizeof *chunk || offset > chunk->Bytes - kHeaderBytes) return nullptr;
    auto* header = reinterpret_cast<KQBlockHeader*>(address);
    bool ours = header->Chunk == chunk && reinterpret_cast<uptr>(header->Data) == address + kHeaderBytes;
    return ours ? header : nullptr;
}

// Finds the header by the word that holds its Data field, which is the pointer itself, or the guard area before it:
// the nearest such word of the 36 in front of the pointer counts. As Data points right behind its header, that word
// can only be the 6th before the pointer, or the 14th. Nothing but our own chunks is read.
KQBlockHeader* FindHeader(const void* pointer) {
    uptr user = reinterpret_cast<uptr>(pointer);
    if (user % 8) return nullptr;
    KQBlockHeader* header = HeaderAt(user - kHeaderBytes);
    return header ? header : HeaderAt(user - kGuardBytes - kHeaderBytes);
}

// Whether the header's links and size agree with those around it. A live block that does not was overwritten, or is
// no block but bytes that look like one.
bool StandsInChunk(const KQBlockHeader* header) {
    const u8* base = reinterpret_cast<const u8*>(header->Chunk);
    auto inside = [&](const void* place) {
        size_t offset = size_t(static_cast<const u8*>(place) - base);
        return offset >= sizeof(KQMemoryChunk) && offset <= header->Chunk->Bytes - kHeaderBytes && offset % 8 == 0;
    };
    if (!inside(header->Succ) || !inside(header->Pred)) return false;
    if (header->Succ->Pred != header || header->Pred->Succ != header) return false;
    const u8* next = reinterpret_cast<const u8*>(header->Succ);
    if (header->Size > size_t(next - header->Data)) return false;
    const KQBlockHeader* behind = HeaderBehind(header);
    if (behind == header->Succ) return true;
    return inside(behind) && (behind->Flags & KQMEM_Freed) && BehindBlock(behind) == next;
}

u32 GuardWord(const u8* guard, size_t index) {
    u32 word;
    std::memcpy(&word, guard + index * sizeof word, sizeof word);
    return word;
}

// Alerts once for each damaged guard word; whether all were whole.
bool CheckGuards(const KQBlockHeader* block) {
    bool whole = true;
    for (size_t i = 0; i < kGuardWords; ++i)
        if (GuardWord(block->Data, i) != kFrontGuard) {
            whole = false;
            Alert("Memory Underrun!!\nAllocated at %s Line %d\nHit cancel to debug", block->File, block->Line);
        }
    for (size_t i = 0; i < kGuardWords; ++i)
        if (GuardWord(BehindBlock(block) - kGuardBytes, i) != kBackGuard) {
            whole = false;
            Alert("Memory Overrun!!\nAllocated at %s Line: %d\nHit cancel to debug", block->File, block->Line);
        }
    return whole;
}

// Whether the block is guarded and its data area, as its header tells it, lies in its chunk, so that the guards can be
// looked at even where the neighbours do not agree.
bool GuardsCanBeRead(const KQBlockHeader* block) {
    size_t start = size_t(block->Data - reinterpret_cast<const u8*>(block->Chunk));
    return (block->Flags & KQMEM_Guarded) && block->Size >= 2 * kGuardBytes && start <= block->Chunk->Bytes &&
           block->Size <= block->Chunk->Bytes - start;
}

// Moves the block from Blocks to Free and joins it with the free neighbours it has.
void ReturnToFree(KQBlockHeader* block) {
    KQBlockHeader* behind = HeaderBehind(block);
    bool freeBehind = behind != block->Succ;
    KQBlockHeader* before = HeaderBehind(block->Pred);
    UnlinkBlock(block);
    if (freeBehind) block->Size += behind->Size + kHeaderBytes;
    if (before != block) {
        if (freeBehind) kq::UnlinkFree(behind);
        before->Size += block->Size + kHeaderBytes;
        kq::GrowFree(before);
    } else if (freeBehind) {
        kq::ReplaceFree(behind, block);
    } else {
        kq::LinkFree(block);
    }
}

void Release(KQBlockHeader* block) {
    KQMemoryChunk* chunk = block->Chunk;
    ++KQEnv->FreeCount;
    block->Flags |= KQMEM_Freed;
    bool last = --chunk->UseCount == 0;
    // The fill of a large block that goes to the platform at once would be seen by nobody.
    bool seen = !last || chunk->Bytes <= kq::kChunkData + kq::kChunkOverhead;
    if ((block->Flags & KQMEM_Guarded) && seen) std::memset(block->Data, u8(KQEnv->FillToggle ^ 0x55), block->Size);
    if (last)
        kq::ReleaseChunk(chunk);
    else
        ReturnToFree(block);
}

void Free(void* pointer, const char* file, i32 line) {
    if (!pointer) return;
    MemoryLocked locked;
    KQEnv->FillToggle ^= 255;
    KQBlockHeader* block = FindHeader(pointer);
    if (block && (block->Flags & KQMEM_Freed)) {
        Alert("Free Twice!\nAllocated at %s Line %d\nHit cancel to debug", block->File, block->Line);
        return;
    }
    if (block && !StandsInChunk(block) && GuardsCanBeRead(block) && !CheckGuards(block))
        return;   // what ran over the guards hit the neighbour's header too: told, and left alone
    if (!block || !StandsInChunk(block)) {
        Alert("Unknown memory being freed from %s Line %d\nHit cancel to debug", file, line);
        return;
    }
    if (block->Flags & KQMEM_Guarded) CheckGuards(block);
    Release(block);
}

// ---- The leak report

KQMemoryChunk* FirstChunk() {
    return List_Empty(&KQEnv->MemoryChunks) ? nullptr : reinterpret_cast<KQMemoryChunk*>(KQEnv->MemoryChunks.Head);
}

std::FILE* OpenLeakReport() {
    char path[1024];
    bool named = pal::EnvironmentVariable("KQLIB_LEAK_REPORT", path, sizeof path);
    if (kq::FileCallFails()) return nullptr;
    return pal::TextCreate(named ? path : "f:\\source\\mardle\\_memdbg.txt");
}

void ReportChunk(std::FILE* report, const KQMemoryChunk* chunk) {
    auto* block = reinterpret_cast<const KQBlockHeader*>(chunk->Blocks.Head);
    auto* last = reinterpret_cast<const KQBlockHeader*>(chunk->Blocks.TailPred);
    for (; block != last; block = block->Succ) {
        if (block->Flags & KQMEM_Freed) continue;
        size_t size = block->Flags & KQMEM_Guarded ? block->Size - 2 * kGuardBytes : block->Size;
        std::fprintf(report, "%s Line: %d Size: %llu\n", block->File, block->Line,
                     static_cast<unsigned long long>(size));
    }
}

}   // namespace

namespace kq {

void ReportLeaks() {
    if (KQEnv->AllocCount == KQEnv->FreeCount || !FirstChunk()) return;
    std::FILE* report = OpenLeakReport();
    if (report)
        std::fprintf(report, "Memory not free'd: AllocCount: %d FreeCount: %d\n", i32(KQEnv->AllocCount),
                     i32(KQEnv->FreeCount));
    while (KQMemoryChunk* chunk = FirstChunk()) {
        if (report) ReportChunk(report, chunk);
        ReleaseChunk(chunk);
    }
    if (report) std::fclose(report);
}

void ReleaseMemoryChunks() {
    while (KQMemoryChunk* chunk = FirstChunk()) ReleaseChunk(chunk);
}

}   // namespace kq

void* AllocMemoryKQ(size_t size, u32 flags, const char* file, i16 line) {
    return Allocate(size, flags | KQMEM_Guarded, file, line);
}

void* AllocMemoryKQ(size_t size, u32 flags) { return Allocate(size, flags & ~KQMEM_Guarded, "Unknown", 0); }

void FreeMemoryKQ(void* block, const char* file, i16 line) { Free(block, file, line); }

void FreeMemoryKQ(void* block) { Free(block, "Unknown", 0); }

u64 AvailableMemoryKQ(u32 flags) {
    pal::MemoryStatus status;
    if (!pal::MemoryQuery(&status)) return 0;
    return flags & KQMEM_Physical ? status.physicalFree : status.physicalFree + status.pageFree;
}
