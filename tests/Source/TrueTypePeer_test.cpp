// Every TrueType font of the installed font packages against FreeType: glyphs of the 8-bit characters, outlines,
// advances and kerning.
//
// FreeType delivers points in font units; they are put through the reader's transform by plain code here. A compound is
// put together here twice from its components as FreeType delivers them: by the reader's rules, to be held against the
// reader, and by FreeType's, to be held against FreeType. The rules that part the two are named below, each with what
// in a font's bytes brings it to work; a compound without any of that has to be the same in both.
#include "Source/TrueTypeTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "kq/font.h"
#include "support/Fixture.h"

#if defined(KQTEST_FREETYPE)

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

namespace {

constexpr f64 kTolerance = 1e-9;

struct PlainPoint {
    f64 x, y;
    bool on;
};

using PlainContour = std::vector<PlainPoint>;

// One command with its values, as the block has them.
struct Command {
    u32 kind;
    std::vector<f64> values;
};

PlainPoint Middle(PlainPoint p, PlainPoint q) { return {(p.x + q.x) / 2, (p.y + q.y) / 2, true}; }

// The contour turned so that it begins on the curve, with every implied point made real.
PlainContour Complete(PlainContour points) {
    if (!points[0].on) {
        if (!points[1].on) points.insert(points.begin() + 1, Middle(points[0], points[1]));
        std::rotate(points.begin(), points.begin() + 1, points.end());
    }
    PlainContour all;
    for (size_t i = 0; i < points.size(); ++i) {
        all.push_back(points[i]);
        const PlainPoint& next = points[(i + 1) % points.size()];
        if (!points[i].on && !next.on) all.push_back(Middle(points[i], next));
    }
    all.push_back(points[0]);
    return all;
}

void Append(std::vector<Command>& commands, const PlainContour& contour) {
    if (contour.empty() || (contour.size() == 1 && !contour[0].on)) return;
    PlainContour p = Complete(contour);
    commands.push_back({KQOUTLINE_MOVE, {p[0].x, p[0].y}});
    for (size_t i = 1; i < p.size(); ++i) {
        if (p[i].on) {
            commands.push_back({KQOUTLINE_LINE, {p[i].x, p[i].y}});
            continue;
        }
        const PlainPoint &s = p[i - 1], &c = p[i], &e = p[i + 1];
        commands.push_back(
            {KQOUTLINE_CURVE, {e.x, e.y, 2 * (c.x - s.x), 2 * (c.y - s.y), 2 * (e.x - c.x), 2 * (e.y - c.y)}});
        ++i;
    }
    commands.push_back({KQOUTLINE_CLOSE, {}});
}

// What a font's glyphs are placed by.
struct Placing {
    f64 scaleX, scaleY, top;
};

// A matrix in the order of the file, and the origin.
struct Place {
    f64 a, b, d, e, tx, ty;
};

void AppendOutline(std::vector<Command>& commands, const FT_Outline& outline, const Placing& font, const Place& at) {
    int from = 0;
    for (int i = 0; i < outline.n_contours; ++i) {
        PlainContour contour;
        for (; from <= outline.contours[i]; ++from) {
            f64 u = f64(outline.points[from].x), v = font.top - f64(outline.points[from].y);
            contour.push_back({u * at.a * font.scaleX + v * at.b * font.scaleY + at.tx,
                               u * at.d * font.scaleX + v * at.e * font.scaleY + at.ty, (outline.tags[from] & 1) != 0});
        }
        Append(commands, contour);
    }
}

bool Same(const KQOutlineCommand* block, const std::vector<Command>& commands) {
    for (const Command& command : commands) {
        if (block->kind != command.kind || block->zero != 0) return false;
        const f64* values = KQOutlineValues(block);
        for (size_t i = 0; i < command.values.size(); ++i)
            if (!(std::fabs(values[i] - command.values[i]) <= kTolerance)) return false;
        block = KQNextOutline(block);
    }
    return block->kind == KQOUTLINE_END;
}

// Why a compound may differ from FreeType's. Whether a rule is at work in a glyph is read off the font's own bytes, not
// off a difference.
enum Rule : u32 {
    kUnsignedBytes = 1,    // a byte offset of 128 or more counts upward
    kFileOrder = 2,        // a 2 by 2 matrix with values off the diagonal is taken in file order
    kScaledBelowTop = 4,   // a scale other than 1 is applied below the font's top and right of the bearing's edge
    kPlainOffset = 8,      // an offset is not scaled, even where a flag asks for it
    kMatchedPoints = 16,   // a component placed by points sits at the origin
    kNested = 32,          // a component that is itself compound gives nothing
    kOwnBearing = 64,      // a component is shifted by its own bearing and least x, not by the whole glyph's
};

constexpr const char* kRuleNames[] = {"unsigned bytes", "2x2 in file order", "scaled below the top", "plain offset",
                                      "matched points", "nested compound",   "own bearing"};

std::string NamesOf(u32 rules) {
    std::string names;
    for (u32 i = 0; i < std::size(kRuleNames); ++i)
        if (rules >> i & 1) names += std::string(names.empty() ? "" : ", ") + kRuleNames[i];
    return names;
}

// What was looked at, and what was passed over and why.
struct Tally {
    int listed = 0, fonts = 0;
    int outsidePackages = 0, refusedByFreeType = 0, refusedByUs = 0, withoutMap = 0;
    int simple = 0, compounds = 0, ruledButEqual = 0, equal = 0, glyphsRefused = 0, missing = 0;
    i64 pairs = 0, kerned = 0;
    std::map<u32, int> differing;
};

// A component as FreeType tells it.
struct Part {
    FT_Int glyph, argument1, argument2;
    FT_UInt flags;
    FT_Matrix matrix;
};

// A glyph's points in font units, before its origin is moved to the bearing.
struct RawGlyph {
    std::vector<FT_Vector> points;
    std::vector<char> tags;
    std::vector<int> ends;
    i32 shift;   // what FreeType moves the whole by
};

class Peer {
public:
    Peer(KQFont* font, FT_Face face, Tally& tally) : font_(font), face_(face), tally_(tally) {
        auto* head = static_cast<TT_Header*>(FT_Get_Sfnt_Table(face, FT_SFNT_HEAD));
        auto* hhea = static_cast<TT_HoriHeader*>(FT_Get_Sfnt_Table(face, FT_SFNT_HHEA));
        placing_ = {font->scaleX, font->scaleY, f64(head->yMin) - hhea->Descender};
        line_ = (hhea->Line_Gap + hhea->Ascender - hhea->Descender) * font->scaleY;
    }

