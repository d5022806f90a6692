// Channel values: bytes, words of 16 bits and floats.
#pragma once

#include "kq/types.h"

namespace kq {

// A byte as 16 bits: 0xAB becomes 0xABAB.
constexpr u16 Widen(u8 byte) { return u16(byte * 0x101); }

// truncate(0.5 + value * 255), low 8 bits: a value above 1.0 wraps. A value that no 64-bit integer holds gives 0.
inline u8 UnitToByte(f64 value) {
    f64 scaled = 0.5 + value * 255.0;
    constexpr f64 kLimit = 9223372036854775808.0;
    return scaled > -kLimit && scaled < kLimit ? u8(i64(scaled)) : u8(0);
}

}   // namespace kq
