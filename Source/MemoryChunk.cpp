// Making, finding and searching chunks. See MemoryChunk.h for the layout and the idea of the index.
//
// The table of chunks has two halves. `slots` with `order` holds the chunks in order of creation, with a bound of the
// largest free size of each. `places` finds a chunk by address: a hash table with an entry for each stretch of
// pal::kBlockAlignment bytes that a chunk covers, so that a pointer of unknown origin is judged without reading what it
// points at. Both start in static memory and grow in blocks of the platform; the last chunk to go takes those along.
#include "Source/MemoryChunk.h"

#include <cstring>

#include "kq/environment.h"
#include "pal/memory.h"

namespace kq {

#if defined(KQ_TESTING)
size_t mostChunkData = 0;
#endif

namespace {

constexpr size_t kSegmentBytes = 8192;
constexpr size_t kCacheLine = 64;

constexpr size_t RoundUp(size_t size, size_t unit) { return (size + unit - 1) / unit * unit; }

// Free sizes as the bounds have them: 0 for none, so that a free block of size 0 counts; cut where an i32 ends, which
// is why a hit of the index is checked against the header.
i32 BoundOf(size_t size) {
    constexpr size_t kMost = 0x7FFFFFFF;
    return i32(std::min(size / 8 + 1, kMost));
}

Node* AsNode(KQBlockHeader* header) { return reinterpret_cast<Node*>(header); }

// ---- The table of chunks

struct Place {
    uptr stretch;           // address / pal::kBlockAlignment
    KQMemoryChunk* chunk;   // null: empty
};

constexpr u32 kStaticSlots = 256;
constexpr u32 kStaticPlaces = 1024;
constexpr u32 kPlacesOfLine = kCacheLine / sizeof(Place);

alignas(kCacheLine) KQMemoryChunk* staticSlots[kStaticSlots];
alignas(kCacheLine) i32 staticBounds[kStaticSlots + 2 * 16];
alignas(kCacheLine) Place staticPlaces[kStaticPlaces];

struct ChunkTable {
    KQMemoryChunk** slots = nullptr;   // null where a chunk has gone
    u32 slotCapacity = 0;
    u32 nextSlot = 0;
    u32 chunks = 0;
    BoundTree order;

