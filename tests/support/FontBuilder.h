// TrueType files built byte by byte, for tests and for the seeds of the fuzzer. Each table can be replaced or left out.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "kq/types.h"

namespace kqtest {

// Big-endian bytes in the making.
class BigBytes {
public:
    BigBytes& U8(u32 value) {
        bytes_.push_back(char(value));
        return *this;
    }

    BigBytes& U16(u32 value) { return U8(value >> 8).U8(value); }

    BigBytes& U32(u32 value) { return U16(value >> 16).U16(value); }

    BigBytes& Add(const std::string& more) {
        bytes_ += more;
        return *this;
    }

    BigBytes& Zeros(size_t count) { return Add(std::string(count, 0)); }

    // Overwrites 16 bits.
    BigBytes& Put16(size_t at, u32 value) {
        bytes_[at] = char(value >> 8);
        bytes_[at + 1] = char(value);
        return *this;
    }

    BigBytes& Put32(size_t at, u32 value) { return Put16(at, value >> 16).Put16(at + 2, value); }

    size_t Size() const { return bytes_.size(); }

    operator const std::string&() const { return bytes_; }

private:
    std::string bytes_;
};

// A point of a glyph.
struct GlyphPoint {
    int x, y;
    bool on;
};

using Contour = std::vector<GlyphPoint>;

// A simple glyph with whole words for all steps.
inline std::string SimpleGlyph(const std::vector<Contour>& contours, int xMin = 0, int yMin = 0) {
    BigBytes glyph, flags, xs, ys;
    glyph.U16(u32(contours.size())).U16(u32(xMin)).U16(u32(yMin)).U16(0).U16(0);
    int end = -1, x = 0, y = 0;
    for (const Contour& contour : contours) {
        glyph.U16(u32(end += int(contour.size())));
        for (const GlyphPoint& p : contour) {
            flags.U8(p.on);
            xs.U16(u32(p.x - x));
            ys.U16(u32(p.y - y));
            x = p.x;
            y = p.y;
        }
    }
    glyph.U16(0).Add(flags).Add(xs).Add(ys);
    if (glyph.Size() % 2) glyph.U8(0);
    return glyph;
}

// The head of a compound glyph; its components follow.
inline BigBytes CompoundHead() {
    BigBytes glyph;
    glyph.U16(0xFFFF).U16(0).U16(0).U16(0).U16(0);
    return glyph;
}

// A character map's subtable of format 4 with the given segments: first, last, delta, glyphs (empty: by the delta).
struct Segment {
    u32 first, last, delta;
    std::vector<u32> glyphs;
};

inline std::string Format4(const std::vector<Segment>& segments) {
    BigBytes map, starts, deltas, ranges, glyphs;
    u32 count = u32(segments.size());
    map.U16(4).U16(0).U16(0).U16(count * 2).U16(0).U16(0).U16(0);
    for (u32 i = 0; i < count; ++i) {
        map.U16(segments[i].last);
        starts.U16(segments[i].first);
        deltas.U16(segments[i].delta);
        ranges.U16(segments[i].glyphs.empty() ? 0 : u32((count - i) * 2 + glyphs.Size()));
        for (u32 glyph : segments[i].glyphs) glyphs.U16(glyph);
    }
    map.U16(0).Add(starts).Add(deltas).Add(ranges).Add(glyphs);
    return map.Put16(2, u32(map.Size()));
}

inline std::string Format6(u32 first, const std::vector<u32>& glyphs) {
    BigBytes map;
    map.U16(6).U16(u32(10 + glyphs.size() * 2)).U16(0).U16(first).U16(u32(glyphs.size()));
    for (u32 glyph : glyphs) map.U16(glyph);
    return map;
}

inline std::string Format0(const std::map<u8, u8>& glyphs) {
    std::string map = BigBytes().U16(0).U16(262).U16(0).Zeros(256);
    for (auto [character, glyph] : glyphs) map[6 + character] = char(glyph);
    return map;
}

// One encoding record and its subtable.
struct Encoding {
    u32 platform, encoding;
    std::string map;
};

inline std::string Cmap(const std::vector<Encoding>& encodings) {
    BigBytes table, maps;
    table.U16(0).U16(u32(encodings.size()));
    for (const Encoding& e : encodings) {
        table.U16(e.platform).U16(e.encoding).U32(u32(4 + encodings.size() * 8 + maps.Size()));
        maps.Add(e.map);
    }
    return table.Add(maps);
}

// A kern table of version 0 with one subtable of format 0. `claimed` is the count that it tells, -1 the true one.
struct KernPair {
    u32 left, right;
    int value;
};

inline std::string Kern(const std::vector<KernPair>& pairs, int claimed = -1) {
    BigBytes table;
    table.U16(0).U16(1).U16(0).U16(u32(14 + pairs.size() * 6)).U16(1);
    table.U16(claimed < 0 ? u32(pairs.size()) : u32(claimed)).U16(0).U16(0).U16(0);
    for (const KernPair& p : pairs) table.U16(p.left).U16(p.right).U16(u32(p.value));
    return table;
}

// A name table with the records given as platform, encoding, language, id and text as stored.
struct NameRecord {
    u32 platform, encoding, language, id;
    std::string text;
};

inline std::string Names(const std::vector<NameRecord>& records) {
    BigBytes table, texts;
    table.U16(0).U16(u32(records.size())).U16(u32(6 + records.size() * 12));
    for (const NameRecord& r : records) {
        table.U16(r.platform).U16(r.encoding).U16(r.language).U16(r.id).U16(u32(r.text.size())).U16(u32(texts.Size()));
        texts.Add(r.text);
    }
    return table.Add(texts);
}

// ASCII as two bytes a letter.
inline std::string Utf16(const std::string& ascii) {
    BigBytes text;
    for (char c : ascii) text.U16(u8(c));
    return text;
}

// A font of the glyphs added to it: 1000 units an em, descender -200, ascender 800, line gap 100; glyph i is the
// character 0x40 + i, and 0 the missing one.
class FontBuilder {
public:
    explicit FontBuilder(const std::string& fullName = "Built") {
        tables["name"] = Names({{3, 1, 0x409, 1, Utf16("Family")}, {3, 1, 0x409, 4, Utf16(fullName)}});
    }