    // The first map of platform 3 that both can read.
    bool ChooseMap() {
        for (int i = 0; i < face_->num_charmaps; ++i) {
            FT_CharMap map = face_->charmaps[i];
            FT_Long format = FT_Get_CMap_Format(map);
            if (map->platform_id != 3 || (format != 0 && format != 4 && format != 6)) continue;
            symbol_ = map->encoding_id == 0 && format != 0;
            return FT_Set_Charmap(face_, map) == 0;
        }
        return false;
    }

    u32 GlyphOf(int c) { return FT_Get_Char_Index(face_, symbol_ ? 0xF000u | u32(c) : u32(c)); }

    void Compare() {
        EXPECT_NEAR(GetLineAdvanceKQ(font_), line_, kTolerance);
        for (int c = 0; c < 256; ++c) {
            SCOPED_TRACE("character " + std::to_string(c));
            ASSERT_EQ(kq::truetype::GlyphOf(font_, u8(c)), i32(GlyphOf(c)));
            CompareOutline(u8(c));
        }
        for (int left = 0; left < 256; ++left)
            for (int right = 0; right < 256; ++right) CompareKerning(u8(left), u8(right));
        ++tally_.fonts;
    }

private:
    void CompareOutline(u8 c) {
        constexpr f64 x = 3.25, y = -1.5;
        KQOutlineCommand* block = GetFontOutlineKQ(c, font_, x, y);
        u32 glyph = GlyphOf(c);
        tally_.missing += glyph == 0;
        if (Load(glyph, FT_LOAD_NO_RECURSE)) {
            EXPECT_NE(block, nullptr);
            bool compound = face_->glyph->format == FT_GLYPH_FORMAT_COMPOSITE;
            if (block && compound) CompareCompound(glyph, block, x, y);
            if (block && !compound) CompareSimple(glyph, block, x, y);
            CompareAdvance(c);
        } else {
            ++tally_.glyphsRefused;
        }
        FreeMemoryKQ(block);
    }

    bool Load(u32 glyph, FT_Int32 flags) { return FT_Load_Glyph(face_, glyph, FT_LOAD_NO_SCALE | flags) == 0; }

