#include "pal/blockcache.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

constexpr size_t kUnit = pal::kBlockAlignment;
constexpr size_t kChunk = 2 * kUnit;
constexpr size_t kMega = size_t(1) << 20;

// The cache never looks into a block, so any addresses do.
class BlockCache : public testing::Test {
protected:
    void* Block(size_t number) { return bytes_ + number; }

    void Keep(size_t number, size_t length) {
        cache.Keep(Block(number), length, [&](void* block, size_t released) {
            out.push_back({size_t(static_cast<char*>(block) - bytes_), released});
        });
    }

    using Out = std::vector<std::pair<size_t, size_t>>;

    pal::BlockCache cache;
    Out out;   // what was released: number and length

private:
    char bytes_[1024];
};

TEST_F(BlockCache, GivesNothingAtFirst) {
    EXPECT_EQ(cache.Take(kChunk), nullptr);
    EXPECT_EQ(cache.Take(kMega), nullptr);
}

TEST_F(BlockCache, GivesABlockOfExactlyTheLengthOnce) {
    Keep(1, kMega);
    Keep(2, kChunk);
    EXPECT_EQ(cache.Take(kMega - kUnit), nullptr);
    EXPECT_EQ(cache.Take(kMega + kUnit), nullptr);
    EXPECT_EQ(cache.Take(kMega), Block(1));
    EXPECT_EQ(cache.Take(kMega), nullptr);
    EXPECT_EQ(cache.Take(kChunk), Block(2));
    EXPECT_EQ(cache.Take(kChunk), nullptr);
    EXPECT_TRUE(out.empty());
}

TEST_F(BlockCache, KeepsManyChunksAndReleasesTheRest) {
    for (size_t i = 0; i < 257; ++i) Keep(i, kChunk);
    EXPECT_EQ(out, (Out{{256, kChunk}}));
    for (int i = 0; i < 256; ++i) EXPECT_NE(cache.Take(kChunk), nullptr);
    EXPECT_EQ(cache.Take(kChunk), nullptr);
}

TEST_F(BlockCache, OldestLargeBlockMakesRoomForTheFifth) {
    for (size_t i = 1; i <= 5; ++i) Keep(i, i * kMega);
    EXPECT_EQ(out, (Out{{1, kMega}}));
    EXPECT_EQ(cache.Take(kMega), nullptr);
    for (size_t i = 2; i <= 5; ++i) EXPECT_EQ(cache.Take(i * kMega), Block(i));
}

TEST_F(BlockCache, LargeBlocksMakeRoomForTheBytesOfANewOne) {
    Keep(1, 10 * kMega);
    Keep(2, 10 * kMega);
    Keep(3, 10 * kMega);
    Keep(4, 20 * kMega);
    EXPECT_EQ(out, (Out{{1, 10 * kMega}, {2, 10 * kMega}}));
    EXPECT_EQ(cache.Take(10 * kMega), Block(3));
    EXPECT_EQ(cache.Take(20 * kMega), Block(4));
}

TEST_F(BlockCache, BlockThatIsTooLargeIsReleasedAndNothingElse) {
    Keep(1, kMega);
    Keep(2, 32 * kMega + kUnit);
    EXPECT_EQ(out, (Out{{2, 32 * kMega + kUnit}}));
    EXPECT_EQ(cache.Take(kMega), Block(1));
}

TEST_F(BlockCache, ThreadsNeverShareABlock) {
    constexpr size_t kThreads = 4, kRounds = 20000;
    char owned[kThreads] = {};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            void* mine = &owned[t];
            for (size_t i = 0; i < kRounds; ++i) {
                ++*static_cast<char*>(mine);   // the thread sanitizer sees two owners here
                cache.Keep(mine, kMega, [](void*, size_t) { ADD_FAILURE() << "there is room for all"; });
                do mine = cache.Take(kMega);
                while (!mine);
            }
        });
    for (std::thread& thread : threads) thread.join();
    u8 sum = 0;
    for (char count : owned) sum = u8(sum + u8(count));
    EXPECT_EQ(sum, u8(kThreads * kRounds));
}

}   // namespace
