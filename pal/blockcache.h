// Released blocks, kept for the next one that asks for as many bytes: a chunk or a frame that comes and goes then costs
// no system call and no fresh page. For the files of a host alone.
//
// Two kinds are kept, each to a bound: blocks of the size that the memory manager's ordinary chunks have, and larger
// ones up to the size of a large frame. Of the larger ones the latest are kept, the oldest go back to the host.
#pragma once

#include <atomic>

#include "pal/memory.h"

namespace pal {

class BlockCache {
public:
    struct Block {
        void* place;
        size_t bytes;
    };

    static constexpr size_t kBytes = 2 * kBlockAlignment;   // of the blocks of ordinary chunks
    static constexpr int kMost = 256;                       // of these: 32 MB
    static constexpr int kMostLarge = 16;
    static constexpr size_t kMostLargeBytes = size_t(64) << 20;   // of all large ones together

    // The length in which a block is mapped: a multiple of the alignment, or for large blocks of a sixteenth of the
    // power of two below, so that the next frame or file of nearly the same size finds a kept block. Less than `bytes`
    // where that overflows.
    static constexpr size_t Round(size_t bytes) {
        size_t step = kBlockAlignment;
        while (bytes <= kMostLargeBytes && step * 32 <= bytes) step *= 2;
        return (bytes + step - 1) & ~(step - 1);
    }

    // A kept block of exactly `bytes`, or null.
    void* Take(size_t bytes) {
        if (bytes != kBytes && bytes > kMostLargeBytes) return nullptr;
        Lock();
        void* place = bytes == kBytes ? TakeOrdinary() : TakeLarge(bytes);
        Unlock();
        return place;
    }

    // Keeps the block, whose bytes are rounded, or does not. What the caller has to give back to the host then, the
    // block or others, goes to `back`; returns how many.
    int Keep(Block block, Block back[kMostLarge]) {
        if (block.bytes > kMostLargeBytes) {
            back[0] = block;
            return 1;
        }
        Lock();
        int count = block.bytes == kBytes ? KeepOrdinary(block, back) : KeepLarge(block, back);
        Unlock();
        return count;
    }

    // Takes out any block for the caller to give back; false when none is kept.
    bool TakeAny(Block* block) {
        Lock();
        bool any = true;
        if (large_ > 0)
            *block = TakeLargeAt(0);
        else if (ordinary_ > 0)
            *block = {TakeOrdinary(), kBytes};
        else
            any = false;
        Unlock();
        return any;
    }

private:
    void* TakeOrdinary() { return ordinary_ > 0 ? ordinaryBlocks_[--ordinary_] : nullptr; }

    int KeepOrdinary(Block block, Block* back) {
        if (ordinary_ == kMost) {
            back[0] = block;
            return 1;
        }
        ordinaryBlocks_[ordinary_++] = block.place;
        return 0;
    }

    Block TakeLargeAt(int i) {
        Block block = largeBlocks_[i];
        --large_;
        largeBytes_ -= block.bytes;
        for (; i < large_; ++i) largeBlocks_[i] = largeBlocks_[i + 1];
        return block;
    }

    // The latest is the likeliest to be in the processor's cache still.
    void* TakeLarge(size_t bytes) {
        for (int i = large_ - 1; i >= 0; --i)
            if (largeBlocks_[i].bytes == bytes) return TakeLargeAt(i).place;
        return nullptr;
    }

    int KeepLarge(Block block, Block* back) {
        int count = 0;
        while (large_ == kMostLarge || largeBytes_ + block.bytes > kMostLargeBytes) back[count++] = TakeLargeAt(0);
        largeBlocks_[large_++] = block;
        largeBytes_ += block.bytes;
        return count;
    }

    // Held for a few instructions, so that waiting for it by turning is shorter than any wait in the kernel.
    void Lock() {
        while (busy_.test_and_set(std::memory_order_acquire))
            while (busy_.test(std::memory_order_relaxed)) {
            }
    }

    void Unlock() { busy_.clear(std::memory_order_release); }

    std::atomic_flag busy_;
    int ordinary_ = 0, large_ = 0;
    size_t largeBytes_ = 0;
    void* ordinaryBlocks_[kMost] = {};
    Block largeBlocks_[kMostLarge] = {};   // the oldest first
};

}   // namespace pal