    // FreeType's own outline of the whole glyph, put through the reader's transform.
    std::vector<Command> Whole(u32 glyph, f64 x, f64 y) {
        std::vector<Command> commands;
        if (Load(glyph, 0)) AppendOutline(commands, face_->glyph->outline, placing_, {1, 0, 0, 1, x, y});
        return commands;
    }

    void CompareSimple(u32 glyph, const KQOutlineCommand* block, f64 x, f64 y) {
        EXPECT_TRUE(Same(block, Whole(glyph, x, y)));
        ++tally_.simple;
    }

    // Ours is what the reader's rules make of FreeType's simple glyphs; FreeType's is what its own rules make of them;
    // and where none of the rules that part the two is at work, the two are one.
    void CompareCompound(u32 glyph, const KQOutlineCommand* block, f64 x, f64 y) {
        EXPECT_TRUE(Same(block, Assemble(glyph, x, y)));
        CompareWithOwnRules(glyph);
        u32 rules = RulesOf(glyph);
        bool same = Same(block, Whole(glyph, x, y));
        EXPECT_TRUE(same || rules) << "differs from FreeType though no rule is at work";
        ++tally_.compounds;
        tally_.equal += same && !rules;
        tally_.ruledButEqual += same && rules;
        if (!same) ++tally_.differing[rules];
    }

    std::vector<Part> PartsOf(u32 glyph) {
        std::vector<Part> parts;
        if (!Load(glyph, FT_LOAD_NO_RECURSE) || face_->glyph->format != FT_GLYPH_FORMAT_COMPOSITE) return parts;
        for (FT_UInt i = 0; i < face_->glyph->num_subglyphs; ++i) {
            Part p = {};
            FT_Get_SubGlyph_Info(face_->glyph, i, &p.glyph, &p.flags, &p.argument1, &p.argument2, &p.matrix);
            parts.push_back(p);
        }
        return parts;
    }

    static bool HasScale(const Part& p) {
        return p.flags & (FT_SUBGLYPH_FLAG_SCALE | FT_SUBGLYPH_FLAG_XY_SCALE | FT_SUBGLYPH_FLAG_2X2);
    }

    // The rules that are at work in a compound, from the bytes of its components.
    u32 RulesOf(u32 glyph) {
        constexpr FT_UInt kScaledOffset = 0x800;
        constexpr FT_Fixed kOne = 0x10000;
        u32 rules = 0;
        i32 shift = Raw(glyph).shift;
        for (const Part& p : PartsOf(glyph)) {
            if (!PartsOf(u32(p.glyph)).empty()) {
                rules |= kNested;
                continue;
            }
            bool offset = p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_XY_VALUES;
            bool bytes = !(p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_WORDS);
            bool scaled = p.matrix.xx != kOne || p.matrix.yy != kOne;
            bool turned = p.matrix.xy != 0 || p.matrix.yx != 0;
            if (offset && bytes && (p.argument1 < 0 || p.argument2 < 0)) rules |= kUnsignedBytes;
            if (turned) rules |= kFileOrder;
            if (scaled) rules |= kScaledBelowTop;
            if (offset && (scaled || turned) && (p.flags & kScaledOffset)) rules |= kPlainOffset;
            if (!offset) rules |= kMatchedPoints;
            if (ShiftOf(u32(p.glyph)) != shift) rules |= kOwnBearing;
        }
        return rules;
    }

    // The components, put together by the reader's rules.
    std::vector<Command> Assemble(u32 glyph, f64 x, f64 y) {
        std::vector<Command> commands;
        for (const Part& p : PartsOf(glyph)) {
            if (!PartsOf(u32(p.glyph)).empty() || !Load(u32(p.glyph), 0)) continue;
            bool bytes = !(p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_WORDS);
            bool offset = p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_XY_VALUES;
            FT_Int right = bytes ? p.argument1 & 0xFF : p.argument1, up = bytes ? p.argument2 & 0xFF : p.argument2;
            Place at = {p.matrix.xx / 65536.0,
                        p.matrix.yx / 65536.0,
                        p.matrix.xy / 65536.0,
                        p.matrix.yy / 65536.0,
                        offset ? x + right * placing_.scaleX : x,
                        offset ? y - up * placing_.scaleY : y};
            AppendOutline(commands, face_->glyph->outline, placing_, at);
        }
        return commands;
    }

