// The chunks of the memory manager: what stands in them, how their free blocks are found, and the table of all chunks.
//
// A chunk is laid out as
//
//     KQMemoryChunk | first sentinel | header, data | header, data | ... | last sentinel
//
// without gaps, so that the header behind a block stands at its Data + Size. `Blocks` holds the sentinels and the
// allocated blocks, `Free` the free ones, both in address order; two free blocks are never neighbours.
//
// Beside the lists each chunk has an index of its free blocks: the chunk is cut into segments of 8 KB by where headers
// stand, a BoundTree holds the largest free size of each segment and `First` its first free header. An ordinary chunk
// has so few segments that their bounds are one cache line, and a segment holds so few free headers that walking them
// is as good as a search. The table has one such tree over all chunks in order of creation. So the first fit in address
// order costs a few cache lines, however many blocks there are.
#pragma once

#include "Source/MemoryIndex.h"
#include "kq/memory.h"

// As large as a number of cache lines, as a block's header is: then the first block's data, and with it every frame,
// starts on one, and no wide load or store of a row lies across two.
struct alignas(64) KQMemoryChunk {
    Node Links;       // in KQEnv->MemoryChunks
    List Blocks;      // KQBlockHeader records
    List Free;        // KQBlockHeader records
    u32 UseCount;     // allocated blocks
    u32 Slot;         // place in the table of chunks
    size_t Bytes;     // from this head to behind the last sentinel
    void* Platform;   // the platform's block that the chunk stands in, with the storage of the index behind it
    size_t PlatformBytes;
    kq::BoundTree Bounds;
    KQBlockHeader** First;   // for each segment its first free header, or null
};

namespace kq {

inline constexpr size_t kHeaderBytes = sizeof(KQBlockHeader);
inline constexpr size_t kFirstBlockOffset = sizeof(KQMemoryChunk) + kHeaderBytes;

// What a chunk takes beside its data: the head, the two sentinels, the header of the first block and of the rest.
inline constexpr size_t kChunkOverhead = sizeof(KQMemoryChunk) + 4 * kHeaderBytes;

// The data area of an ordinary chunk, and the smallest that is worth asking for when memory is short.
inline constexpr size_t kChunkData = 102400;
inline constexpr size_t kLeastChunkData = 1025;

// Makes a chunk of `want` + kChunkOverhead bytes with both sentinels and one free block over all of it, at the end of
// KQEnv->MemoryChunks. Null when the platform has no memory for it.
KQMemoryChunk* MakeChunk(size_t want);

// Takes the chunk off KQEnv->MemoryChunks and gives it back to the platform.
void ReleaseChunk(KQMemoryChunk* chunk);

// The chunk that the byte at `address` belongs to, or null. Nothing is read at `address`.
KQMemoryChunk* ChunkAt(uptr address);

// The first free block of at least `need` bytes, chunks in order of creation; null when there is none.
KQBlockHeader* FindFree(size_t need);

// Writes a free header of `size` bytes; it still stands in no list.
KQBlockHeader* WriteFreeHeader(KQMemoryChunk* chunk, u8* place, size_t size);

// Links a free header into Free at its address.
void LinkFree(KQBlockHeader* header);

// Unlinks a free header from Free.
void UnlinkFree(KQBlockHeader* header);

// Puts `header` where `old` stands in Free; no free header stands between the two.
void ReplaceFree(KQBlockHeader* old, KQBlockHeader* header);

// Tells the index that a free block has grown where it stands.
void GrowFree(KQBlockHeader* header);

// Tells the table that free blocks of the chunk have gone or shrunk. It would find out by itself, but not as cheaply.
void LowerBound(KQMemoryChunk* chunk);

#if defined(KQ_TESTING)
// Tests make memory short: the platform refuses chunks whose `want` is larger. 0: it does not.
extern size_t mostChunkData;
#endif

}   // namespace kq
