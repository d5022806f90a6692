// Moves that only put bytes elsewhere, as tables of byte places: every byte of a target row comes from a fixed byte of
// the source row, for all rows alike. A table is made once for a strip of columns and used for each of its rows, by one
// byte permutation an entry. Copies with conversion are the case where the columns follow each other.
//
// The window of an entry, the source bytes that its permutation chooses from, lies inside the source row: nothing
// else is read.
#pragma once

#include "Source/Sampling.h"

namespace kq {

// Bytes of a target row that one table covers.
inline constexpr i64 kStripBytes = 15 * 1024;

// How a move changes the bytes that it has put in place: (byte & keep) | set, and bytes of the target that stay.
struct ByteRule {
    alignas(64) u8 keep[64];
    alignas(64) u8 set[64];
    u64 stay;   // bit k: byte k of each entry is left alone
};

// Entries of `size` bytes of target, the first and the last may have less.
template <i64 size, i64 places>
struct ShuffleTable {
    static constexpr i64 kSize = size;
    static constexpr i64 kMost = kStripBytes / size + 2;

    alignas(64) u8 place[kMost][places];   // of each byte in the entry's window; see MakeTable
    i32 window[kMost];                     // first source byte of each entry's window
    i64 head;                              // bytes of the first entry
    i64 bytes;                             // of the whole strip
    ByteRule rule;

    i64 Entries() const { return bytes <= head ? 1 : 1 + (bytes - head + size - 1) / size; }
};

// For registers of 64 bytes: a place is 0 to 255 in a window of 64, 128 or 256 bytes.
using WideTable = ShuffleTable<64, 64>;

// For lanes of 16 bytes: two rows of 16 places, in the first and the second half of a window of 32 bytes; a place with
// the top bit set gives 0.
using LaneTable = ShuffleTable<16, 32>;

// Whether the move is one of bytes.
bool IsShuffle(Form from, Form to);

// Makes the table for target columns `first` to `first` + `count`, whose first entry has `head` bytes, 1 to the entry's
// size, whole pixels unless they have 3 bytes. False when the source row is shorter than the window or an entry's
// bytes lie too far apart for it.
bool MakeTable(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, i64 window, WideTable* table);
bool MakeTable(const Sampling& work, Form from, Form to, i64 first, i64 count, i64 head, i64 window, LaneTable* table);

// One row of a strip, `row` the source row's first byte and `to` the strip's. With `stream`, which wants the entries
// behind the first aligned to their size, the target goes past the caches.
void ShuffleRowAvx512(const WideTable& table, i64 window, const SourceBytes& row, u8* to, bool stream);
void ShuffleRowAvx2(const LaneTable& table, const SourceBytes& row, u8* to, bool stream);

}   // namespace kq
