#include "kq/memory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <random>
#include <thread>

#if defined(_WIN32)
#include <windows.h>
#endif

#include "pal/memory.h"
#include "support/MemoryTest.h"

namespace {

using namespace kqtest;

class Memory : public MemoryTest {};

// ---- Places and sizes

TEST_F(Memory, HeaderRecordHasNoHiddenFields) {
    EXPECT_EQ(sizeof(KQBlockHeader), 6 * sizeof(void*) + 2 * sizeof(void*));
}

TEST_F(Memory, FreeOfNullDoesNothing) {
    u32 toggle = KQEnv->FillToggle;
    u32 count = KQEnv->FreeCount;
    FreeMemoryKQ(nullptr, kFile, 1);
    FreeMemoryKQ(nullptr);
    EXPECT_EQ(KQEnv->FillToggle, toggle);
    EXPECT_EQ(KQEnv->FreeCount, count);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, OneByteGuardedHasDataAreaOf136Bytes) {
    u8* p = Guarded(1);
    EXPECT_EQ(GuardedHeaderOf(p)->Size, 136u);
    FreeMemoryKQ(p);
}

TEST_F(Memory, GuardedBlockOfNoBytesIsGuardsAlone) {
    u8* p = Guarded(0);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(GuardedHeaderOf(p)->Size, 128u);
    EXPECT_EQ(WordAt(p - 4), 0xABADCAFEu);
    EXPECT_EQ(WordAt(p), 0xDEADBEEFu);
    FreeMemoryKQ(p);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, BareBlockOfNoBytesTakesAFreeBlockOfSize0) {
    FillPresentChunks();
    u8* whole = Bare(102400);
    KQMemoryChunk* chunk = HeaderOf(whole)->Chunk;
    ASSERT_EQ(Headers(chunk->Free).size(), 1u);
    ASSERT_EQ(Headers(chunk->Free)[0]->Size, 0u);
    u8* none = Bare(0);
    EXPECT_EQ(HeaderOf(none)->Chunk, chunk);
    EXPECT_EQ(HeaderOf(none)->Size, 0u);
    EXPECT_TRUE(Headers(chunk->Free).empty());
    FreeMemoryKQ(none);
    FreeMemoryKQ(whole);
}

TEST_F(Memory, HeaderKeepsTheCallersPlaceAndFlags) {
    u8* p = Guarded(10, KQMEM_Clear | KQMEM_Freed, 1234);
    KQBlockHeader* h = GuardedHeaderOf(p);
    EXPECT_EQ(h->File, kFile);
    EXPECT_EQ(h->Line, 1234);
    EXPECT_EQ(h->Flags, KQMEM_Clear | KQMEM_Guarded);
    EXPECT_EQ(h->Data + 64, p);
    EXPECT_EQ(reinterpret_cast<u8*>(h) + kHeader, h->Data);
    FreeMemoryKQ(p);
}

TEST_F(Memory, BareFormClearsTheGuardFlag) {
    u8* p = Bare(10, KQMEM_Guarded | KQMEM_Freed);
    KQBlockHeader* h = HeaderOf(p);
    EXPECT_EQ(h->Flags, 0u);
    EXPECT_EQ(h->Size, 16u);
    EXPECT_STREQ(h->File, "Unknown");
    EXPECT_EQ(h->Line, 0);
    FreeMemoryKQ(p);
}

TEST_F(Memory, SentinelsStandAtBothEndsOfBlocks) {
    u8* p = Bare(8);
    KQMemoryChunk* chunk = HeaderOf(p)->Chunk;
    std::vector<KQBlockHeader*> blocks = Headers(chunk->Blocks);
    for (KQBlockHeader* sentinel : {blocks.front(), blocks.back()}) {
        EXPECT_EQ(sentinel->Size, 0u);
        EXPECT_EQ(sentinel->Flags, u32(KQMEM_Freed));
        EXPECT_STREQ(sentinel->File, "Unknown");
        EXPECT_EQ(sentinel->Line, 0);
        EXPECT_EQ(sentinel->Chunk, chunk);
    }
    EXPECT_EQ(reinterpret_cast<u8*>(blocks.front()), reinterpret_cast<u8*>(chunk + 1));
    EXPECT_EQ(blocks.back()->Data, reinterpret_cast<u8*>(chunk) + chunk->Bytes);
    FreeMemoryKQ(p);
}

TEST_F(Memory, LastBlockGivesTheChunkBack) {
    size_t chunks = Chunks().size();
    i64 out = pal::BlocksOut();
    FillPresentChunks();
    u8* a = Guarded(100);
    u8* b = Guarded(100);
    EXPECT_EQ(HeaderOf(a - 64)->Chunk->UseCount, 2u);
    EXPECT_EQ(Chunks().size(), chunks + 1);
    EXPECT_EQ(pal::BlocksOut(), out + 1);
    FreeMemoryKQ(a);
    FreeMemoryKQ(b);
    EXPECT_EQ(Chunks().size(), chunks);
    EXPECT_EQ(pal::BlocksOut(), out);
}

TEST_F(Memory, FreeBetweenTwoFreeNeighboursLeavesOneFreeBlock) {
    FillPresentChunks();
    u8* a = Bare(100);
    u8* b = Bare(200);
    u8* c = Bare(300);
    u8* d = Bare(400);
    KQMemoryChunk* chunk = HeaderOf(a)->Chunk;
    FreeMemoryKQ(a);
    FreeMemoryKQ(c);
    ASSERT_EQ(Headers(chunk->Free).size(), 3u);
    FreeMemoryKQ(b);
    std::vector<KQBlockHeader*> left = Headers(chunk->Free);
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0], HeaderOf(a));
    EXPECT_EQ(left[0]->Size, 104 + 200 + 304 + 2 * kHeader);
    FreeMemoryKQ(d);
}

