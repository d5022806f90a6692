// The platform's blocks that are kept for the next of their size.
#include "pal/blockcache.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <set>

#include "pal/memory.h"

namespace {

TEST(blockcache, LargeBlockThatWentIsThereForTheNextOfItsSize) {
    auto block = static_cast<u8*>(pal::BlockAlloc(8294400));
    pal::BlockFree(block, 8294400);
    auto again = static_cast<u8*>(pal::BlockAlloc(8294000));
    EXPECT_EQ(again, block);
    std::memset(again, 1, 8294000);
    pal::BlockFree(again, 8294000);
}

TEST(blockcache, RoundingCoversTheBytesAndWastesASixteenthAtMost) {
    for (size_t bytes = 1; bytes < size_t(300) << 20; bytes += bytes / 7 + 1) {
        size_t length = pal::BlockCache::Round(bytes);
        ASSERT_GE(length, bytes);
        ASSERT_EQ(length % pal::kBlockAlignment, 0u);
        ASSERT_LE(length - bytes, std::max(bytes / 16, pal::kBlockAlignment));
        ASSERT_EQ(pal::BlockCache::Round(length), length);
    }
    EXPECT_EQ(pal::BlockCache::Round(SIZE_MAX), 0u);
}

// Every block is in the cache once or was given back, a taken one has the length asked for, and the bounds hold.
TEST(blockcache, KeepsEachBlockOnceAndWithinItsBounds) {
    using Cache = pal::BlockCache;
    u32 seed = 20240609;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    auto cache = std::make_unique<Cache>();
    std::set<std::pair<void*, size_t>> kept;
    uptr next = 1;
    for (int i = 0; i < 20000; ++i) {
        size_t length = random() % 2 ? Cache::kBytes : Cache::Round(size_t(1) << (random() % 28));
        if (random() % 3) {
            Cache::Block back[Cache::kMostLarge];
            Cache::Block block = {reinterpret_cast<void*>(next++), length};
            kept.insert({block.place, length});
            int count = cache->Keep(block, back);
            ASSERT_LE(count, Cache::kMostLarge);
            for (int k = 0; k < count; ++k) ASSERT_EQ(kept.erase({back[k].place, back[k].bytes}), 1u);
        } else if (void* place = cache->Take(length)) {
            ASSERT_EQ(kept.erase({place, length}), 1u);
        } else {
            for (const auto& [other, bytes] : kept) ASSERT_NE(bytes, length);
        }
        size_t large = 0, ordinary = 0;
        for (const auto& [place, bytes] : kept) (bytes == Cache::kBytes ? ordinary : large) += bytes;
        ASSERT_LE(large, Cache::kMostLargeBytes);
        ASSERT_LE(ordinary, Cache::kMost * Cache::kBytes);
    }
    for (Cache::Block block; cache->TakeAny(&block);) ASSERT_EQ(kept.erase({block.place, block.bytes}), 1u);
    EXPECT_TRUE(kept.empty());
}

}   // namespace
