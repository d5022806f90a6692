// How long runs of bytes are written: alignment, prefetch, and the processor's string instructions. The latter take
// whole cache lines over without fetching them first, which saves a third of a copy's traffic and half of a fill's, and
// unlike stores past the caches they leave a target that fits there.
//
// A kernel that makes its bytes in registers gets the same by making a strip of a row in a stage that stays in the
// first cache, and moving it out from there.
#pragma once

#include <cstring>

#include "Source/Simd.h"

#if defined(KQ_SIMD_X86)
#include <cpuid.h>
#endif

namespace kq {

// Bytes of a move from which on the instructions pay for their start.
inline constexpr i64 kStringBytes = 2048;

// Targets from this size on are written by them; smaller ones stay in the second cache, where plain stores are as fast.
inline constexpr i64 kStringTarget = i64(1) << 20;

// Pixels of `bytes` bytes before `to` is aligned; 0 when it never is.
inline i64 PixelsToAlignment(const u8* to, i64 bytes, i64 alignment) {
    i64 gap = i64(-reinterpret_cast<uptr>(to) & uptr(alignment - 1));
    return gap % bytes ? 0 : gap / bytes;
}

inline bool IsAligned(const u8* to, uptr alignment) { return reinterpret_cast<uptr>(to) % alignment == 0; }

// Asks for the line at `to`, which need not be there, as one that will be written.
inline void PrefetchForWrite(const u8* to) {
#if defined(KQ_SIMD_X86)
    asm volatile("prefetchw %0" : : "m"(*to));
#else
    __builtin_prefetch(to, 1);
#endif
}

// Asks for the line at `from`, which need not be there.
inline void PrefetchForRead(const u8* from) { __builtin_prefetch(from); }

// Whether the processor says that its string instructions are fast.
inline bool HasFastStrings() {
#if defined(KQ_SIMD_X86)
    static const bool fast = [] {
        unsigned a, b, c, d;
        return __get_cpuid_count(7, 0, &a, &b, &c, &d) && (b >> 9 & 1);
    }();
    return fast;
#else
    return false;
#endif
}

// Moves `bytes` bytes between blocks that share no memory; wants HasFastStrings.
inline void StringCopy(u8* to, const u8* from, i64 bytes) {
#if defined(KQ_SIMD_X86)
    asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(bytes) : : "memory");
#else
    std::memcpy(to, from, size_t(bytes));
#endif
}

// Stores `pattern` `count` times; wants HasFastStrings.
inline void StringFill(u8* to, u64 pattern, i64 count) {
#if defined(KQ_SIMD_X86)
    asm volatile("rep stosq" : "+D"(to), "+c"(count) : "a"(pattern) : "memory");
#else
    for (i64 i = 0; i < count; ++i) std::memcpy(to + i * 8, &pattern, 8);
#endif
}

}   // namespace kq