TEST_F(Memory, SecondRequestOf102400BytesStartsAChunk) {
    FillPresentChunks();
    size_t chunks = Chunks().size();
    u8* a = Bare(102400);
    EXPECT_EQ(Chunks().size(), chunks + 1);
    u8* b = Bare(102400);
    EXPECT_EQ(Chunks().size(), chunks + 2);
    EXPECT_EQ(Chunks().back(), HeaderOf(b)->Chunk);
    FreeMemoryKQ(a);
    FreeMemoryKQ(b);
}

TEST_F(Memory, LargerRequestGetsAChunkOfItsOwnSize) {
    FillPresentChunks();
    for (size_t size : {size_t(102408), size_t(1000000), size_t(70000000)}) {
        u8* p = Bare(size);
        KQMemoryChunk* chunk = HeaderOf(p)->Chunk;
        EXPECT_EQ(chunk->Bytes, size + sizeof(KQMemoryChunk) + 4 * kHeader);
        ASSERT_EQ(Headers(chunk->Free).size(), 1u);
        EXPECT_EQ(Headers(chunk->Free)[0]->Size, 0u);
        FreeMemoryKQ(p);
    }
}

TEST_F(Memory, LargeBlocksStartOnACacheLine) {
    std::vector<void*> blocks;
    for (size_t size : {102401, 150000, 8294400, 102403, 33177600}) {
        blocks.push_back(AllocMemoryKQ(size, 0));
        blocks.push_back(AllocMemoryKQ(size, 0, __FILE__, __LINE__));
    }
    for (void* block : blocks) {
        EXPECT_EQ(reinterpret_cast<uptr>(block) % 64, 0u);
        FreeMemoryKQ(block);
    }
}

TEST_F(Memory, RestWithoutRoomForAHeaderGoesWithTheBlock) {
    FillPresentChunks();
    u8* a = Bare(200);
    u8* b = Bare(8);
    FreeMemoryKQ(a);
    u8* c = Bare(200 - kHeader + 8);
    EXPECT_EQ(c, a);
    EXPECT_EQ(HeaderOf(c)->Size, 200u);
    FreeMemoryKQ(c);
    FreeMemoryKQ(b);
}

