// Every TrueType font of the installed font packages against FreeType: glyphs of the 8-bit characters, outlines,
// advances and kerning.
//
// FreeType delivers points in font units; they are put through the reader's transform by plain code here. A compound is
// put together here from its components as FreeType delivers them, by the reader's rules, and then held against
// FreeType's own compound: where the two differ, one of the rules named below has to be the cause.
#include "Source/TrueTypeTables.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
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

// Why a compound may differ from FreeType's.
enum Rule : u32 {
    kUnsignedBytes = 1,   // byte offsets count from 0 to 255
    kScaled = 2,          // the matrix is applied in file order, to coordinates that run downward from the top
    kMatchedPoints = 4,   // a component placed by points sits at the origin
    kNested = 8,          // a component that is itself compound gives nothing
    kOwnBearing = 16,     // a component is shifted by its own bearing and least x
};

struct Tally {
    int fonts = 0, refused = 0, simple = 0, compounds = 0, agreeing = 0;
    i64 pairs = 0, kerned = 0;
    std::map<u32, int> byRule;
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
        FT_Error failed = FT_Load_Glyph(face_, GlyphOf(c), FT_LOAD_NO_SCALE | FT_LOAD_NO_RECURSE);
        tally_.refused += failed != 0;
        if (!failed) {
            ASSERT_NE(block, nullptr);
            bool compound = face_->glyph->format == FT_GLYPH_FORMAT_COMPOSITE;
            compound ? CompareCompound(c, block, x, y) : CompareSimple(c, block, x, y);
            CompareAdvance(c);
        }
        FreeMemoryKQ(block);
    }

    std::vector<Command> Whole(u8 c, f64 x, f64 y) {
        std::vector<Command> commands;
        if (FT_Load_Glyph(face_, GlyphOf(c), FT_LOAD_NO_SCALE) == 0)
            AppendOutline(commands, face_->glyph->outline, placing_, {1, 0, 0, 1, x, y});
        return commands;
    }

    void CompareSimple(u8 c, const KQOutlineCommand* block, f64 x, f64 y) {
        EXPECT_TRUE(Same(block, Whole(c, x, y)));
        ++tally_.simple;
    }

    void CompareCompound(u8 c, const KQOutlineCommand* block, f64 x, f64 y) {
        u32 rules = 0;
        std::vector<Command> commands = Assemble(x, y, rules);
        EXPECT_TRUE(Same(block, commands));
        ++tally_.compounds;
        if (Same(block, Whole(c, x, y))) {
            ++tally_.agreeing;
            return;
        }
        // What is left when no other rule applies is the bearing.
        if (rules == 0) rules = kOwnBearing;
        ++tally_.byRule[rules];
        if (rules == kOwnBearing) {
            EXPECT_TRUE(BearingsDiffer(c)) << "differs from FreeType by no known rule";
        }
    }

    // The components of the glyph in the slot, by the reader's rules.
    std::vector<Command> Assemble(f64 x, f64 y, u32& rules) {
        struct Part {
            FT_Int glyph, argument1, argument2;
            FT_UInt flags;
            FT_Matrix matrix;
        };
        std::vector<Part> parts;
        for (FT_UInt i = 0; i < face_->glyph->num_subglyphs; ++i) {
            Part p = {};
            FT_Get_SubGlyph_Info(face_->glyph, i, &p.glyph, &p.flags, &p.argument1, &p.argument2, &p.matrix);
            parts.push_back(p);
        }
        std::vector<Command> commands;
        for (Part& p : parts) {
            if (FT_Load_Glyph(face_, FT_UInt(p.glyph), FT_LOAD_NO_SCALE | FT_LOAD_NO_RECURSE)) continue;
            if (face_->glyph->format == FT_GLYPH_FORMAT_COMPOSITE) {
                rules |= kNested;
                continue;
            }
            FT_Load_Glyph(face_, FT_UInt(p.glyph), FT_LOAD_NO_SCALE);
            if (!(p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_WORDS)) {
                if (p.argument1 < 0 || p.argument2 < 0) rules |= kUnsignedBytes;
                p.argument1 &= 0xFF;
                p.argument2 &= 0xFF;
            }
            bool offset = p.flags & FT_SUBGLYPH_FLAG_ARGS_ARE_XY_VALUES;
            if (!offset) rules |= kMatchedPoints;
            if (p.flags & 0xC8) rules |= kScaled;
            Place at = {p.matrix.xx / 65536.0,
                        p.matrix.yx / 65536.0,
                        p.matrix.xy / 65536.0,
                        p.matrix.yy / 65536.0,
                        offset ? x + p.argument1 * placing_.scaleX : x,
                        offset ? y - p.argument2 * placing_.scaleY : y};
            AppendOutline(commands, face_->glyph->outline, placing_, at);
        }
        return commands;
    }

    i32 ShiftOf(u32 glyph) {
        kq::truetype::Table bytes;
        i16 bearing = 0;
        if (!kq::truetype::FindGlyph(font_, glyph, &bytes) || bytes.size < 10) return 0;
        kq::truetype::BearingOf(font_, glyph, &bearing);
        return bytes.I16(2) - bearing;
    }

    // Whether a component's shift is not that of the glyph whose metrics FreeType takes.
    bool BearingsDiffer(u8 c) {
        u32 whole = GlyphOf(c);
        FT_Load_Glyph(face_, whole, FT_LOAD_NO_SCALE | FT_LOAD_NO_RECURSE);
        std::set<i32> shifts = {ShiftOf(whole)};
        for (FT_UInt i = 0; i < face_->glyph->num_subglyphs; ++i) {
            FT_Int glyph, a, b;
            FT_UInt flags;
            FT_Matrix matrix;
            FT_Get_SubGlyph_Info(face_->glyph, i, &glyph, &flags, &a, &b, &matrix);
            shifts.insert(ShiftOf(u32(glyph)));
        }
        return shifts.size() > 1;
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
        auto package = font->fontFile ? packages.find(font->fontFile) : packages.end();
        if (package == packages.end()) continue;
        SCOPED_TRACE(std::string(node->Name) + " of " + package->second);
        FT_Face face;
        if (FT_New_Face(library, font->fontFile, font->faceIndex, &face)) continue;
        EXPECT_NE(OpenFontKQ(font, 0, 48, 96, 72), 0);
        Peer peer(font, face, tally);
        if ((font->state & KQFONT_Open) && peer.ChooseMap()) {
            peer.Compare();
            seen.insert(package->second);
        }
        CloseFontKQ(font);
        FT_Done_Face(face);
        if (HasFatalFailure()) break;
    }
    FreeFontListKQ(&list);
    FT_Done_FreeType(library);
    std::printf(
        "%zu packages, %d fonts, %d simple glyphs, %d compounds of which %d are FreeType's own, %lld pairs of "
        "which %lld are kerned\n",
        seen.size(), tally.fonts, tally.simple, tally.compounds, tally.agreeing, (long long)tally.pairs,
        (long long)tally.kerned);
    for (auto [rules, count] : tally.byRule)
        std::printf("    %d compounds differ by%s%s%s%s%s\n", count, rules & kUnsignedBytes ? " unsigned bytes" : "",
                    rules & kScaled ? " the matrix" : "", rules & kMatchedPoints ? " matched points" : "",
                    rules & kNested ? " nested compounds" : "",
                    rules & kOwnBearing ? " the component's own bearing" : "");
    EXPECT_GE(seen.size(), 20u) << "install the packages of `tools/bootstrap test`";
}

}   // namespace

#else

TEST(TrueTypePeer, EveryFontOfTheFontPackagesAgreesWithFreeType) {
    GTEST_SKIP() << "FreeType is a peer of the native build only";
}

#endif