    Place* places = nullptr;
    u32 placeCapacity = 0;   // a power of two
    u32 placesUsed = 0;
};

ChunkTable table;

size_t SlotBytes(u32 capacity) {
    return RoundUp(capacity * sizeof(KQMemoryChunk*), kCacheLine) + BoundTree::StorageBytes(capacity);
}

// The static memory is zero wherever the table does not use it.
void StartTable() {
    table.slots = staticSlots;
    table.slotCapacity = kStaticSlots;
    table.order.Make(staticBounds, kStaticSlots);
    table.places = staticPlaces;
    table.placeCapacity = kStaticPlaces;
}

void FreeSlots() {
    if (table.slots == staticSlots)
        std::memset(staticSlots, 0, sizeof staticSlots);
    else
        pal::BlockFree(table.slots, SlotBytes(table.slotCapacity));
}

void FreePlaces() {
    if (table.places == staticPlaces)
        std::memset(staticPlaces, 0, sizeof staticPlaces);
    else
        pal::BlockFree(table.places, table.placeCapacity * sizeof(Place));
}

// Gives back what the table grew by.
void EndTable() {
    if (table.slots == staticSlots && table.places == staticPlaces) return;
    FreeSlots();
    FreePlaces();
    table = {};
}

// Moves the chunks together in their order, into `slots` (may be the present ones), and builds the bounds anew.
void Renumber(KQMemoryChunk** slots, void* bounds, u32 capacity) {
    u32 count = 0;
    for (u32 i = 0; i < table.nextSlot; ++i)
        if (KQMemoryChunk* chunk = table.slots[i]) {
            chunk->Slot = count;
            slots[count++] = chunk;
        }
    table.nextSlot = count;
    std::memset(slots + count, 0, (capacity - count) * sizeof *slots);
    table.order.Make(bounds, capacity);
    for (u32 i = 0; i < count; ++i) table.order.Raise(i, slots[i]->Bounds.Top());
}

// The storage of the bounds behind `slots`.
void* BoundsBehind(KQMemoryChunk** slots, u32 capacity) {
    if (slots == staticSlots) return staticBounds;
    return reinterpret_cast<u8*>(slots) + RoundUp(capacity * sizeof *slots, kCacheLine);
}

// Makes sure that there is a slot behind the last one. When at least half of the slots have lost their chunk they are
// moved together, else the table doubles; either pays for as many new chunks as it moves.
bool MakeRoomForSlot() {
    if (table.nextSlot < table.slotCapacity) return true;
    if (table.chunks <= table.slotCapacity / 2) {
        Renumber(table.slots, BoundsBehind(table.slots, table.slotCapacity), table.slotCapacity);
        return true;
    }
    u32 capacity = table.slotCapacity * 2;
    auto slots = static_cast<KQMemoryChunk**>(pal::BlockAlloc(SlotBytes(capacity)));
    if (!slots) return false;
    Renumber(slots, BoundsBehind(slots, capacity), capacity);
    FreeSlots();
    table.slots = slots;
    table.slotCapacity = capacity;
    return true;
}

// Where the entry of a stretch is looked for first. Four neighbours share a cache line, the lines are scattered.
u32 HomeOf(uptr stretch, u32 capacity) {
    u64 line = u64(stretch / kPlacesOfLine) * 0x9E3779B97F4A7C15u >> 32;
    return u32(line * kPlacesOfLine + stretch % kPlacesOfLine) & (capacity - 1);
}

void AddPlace(Place* places, u32 capacity, Place place) {
    u32 i = HomeOf(place.stretch, capacity);
    while (places[i].chunk) i = (i + 1) & (capacity - 1);
    places[i] = place;
}

// Makes sure that the places stay at most half full with `more` in addition.
bool MakeRoomForPlaces(size_t more) {
    size_t wanted = (table.placesUsed + more) * 2;
    if (wanted <= table.placeCapacity) return true;
    size_t capacity = std::bit_ceil(wanted);
    if (capacity > (size_t(1) << 31)) return false;
    auto places = static_cast<Place*>(pal::BlockAlloc(capacity * sizeof(Place)));
    if (!places) return false;
    std::memset(places, 0, capacity * sizeof(Place));
    for (u32 i = 0; i < table.placeCapacity; ++i)
        if (table.places[i].chunk) AddPlace(places, u32(capacity), table.places[i]);
    FreePlaces();
    table.places = places;
    table.placeCapacity = u32(capacity);
    return true;
}

// Removes the entry of a stretch; entries behind it that were pushed on by it move up.
void RemovePlace(uptr stretch) {
    u32 mask = table.placeCapacity - 1;
    u32 hole = HomeOf(stretch, table.placeCapacity);
    while (table.places[hole].stretch != stretch || !table.places[hole].chunk) hole = (hole + 1) & mask;
    for (u32 i = (hole + 1) & mask; table.places[i].chunk; i = (i + 1) & mask) {
        u32 home = HomeOf(table.places[i].stretch, table.placeCapacity);
        if (((i - home) & mask) < ((i - hole) & mask)) continue;
        table.places[hole] = table.places[i];
        hole = i;
    }
    table.places[hole] = {};
}

struct Stretches {
    uptr first, last;

    explicit Stretches(const KQMemoryChunk* chunk)
        : first(reinterpret_cast<uptr>(chunk) / pal::kBlockAlignment),
          last((reinterpret_cast<uptr>(chunk) + chunk->Bytes - 1) / pal::kBlockAlignment) {}