TEST_F(Memory, RestOfExactlyAHeaderIsAFreeBlockOfSize0) {
    FillPresentChunks();
    u8* a = Bare(200);
    u8* b = Bare(8);
    FreeMemoryKQ(a);
    u8* c = Bare(200 - kHeader);
    EXPECT_EQ(HeaderOf(c)->Size, 200 - kHeader);
    KQBlockHeader* rest = Headers(HeaderOf(c)->Chunk->Free)[0];
    EXPECT_EQ(reinterpret_cast<u8*>(rest), c + 200 - kHeader);
    EXPECT_EQ(rest->Size, 0u);
    EXPECT_STREQ(rest->File, "Unknown");
    FreeMemoryKQ(c);
    FreeMemoryKQ(b);
}

TEST_F(Memory, BlockGivenWholeHasItsEndGuardAtItsEnd) {
    FillPresentChunks();
    u8* a = Bare(136 + kHeader - 8);
    u8* b = Bare(8);
    FreeMemoryKQ(a);
    u8* c = Guarded(8, KQMEM_Clear);
    ASSERT_EQ(c - 64, a);
    size_t size = GuardedHeaderOf(c)->Size;
    EXPECT_EQ(size, 136 + kHeader - 8);
    for (size_t i = 0; i < size - 128; ++i) EXPECT_EQ(c[i], 0);
    EXPECT_EQ(WordAt(a + size - 64), 0xDEADBEEFu);
    EXPECT_EQ(WordAt(a + size - 4), 0xDEADBEEFu);
    FreeMemoryKQ(c);
    FreeMemoryKQ(b);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, FirstFitTakesTheLowestPlaceNotTheBest) {
    FillPresentChunks();
    u8* large = Bare(5000);
    u8* wall = Bare(8);
    u8* exact = Bare(1000);
    u8* wall2 = Bare(8);
    FreeMemoryKQ(exact);
    FreeMemoryKQ(large);
    u8* p = Bare(1000);
    EXPECT_EQ(p, large);
    for (u8* q : {p, wall, wall2}) FreeMemoryKQ(q);
}

// ---- Contents

TEST_F(Memory, GuardsAreSixteenWordsOnBothSides) {
    u8* p = Guarded(24);
    for (int i = 1; i <= 16; ++i) EXPECT_EQ(WordAt(p - 4 * i), 0xABADCAFEu);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(WordAt(p + 24 + 4 * i), 0xDEADBEEFu);
    FreeMemoryKQ(p);
}

TEST_F(Memory, ClearLeavesTheGuardsIntact) {
    u8* p = Guarded(1000, KQMEM_Clear);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(p[i], 0);
    FreeMemoryKQ(p);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, ClearWithoutGuardsZeroesTheWholeDataArea) {
    u8* p = Bare(1001);
    std::memset(p, 0xFF, 1008);
    u8* wall = Bare(1);
    FreeMemoryKQ(p);
    u8* q = Bare(1001, KQMEM_Clear);
    ASSERT_EQ(q, p);
    for (int i = 0; i < 1008; ++i) ASSERT_EQ(q[i], 0);
    FreeMemoryKQ(q);
    FreeMemoryKQ(wall);
}

TEST_F(Memory, BareMemoryIsLeftAsFound) {
    u8* p = Bare(64);
    u8* wall = Bare(1);
    std::memset(p, 0x5C, 64);
    FreeMemoryKQ(p);
    u8* q = Bare(64);
    ASSERT_EQ(q, p);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(q[i], 0x5C);
    FreeMemoryKQ(q);
    FreeMemoryKQ(wall);
}

TEST_F(Memory, FillPatternsFlipAtEachFree) {
    u8* wall = Guarded(8);
    for (int round = 0; round < 3; ++round) {
        u32 toggle = KQEnv->FillToggle;
        u8* p = Guarded(40);
        u8* after = Guarded(8);
        for (int i = 0; i < 40; ++i) ASSERT_EQ(p[i], u8(toggle ^ 0xAA));
        FreeMemoryKQ(p);
        EXPECT_EQ(KQEnv->FillToggle, toggle ^ 255);
        for (int i = -64; i < 40 + 64; ++i) ASSERT_EQ(p[i], u8(toggle ^ 255 ^ 0x55));
        FreeMemoryKQ(after);
        FreeMemoryKQ(wall);
        wall = Guarded(8);
    }
    FreeMemoryKQ(wall);
}

