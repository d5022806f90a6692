// What an open font has learnt of the 8-bit characters: their glyphs, where the runs of their outlines lie, and where
// the search for a kerning pair may begin and end.
//
// Nothing of a table is copied and no result is kept: the index holds places, each found and checked at its first use.
// A font that gets no memory for it looks everything up anew and answers the same.
#pragma once

#include "Source/TrueTypeTables.h"

namespace kq::truetype {

struct OutlinePlan;

// The glyph of a character that was not asked for yet.
inline constexpr i32 kUnknownGlyph = -2;

struct CharacterIndex {
    i32 glyphs[256];           // as GlyphOf has them, or kUnknownGlyph
    OutlinePlan* plans[256];   // null: none yet, or none that can be kept
    bool kernReady;            // the ranges below are there
    u16 kernFirst[256];        // the first pair with this character on the left
    u16 kernCount[256];
};

// The font's index, made at the first call; null, with `Error` as it was, when there is no memory for it.
CharacterIndex* IndexOf(KQFont* font);

// Frees the index; nothing happens when there is none.
void FreeIndex(KQFont* font);

// GlyphOf, by the index when there is one.
inline i32 GlyphBy(CharacterIndex* index, const KQFont* font, u8 character) {
    if (!index) return GlyphOf(font, character);
    i32& glyph = index->glyphs[character];
    if (glyph == kUnknownGlyph) glyph = GlyphOf(font, character);
    return glyph;
}

}   // namespace kq::truetype
