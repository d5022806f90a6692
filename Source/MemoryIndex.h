// A tree of upper bounds over a row of places: finds the first place, at or behind a given one, whose value is large
// enough, in O(log n).
//
// The row is cut into groups of 16, one cache line each; each group has one bound in the level above, and so on up to a
// single group. A bound is never below the values it stands for but may be above: a value that shrinks leaves the
// bounds as they are, and a search that a bound misled lowers it on its way. Each loss is so paid for once, by the
// first search that meets it, and most are overtaken by the next gain. The tree owns no memory.
#pragma once

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "kq/types.h"

namespace kq {

class BoundTree {
public:
    static constexpr u32 kNone = ~u32(0);

    // The storage that a tree over `places` places wants, in bytes; it is to be aligned to 64 bytes.
    static size_t StorageBytes(u32 places) {
        BoundTree tree;
        tree.Shape(places);
        return tree.levels_[tree.depth_] * sizeof(i32);
    }

    // Makes the tree over `storage`, all values 0.
    void Make(void* storage, u32 places) {
        Shape(places);
        values_ = static_cast<i32*>(storage);
        std::memset(values_, 0, levels_[depth_] * sizeof(i32));
    }

    // The value of a place grows to `value`, or stays when it is that large already.
    void Raise(u32 place, i32 value) {
        for (u32 level = 0; level < depth_; ++level, place /= kFan) {
            i32& bound = values_[levels_[level] + place];
            if (bound >= value) return;
            bound = value;
        }
    }

    // The value of a place shrinks to `value`.
    void Lower(u32 place, i32 value) { values_[place] = value; }

    i32 Value(u32 place) const { return values_[place]; }

    // The first place with at least `value` (1 or more), or kNone.
    u32 FindFirst(i32 value) { return Find(depth_ - 1, 0, value); }

    // The same, at or behind `place`.
    u32 FindFrom(u32 place, i32 value) { return place < levels_[1] ? Find(0, place, value) : kNone; }

    // An upper bound of all values.
    i32 Top() const { return Largest(values_ + levels_[depth_ - 1]); }

private:
    static constexpr u32 kFan = 16;
    static constexpr u32 kMostLevels = 8;   // 16^8 places: every u32

    // One bit for each value of the group that is `value` or more.
    static u32 AtLeast(const i32* group, i32 value) {
#if defined(__SSE2__)
        const __m128i* four = reinterpret_cast<const __m128i*>(group);
        __m128i below = _mm_set1_epi32(value - 1);
        __m128i low = _mm_packs_epi32(_mm_cmpgt_epi32(four[0], below), _mm_cmpgt_epi32(four[1], below));
        __m128i high = _mm_packs_epi32(_mm_cmpgt_epi32(four[2], below), _mm_cmpgt_epi32(four[3], below));
        return u32(_mm_movemask_epi8(_mm_packs_epi16(low, high)));
#else
        u32 bits = 0;
        for (u32 i = 0; i < kFan; ++i) bits |= u32(group[i] >= value) << i;
        return bits;
#endif
    }

    static i32 Largest(const i32* group) {
        i32 largest = 0;
        for (u32 i = 0; i < kFan; ++i) largest = std::max(largest, group[i]);
        return largest;
    }

    void Shape(u32 places) {
        u32 offset = 0;
        depth_ = 0;
        do {
            places = (places + kFan - 1) / kFan;
            levels_[depth_++] = offset;
            offset += places * kFan;
        } while (places > 1);
        levels_[depth_] = offset;
    }

    // Looks in the group of `place` at `level` from that place on: descends where the bound promises enough, else
    // lowers the group's bound and climbs to the groups behind it.
    u32 Find(u32 level, u32 place, i32 value) {
        for (;;) {
            u32 group = place & ~(kFan - 1);
            const i32* values = values_ + levels_[level] + group;
            u32 enough = AtLeast(values, value);
            if (u32 behind = enough >> (place % kFan)) {
                place += u32(std::countr_zero(behind));
                if (level == 0) return place;
                --level;
                place *= kFan;
                continue;
            }
            if (++level == depth_) return kNone;
            i32* bounds = values_ + levels_[level];
            if (!enough) bounds[group / kFan] = Largest(values);
            place = group / kFan + 1;
            if (place >= levels_[level + 1] - levels_[level]) return kNone;
        }
    }

    i32* values_ = nullptr;
    u32 levels_[kMostLevels + 1] = {};   // where each level starts, in words; then the end
    u32 depth_ = 0;
};

}   // namespace kq
