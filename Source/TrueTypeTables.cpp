// The directory, the character map, the place of a glyph and its metrics.
//
// Files lie, by accident or on purpose: an offset, a count or a length is a claim until the bytes behind it are seen
// to exist. Fixed parts are checked once when the font is opened; what an index leads to is checked at each look-up.
#include "Source/TrueTypeTables.h"

#include <algorithm>

namespace kq::truetype {

namespace {

constexpr size_t kDirectoryHead = 12, kDirectoryEntry = 16;
constexpr size_t kCmapHead = 4, kCmapRecord = 8;

// Fixed parts that later reads take for granted.
constexpr size_t kHeadBytes = 54, kHheaBytes = 36;

Table CmapTable(const KQFont* font) { return {font->cmapTable, font->sizes.cmap}; }

bool ReadableFormat(const Table& subtable) {
    u16 format = subtable.Has(0, 2) ? subtable.U16(0) : 0xFFFF;
    return format == 0 || format == 4 || format == 6;
}

// The first record of platform 3 with a format that can be read, else the first of that platform, else null.
const u8* ChooseRecord(const Table& cmap) {
    const u8* first = nullptr;
    u32 count = cmap.Has(0, kCmapHead) ? cmap.U16(2) : 0;
    for (u32 i = 0; i < count; ++i) {
        size_t at = kCmapHead + i * kCmapRecord;
        if (!cmap.Has(at, kCmapRecord)) break;
        if (cmap.U16(at) != 3) continue;
        if (ReadableFormat(cmap.From(cmap.U32(at + 4)))) return cmap.data + at;
        if (!first) first = cmap.data + at;
    }
    return first;
}

i32 GlyphInBytes(const Table& map, u8 character) { return map.Has(6 + character, 1) ? map.data[6 + character] : -1; }

// The glyph array is addressed from the range offset word itself, so that a segment's glyphs may lie anywhere behind.
i32 GlyphInSegment(const Table& map, size_t rangeAt, u16 delta, u32 character, u32 start) {
    u16 range = map.U16(rangeAt);
    if (range == 0) return u16(character + delta);
    size_t at = rangeAt + (size_t(range / 2) + character - start) * 2;
    if (!map.Has(at, 2)) return -1;
    u16 value = map.U16(at);
    return value ? u16(value + delta) : 0;
}

i32 GlyphInSegments(const Table& map, u32 character) {
    if (!map.Has(0, 14)) return -1;
    size_t bytes = map.U16(6) & ~size_t(1);
    size_t ends = 14, starts = 16 + bytes, deltas = starts + bytes, ranges = deltas + bytes;
    if (!map.Has(0, ranges + bytes)) return -1;
    for (size_t i = 0; i < bytes; i += 2) {
        if (character > map.U16(ends + i)) continue;
        u32 start = map.U16(starts + i);
        if (character >= start) return GlyphInSegment(map, ranges + i, map.U16(deltas + i), character, start);
    }
    return 0;
}

i32 GlyphInRun(const Table& map, u32 character) {
    if (!map.Has(0, 10)) return -1;
    u32 first = map.U16(6), count = map.U16(8);
    if (character < first || character - first >= count) return 0;
    size_t at = 10 + size_t(character - first) * 2;
    return map.Has(at, 2) ? map.U16(at) : -1;
}

// Sets one of the font's tables; false when it is shorter than `least`.
bool TakeTable(const Table& file, size_t directory, u32 tag, size_t least, u8** data, u32* size) {
    Table table = FindTable(file, directory, tag);
    *data = const_cast<u8*>(table.data);
    *size = u32(table.size);
    return table.data && table.size >= least;
}

}   // namespace

bool FindDirectory(const Table& file, u32 index, size_t* directory) {
    *directory = 0;
    if (!file.Has(0, kDirectoryHead)) return false;
    if (file.U32(0) != KQCode4("ttcf")) return index == 0;
    if (index >= file.U32(8) || !file.Has(12 + size_t(index) * 4, 4)) return false;
    *directory = file.U32(12 + size_t(index) * 4);
    return file.Has(*directory, kDirectoryHead);
}

Table FindTable(const Table& file, size_t directory, u32 tag) {
    u32 count = file.Has(directory, kDirectoryHead) ? file.U16(directory + 4) : 0;
    for (u32 i = 0; i < count; ++i) {
        size_t at = directory + kDirectoryHead + i * kDirectoryEntry;
        if (!file.Has(at, kDirectoryEntry)) break;
        if (file.U32(at) != tag) continue;
        size_t offset = file.U32(at + 8), length = file.U32(at + 12);
        if (offset > file.size) return {nullptr, 0};
        return {file.data + offset, std::min(length, file.size - offset)};
    }
    return {nullptr, 0};
}

namespace {

bool LocateTables(KQFont* font, size_t directory) {
    Table file = {font->fontData, size_t(font->fontBytes)};
    KQFontSizes& sizes = font->sizes;
    bool complete = TakeTable(file, directory, KQCode4("cmap"), kCmapHead, &font->cmapTable, &sizes.cmap) &&
                    TakeTable(file, directory, KQCode4("glyf"), 0, &font->glyfTable, &sizes.glyf) &&
                    TakeTable(file, directory, KQCode4("loca"), 0, &font->locaTable, &sizes.loca) &&
                    TakeTable(file, directory, KQCode4("head"), kHeadBytes, &font->headTable, &sizes.head) &&
                    TakeTable(file, directory, KQCode4("hhea"), kHheaBytes, &font->hheaTable, &sizes.hhea) &&
                    TakeTable(file, directory, KQCode4("hmtx"), 0, &font->hmtxTable, &sizes.hmtx);
    if (!complete) return false;
    TakeTable(file, directory, KQCode4("kern"), 0, &font->kernTable, &sizes.kern);
    font->cmapRecord = const_cast<u8*>(ChooseRecord(CmapTable(font)));
    return font->cmapRecord != nullptr;
}

}   // namespace

bool UseFontData(KQFont* font, size_t directory) {
    if (!LocateTables(font, directory)) return false;
    u16 units = Big16(font->headTable + 18);
    if (units == 0) return false;
    font->scaleX = font->resolutionX / (units * 72.0) * font->pointSize;
    font->scaleY = font->resolutionY / (units * 72.0) * font->pointSize;
    return true;
}

i32 GlyphOf(const KQFont* font, u8 character) {
    Table map = CmapTable(font).From(Big32(font->cmapRecord + 4));
    if (!map.Has(0, 2)) return -1;
    u32 code = Big16(font->cmapRecord + 2) == 0 ? 0xF000u | character : character;
    switch (map.U16(0)) {
    case 0: return GlyphInBytes(map, character);
    case 4: return GlyphInSegments(map, code);
    case 6: return GlyphInRun(map, code);
    default: return -1;
    }
}

bool FindGlyph(const KQFont* font, u32 glyph, Table* bytes) {
    Table loca = {font->locaTable, font->sizes.loca};
    bool wide = Big16(font->headTable + 50) != 0;
    size_t entry = wide ? 4 : 2, at = glyph * entry;
    // The entry behind a glyph's own ends it, so the table's last entry begins none.
    if (!loca.Has(at, 2 * entry)) return false;
    size_t start = wide ? loca.U32(at) : loca.U16(at) * size_t(2);
    size_t end = wide ? loca.U32(at + 4) : loca.U16(at + 2) * size_t(2);
    if (start > font->sizes.glyf) return false;
    // A table that is out of order still tells where a glyph begins.
    if (end < start || end > font->sizes.glyf) end = font->sizes.glyf;
    *bytes = {font->glyfTable + start, end - start};
    return true;
}

u16 AdvanceOf(const KQFont* font, u32 glyph) {
    Table hmtx = {font->hmtxTable, font->sizes.hmtx};
    u32 count = Big16(font->hheaTable + 34);
    if (count == 0) return 0;
    size_t at = size_t(std::min(glyph, count - 1)) * 4;
    return hmtx.Has(at, 2) ? hmtx.U16(at) : 0;
}

bool BearingOf(const KQFont* font, u32 glyph, i16* bearing) {
    Table hmtx = {font->hmtxTable, font->sizes.hmtx};
    size_t count = Big16(font->hheaTable + 34);
    size_t at = glyph < count ? size_t(glyph) * 4 + 2 : (count + glyph) * 2;
    if (!hmtx.Has(at, 2)) return false;
    *bearing = hmtx.I16(at);
    return true;
}

namespace {

// 2.14 fixed point.
f64 Scale214(const u8* at) { return i16(Big16(at)) * 6.103515625e-5; }

// Bytes of the arguments and of the scales.
size_t ComponentBytes(u16 flags) {
    size_t arguments = flags & kWordArguments ? 4 : 2;
    size_t scales = flags & kOneScale ? 2 : flags & kTwoScales ? 4 : flags & kMatrix ? 8 : 0;
    return arguments + scales;
}

}   // namespace

bool ReadComponent(const Table& glyph, size_t* at, Component* component) {
    if (!glyph.Has(*at, 4)) return false;
    u16 flags = glyph.U16(*at);
    const u8* p = glyph.data + *at + 4;
    if (!glyph.Has(*at + 4, ComponentBytes(flags))) return false;
    *component = {flags, glyph.U16(*at + 2), 0, 0, 1.0, 0.0, 0.0, 1.0};
    *at += 4 + ComponentBytes(flags);
    // Bytes count from 0 to 255, unlike words; text that was laid out by this rule depends on it.
    bool words = flags & kWordArguments;
    component->argument1 = words ? i16(Big16(p)) : p[0];
    component->argument2 = words ? i16(Big16(p + 2)) : p[1];
    p += words ? 4 : 2;
    if (flags & kOneScale) {
        component->a = component->e = Scale214(p);
    } else if (flags & kTwoScales) {
        component->a = Scale214(p);
        component->e = Scale214(p + 2);
    } else if (flags & kMatrix) {
        component->a = Scale214(p);
        component->b = Scale214(p + 2);
        component->d = Scale214(p + 4);
        component->e = Scale214(p + 6);
    }
    return true;
}

}   // namespace kq::truetype