    // The points of a glyph put together by FreeType's rules, from its simple glyphs.
    RawGlyph Raw(u32 glyph, int depth = 0) {
        RawGlyph raw = {{}, {}, {}, ShiftOf(glyph)};
        std::vector<Part> parts = PartsOf(glyph);
        if (parts.empty() || depth > 8) {
            if (parts.empty() && Load(glyph, 0)) AppendRaw(raw, face_->glyph->outline);
            return raw;
        }
        for (const Part& p : parts) {
            RawGlyph component = Raw(u32(p.glyph), depth + 1);
            if (p.flags & FT_SUBGLYPH_FLAG_USE_MY_METRICS) raw.shift = component.shift;
            if (HasScale(p))
                for (FT_Vector& v : component.points) FT_Vector_Transform(&v, &p.matrix);
            FT_Vector by = OffsetOf(p, raw, component);
            for (int end : component.ends) raw.ends.push_back(end + int(raw.points.size()));
            for (FT_Vector v : component.points) raw.points.push_back({v.x + by.x, v.y + by.y});
            raw.tags.insert(raw.tags.end(), component.tags.begin(), component.tags.end());
        }
        return raw;
    }

    // Takes back the shift that FreeType gives a glyph that it delivers.
    static void AppendRaw(RawGlyph& raw, const FT_Outline& outline) {
        for (int i = 0; i < outline.n_points; ++i)
            raw.points.push_back({outline.points[i].x + raw.shift, outline.points[i].y});
        raw.tags.assign(outline.tags, outline.tags + outline.n_points);
        raw.ends.assign(outline.contours, outline.contours + outline.n_contours);
    }

    static FT_Vector OffsetOf(const Part& p, const RawGlyph& before, const RawGlyph& component) {
        if (!(p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_XY_VALUES)) {
            FT_Vector to = before.points.at(size_t(p.argument1)), from = component.points.at(size_t(p.argument2));
            return {to.x - from.x, to.y - from.y};
        }
        FT_Vector by = {p.argument1, p.argument2};
        if (HasScale(p) && (p.flags & 0x800)) {
            by.x = FT_MulFix(by.x, FT_Fixed(std::lround(std::hypot(p.matrix.xx, p.matrix.xy))));
            by.y = FT_MulFix(by.y, FT_Fixed(std::lround(std::hypot(p.matrix.yy, p.matrix.yx))));
        }
        return by;
    }

    // That the rules ascribed to FreeType are those it goes by.
    void CompareWithOwnRules(u32 glyph) {
        RawGlyph raw = Raw(glyph);
        ASSERT_TRUE(Load(glyph, 0));
        const FT_Outline& outline = face_->glyph->outline;
        ASSERT_EQ(size_t(outline.n_points), raw.points.size());
        EXPECT_TRUE(std::equal(raw.ends.begin(), raw.ends.end(), outline.contours));
        int apart = 0;
        for (int i = 0; i < outline.n_points; ++i) {
            const FT_Vector &a = outline.points[i], &b = raw.points[size_t(i)];
            apart += a.x != b.x - raw.shift || a.y != b.y || ((outline.tags[i] ^ raw.tags[size_t(i)]) & 1);
        }
        EXPECT_EQ(apart, 0);
    }

    // What a glyph's own bearing and least x move it by.
    i32 ShiftOf(u32 glyph) {
        kq::truetype::Table bytes;
        i16 bearing = 0;
        if (!kq::truetype::FindGlyph(font_, glyph, &bytes) || bytes.size < 10) return 0;
        kq::truetype::BearingOf(font_, glyph, &bearing);
        return bytes.I16(2) - bearing;
    }

    void CompareAdvance(u8 c) {
        if (FT_Load_Glyph(face_, GlyphOf(c), FT_LOAD_NO_SCALE)) return;
        f64 x = 0, y = 1;
        GetCursorAdvanceKQ(c, font_, &x, &y);
        EXPECT_NEAR(x, f64(face_->glyph->metrics.horiAdvance) * placing_.scaleX, kTolerance);
        EXPECT_EQ(y, 0.0);
    }

    void CompareKerning(u8 left, u8 right) {
        FT_Vector kerning = {0, 0};
        FT_Get_Kerning(face_, GlyphOf(left), GlyphOf(right), FT_KERNING_UNSCALED, &kerning);
        f64 x = 0, y = 1;
        GetKernKQ(font_, left, right, &x, &y);
        ++tally_.pairs;
        tally_.kerned += x != 0.0;
        if (std::fabs(x - f64(kerning.x) * placing_.scaleX) > kTolerance) {
            ADD_FAILURE() << "kerning of " << int(left) << " and " << int(right) << ": " << x / placing_.scaleX
                          << " in place of " << kerning.x;
        }
    }

