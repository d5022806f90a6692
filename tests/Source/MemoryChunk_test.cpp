// The heap's chunks beside a plain model of them, and the index that finds their free blocks.
#include "Source/MemoryChunk.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "Source/Startup.h"
#include "pal/memory.h"
#include "support/MemoryModel.h"
#include "support/MemoryTest.h"

namespace {

using namespace kqtest;

class MemoryChunk : public MemoryTest {};

// One of our chunks beside one of the model's, list by list.
void ExpectSameChunk(const KQMemoryChunk* chunk, const kqtest::MemoryModel::Chunk& model) {
    ASSERT_EQ(chunk->Bytes, model.bytes);
    ASSERT_EQ(chunk->UseCount, model.UseCount());
    std::vector<KQBlockHeader*> blocks = Headers(chunk->Blocks), free = Headers(chunk->Free);
    ASSERT_EQ(blocks.size() + free.size(), model.blocks.size() + 2);
    size_t b = 1, f = 0;
    for (const auto& expected : model.blocks) {
        const KQBlockHeader* h = expected.free ? free.at(f++) : blocks.at(b++);
        ASSERT_EQ(size_t(h->Data - reinterpret_cast<const u8*>(chunk)), expected.offset);
        ASSERT_EQ(h->Size, expected.size);
        ASSERT_EQ((h->Flags & KQMEM_Freed) != 0, expected.free);
        ASSERT_EQ(h->Chunk, chunk);
    }
}

void ExpectSame(const kqtest::MemoryModel& model) {
    std::vector<KQMemoryChunk*> chunks = Chunks();
    ASSERT_EQ(chunks.size(), model.chunks.size());
    size_t i = 0;
    for (const auto& expected : model.chunks) {
        ExpectSameChunk(chunks[i++], expected);
        if (testing::Test::HasFatalFailure()) return;
    }
}

struct LiveBlock {
    u8* user;
    kqtest::MemoryModel::Where where;
};

using Sizes = std::function<size_t(std::mt19937&)>;

// Random calls; the number of live blocks wanders between none and `most`.
void RunAgainstModel(u32 seed, int calls, size_t most, const Sizes& size, int compareEach) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    kqtest::MemoryModel model;
    std::vector<LiveBlock> live;
    size_t goal = most;
    for (int i = 0; i < calls; ++i) {
        if (random() % (most * 2) == 0) goal = random() % most;
        bool allocate = live.empty() || (live.size() < goal ? random() % 4 != 0 : random() % 4 == 0);
        if (allocate) {
            size_t bytes = size(random);
            bool guarded = random() % 2;
            u8* user = guarded ? Guarded(bytes) : Bare(bytes);
            ASSERT_NE(user, nullptr);
            auto where = model.Allocate(bytes, guarded);
            KQBlockHeader* h = guarded ? GuardedHeaderOf(user) : HeaderOf(user);
            ASSERT_EQ(size_t(h->Data - reinterpret_cast<u8*>(h->Chunk)), where.offset) << "call " << i;
            live.push_back({user, where});
        } else {
            size_t pick = random() % 3 == 0 ? live.size() - 1 : random() % live.size();
            FreeMemoryKQ(live[pick].user);
            model.Free(live[pick].where.chunk, live[pick].where.offset);
            live.erase(live.begin() + std::ptrdiff_t(pick));
        }
        if (i % compareEach == 0) ExpectSame(model);
        if (testing::Test::HasFatalFailure()) break;
    }
    for (const LiveBlock& block : live) {
        FreeMemoryKQ(block.user);
        model.Free(block.where.chunk, block.where.offset);
    }
    ExpectSame(model);
}

// The manager alone, on an environment that nobody has started: its heap is as empty as the model's.
class MemoryChunkAlone : public testing::Test {
protected:
    void SetUp() override {
        KQEnv = &environment_;
        NewList(&KQEnv->MemoryChunks);
    }

    void TearDown() override {
        EXPECT_TRUE(List_Empty(&KQEnv->MemoryChunks));
        EXPECT_EQ(KQEnv->AllocCount, KQEnv->FreeCount);
        KQEnv = nullptr;
    }

private:
    KQEnvironment environment_{};
};

class MemoryChunkAgainstModel : public MemoryChunkAlone, public testing::WithParamInterface<u32> {};

TEST_P(MemoryChunkAgainstModel, SmallBlocksStandWhereTheModelHasThem) {
    RunAgainstModel(
        GetParam(), 6000, 200, [](std::mt19937& random) { return random() % 300; }, 1);
}