    u32 Count() const { return u32(last - first + 1); }
};

bool EnterChunk(KQMemoryChunk* chunk) {
    Stretches stretches(chunk);
    if (!MakeRoomForSlot() || !MakeRoomForPlaces(stretches.Count())) return false;
    chunk->Slot = table.nextSlot++;
    table.slots[chunk->Slot] = chunk;
    ++table.chunks;
    for (uptr s = stretches.first; s <= stretches.last; ++s) AddPlace(table.places, table.placeCapacity, {s, chunk});
    table.placesUsed += stretches.Count();
    return true;
}

void LeaveChunk(KQMemoryChunk* chunk) {
    Stretches stretches(chunk);
    for (uptr s = stretches.first; s <= stretches.last; ++s) RemovePlace(s);
    table.placesUsed -= stretches.Count();
    table.slots[chunk->Slot] = nullptr;
    table.order.Lower(chunk->Slot, 0);
    while (table.nextSlot > 0 && !table.slots[table.nextSlot - 1]) --table.nextSlot;
    if (--table.chunks == 0) EndTable();
}

// ---- Making a chunk

// Chunks begin at a different cache line each: their heads, all at the start of pages, would compete for a few lines of
// the cache otherwise.
constexpr u32 kColours = 32;
u32 colour = 0;

KQBlockHeader* WriteSentinel(KQMemoryChunk* chunk, u8* place) {
    KQBlockHeader* sentinel = WriteFreeHeader(chunk, place, 0);
    AddTail(&chunk->Blocks, AsNode(sentinel));
    return sentinel;
}

// The head of a chunk in a block of the platform, with an empty index; null when the platform has none.
KQMemoryChunk* TakePlatformBlock(size_t want) {
    size_t front = colour++ % kColours * kCacheLine;
    size_t bytes = want + kChunkOverhead;
    size_t segments = (bytes + kSegmentBytes - 1) / kSegmentBytes;
    size_t boundsAt = front + RoundUp(bytes, kCacheLine);
    if (bytes < want || boundsAt < bytes || segments > 0xFFFFFFF0u) return nullptr;
    size_t firstAt = boundsAt + BoundTree::StorageBytes(u32(segments));
    size_t total = firstAt + segments * sizeof(KQBlockHeader*);
    u8* block = total < firstAt ? nullptr : static_cast<u8*>(pal::BlockAlloc(total));
    if (!block) return nullptr;
    auto* chunk = reinterpret_cast<KQMemoryChunk*>(block + front);
    *chunk = {};
    chunk->Bytes = bytes;
    chunk->Platform = block;
    chunk->PlatformBytes = total;
    chunk->Bounds.Make(block + boundsAt, u32(segments));
    chunk->First = reinterpret_cast<KQBlockHeader**>(block + firstAt);
    std::memset(chunk->First, 0, segments * sizeof *chunk->First);
    return chunk;
}

// ---- The free blocks of a chunk

u32 SegmentOf(const KQBlockHeader* header) {
    return u32(size_t(reinterpret_cast<const u8*>(header) - reinterpret_cast<const u8*>(header->Chunk)) /
               kSegmentBytes);
}

bool IsFreeInSegment(const KQBlockHeader* header, u32 segment) { return header->Succ && SegmentOf(header) == segment; }

// The first header of the segment with at least `need` bytes; when there is none, the segment's bound becomes exact.
KQBlockHeader* FindInSegment(KQMemoryChunk* chunk, u32 segment, size_t need) {
    i32 largest = 0;
    for (KQBlockHeader* h = chunk->First[segment]; h && IsFreeInSegment(h, segment); h = h->Succ) {
        if (h->Size >= need) return h;
        largest = std::max(largest, BoundOf(h->Size));
    }
    chunk->Bounds.Lower(segment, largest);
    return nullptr;
}

KQBlockHeader* FindInChunk(KQMemoryChunk* chunk, size_t need, i32 bound) {
    for (u32 s = chunk->Bounds.FindFirst(bound); s != BoundTree::kNone; s = chunk->Bounds.FindFrom(s + 1, bound))
        if (KQBlockHeader* found = FindInSegment(chunk, s, need)) return found;
    LowerBound(chunk);
    return nullptr;
}

void RaiseBounds(KQBlockHeader* header, u32 segment) {
    i32 bound = BoundOf(header->Size);
    header->Chunk->Bounds.Raise(segment, bound);
    table.order.Raise(header->Chunk->Slot, bound);
}

// The first free header in the segments behind `segment`, or the list's tail sentinel.
Node* FirstFreeBehind(KQMemoryChunk* chunk, u32 segment) {
    for (;;) {
        segment = chunk->Bounds.FindFrom(segment + 1, 1);
        if (segment == BoundTree::kNone) return reinterpret_cast<Node*>(&chunk->Free.Tail);
        if (KQBlockHeader* first = chunk->First[segment]) return AsNode(first);
        chunk->Bounds.Lower(segment, 0);
    }
}

void LinkBefore(KQBlockHeader* header, Node* next) {
    Node* node = AsNode(header);
    node->Succ = next;
    node->Pred = next->Pred;
    next->Pred->Succ = node;
    next->Pred = node;
}

}   // namespace

KQMemoryChunk* MakeChunk(size_t want) {
#if defined(KQ_TESTING)
    if (mostChunkData && want > mostChunkData) return nullptr;
#endif
    if (!table.slots) StartTable();
    KQMemoryChunk* chunk = TakePlatformBlock(want);
    if (!chunk) return nullptr;
    if (!EnterChunk(chunk)) {
        pal::BlockFree(chunk->Platform, chunk->PlatformBytes);
        return nullptr;
    }
    NewList(&chunk->Blocks);
    NewList(&chunk->Free);
    AddTail(&KQEnv->MemoryChunks, &chunk->Links);
    u8* base = reinterpret_cast<u8*>(chunk);
    WriteSentinel(chunk, base + sizeof *chunk);
    WriteSentinel(chunk, base + chunk->Bytes - kHeaderBytes);
    u8* first = base + kFirstBlockOffset;
    LinkFree(WriteFreeHeader(chunk, first, chunk->Bytes - kFirstBlockOffset - 2 * kHeaderBytes));
    return chunk;
}

void ReleaseChunk(KQMemoryChunk* chunk) {
    Remove(&chunk->Links);
    LeaveChunk(chunk);
    pal::BlockFree(chunk->Platform, chunk->PlatformBytes);
}

KQMemoryChunk* ChunkAt(uptr address) {
    if (table.chunks == 0) return nullptr;
    uptr stretch = address / pal::kBlockAlignment;
    for (u32 i = HomeOf(stretch, table.placeCapacity); table.places[i].chunk; i = (i + 1) & (table.placeCapacity - 1)) {
        if (table.places[i].stretch != stretch) continue;
        KQMemoryChunk* chunk = table.places[i].chunk;
        return address - reinterpret_cast<uptr>(chunk) < chunk->Bytes ? chunk : nullptr;
    }
    return nullptr;
}

KQBlockHeader* FindFree(size_t need) {
    if (table.chunks == 0) return nullptr;
    i32 bound = BoundOf(need);
    for (u32 s = table.order.FindFirst(bound); s != BoundTree::kNone; s = table.order.FindFrom(s + 1, bound))
        if (KQBlockHeader* found = FindInChunk(table.slots[s], need, bound)) return found;
    return nullptr;
}

KQBlockHeader* WriteFreeHeader(KQMemoryChunk* chunk, u8* place, size_t size) {
    auto* header = reinterpret_cast<KQBlockHeader*>(place);
    *header = {nullptr, nullptr, place + kHeaderBytes, size, chunk, KQMEM_Freed, "Unknown", 0};
    return header;
}

void LinkFree(KQBlockHeader* header) {
    KQMemoryChunk* chunk = header->Chunk;
    u32 segment = SegmentOf(header);
    KQBlockHeader* next = chunk->First[segment];
    if (!next || header < next) {
        LinkBefore(header, next ? AsNode(next) : FirstFreeBehind(chunk, segment));
        chunk->First[segment] = header;
    } else {
        while (IsFreeInSegment(next, segment) && next < header) next = next->Succ;
        LinkBefore(header, AsNode(next));
    }
    RaiseBounds(header, segment);
}

void UnlinkFree(KQBlockHeader* header) {
    u32 segment = SegmentOf(header);
    KQBlockHeader** first = &header->Chunk->First[segment];
    if (*first == header) {
        *first = IsFreeInSegment(header->Succ, segment) ? header->Succ : nullptr;
        if (!*first) header->Chunk->Bounds.Lower(segment, 0);
    }
    header->Pred->Succ = header->Succ;
    header->Succ->Pred = header->Pred;
}

void ReplaceFree(KQBlockHeader* old, KQBlockHeader* header) {
    Node* next = reinterpret_cast<Node*>(old->Succ);
    UnlinkFree(old);
    LinkBefore(header, next);
    u32 segment = SegmentOf(header);
    KQBlockHeader** first = &header->Chunk->First[segment];
    if (!*first || header < *first) *first = header;
    RaiseBounds(header, segment);
}

void LowerBound(KQMemoryChunk* chunk) { table.order.Lower(chunk->Slot, chunk->Bounds.Top()); }

void GrowFree(KQBlockHeader* header) { RaiseBounds(header, SegmentOf(header)); }

}   // namespace kq
