// Released blocks that are kept for the next one that asks for their length: a chunk of the memory manager that comes
// and goes, or a frame, then costs no system call and no fresh pages, which take longer to touch for the first time
// than to fill. Number and bytes are bounded. For the files of a host alone.
#pragma once

#include <atomic>

#include "pal/memory.h"

namespace pal {

class BlockCache {
public:
    // Blocks are mapped in whole multiples of their alignment.
    static constexpr size_t Round(size_t bytes) { return (bytes + kBlockAlignment - 1) & ~(kBlockAlignment - 1); }

    // A kept block of this rounded length, or null.
    void* Take(size_t length) {
        Lock lock(busy_);
        if (length == kChunkBytes) return chunkCount_ > 0 ? chunks_[--chunkCount_] : nullptr;
        for (int i = largeCount_; i-- > 0;)
            if (large_[i].length == length) return TakeOut(i).block;
        return nullptr;
    }

    // Keeps the block, and calls `release(block, length)` for each one that is not, or no longer, kept.
    template <class Release>
    void Keep(void* block, size_t length, Release release) {
        Kept surplus[kMostLarge + 1];
        int count = Add({block, length}, surplus);
        for (int i = 0; i < count; ++i) release(surplus[i].block, surplus[i].length);
    }

private:
    // The length of the memory manager's ordinary chunks, of which many are kept, and the bounds for them and for the
    // few of other lengths.
    static constexpr size_t kChunkBytes = 2 * kBlockAlignment;
    static constexpr int kMostChunks = 256;
    static constexpr int kMostLarge = 4;
    static constexpr size_t kMostLargeBytes = size_t(32) << 20;

    struct Kept {
        void* block;
        size_t length;
    };

    // Held for a few instructions, so that waiting for it by turning is shorter than any wait in the kernel.
    class Lock {
    public:
        explicit Lock(std::atomic_flag& busy) : busy_(busy) {
            while (busy_.test_and_set(std::memory_order_acquire))
                while (busy_.test(std::memory_order_relaxed)) {
                }
        }

        ~Lock() { busy_.clear(std::memory_order_release); }

        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        std::atomic_flag& busy_;
    };

    Kept TakeOut(int at) {
        Kept taken = large_[at];
        --largeCount_;
        for (int i = at; i < largeCount_; ++i) large_[i] = large_[i + 1];
        largeBytes_ -= taken.length;
        return taken;
    }

    // Keeps what there is room for; the oldest of the large ones make room. Returns how many go to `surplus`.
    int Add(Kept added, Kept surplus[kMostLarge + 1]) {
        Lock lock(busy_);
        if (added.length == kChunkBytes && chunkCount_ < kMostChunks) {
            chunks_[chunkCount_++] = added.block;
            return 0;
        }
        int count = 0;
        if (added.length == kChunkBytes || added.length > kMostLargeBytes) {
            surplus[count++] = added;
            return count;
        }
        while (largeCount_ == kMostLarge || largeBytes_ + added.length > kMostLargeBytes) surplus[count++] = TakeOut(0);
        large_[largeCount_++] = added;
        largeBytes_ += added.length;
        return count;
    }

    std::atomic_flag busy_;
    int chunkCount_ = 0;
    int largeCount_ = 0;
    size_t largeBytes_ = 0;
    Kept large_[kMostLarge] = {};   // the oldest first
    void* chunks_[kMostChunks] = {};
};

}   // namespace pal
