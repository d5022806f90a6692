// The memory manager as a plain program: every chunk a row of blocks, the first fit found by looking at all of them.
// It knows nothing of pointers: places are offsets from the start of a chunk.
#pragma once

#include <list>
#include <optional>
#include <vector>

#include "Source/MemoryChunk.h"

namespace kqtest {

class MemoryModel {
public:
    struct Block {
        size_t offset;   // of the data from the start of the chunk
        size_t size;
        bool free;
    };

    struct Chunk {
        std::vector<Block> blocks;
        size_t bytes;

        size_t UseCount() const {
            size_t used = 0;
            for (const Block& b : blocks) used += !b.free;
            return used;
        }
    };

    // Where an allocation went.
    struct Where {
        Chunk* chunk;
        size_t offset;
    };

    std::list<Chunk> chunks;

    Where Allocate(size_t size, bool guarded) {
        size_t need = (size + 7) / 8 * 8 + (guarded ? 128 : 0);
        for (Chunk& chunk : chunks)
            for (size_t i = 0; i < chunk.blocks.size(); ++i)
                if (chunk.blocks[i].free && chunk.blocks[i].size >= need) return Take(chunk, i, need);
        size_t want = std::max<size_t>(need, 102400);
        size_t first = sizeof(KQMemoryChunk) + 2 * kHeader;
        chunks.push_back({{{first, want + kHeader, true}}, sizeof(KQMemoryChunk) + 4 * kHeader + want});
        return Take(chunks.back(), 0, need);
    }

    // Frees the block whose data stand at `offset`; true when its chunk went with it.
    bool Free(Chunk* chunk, size_t offset) {
        std::vector<Block>& blocks = chunk->blocks;
        size_t i = 0;
        while (blocks[i].offset != offset) ++i;
        blocks[i].free = true;
        if (i + 1 < blocks.size() && blocks[i + 1].free) Join(blocks, i);
        if (i > 0 && blocks[i - 1].free) Join(blocks, i - 1);
        if (chunk->UseCount() > 0) return false;
        chunks.remove_if([&](const Chunk& c) { return &c == chunk; });
        return true;
    }

private:
    static constexpr size_t kHeader = sizeof(KQBlockHeader);

    static Where Take(Chunk& chunk, size_t i, size_t need) {
        Block& block = chunk.blocks[i];
        size_t offset = block.offset;
        i64 rest = i64(block.size) - i64(need) - i64(kHeader);
        block.free = false;
        if (block.size > need && rest >= 0) {
            block.size = need;
            chunk.blocks.insert(chunk.blocks.begin() + std::ptrdiff_t(i) + 1,
                                {offset + need + kHeader, size_t(rest), true});
        }
        return {&chunk, offset};
    }

    static void Join(std::vector<Block>& blocks, size_t i) {
        blocks[i].size += blocks[i + 1].size + kHeader;
        blocks.erase(blocks.begin() + std::ptrdiff_t(i) + 1);
    }
};

}   // namespace kqtest