    // Adds a glyph with its advance and bearing.
    FontBuilder& Add(const std::string& glyph, u32 advance = 500, int bearing = 0) {
        glyphs_.push_back(glyph.size() % 2 ? glyph + '\0' : glyph);
        metrics_.push_back({advance, bearing});
        return *this;
    }

    FontBuilder& Set(const std::string& tag, const std::string& bytes) {
        tables[tag] = bytes;
        return *this;
    }

    FontBuilder& Without(const std::string& tag) {
        without_.push_back(tag);
        return *this;
    }

    u32 units = 1000;
    int yMin = 0;
    bool wideLoca = false;
    u32 longMetrics = 0;                         // entries of hmtx with an advance; 0: all
    std::map<std::string, std::string> tables;   // what is set here stands as it is

    // The file, its directory at `base` when it is part of a collection.
    std::string Build(size_t base = 0) const {
        std::map<std::string, std::string> all = Defaults();
        for (const auto& [tag, bytes] : tables) all[tag] = bytes;
        for (const std::string& tag : without_) all.erase(tag);
        BigBytes file, body;
        file.U32(0x00010000).U16(u32(all.size())).U16(0).U16(0).U16(0);
        size_t at = base + 12 + all.size() * 16;
        for (const auto& [tag, bytes] : all) {
            file.Add(tag).U32(0).U32(u32(at + body.Size())).U32(u32(bytes.size()));
            body.Add(bytes).Zeros((4 - bytes.size() % 4) % 4);
        }
        return file.Add(body);
    }

private:
    std::map<std::string, std::string> Defaults() const {
        BigBytes glyf, loca, hmtx, hhea, head;
        u32 count = u32(glyphs_.size()), wide = longMetrics ? longMetrics : count;
        auto place = [&] { wideLoca ? loca.U32(u32(glyf.Size())) : loca.U16(u32(glyf.Size() / 2)); };
        for (u32 i = 0; i < count; ++i) {
            place();
            glyf.Add(glyphs_[i]);
            if (i < wide) hmtx.U16(metrics_[i].first);
            hmtx.U16(u32(metrics_[i].second));
        }
        place();
        head.Zeros(54).Put16(18, units).Put16(38, u32(yMin)).Put16(50, wideLoca);
        hhea.Zeros(36).Put16(4, 800).Put16(6, u32(-200)).Put16(8, 100).Put16(34, wide);
        std::string map = Format4({{0x41, 0x40 + count - 1, u32(-0x40), {}}, {0xFFFF, 0xFFFF, 1, {}}});
        return {{"cmap", Cmap({{3, 1, map}})},
                {"glyf", glyf},
                {"head", head},
                {"hhea", hhea},
                {"hmtx", hmtx},
                {"loca", loca}};
    }

    std::vector<std::string> glyphs_;
    std::vector<std::pair<u32, int>> metrics_;
    std::vector<std::string> without_;
};

// A collection of the fonts.
inline std::string Collection(const std::vector<FontBuilder>& fonts) {
    BigBytes file, body;
    file.U32(KQCode4("ttcf")).U32(0x00010000).U32(u32(fonts.size()));
    size_t base = 12 + fonts.size() * 4;
    for (const FontBuilder& font : fonts) {
        size_t at = base + body.Size();
        file.U32(u32(at));
        body.Add(font.Build(at));
    }
    return file.Add(body);
}

}   // namespace kqtest
