// The tables of a TrueType file, read in place.
//
// A Table is a stretch of the file whose reads are checked: what lies outside does not exist. Nothing is decoded or
// copied; every answer is looked up when it is asked for.
#pragma once

#include "Source/ByteOrder.h"
#include "kq/font.h"

namespace kq::truetype {

// A stretch of big-endian data.
struct Table {
    const u8* data;
    size_t size;

    bool Has(size_t offset, size_t count) const { return offset <= size && count <= size - offset; }

    // What lies from `offset` on; empty when nothing does.
    Table From(size_t offset) const { return offset <= size ? Table{data + offset, size - offset} : Table{data, 0}; }

    // Unchecked words; the caller has asked Has.
    u16 U16(size_t offset) const { return Big16(data + offset); }

    i16 I16(size_t offset) const { return i16(Big16(data + offset)); }

    u32 U32(size_t offset) const { return Big32(data + offset); }
};

// Where the directory of face `index` begins in a file that may be a collection; false when it has no such face.
bool FindDirectory(const Table& file, u32 index, size_t* directory);

// The table `tag` of the face whose directory begins at `directory`; no data when there is none. A table that reaches
// past the end of the file is cut there.
Table FindTable(const Table& file, size_t directory, u32 tag);

// Points the font's table fields into its `fontData` of `fontBytes` bytes and computes the scales from its size and
// resolutions. False when a table is missing or too short for its fixed part, or the em has no units.
bool UseFontData(KQFont* font, size_t directory);

// The glyph of a character: 0 for one that the font does not know, -1 when the character map cannot tell.
i32 GlyphOf(const KQFont* font, u8 character);

// The bytes of a glyph, empty for one that shows nothing; false when the tables have no such glyph.
bool FindGlyph(const KQFont* font, u32 glyph, Table* bytes);

// The advance of a glyph in font units; 0 when the table ends before it.
u16 AdvanceOf(const KQFont* font, u32 glyph);

// The left side bearing of a glyph in font units; false when the table ends before it.
bool BearingOf(const KQFont* font, u32 glyph, i16* bearing);

// Flags of a component.
enum : u16 {
    kWordArguments = 1,
    kArgumentsAreOffset = 2,
    kOneScale = 8,
    kMoreComponents = 32,
    kTwoScales = 64,
    kMatrix = 128,
    kUseMyMetrics = 0x200,
};

// One component of a compound glyph.
struct Component {
    u16 flags;
    u16 glyph;
    i32 argument1, argument2;
    f64 a, b, d, e;   // the matrix in file order
};

// Reads the component at `*at` and moves `*at` behind it; false when the glyph ends before that.
bool ReadComponent(const Table& glyph, size_t* at, Component* component);

// Whether the glyph's head tells a compound.
inline bool IsCompound(const Table& glyph) { return glyph.Has(0, 2) && glyph.I16(0) < 0; }

// Where the contour ends of a simple glyph and the components of a compound begin.
inline constexpr size_t kGlyphHead = 10;

}   // namespace kq::truetype