TEST_P(MemoryChunkAgainstModel, BlocksOfAllSizesStandWhereTheModelHasThem) {
    auto size = [](std::mt19937& random) { return random() % (size_t(1) << (1 + random() % 17)); };
    RunAgainstModel(GetParam(), 6000, 300, size, 3);
}

TEST_P(MemoryChunkAgainstModel, ManyChunksKeepTheirOrder) {
    auto size = [](std::mt19937& random) { return 20000 + random() % 90000; };
    RunAgainstModel(GetParam(), 8000, 1500, size, 50);
}

TEST_P(MemoryChunkAgainstModel, LargeChunksWithSmallBlocksKeepTheirOrder) {
    auto size = [](std::mt19937& random) {
        return random() % 20 == 0 ? 300000 + random() % 3000000 : random() % 5 == 0 ? 0 : random() % 3000;
    };
    RunAgainstModel(GetParam(), 6000, 400, size, 10);
}

INSTANTIATE_TEST_SUITE_P(Seeds, MemoryChunkAgainstModel, testing::Values(1u, 2u, 3u));

// More chunks than the table starts with, gone in an order that leaves holes, and made again.
TEST_F(MemoryChunk, TableOfChunksGrowsAndIsMovedTogether) {
    std::vector<u8*> live;
    for (int i = 0; i < 1300; ++i) live.push_back(Bare(102400));
    for (size_t i = 0; i < live.size(); ++i)
        if (i % 5) FreeMemoryKQ(live[i]);
    std::vector<u8*> kept;
    for (size_t i = 0; i < live.size(); i += 5) kept.push_back(live[i]);
    for (int i = 0; i < 1300; ++i) kept.push_back(Bare(102400));
    std::vector<KQMemoryChunk*> chunks = Chunks();
    size_t skip = chunks.size() - kept.size();
    for (size_t i = 0; i < kept.size(); ++i) ASSERT_EQ(chunks[skip + i], HeaderOf(kept[i])->Chunk);
    for (u8* p : kept) FreeMemoryKQ(p);
    EXPECT_EQ(Chunks().size(), skip);
    EXPECT_TRUE(messages.empty());
}

TEST(MemoryChunkStart, StartThatFailsLeavesNoChunk) {
    for (i64 n = 1;; ++n) {
        kq::allocationFaults.Set(n, false);
        KQEnvironment* started = kqtest::InitWithoutWindow();
        kq::allocationFaults.Clear();
        if (!started) {
            EXPECT_EQ(pal::BlocksOut(), 0) << "allocation " << n;
            continue;
        }
        CleanUpKQ();
        if (n > 1) break;
    }
}

TEST_F(MemoryChunkAlone, ChunksThatAFailedStartLeavesAreForgotten) {
    Bare(102400);
    Bare(10);
    kq::ReleaseMemoryChunks();
    EXPECT_EQ(pal::BlocksOut(), 0);
    u8* p = Bare(10);
    EXPECT_EQ(reinterpret_cast<u8*>(HeaderOf(p)), reinterpret_cast<u8*>(Chunks().at(0)) + kq::kFirstBlockOffset);
    FreeMemoryKQ(p);
    KQEnv->AllocCount = KQEnv->FreeCount;
}

// The index alone.

TEST(MemoryChunkIndex, FindsWhatALinearSearchFinds) {
    u32 seed = 20240607;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    for (u32 places : {1u, 15u, 16u, 17u, 256u, 257u, 5000u}) {
        struct Line {
            alignas(64) u8 bytes[64];
        };
        std::vector<Line> storage(kq::BoundTree::StorageBytes(places) / 64);
        ASSERT_EQ(kq::BoundTree::StorageBytes(places) % 64, 0u);
        kq::BoundTree tree;
        tree.Make(storage.data(), places);
        std::vector<i32> plain(places, 0);
        for (int i = 0; i < 20000; ++i) {
            u32 place = random() % places;
            i32 value = i32(random() >> (random() % 31 + 1));
            if (random() % 2) {
                plain[place] = std::max(plain[place], value);
                tree.Raise(place, value);
            } else {
                plain[place] = std::min(plain[place], value);
                tree.Lower(place, plain[place]);
            }
            i32 wanted = 1 + i32(random() >> (random() % 30 + 2));
            u32 from = random() % 4 ? random() % places : 0;
            u32 expected = from;
            while (expected < places && plain[expected] < wanted) ++expected;
            if (expected == places) expected = kq::BoundTree::kNone;
            ASSERT_EQ(from ? tree.FindFrom(from, wanted) : tree.FindFirst(wanted), expected);
            ASSERT_GE(tree.Top(), plain[place]);
        }
        EXPECT_EQ(tree.FindFrom((places + 15) / 16 * 16, 1), kq::BoundTree::kNone);
    }
}

}   // namespace
