// Released blocks of the size that the memory manager's ordinary chunks have, kept for the next one that asks: a chunk
// that comes and goes then costs no system call and no fresh page. The number is bounded; blocks of other sizes always
// go back to the host. For the files of a host alone.
#pragma once

#include <atomic>

#include "pal/memory.h"

namespace pal {

class BlockCache {
public:
    // Blocks are mapped in whole multiples of their alignment; only those of `kBytes` are kept.
    static constexpr size_t kBytes = 2 * kBlockAlignment;
    static constexpr int kMost = 256;

    static constexpr size_t Round(size_t bytes) { return (bytes + kBlockAlignment - 1) & ~(kBlockAlignment - 1); }

    // A kept block, or null.
    void* Take() {
        Lock();
        void* block = count_ > 0 ? blocks_[--count_] : nullptr;
        Unlock();
        return block;
    }

    // False when the cache is full and the caller has to give the block back.
    bool Keep(void* block) {
        Lock();
        bool room = count_ < kMost;
        if (room) blocks_[count_++] = block;
        Unlock();
        return room;
    }

private:
    // Held for a few instructions, so that waiting for it by turning is shorter than any wait in the kernel.
    void Lock() {
        while (busy_.test_and_set(std::memory_order_acquire))
            while (busy_.test(std::memory_order_relaxed)) {
            }
    }

    void Unlock() { busy_.clear(std::memory_order_release); }

    std::atomic_flag busy_;
    int count_ = 0;
    void* blocks_[kMost] = {};
};

}   // namespace pal