    KQFont* font_;
    FT_Face face_;
    Tally& tally_;
    Placing placing_;
    f64 line_;
    bool symbol_ = false;
};

// The font package of each installed file.
std::map<std::string, std::string> PackagesOfFonts() {
    std::map<std::string, std::string> packages;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator("/var/lib/dpkg/info", none)) {
        std::string name = entry.path().filename().string();
        if (name.rfind("fonts-", 0) != 0 || entry.path().extension() != ".list") continue;
        std::ifstream list(entry.path());
        for (std::string line; std::getline(list, line);) packages[line] = entry.path().stem().string();
    }
    return packages;
}

class TrueTypePeer : public kqtest::KQTest {};

// Holds one font against FreeType, or counts why it cannot be.
void CompareFont(FT_Library library, KQFont* font, Tally& tally, std::set<std::string>& seen,
                 const std::string& package) {
    FT_Face face;
    if (FT_New_Face(library, font->fontFile, font->faceIndex, &face)) {
        ++tally.refusedByFreeType;
        return;
    }
    if (OpenFontKQ(font, 0, 48, 96, 72)) {
        Peer peer(font, face, tally);
        if (peer.ChooseMap()) {
            peer.Compare();
            seen.insert(package);
        } else {
            ++tally.withoutMap;
        }
    } else {
        ++tally.refusedByUs;
        std::printf("not opened: %s\n", font->fontFile);
    }
    CloseFontKQ(font);
    FT_Done_Face(face);
}

void Print(const Tally& t, size_t packages) {
    std::printf(
        "%d fonts listed; passed over: %d of no package, %d refused by FreeType, %d refused by us, %d without a "
        "map that both read\n",
        t.listed, t.outsidePackages, t.refusedByFreeType, t.refusedByUs, t.withoutMap);
    std::printf(
        "%zu packages, %d fonts, %d simple glyphs and %d compounds, %d characters without a glyph, %d glyphs "
        "refused by FreeType, %lld pairs of which %lld are kerned\n",
        packages, t.fonts, t.simple, t.compounds, t.missing, t.glyphsRefused, (long long)t.pairs, (long long)t.kerned);
    std::printf("    %d compounds are FreeType's with no rule at work, %d with one that changes nothing\n", t.equal,
                t.ruledButEqual);
    for (auto [rules, count] : t.differing)
        std::printf("    %d compounds differ by: %s\n", count, NamesOf(rules).c_str());
}

TEST_F(TrueTypePeer, EveryFontOfTheFontPackagesAgreesWithFreeType) {
    std::map<std::string, std::string> packages = PackagesOfFonts();
    if (packages.empty()) GTEST_SKIP() << "no font package is known to be installed here";
    FT_Library library;
    ASSERT_EQ(FT_Init_FreeType(&library), 0);
    List list = {};
    GetAvailableFontsKQ(&list);
    Tally tally;
    std::set<std::string> seen;
    for (Node* node = list.Head; node->Succ; node = node->Succ) {
        KQFont* font = KQFontOfNode(node);
        ++tally.listed;
        auto package = font->fontFile ? packages.find(font->fontFile) : packages.end();
        if (package == packages.end()) {
            ++tally.outsidePackages;
            continue;
        }
        SCOPED_TRACE(std::string(node->Name) + " of " + package->second);
        CompareFont(library, font, tally, seen, package->second);
        if (HasFatalFailure()) break;
    }
    FreeFontListKQ(&list);
    FT_Done_FreeType(library);
    Print(tally, seen.size());
    EXPECT_GE(seen.size(), 20u) << "install the packages of `tools/bootstrap test`";
    EXPECT_LE(tally.refusedByFreeType, tally.fonts / 20);
    EXPECT_EQ(tally.refusedByUs, 0);
    EXPECT_LE(tally.glyphsRefused, tally.simple / 100);
    EXPECT_LE(tally.withoutMap, tally.fonts / 20);
    EXPECT_LE(tally.outsidePackages, tally.listed / 4);
    EXPECT_GT(tally.equal, 0);
}

}   // namespace

#else

TEST(TrueTypePeer, EveryFontOfTheFontPackagesAgreesWithFreeType) {
    GTEST_SKIP() << "FreeType is a peer of the native build only";
}

#endif
