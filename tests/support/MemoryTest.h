// What tests of the memory manager share: its chunks and headers as they lie, and the fixture.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "Source/MemoryChunk.h"
#include "support/Fixture.h"

namespace kqtest {

inline constexpr size_t kHeader = sizeof(KQBlockHeader);
inline constexpr char kFile[] = "Tests/Here";

inline std::vector<KQMemoryChunk*> Chunks() {
    std::vector<KQMemoryChunk*> chunks;
    for (Node* n = KQEnv->MemoryChunks.Head; n->Succ; n = n->Succ)
        chunks.push_back(reinterpret_cast<KQMemoryChunk*>(n));
    return chunks;
}

inline std::vector<KQBlockHeader*> Headers(const List& list) {
    std::vector<KQBlockHeader*> headers;
    for (Node* n = list.Head; n->Succ; n = n->Succ) headers.push_back(reinterpret_cast<KQBlockHeader*>(n));
    return headers;
}

inline KQBlockHeader* HeaderOf(void* data) {
    return reinterpret_cast<KQBlockHeader*>(static_cast<u8*>(data) - kHeader);
}
inline KQBlockHeader* GuardedHeaderOf(void* user) { return HeaderOf(static_cast<u8*>(user) - 64); }

inline u8* Guarded(size_t size, u32 flags = 0, i16 line = 7) {
    return static_cast<u8*>(AllocMemoryKQ(size, flags, kFile, line));
}
inline u8* Bare(size_t size, u32 flags = 0) { return static_cast<u8*>(AllocMemoryKQ(size, flags)); }

inline u32 WordAt(const u8* place) {
    u32 word;
    std::memcpy(&word, place, 4);
    return word;
}

// The bytes of all chunks, to see that nothing changed.
inline std::string Snapshot() {
    std::string bytes;
    for (KQMemoryChunk* c : Chunks()) bytes.append(reinterpret_cast<const char*>(c), c->Bytes);
    return bytes;
}

// The library with alerts that are answered with "OK".
class MemoryTest : public KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        answer = 1;
    }

    // What was allocated by the start stands in the way of tests that look at places: this fills the holes up, so that
    // the next block starts a chunk of its own.
    void FillPresentChunks() {
        for (bool any = true; any;) {
            any = false;
            for (KQMemoryChunk* c : Chunks())
                for (KQBlockHeader* h : Headers(c->Free)) {
                    fillers_.push_back(Bare(h->Size));
                    any = true;
                    break;
                }
        }
    }

    void TearDown() override {
        for (void* filler : fillers_) FreeMemoryKQ(filler);
        KQTest::TearDown();
    }

private:
    std::vector<void*> fillers_;
};

}   // namespace kqtest