TEST_F(Memory, WrongFreeFlipsTheFillToo) {
    u32 toggle = KQEnv->FillToggle;
    u64 foreign[64] = {};
    FreeMemoryKQ(&foreign[40]);
    EXPECT_EQ(KQEnv->FillToggle, toggle ^ 255);
    EXPECT_EQ(messages.size(), 1u);
}

// ---- Counting and failing

TEST_F(Memory, CountsGrowByOneForEachCall) {
    u32 allocated = KQEnv->AllocCount;
    u32 freed = KQEnv->FreeCount;
    u8* p = Guarded(1);
    u8* q = Bare(1);
    EXPECT_EQ(KQEnv->AllocCount, allocated + 2);
    FreeMemoryKQ(p);
    FreeMemoryKQ(q);
    EXPECT_EQ(KQEnv->FreeCount, freed + 2);
}

TEST_F(Memory, ErrorIsWrittenOnlyWithNull) {
    KQEnv->Error = KQERR_BADDATA;
    u8* p = Guarded(300000);
    FreeMemoryKQ(p);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(Guarded(1), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
}

TEST_F(Memory, RequestsBeyondAllMemoryGiveNull) {
    u32 allocated = KQEnv->AllocCount;
    for (size_t size : {SIZE_MAX, SIZE_MAX - 7, SIZE_MAX - 128, SIZE_MAX - 1000, SIZE_MAX / 2, size_t(1) << 50}) {
        KQEnv->Error = 0;
        EXPECT_EQ(Bare(size), nullptr) << size;
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
        KQEnv->Error = 0;
        EXPECT_EQ(Guarded(size), nullptr) << size;
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
    }
    EXPECT_EQ(KQEnv->AllocCount, allocated);
}

class ShortMemory : public Memory {
protected:
    void TearDown() override {
        kq::mostChunkData = 0;
        Memory::TearDown();
    }
};

TEST_F(ShortMemory, ChunksAreHalvedUntilThePlatformHasOne) {
    FillPresentChunks();
    kq::mostChunkData = 30000;
    u8* p = Bare(1000);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(HeaderOf(p)->Chunk->Bytes, 102400 / 4 + sizeof(KQMemoryChunk) + 4 * kHeader);
    FreeMemoryKQ(p);
}

TEST_F(ShortMemory, HalvingNeverGoesBelowTheRequest) {
    FillPresentChunks();
    kq::mostChunkData = 30000;
    EXPECT_EQ(Bare(25608), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
    u8* p = Bare(25600);
    EXPECT_NE(p, nullptr);
    FreeMemoryKQ(p);
}

TEST_F(ShortMemory, HalvingStopsBelow1025Bytes) {
    FillPresentChunks();
    kq::mostChunkData = 1600;
    u8* p = Bare(8);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(HeaderOf(p)->Chunk->Bytes, 1600 + sizeof(KQMemoryChunk) + 4 * kHeader);
    FreeMemoryKQ(p);
    kq::mostChunkData = 1599;
    EXPECT_EQ(Bare(8), nullptr);
}

TEST_F(ShortMemory, RequestJustAboveTheChunkSizeNeedsNoMoreThanItself) {
    FillPresentChunks();
    kq::mostChunkData = 102408;
    u8* p = Bare(102401);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(HeaderOf(p)->Chunk->Bytes, 102408 + sizeof(KQMemoryChunk) + 4 * kHeader);
    FreeMemoryKQ(p);
}

// ---- Wrong frees

void ExpectUnknown(const std::vector<std::string>& messages, void* pointer) {
    std::string before = Snapshot();
    u32 freed = KQEnv->FreeCount;
    size_t seen = messages.size();
    FreeMemoryKQ(pointer, "Tests/Wrong", 55);
    ASSERT_EQ(messages.size(), seen + 1);
    EXPECT_EQ(messages.back(), "Unknown memory being freed from Tests/Wrong Line 55\nHit cancel to debug");
    EXPECT_EQ(KQEnv->FreeCount, freed);
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(Memory, ForeignPointersAreUnknownAndNothingChanges) {
    static u64 fixed[64];
    u64 stack[64] = {};
    std::unique_ptr<u64[]> heap(new u64[64]);
    ExpectUnknown(messages, &fixed[40]);
    ExpectUnknown(messages, &stack[40]);
    ExpectUnknown(messages, &heap[40]);
    ExpectUnknown(messages, &heap[0]);
}

TEST_F(Memory, WildPointersAreNotRead) {
    for (uptr wild : {uptr(8), uptr(64), uptr(136), uptr(4096), ~uptr(0), ~uptr(7), uptr(1) << 40, uptr(1) << 63})
        ExpectUnknown(messages, reinterpret_cast<void*>(wild));
}

TEST_F(Memory, PointersAtTheStartOfAPlatformBlockAreUnknown) {
    u8* block = static_cast<u8*>(pal::BlockAlloc(1000000));
    for (size_t offset : {0, 8, 64, 128, 288}) ExpectUnknown(messages, block + offset);
    pal::BlockFree(block, 1000000);
}

TEST_F(Memory, ForeignWordEqualToThePointerDoesNotMakeABlock) {
    alignas(8) uptr words[80] = {};
    for (int back = 1; back <= 36; ++back)
        for (uptr distance : {0, 64}) {
            std::memset(words, 0, sizeof words);
            words[60 - back] = reinterpret_cast<uptr>(&words[60]) - distance;
            ExpectUnknown(messages, &words[60]);
        }
}

TEST_F(Memory, CopyOfAWholeBlockElsewhereIsUnknown) {
    u8* p = Guarded(100);
    KQBlockHeader* h = GuardedHeaderOf(p);
    std::vector<u64> copy((kHeader + h->Size) / 8);
    std::memcpy(copy.data(), h, kHeader + h->Size);
    auto* pretended = reinterpret_cast<KQBlockHeader*>(copy.data());
    pretended->Data = reinterpret_cast<u8*>(pretended) + kHeader;
    ExpectUnknown(messages, pretended->Data + 64);
    FreeMemoryKQ(p);
}

TEST_F(Memory, FalseHeaderInsideABlockIsUnknown) {
    u8* p = Bare(1000, KQMEM_Clear);
    auto* pretended = reinterpret_cast<KQBlockHeader*>(p + 200);
    *pretended = {HeaderOf(p), HeaderOf(p), p + 200 + kHeader, 64, HeaderOf(p)->Chunk, 0, kFile, 3};
    ExpectUnknown(messages, pretended->Data);
    FreeMemoryKQ(p);
}

TEST_F(Memory, PointersIntoTheMiddleOfABlockAreUnknown) {
    u8* p = Bare(1000, KQMEM_Clear);
    for (size_t offset : {1, 4, 8, 56, 72, 500, 992}) ExpectUnknown(messages, p + offset);
    FreeMemoryKQ(p);
}

TEST_F(Memory, UnalignedPointersAreUnknown) {
    u8* p = Guarded(100);
    for (size_t offset : {1, 3, 7}) ExpectUnknown(messages, p + offset);
    FreeMemoryKQ(p);
}

TEST_F(Memory, BlockOverwrittenFromTheOneBeforeIsNotFreed) {
    u8* a = Bare(16);
    u8* b = Bare(16);
    KQBlockHeader saved = *HeaderOf(b);
    HeaderOf(b)->Succ = reinterpret_cast<KQBlockHeader*>(a);
    ExpectUnknown(messages, b);
    *HeaderOf(b) = saved;
    HeaderOf(b)->Size = 0x4000000000;
    ExpectUnknown(messages, b);
    *HeaderOf(b) = saved;
    HeaderOf(b)->Pred = nullptr;
    ExpectUnknown(messages, b);
    *HeaderOf(b) = saved;
    FreeMemoryKQ(b);
    FreeMemoryKQ(a);
}

TEST_F(Memory, FreeTwiceNamesWhereItWasAllocated) {
    u8* wall = Guarded(8);
    u8* p = Guarded(8, 0, 321);
    u8* wall2 = Guarded(8);
    FreeMemoryKQ(p);
    std::string before = Snapshot();
    u32 freed = KQEnv->FreeCount;
    FreeMemoryKQ(p, "Tests/Again", 9);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Free Twice!\nAllocated at Tests/Here Line 321\nHit cancel to debug");
    EXPECT_EQ(Snapshot(), before);
    EXPECT_EQ(KQEnv->FreeCount, freed);
    FreeMemoryKQ(wall2);
    FreeMemoryKQ(wall);
}

TEST_F(Memory, FreeTwiceIsSeenAfterTheBlockJoinedTheOneBefore) {
    u8* wall = Guarded(8);
    u8* a = Guarded(8);
    u8* p = Guarded(8, 0, 77);
    u8* wall2 = Guarded(8);
    FreeMemoryKQ(a);
    FreeMemoryKQ(p);
    FreeMemoryKQ(p);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], "Free Twice!\nAllocated at Tests/Here Line 77\nHit cancel to debug");
    FreeMemoryKQ(wall2);
    FreeMemoryKQ(wall);
}

TEST_F(Memory, SecondFreeAfterTheChunkHasGoneIsUnknown) {
    FillPresentChunks();
    u8* p = Guarded(1000000);
    FreeMemoryKQ(p);
    ExpectUnknown(messages, p);
}

TEST_F(Memory, FreeThroughDataOfAGuardedBlockFreesIt) {
    u8* p = Guarded(50);
    FreeMemoryKQ(GuardedHeaderOf(p)->Data);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, FreeSixtyFourBytesIntoABareBlockFreesIt) {
    u8* p = Bare(100);
    FreeMemoryKQ(p + 64);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, EitherFormFreesBlocksOfTheOther) {
    u8* p = Guarded(1);
    u8* q = Bare(1);
    FreeMemoryKQ(p);
    FreeMemoryKQ(q, kFile, 1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Memory, EachDamagedWordBeforeTheBlockIsAnUnderrun) {
    for (int words : {1, 7, 16}) {
        messages.clear();
        u8* p = Guarded(8, 0, 40);
        for (int i = 1; i <= words; ++i) p[-4 * i] ^= 1;
        FreeMemoryKQ(p);
        ASSERT_EQ(messages.size(), size_t(words));
        for (const std::string& m : messages)
            EXPECT_EQ(m, "Memory Underrun!!\nAllocated at Tests/Here Line 40\nHit cancel to debug");
    }
}

TEST_F(Memory, EachDamagedWordBehindTheBlockIsAnOverrun) {
    for (int words : {1, 7, 16}) {
        messages.clear();
        u8* p = Guarded(8, 0, 41);
        for (int i = 0; i < words; ++i) p[8 + 4 * i + 3] ^= 1;
        FreeMemoryKQ(p);
        ASSERT_EQ(messages.size(), size_t(words));
        for (const std::string& m : messages)
            EXPECT_EQ(m, "Memory Overrun!!\nAllocated at Tests/Here Line: 41\nHit cancel to debug");
    }
}

TEST_F(Memory, OverrunPastTheGuardsIntoTheNextHeaderIsToldAsAnOverrun) {
    u8* first = static_cast<u8*>(AllocMemoryKQ(64, 0, "Tests/Here", 41));
    void* second = AllocMemoryKQ(64, 0, "Tests/There", 42);
    u8 saved[64 + sizeof(KQBlockHeader)];
    std::memcpy(saved, first + 64, sizeof saved);
    std::memset(first + 64, 0xEE, sizeof saved);
    FreeMemoryKQ(first, "Tests/Free", 43);
    ASSERT_EQ(messages.size(), 16u);
    for (const std::string& m : messages)
        EXPECT_EQ(m, "Memory Overrun!!\nAllocated at Tests/Here Line: 41\nHit cancel to debug");
    std::memcpy(first + 64, saved, sizeof saved);   // the block was left alone and can be freed once it is whole
    FreeMemoryKQ(second);
    FreeMemoryKQ(first);
}

TEST_F(Memory, UnderrunsComeBeforeOverrunsAndTheBlockIsFreed) {
    u8* p = Guarded(8);
    std::memset(p - 64, 0, 64 + 8 + 64);
    u32 freed = KQEnv->FreeCount;
    FreeMemoryKQ(p);
    ASSERT_EQ(messages.size(), 32u);
    EXPECT_EQ(messages[15].find("Memory Underrun!!"), 0u);
    EXPECT_EQ(messages[16].find("Memory Overrun!!"), 0u);
    EXPECT_EQ(KQEnv->FreeCount, freed + 1);
}

TEST_F(Memory, GuardThatHoldsThePointerDoesNotHideTheHeader) {
    u8* p = Guarded(8);
    for (int i = 1; i <= 8; ++i) std::memcpy(p - 8 * i, &p, 8);
    FreeMemoryKQ(p);
    EXPECT_EQ(messages.size(), 16u);
}

// Counts stops in the debugger and goes on behind them.
int stops = 0;

#if defined(_WIN32)
LONG CALLBACK CountStop(EXCEPTION_POINTERS* exception) {
    if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT) return EXCEPTION_CONTINUE_SEARCH;
    ++stops;
    exception->ContextRecord->Rip = reinterpret_cast<uptr>(exception->ExceptionRecord->ExceptionAddress) + 1;
    return EXCEPTION_CONTINUE_EXECUTION;
}

struct StopCounter {
    StopCounter() : handle(AddVectoredExceptionHandler(1, CountStop)) { stops = 0; }
    ~StopCounter() { RemoveVectoredExceptionHandler(handle); }
    void* handle;
};
#else
struct StopCounter {
    StopCounter() {
        stops = 0;
        std::signal(SIGTRAP, [](int) { ++stops; });
    }
    ~StopCounter() { std::signal(SIGTRAP, SIG_DFL); }
};
#endif

TEST_F(Memory, CancelStopsInTheDebuggerAtEachAlert) {
    StopCounter counter;
    u8* wall = Guarded(8);
    u8* p = Guarded(8);
    u8* wall2 = Guarded(8);
    p[-1] = p[8] = 0;
    answer = 0;
    FreeMemoryKQ(p);
    EXPECT_EQ(stops, 2);
    FreeMemoryKQ(p);
    EXPECT_EQ(stops, 3);
    FreeMemoryKQ(p + 8);
    EXPECT_EQ(stops, 4);
    answer = 1;
    FreeMemoryKQ(p);
    EXPECT_EQ(stops, 4);
    FreeMemoryKQ(wall);
    FreeMemoryKQ(wall2);
}

// ---- Memory status

TEST_F(Memory, PhysicalMemoryIsPartOfAllMemory) {
    u64 all = AvailableMemoryKQ(0);
    u64 physical = AvailableMemoryKQ(KQMEM_Physical);
    EXPECT_GT(physical, 0u);
    EXPECT_GT(all + (64 << 20), physical);
}

TEST_F(Memory, EveryFailingAllocationIsClean) {
    kqtest::FailEveryAllocation([] {
        u8* p = Guarded(100);
        u8* q = Bare(200000);
        FreeMemoryKQ(p);
        FreeMemoryKQ(q);
    });
}

// ---- Threads

// Each thread fills its blocks with a byte of its own; bytes of another would show that two blocks overlap.
void UseMemory(u32 seed, int calls) {
    std::mt19937 random(seed);
    std::vector<std::pair<u8*, size_t>> live;
    for (int i = 0; i < calls; ++i) {
        if (live.size() < 100) {
            size_t size = 1 + random() % 5000;
            u8* p = random() % 2 ? Guarded(size) : Bare(size);
            std::memset(p, int(seed), size);
            live.push_back({p, size});
            continue;
        }
        std::swap(live[random() % live.size()], live.back());
        auto [p, size] = live.back();
        live.pop_back();
        for (size_t k = 0; k < size; ++k) ASSERT_EQ(p[k], u8(seed));
        FreeMemoryKQ(p);
    }
    for (auto [p, size] : live) FreeMemoryKQ(p);
}

TEST_F(Memory, ThreadsShareTheHeap) {
    u32 allocated = KQEnv->AllocCount;
    std::vector<std::thread> threads;
    for (u32 seed = 1; seed <= 4; ++seed) threads.emplace_back(UseMemory, seed, 5000);
    for (std::thread& t : threads) t.join();
    EXPECT_GT(KQEnv->AllocCount, allocated + 4 * 2500);
    EXPECT_EQ(KQEnv->AllocCount - KQEnv->FreeCount, u32(kqtest::LiveBlocks()));
    EXPECT_TRUE(messages.empty());
}

}   // namespace
