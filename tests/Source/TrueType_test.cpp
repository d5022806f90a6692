// Fonts built byte by byte. At 1000 points and 72 pixels an inch a unit of these fonts is a pixel, and their descender
// of -200 puts the base line 200 pixels below the origin: a point (x, y) of a glyph comes out as (x, 200 - y).
#include "Source/TrueTypeTables.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>

#include "Source/MemoryChunk.h"
#include "kq/font.h"
#include "support/Fixture.h"
#include "support/FontBuilder.h"

namespace {

using kqtest::BigBytes;
using kqtest::Cmap;
using kqtest::CompoundHead;
using kqtest::Contour;
using kqtest::FontBuilder;
using kqtest::Format0;
using kqtest::Format4;
using kqtest::Format6;
using kqtest::Kern;
using kqtest::SimpleGlyph;

// An outline as text: M, L and C with their values, Z for a close, E for the end.
std::string Spell(const KQOutlineCommand* command) {
    std::string text;
    for (;; command = KQNextOutline(command)) {
        text += "EMLCZ"[command->kind];
        for (u32 i = 0; i < KQOutlineCount(command->kind); ++i) {
            char value[40];
            std::snprintf(value, sizeof value, " %.10g", KQOutlineValues(command)[i]);
            text += value;
        }
        if (command->kind == KQOUTLINE_END) return text;
        text += " ";
    }
}

// Bytes from the block's start to behind its end mark.
size_t BytesOf(const KQOutlineCommand* block) {
    const KQOutlineCommand* end = block;
    while (end->kind != KQOUTLINE_END) end = KQNextOutline(end);
    return size_t(reinterpret_cast<const u8*>(end + 1) - reinterpret_cast<const u8*>(block));
}

const Contour kTriangle = {{0, 0, true}, {100, 0, true}, {0, 100, true}};
constexpr char kTriangleText[] = "M 0 200 L 100 200 L 0 100 L 0 200 Z E";

class TrueType : public kqtest::KQTest {
protected:
    void TearDown() override {
        CloseFontKQ(&font);
        KQTest::TearDown();
    }

    // Opens a file; 1000 points at 72 pixels an inch.
    int OpenBytes(const std::string& bytes, i32 style = 0, i32 face = 0) {
        CloseFontKQ(&font);
        path_ = Folder() + "font.ttf";
        kqtest::WriteWholeFile(path_, bytes);
        font.fontFile = path_.c_str();
        font.faceIndex = face;
        return OpenFontKQ(&font, style, 1000, 72, 72);
    }

    void Open(const FontBuilder& builder, i32 style = 0) { ASSERT_NE(OpenBytes(builder.Build(), style), 0); }

    std::string Outline(u8 character, f64 x = 0, f64 y = 0) {
        KQOutlineCommand* block = GetFontOutlineKQ(character, &font, x, y);
        if (!block) return "null";
        std::string text = Spell(block);
        EXPECT_LE(BytesOf(block), (reinterpret_cast<KQBlockHeader*>(block) - 1)->Size);
        FreeMemoryKQ(block);
        return text;
    }

    // The outline of a font with this glyph at 'A'.
    std::string OutlineOf(const std::string& glyph, i32 style = 0) {
        Open(FontBuilder().Add("").Add(glyph), style);
        return Outline('A');
    }

    f64 KernX(u8 left, u8 right) {
        f64 x = 77, y = 77;
        GetKernKQ(&font, left, right, &x, &y);
        EXPECT_EQ(y, 0.0);
        return x;
    }

    f64 Advance(u8 character) {
        f64 x = 77, y = 77;
        GetCursorAdvanceKQ(character, &font, &x, &y);
        EXPECT_EQ(y, 0.0);
        return x;
    }

    // Every call on a font that may be damaged.
    void UseAll() {
        for (int c = 0; c < 256; ++c) {
            FreeMemoryKQ(GetFontOutlineKQ(u8(c), &font, 0, 0));
            Advance(u8(c));
            KernX(u8(c), u8(255 - c));
        }
        GetLineAdvanceKQ(&font);
    }

    KQFont font = {};

private:
    std::string path_;
};

// Glyphs 0 (missing), 1 'A' a triangle, 2 'B' a square to the right.
FontBuilder Letters() {
    Contour square = {{200, 0, true}, {300, 0, true}, {300, 100, true}, {200, 100, true}};
    return FontBuilder().Add("").Add(SimpleGlyph({kTriangle}), 600).Add(SimpleGlyph({square}, 200), 700, 200);
}

// Opening and closing.

TEST_F(TrueType, ScalesComeFromSizeResolutionAndUnits) {
    FontBuilder builder = Letters();
    builder.units = 2048;
    kqtest::WriteWholeFile(Folder() + "a.ttf", builder.Build());
    std::string path = Folder() + "a.ttf";
    font.fontFile = path.c_str();
    ASSERT_NE(OpenFontKQ(&font, 0, 12, 96, 120), 0);
    EXPECT_EQ(font.scaleX, 96 / (2048 * 72.0) * 12);
    EXPECT_EQ(font.scaleY, 120 / (2048 * 72.0) * 12);
    EXPECT_EQ(font.pointSize, 12);
    EXPECT_EQ(font.resolutionX, 96);
    EXPECT_EQ(font.resolutionY, 120);
    EXPECT_EQ(font.state, KQFONT_Open);
}

TEST_F(TrueType, OpenFontHoldsTheWholeFile) {
    std::string bytes = Letters().Build();
    ASSERT_NE(OpenBytes(bytes), 0);
    ASSERT_EQ(font.fontBytes, bytes.size());
    EXPECT_EQ(std::memcmp(font.fontData, bytes.data(), bytes.size()), 0);
    EXPECT_EQ(font.kernTable, nullptr);
}

TEST_F(TrueType, FontThatTheHostCannotSelectLeavesNothingBehind) {
    font.fontFile = nullptr;
    std::strcpy(font.logFont.faceName, "KQ No Such Face");
    KQEnv->Error = 0;
    int opened = OpenFontKQ(&font, 0, 12, 72, 72);
    std::printf("a face that is not there: %s\n", opened ? "the host takes another" : "refused");
    EXPECT_EQ(opened != 0, (font.state & KQFONT_Open) != 0);
    if (!opened) {
        EXPECT_TRUE(GetErrorKQ() == KQERR_NOTFOUND || GetErrorKQ() == KQERR_READ);
        EXPECT_EQ(font.fontData, nullptr);
        EXPECT_EQ(font.pointSize, 12);
    }
    CloseFontKQ(&font);
    EXPECT_EQ(font.fontHandle, nullptr);
    EXPECT_EQ(font.oldFont, nullptr);
    EXPECT_EQ(font.deviceContext, nullptr);
}

TEST_F(TrueType, EachTableButKernIsNeeded) {
    for (const char* tag : {"cmap", "glyf", "loca", "head", "hhea", "hmtx"}) {
        KQEnv->Error = 0;
        EXPECT_EQ(OpenBytes(Letters().Without(tag).Build()), 0) << tag;
        EXPECT_EQ(GetErrorKQ(), KQERR_BADDATA) << tag;
        EXPECT_EQ(font.fontData, nullptr);
        EXPECT_EQ(font.state & KQFONT_Open, 0u);
    }
}

TEST_F(TrueType, FontWithoutAMapOfPlatformThreeIsRefused) {
    EXPECT_EQ(OpenBytes(Letters().Set("cmap", Cmap({{1, 0, Format0({{'A', 1}})}})).Build()), 0);
}

TEST_F(TrueType, FirstReadableMapOfPlatformThreeCounts) {
    std::string unreadable = BigBytes().U16(12).U16(0).U32(16).U32(0).U32(0);
    Open(Letters().Set(
        "cmap",
        Cmap({{0, 3, Format6('A', {2})}, {3, 10, unreadable}, {3, 1, Format6('A', {1})}, {3, 1, Format6('A', {2})}})));
    EXPECT_EQ(Outline('A'), kTriangleText);
}

TEST_F(TrueType, FirstMapOfPlatformThreeIsKeptWhenNoneCanBeRead) {
    std::string unreadable = BigBytes().U16(12).U16(0).U32(16).U32(0).U32(0);
    Open(Letters().Set("cmap", Cmap({{1, 0, Format0({{'A', 1}})}, {3, 10, unreadable}, {3, 1, unreadable}})));
    EXPECT_EQ(font.cmapRecord, font.cmapTable + 4 + 8);
    EXPECT_EQ(Outline('A'), "null");
}

TEST_F(TrueType, MapThatCannotBeReadGivesNoOutlineAndNoMetrics) {
    std::string unreadable = BigBytes().U16(12).U16(0).U32(16).U32(0).U32(0);
    Open(Letters().Set("cmap", Cmap({{3, 10, unreadable}})).Set("kern", Kern({{0, 0, 5}})));
    EXPECT_EQ(Outline('A'), "null");
    EXPECT_EQ(Advance('A'), 0.0);
    EXPECT_EQ(KernX('A', 'A'), 0.0);
}

TEST_F(TrueType, EmWithoutUnitsIsRefused) {
    FontBuilder builder = Letters();
    builder.units = 0;
    EXPECT_EQ(OpenBytes(builder.Build()), 0);
}

TEST_F(TrueType, FileThatIsMissingOrEmptyIsRefused) {
    EXPECT_EQ(OpenBytes(""), 0);
    std::string nowhere = Folder() + "nowhere.ttf";
    font.fontFile = nowhere.c_str();
    EXPECT_EQ(OpenFontKQ(&font, 0, 12, 72, 72), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_NOTFOUND);
}

TEST_F(TrueType, OpeningAgainClosesFirst) {
    Open(Letters());
    ASSERT_NE(OpenFontKQ(&font, KQFONT_Oblique, 500, 72, 72), 0);
    EXPECT_EQ(font.scaleX, 0.5);
}

TEST_F(TrueType, FailedOpenAfterAGoodOneLeavesAClosedFont) {
    Open(Letters());
    EXPECT_EQ(OpenBytes("no font at all, but long enough"), 0);
    EXPECT_EQ(Outline('A'), "null");
    Open(Letters());
    EXPECT_EQ(Outline('A'), kTriangleText);
}

TEST_F(TrueType, ClosingTwiceAndClosingNullAreHarmless) {
    Open(Letters());
    CloseFontKQ(&font);
    CloseFontKQ(&font);
    CloseFontKQ(nullptr);
    EXPECT_EQ(font.state & KQFONT_Open, 0u);
    EXPECT_EQ(font.fontData, nullptr);
}

TEST_F(TrueType, EveryCallOnAClosedFontGivesNothing) {
    EXPECT_EQ(Outline('A'), "null");
    EXPECT_EQ(KernX('A', 'V'), 0.0);
    EXPECT_EQ(Advance('A'), 0.0);
}

TEST_F(TrueType, OutputsOfAFontThatWasClosedAreZero) {
    Open(Letters().Set("kern", Kern({{1, 2, 9}})));
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    CloseFontKQ(&font);
    f64 nan = std::numeric_limits<f64>::quiet_NaN(), x = nan, y = nan;
    GetKernKQ(&font, 'A', 'B', &x, &y);
    EXPECT_EQ(x, 0.0);
    EXPECT_EQ(y, 0.0);
    x = y = nan;
    GetCursorAdvanceKQ('A', &font, &x, &y);
    EXPECT_EQ(x, 0.0);
    EXPECT_EQ(y, 0.0);
    EXPECT_EQ(Outline('A'), "null");
    EXPECT_EQ(GetLineAdvanceKQ(&font), 0.0);
}

TEST_F(TrueType, LineAdvanceOfAClosedFontIsZero) {
    EXPECT_EQ(GetLineAdvanceKQ(&font), 0.0);
    Open(Letters());
    EXPECT_EQ(GetLineAdvanceKQ(&font), 1100.0);
    CloseFontKQ(&font);
    EXPECT_EQ(GetLineAdvanceKQ(&font), 0.0);
}

TEST_F(TrueType, NullFontGivesNothing) {
    f64 x = 1, y = 1;
    EXPECT_EQ(GetFontOutlineKQ('A', nullptr, 0, 0), nullptr);
    GetKernKQ(nullptr, 'A', 'V', &x, &y);
    GetCursorAdvanceKQ('A', nullptr, &x, nullptr);
    EXPECT_EQ(x + y, 0.0);
    EXPECT_EQ(GetLineAdvanceKQ(nullptr), 0.0);
    EXPECT_EQ(OpenFontKQ(nullptr, 0, 12, 72, 72), 0);
}

TEST_F(TrueType, FaceOfACollectionIsReadFromItsOwnDirectory) {
    FontBuilder other = FontBuilder().Add("").Add(SimpleGlyph({{{5, 5, true}, {6, 5, true}}}, 0, 0));
    std::string bytes = kqtest::Collection({Letters(), other});
    ASSERT_NE(OpenBytes(bytes, 0, 1), 0);
    EXPECT_EQ(Outline('A'), "M 5 195 L 6 195 L 5 195 Z E");
    ASSERT_NE(OpenBytes(bytes, 0, 0), 0);
    EXPECT_EQ(Outline('A'), kTriangleText);
    EXPECT_EQ(OpenBytes(bytes, 0, 2), 0);
    EXPECT_EQ(OpenBytes(bytes, 0, -1), 0);
}

TEST_F(TrueType, NextFontInTheSameRecordForgetsTheOneBefore) {
    Open(Letters().Set("kern", Kern({{1, 2, 9}})));
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    EXPECT_EQ(Outline('A'), kTriangleText);
    Open(Letters().Set("cmap", Cmap({{3, 1, Format6('B', {1})}})));
    EXPECT_EQ(Outline('A'), "E");
    EXPECT_EQ(Outline('B'), kTriangleText);
    EXPECT_EQ(KernX('A', 'B'), 0.0);
}

// Characters.

TEST_F(TrueType, ByteMapTakesTheByteOfTheCharacter) {
    Open(Letters().Set("cmap", Cmap({{3, 1, Format0({{0xFF, 1}})}})));
    EXPECT_EQ(Outline(0xFF), kTriangleText);
    EXPECT_EQ(Outline(0xFE), "E");
}

TEST_F(TrueType, SymbolFontMaps41ThroughF041) {
    Open(Letters().Set("cmap", Cmap({{3, 0,
                                      Format4({{0x41, 0x41, u32(2 - 0x41), {}},
                                               {0xF041, 0xF041, u32(1 - 0xF041), {}},
                                               {0xFFFF, 0xFFFF, 1, {}}})}})));
    EXPECT_EQ(Outline(0x41), kTriangleText);
}

TEST_F(TrueType, SymbolFontIsShiftedForAdvancesAndKerningToo) {
    std::string map = Format4({{0xF041, 0xF042, u32(1 - 0xF041), {}}, {0xFFFF, 0xFFFF, 1, {}}});
    Open(Letters().Set("cmap", Cmap({{3, 0, map}})).Set("kern", Kern({{1, 2, -30}})));
    EXPECT_EQ(Advance('A'), 600.0);
    EXPECT_EQ(Advance('B'), 700.0);
    EXPECT_EQ(KernX('A', 'B'), -30.0);
}

TEST_F(TrueType, SymbolFontWithAByteMapIsNotShifted) {
    Open(Letters().Set("cmap", Cmap({{3, 0, Format0({{'A', 1}})}})));
    EXPECT_EQ(Outline('A'), kTriangleText);
}

TEST_F(TrueType, SymbolFontWithARunIsShifted) {
    Open(Letters().Set("cmap", Cmap({{3, 0, Format6(0xF041, {1})}})));
    EXPECT_EQ(Outline('A'), kTriangleText);
}

TEST_F(TrueType, SegmentWithoutRangeOffsetAddsItsDeltaInSixteenBits) {
    Open(Letters().Set("cmap",
                       Cmap({{3, 1, Format4({{0x41, 0x41, 0x10000 + 1 - 0x41, {}}, {0xFFFF, 0xFFFF, 1, {}}})}})));
    EXPECT_EQ(Advance('A'), 600.0);
}

TEST_F(TrueType, SegmentWithGlyphsAddsItsDeltaToEachButZero) {
    auto map = Format4({{0x41, 0x43, 0xFFFF, {3, 0, 2}}, {0xFFFF, 0xFFFF, 1, {}}});
    Open(Letters().Set("cmap", Cmap({{3, 1, map}})));
    EXPECT_EQ(Advance('A'), 700.0);
    EXPECT_EQ(Advance('B'), 500.0);
    EXPECT_EQ(Advance('C'), 600.0);
}

TEST_F(TrueType, FirstSegmentThatHoldsTheCharacterCounts) {
    auto map = Format4({{0x50, 0x60, 0, {}}, {0x41, 0x60, u32(1 - 0x41), {}}, {0x41, 0x70, u32(2 - 0x41), {}}});
    Open(Letters().Set("cmap", Cmap({{3, 1, map}})));
    EXPECT_EQ(Advance('A'), 600.0);
}

TEST_F(TrueType, CharacterOfNoSegmentIsGlyphZero) {
    Open(Letters());
    EXPECT_EQ(Advance('z'), 500.0);
    EXPECT_EQ(Outline('z'), "E");
}

TEST_F(TrueType, CharacterOutsideARunIsGlyphZero) {
    Open(Letters().Set("cmap", Cmap({{3, 1, Format6('A', {1, 2})}})));
    EXPECT_EQ(Advance('@'), 500.0);
    EXPECT_EQ(Advance('B'), 700.0);
    EXPECT_EQ(Advance('C'), 500.0);
}

TEST_F(TrueType, GlyphArrayBehindTheEndGivesNoOutline) {
    std::string map = Format4({{0x41, 0x80, 0, {1}}, {0xFFFF, 0xFFFF, 1, {}}});
    Open(Letters().Set("cmap", Cmap({{3, 1, map}})));
    EXPECT_EQ(Outline('A'), kTriangleText);
    EXPECT_EQ(Outline('B'), "null");
    EXPECT_EQ(Advance('B'), 0.0);
}

TEST_F(TrueType, MapBehindTheEndOfItsTableGivesNoOutline) {
    std::string cmap = BigBytes().U16(0).U16(1).U16(3).U16(1).U32(0xFFFFFFF0);
    Open(Letters().Set("cmap", cmap));
    EXPECT_EQ(Outline('A'), "null");
}

TEST_F(TrueType, SegmentCountThatOverflowsGivesNoOutline) {
    BigBytes map;
    map.Add(Format4({{0x41, 0x42, u32(-0x40), {}}, {0xFFFF, 0xFFFF, 1, {}}})).Put16(6, 0xFFFE);
    Open(Letters().Set("cmap", Cmap({{3, 1, map}})));
    EXPECT_EQ(Outline('A'), "null");
}

// Outlines.

TEST_F(TrueType, SpaceGivesABlockWithOnlyTheEndMark) {
    Open(FontBuilder().Add("").Add("", 300));
    EXPECT_EQ(Outline('A'), "E");
    EXPECT_EQ(Advance('A'), 300.0);
}

TEST_F(TrueType, GlyphWithoutContoursGivesOnlyTheEndMark) { EXPECT_EQ(OutlineOf(BigBytes().Zeros(10)), "E"); }

TEST_F(TrueType, PointsOnTheCurveGiveLinesAndAClosingLine) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle})), kTriangleText);
}

TEST_F(TrueType, OriginMovesTheOutline) {
    Open(Letters());
    EXPECT_EQ(Outline('A', 1000, -50), "M 1000 150 L 1100 150 L 1000 50 L 1000 150 Z E");
}

TEST_F(TrueType, ClosingLineIsSentEvenToThePointWhereThePathStands) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {9, 0, true}, {0, 0, true}}})),
              "M 0 200 L 9 200 L 0 200 L 0 200 Z E");
}

TEST_F(TrueType, ControlPointGivesACurveInHermiteForm) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {50, 100, false}, {100, 0, true}}})),
              "M 0 200 C 100 200 100 -200 100 200 L 0 200 Z E");
}

TEST_F(TrueType, ControlAtTheEndCurvesBackToTheStart) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {100, 0, true}, {50, 100, false}}})),
              "M 0 200 L 100 200 C 0 200 -100 -200 -100 200 Z E");
}

TEST_F(TrueType, TwoControlsInARowMeetInTheirMiddle) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {0, 100, false}, {100, 100, false}, {100, 0, true}}})),
              "M 0 200 C 50 100 0 -200 100 0 C 100 200 100 0 0 200 L 0 200 Z E");
}

TEST_F(TrueType, ContourThatStartsOffTheCurveStartsAtTheImpliedMidpoint) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, false}, {100, 100, true}}})),
              "M 0 150 C 100 100 0 -100 200 0 C 0 150 -200 200 0 -100 Z E");
}

TEST_F(TrueType, ContourThatStartsOffTheCurveStartsAtTheNextPointOnIt) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, true}, {100, 100, true}}})),
              "M 0 100 L 100 100 C 0 100 -200 200 0 -200 Z E");
}

TEST_F(TrueType, ContourOfControlsAloneIsAClosedCurve) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, false}, {100, 100, false}, {100, 0, false}}})),
              "M 0 150 C 50 100 0 -100 100 0 C 100 150 100 0 0 100 C 50 200 0 100 -100 0 C 0 150 -100 0 0 -100 Z E");
}

TEST_F(TrueType, ContourOfTwoControlsRunsThereAndBack) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, false}}})),
              "M 0 150 C 0 150 0 -100 0 100 C 0 150 0 100 0 -100 Z E");
}

TEST_F(TrueType, ContourOfOneControlGivesNothing) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{7, 7, false}}, kTriangle})), kTriangleText);
}

TEST_F(TrueType, ContourOfOnePointIsAMoveAndALineToItself) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{7, 8, true}}})), "M 7 192 L 7 192 Z E");
}

TEST_F(TrueType, ContoursGoInOrder) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{1, 0, true}, {2, 0, true}}, {{3, 0, true}, {4, 0, true}}})),
              "M 1 200 L 2 200 L 1 200 Z M 3 200 L 4 200 L 3 200 Z E");
}

TEST_F(TrueType, BearingAndLeastXShiftTheGlyph) {
    Open(FontBuilder().Add("").Add(SimpleGlyph({{{30, 0, true}, {40, 0, true}}}, 30), 500, 7));
    EXPECT_EQ(Outline('A'), "M 7 200 L 17 200 L 7 200 Z E");
}

TEST_F(TrueType, BearingBehindTheLongMetricsComesFromTheTrailingArray) {
    FontBuilder builder =
        FontBuilder().Add("", 900, 1).Add("", 0, 2).Add(SimpleGlyph({{{0, 0, true}, {1, 0, true}}}), 0, 9);
    builder.longMetrics = 1;
    Open(builder);
    EXPECT_EQ(Outline('B'), "M 9 200 L 10 200 L 9 200 Z E");
    EXPECT_EQ(Advance('B'), 900.0);
}

TEST_F(TrueType, LeastYOfTheFontAndDescenderPlaceTheBaseLine) {
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({kTriangle}));
    builder.yMin = -150;
    Open(builder);
    EXPECT_EQ(Outline('A'), "M 0 50 L 100 50 L 0 -50 L 0 50 Z E");
}

TEST_F(TrueType, ObliqueStyleSlantsByTheHeightBelowTheTop) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle}), KQFONT_Oblique), "M -35 200 L 65 200 L -17.5 100 L -35 200 Z E");
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle}), 1 | 4), kTriangleText);
}

TEST_F(TrueType, ObliqueStyleIsOneBitAmongOthers) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle}), ~0), "M -35 200 L 65 200 L -17.5 100 L -35 200 Z E");
}

TEST_F(TrueType, ObliqueStyleSlantsInFontUnits) {
    Open(Letters());
    ASSERT_NE(OpenFontKQ(&font, KQFONT_Oblique, 1000, 144, 36), 0);
    EXPECT_EQ(Outline('A'), "M -70 100 L 130 100 L -35 50 L -70 100 Z E");
}

TEST_F(TrueType, ObliqueStyleSlantsControlsToo) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {50, 100, false}, {100, 0, true}}}), KQFONT_Oblique),
              "M -35 200 C 65 200 135 -200 65 200 L -35 200 Z E");
}

TEST_F(TrueType, ObliqueStyleSlantsAComponentBeforeItsMatrixAndOffset) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 128).U16(1).U16(7).U16(0).U16(0x4000).U16(0x2000).U16(0x1000).U16(0xC000);
    Open(Letters().Add(glyph), KQFONT_Oblique);
    // u = -35, 65, -17.5 and v = 200, 200, 100: X = u + v / 2 + 7, Y = u / 4 - v.
    EXPECT_EQ(Outline('C'), "M 72 -208.75 L 172 -183.75 L 39.5 -104.375 L 72 -208.75 Z E");
}

TEST_F(TrueType, MetricsDoNotSlant) {
    Open(Letters().Set("kern", Kern({{1, 2, 9}})), KQFONT_Oblique);
    EXPECT_EQ(Advance('A'), 600.0);
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    EXPECT_EQ(GetLineAdvanceKQ(&font), 1100.0);
}

TEST_F(TrueType, ResolutionsScaleTheAxesApart) {
    Open(Letters());
    ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 36), 0);
    EXPECT_EQ(Outline('A'), "M 0 100 L 200 100 L 0 50 L 0 100 Z E");
    EXPECT_EQ(GetLineAdvanceKQ(&font), 550.0);
}

TEST_F(TrueType, ShortAndRepeatedStepsAreRead) {
    BigBytes glyph;
    glyph.U16(1).U16(0).U16(0).U16(0).U16(0).U16(3).U16(3).Zeros(3);   // three bytes of instructions
    glyph.U8(1 | 2 | 16 | 4 | 32).U8(1 | 2 | 16 | 32 | 8).U8(1).U8(1 | 2 | 4);
    glyph.U8(10).U8(20).U8(30).U8(5).U8(50).U8(7);
    EXPECT_EQ(OutlineOf(glyph), "M 10 150 L 30 150 L 60 150 L 55 157 L 10 150 Z E");
}

TEST_F(TrueType, WideLocationsAreRead) {
    FontBuilder builder = Letters();
    builder.wideLoca = true;
    Open(builder);
    EXPECT_EQ(Outline('A'), kTriangleText);
    EXPECT_EQ(Outline('B'), "M 200 200 L 300 200 L 300 100 L 200 100 L 200 200 Z E");
}

// Compounds.

TEST_F(TrueType, ComponentsStandAtTheirOffsets) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32).U16(1).U16(10).U16(u32(-20)).U16(1 | 2).U16(2).U16(0).U16(0);
    Open(Letters().Add(glyph));
    EXPECT_EQ(Outline('C'),
              "M 10 220 L 110 220 L 10 120 L 10 220 Z "
              "M 200 200 L 300 200 L 300 100 L 200 100 L 200 200 Z E");
}

TEST_F(TrueType, ByteArgumentsAreTakenAsUnsigned) {
    Open(Letters().Add(CompoundHead().U16(2).U16(1).U8(0xFF).U8(0xFE)));
    EXPECT_EQ(Outline('C'), "M 255 -54 L 355 -54 L 255 -154 L 255 -54 Z E");
}

TEST_F(TrueType, ArgumentsThatAreNoOffsetLeaveTheComponentAtTheOrigin) {
    Open(Letters().Add(CompoundHead().U16(1).U16(1).U16(10).U16(20)));
    EXPECT_EQ(Outline('C', 3, 4), "M 3 204 L 103 204 L 3 104 L 3 204 Z E");
}

TEST_F(TrueType, EachOffsetIsScaledByItsOwnAxis) {
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(1).U16(5).U16(10)));
    ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 72), 0);
    EXPECT_EQ(Outline('C'), "M 10 190 L 210 190 L 10 90 L 10 190 Z E");
}

TEST_F(TrueType, OneScaleServesBothAxes) {
    Open(Letters().Add(CompoundHead().U16(1 | 2 | 8).U16(1).U16(0).U16(0).U16(0x2000)));
    EXPECT_EQ(Outline('C'), "M 0 100 L 50 100 L 0 50 L 0 100 Z E");
}

TEST_F(TrueType, TwoScalesServeXAndY) {
    Open(Letters().Add(CompoundHead().U16(1 | 2 | 64).U16(1).U16(0).U16(0).U16(0xE000).U16(0x2000)));
    EXPECT_EQ(Outline('C'), "M 0 100 L -50 100 L 0 50 L 0 100 Z E");
}

TEST_F(TrueType, MatrixIsTakenInFileOrder) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 128).U16(1).U16(0).U16(0).U16(0x4000).U16(0x2000).U16(0x1000).U16(0xC000);
    Open(Letters().Add(glyph));
    // u = 0, 100, 0 and v = 200, 200, 100: X = u + v / 2, Y = u / 4 - v.
    EXPECT_EQ(Outline('C'), "M 100 -200 L 200 -175 L 50 -100 L 100 -200 Z E");
}

TEST_F(TrueType, MatrixScalesItsFirstAndThirdValueByXAndTheOthersByY) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 128).U16(1).U16(0).U16(0).U16(0x4000).U16(0x2000).U16(0x1000).U16(0xC000);
    Open(Letters().Add(glyph));
    ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 36), 0);
    // u = 0, 100, 0 and v = 200, 200, 100: X = 2 u + v / 4, Y = u / 2 - v / 2.
    EXPECT_EQ(Outline('C'), "M 50 -100 L 250 -50 L 25 -50 L 50 -100 Z E");
}

TEST_F(TrueType, OneScaleGoesBeforeTwoAndTwoBeforeAMatrix) {
    BigBytes one = CompoundHead(), two = CompoundHead();
    one.U16(1 | 2 | 8 | 64 | 128 | 32).U16(1).U16(0).U16(0).U16(0x2000).U16(1 | 2).U16(2).U16(0).U16(0);
    two.U16(1 | 2 | 64 | 128).U16(1).U16(0).U16(0).U16(0x4000).U16(0x2000);
    Open(Letters().Add(one).Add(two));
    EXPECT_EQ(Outline('C'), "M 0 100 L 50 100 L 0 50 L 0 100 Z M 200 200 L 300 200 L 300 100 L 200 100 L 200 200 Z E");
    EXPECT_EQ(Outline('D'), "M 0 100 L 100 100 L 0 50 L 0 100 Z E");
}

TEST_F(TrueType, ComponentThatIsItselfCompoundGivesNothing) {
    std::string nested = CompoundHead().U16(1 | 2).U16(1).U16(0).U16(0);
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32).U16(3).U16(0).U16(0).U16(1 | 2).U16(1).U16(0).U16(0);
    Open(Letters().Add(nested).Add(glyph));
    EXPECT_EQ(Outline('D'), kTriangleText);
}

TEST_F(TrueType, CompoundOfItselfGivesNothing) {
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(3).U16(0).U16(0)));
    EXPECT_EQ(Outline('C'), "E");
}

TEST_F(TrueType, ComponentUsesItsOwnBearingAndLeastX) {
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({{{30, 0, true}, {40, 0, true}}}, 30), 500, 7);
    Open(builder.Add(CompoundHead().U16(1 | 2).U16(1).U16(0).U16(0), 500, 99));
    EXPECT_EQ(Outline('B'), "M 7 200 L 17 200 L 7 200 Z E");
}

TEST_F(TrueType, ComponentThatShowsNothingIsPassedOver) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32).U16(0).U16(0).U16(0).U16(1 | 2).U16(1).U16(0).U16(0);
    Open(Letters().Add(glyph));
    EXPECT_EQ(Outline('C'), kTriangleText);
}

TEST_F(TrueType, ComponentsWithoutEndGiveNoOutline) {
    BigBytes glyph = CompoundHead();
    for (int i = 0; i < 2000; ++i) glyph.U16(1 | 2 | 32).U16(1).U16(0).U16(0);
    Open(Letters().Add(glyph));
    EXPECT_EQ(Outline('C'), "null");
}

TEST_F(TrueType, ComponentBehindTheLastGlyphGivesNoOutline) {
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(4000).U16(0).U16(0)));
    EXPECT_EQ(Outline('C'), "null");
}

// A few pieces are placed by a plan, many are written while they are read; both ways write the same.
TEST_F(TrueType, CompoundsOfAnyNumberOfPiecesAreWhole) {
    for (u32 count : {1u, 7u, 8u, 9u, 40u, 1024u}) {
        BigBytes glyph = CompoundHead();
        std::string expected;
        for (u32 i = 0; i < count; ++i) {
            glyph.U16(i + 1 < count ? 1 | 2 | 32 : 1 | 2).U16(1).U16(i).U16(0);
            std::string x = std::to_string(i), far = std::to_string(i + 100);
            expected += "M " + x + " 200 L " + far + " 200 L " + x + " 100 L " + x + " 200 Z ";
        }
        Open(Letters().Add(glyph));
        EXPECT_EQ(Outline('C'), expected + "E") << count;
        EXPECT_EQ(Outline('C'), expected + "E") << count << ", the second time";
    }
}

TEST_F(TrueType, BlockOfALargeCompoundIsMovedAFewTimesOnly) {
    BigBytes glyph = CompoundHead();
    for (u32 i = 0; i < 1000; ++i) glyph.U16(i < 999 ? 1 | 2 | 32 : 1 | 2).U16(1).U16(0).U16(0);
    Open(FontBuilder().Add("").Add(SimpleGlyph({Contour(200, {1, 1, true})})).Add(glyph));
    u32 before = KQEnv->AllocCount;
    KQOutlineCommand* block = GetFontOutlineKQ('B', &font, 0, 0);
    EXPECT_LE(KQEnv->AllocCount - before, 20u);
    ASSERT_NE(block, nullptr);
    FreeMemoryKQ(block);
}

TEST_F(TrueType, CompoundOfMorePointsThanSenseGivesNoOutline) {
    Contour many(60000, {0, 0, true});
    BigBytes glyph = CompoundHead();
    for (int i = 0; i < 40; ++i) glyph.U16(i < 39 ? 1 | 2 | 32 : 1 | 2).U16(1).U16(0).U16(0);
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({many})).Add(glyph);
    builder.wideLoca = true;
    Open(builder);
    EXPECT_NE(Outline('A'), "null");
    EXPECT_EQ(Outline('B'), "null");
}

// Kerning and advances.

TEST_F(TrueType, FontWithoutAKernTableYieldsZeroKerning) {
    Open(Letters());
    EXPECT_EQ(KernX('A', 'B'), 0.0);
}

TEST_F(TrueType, KerningOfAPairIsFoundAndScaled) {
    Open(Letters().Set("kern", Kern({{0, 1, 5}, {1, 1, -7}, {1, 2, -80}, {2, 1, 30}})));
    EXPECT_EQ(KernX('A', 'B'), -80.0);
    EXPECT_EQ(KernX('B', 'A'), 30.0);
    EXPECT_EQ(KernX('A', 'A'), -7.0);
    EXPECT_EQ(KernX('B', 'B'), 0.0);
    ASSERT_NE(OpenFontKQ(&font, 0, 500, 72, 144), 0);
    EXPECT_EQ(KernX('A', 'B'), -40.0);
}

TEST_F(TrueType, EveryPairIsFoundWhateverTheCount) {
    for (u32 count = 1; count < 20; ++count) {
        std::vector<kqtest::KernPair> pairs;
        for (u32 i = 0; i < count; ++i) pairs.push_back({i / 4, i % 4, int(i) + 1});
        FontBuilder builder;
        for (u32 i = 0; i < 8; ++i) builder.Add("");
        Open(builder.Set("kern", Kern(pairs)));
        for (u32 i = 4; i < 20; ++i)
            if (i % 4) {
                EXPECT_EQ(KernX(u8(0x40 + i / 4), u8(0x40 + i % 4)), i < count ? i + 1.0 : 0.0) << count << " " << i;
            }
    }
}

TEST_F(TrueType, KernTableWithoutSubtablesYieldsZero) {
    BigBytes kern;
    kern.Add(Kern({{1, 2, 9}})).Put16(2, 0);
    Open(Letters().Set("kern", kern));
    EXPECT_EQ(KernX('A', 'B'), 0.0);
}

TEST_F(TrueType, FirstSubtableOfAKernTableAloneCounts) {
    BigBytes kern;
    kern.Add(Kern({{1, 2, 9}})).Add(Kern({{1, 1, 5}, {1, 2, 7}}).substr(4)).Put16(2, 2);
    Open(Letters().Set("kern", kern));
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    EXPECT_EQ(KernX('A', 'A'), 0.0);
}

TEST_F(TrueType, SubtableOfAnotherFormatIsTakenAsFormatZero) {
    BigBytes kern;
    kern.Add(Kern({{1, 2, 9}})).Put16(8, 0x0201);
    Open(Letters().Set("kern", kern));
    EXPECT_EQ(KernX('A', 'B'), 9.0);
}

// Its count of subtables has 32 bits, of which the upper ones stand where the other version has its count.
TEST_F(TrueType, KernTableOfVersionOneHasNoSubtablesAndYieldsZero) {
    BigBytes kern;
    kern.U32(0x00010000).U32(1).U32(22).U16(0).U16(0).U16(1).U16(0).U16(0).U16(0).U16(1).U16(2).U16(9);
    Open(Letters().Set("kern", kern));
    EXPECT_EQ(KernX('A', 'B'), 0.0);
}

TEST_F(TrueType, OfPairsWithTheSameKeyTheSearchFindsTheOneItMeets) {
    Open(Letters().Set("kern", Kern({{1, 2, 5}, {1, 2, 6}, {1, 2, 7}})));
    EXPECT_EQ(KernX('A', 'B'), 6.0);
    Open(Letters().Set("kern", Kern({{0, 1, 4}, {1, 2, 5}, {1, 2, 6}, {1, 2, 7}, {2, 1, 8}, {2, 2, 9}})));
    EXPECT_EQ(KernX('A', 'B'), 7.0);
}

TEST_F(TrueType, KernTableWhoseCountLiesIsReadToItsEnd) {
    Open(Letters().Set("kern", Kern({{1, 1, 3}, {1, 2, 9}}, 0xFFFF)));
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    EXPECT_EQ(KernX('B', 'B'), 0.0);
}

TEST_F(TrueType, KerningIsTheSameWithoutMemoryForItsIndex) {
    Open(Letters().Set("kern", Kern({{1, 1, 3}, {1, 2, 9}, {2, 1, -4}})));
    kq::allocationFaults.Set(1, false);
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    EXPECT_EQ(KernX('B', 'A'), -4.0);
    EXPECT_EQ(KernX('B', 'B'), 0.0);
    kq::allocationFaults.Clear();
    EXPECT_EQ(KernX('A', 'A'), 3.0);
    EXPECT_EQ(KernX('B', 'A'), -4.0);
}

// The search begins in the middle, 2|0, and goes to the right of it for 2|1.
TEST_F(TrueType, PairsOutOfOrderAreSearchedFromTheMiddle) {
    Open(Letters().Set("kern", Kern({{2, 2, 5}, {2, 0, 6}, {2, 1, 7}})));
    EXPECT_EQ(KernX('B', 'A'), 7.0);
    EXPECT_EQ(KernX('B', 'B'), 0.0);
}

TEST_F(TrueType, KernTableCutShortYieldsZero) {
    std::string kern = Kern({{1, 2, 9}});
    for (size_t length = 0; length < 24; ++length) {
        Open(Letters().Set("kern", kern.substr(0, length)));
        EXPECT_EQ(KernX('A', 'B'), 0.0) << length;
    }
}

TEST_F(TrueType, ComponentWithItsOwnMetricsLendsItsAdvance) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32 | 0x200).U16(2).U16(0).U16(0).U16(1 | 2).U16(1).U16(0).U16(0);
    Open(Letters().Add(glyph, 50));
    EXPECT_EQ(Advance('C'), 700.0);
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(2).U16(0).U16(0), 50));
    EXPECT_EQ(Advance('C'), 50.0);
}

TEST_F(TrueType, LastComponentWithItsOwnMetricsLendsItsAdvance) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32 | 0x200).U16(2).U16(0).U16(0).U16(1 | 2 | 0x200).U16(1).U16(0).U16(0);
    Open(Letters().Add(glyph, 50));
    EXPECT_EQ(Advance('C'), 600.0);
}

TEST_F(TrueType, OutputsMayBeNull) {
    Open(Letters());
    GetKernKQ(&font, 'A', 'B', nullptr, nullptr);
    GetCursorAdvanceKQ('A', &font, nullptr, nullptr);
}

// Damage.

TEST_F(TrueType, ContourEndsOutOfOrderGiveNoOutline) {
    BigBytes glyph;
    glyph.Add(SimpleGlyph({kTriangle, kTriangle})).Put16(10, 4).Put16(12, 2);
    EXPECT_EQ(OutlineOf(glyph), "null");
}

TEST_F(TrueType, GlyphCutAnywhereGivesNoOutline) {
    std::string glyph = SimpleGlyph({kTriangle});
    for (size_t length = 1; length + 1 < glyph.size(); ++length) {
        FontBuilder builder = FontBuilder().Add("").Add(glyph.substr(0, length));
        Open(builder);
        // The builder fills to an even length, with a zero that the last step may be.
        if (length + 1 < glyph.size() - 1) {
            EXPECT_EQ(Outline('A'), "null") << length;
        }
    }
}

TEST_F(TrueType, RepeatBehindTheLastPointGivesNoOutline) {
    BigBytes glyph;
    glyph.U16(1).Zeros(8).U16(2).U16(0).U8(1 | 8 | 16 | 32).U8(200);
    EXPECT_EQ(OutlineOf(glyph), "null");
}

TEST_F(TrueType, InstructionsBehindTheEndGiveNoOutline) {
    BigBytes glyph;
    glyph.Add(SimpleGlyph({kTriangle})).Put16(12, 0xFFFF);
    EXPECT_EQ(OutlineOf(glyph), "null");
}

TEST_F(TrueType, ContourCountThatOverflowsGivesNoOutline) {
    BigBytes glyph;
    glyph.Add(SimpleGlyph({kTriangle})).Put16(0, 0x7FFF);
    EXPECT_EQ(OutlineOf(glyph), "null");
}

TEST_F(TrueType, LocationBehindTheEndGivesNoOutline) {
    Open(Letters().Set("loca", BigBytes().U16(0).U16(0xFFFF).U16(0xFFFF)));
    EXPECT_EQ(Outline('A'), "null");
}

TEST_F(TrueType, GlyphBehindTheLocationsGivesNoOutline) {
    Open(Letters().Set("loca", BigBytes().U16(0)));
    EXPECT_EQ(Outline('A'), "null");
    EXPECT_EQ(Advance('A'), 600.0);
}

TEST_F(TrueType, LastLocationBeginsNoGlyph) {
    Open(Letters().Set("cmap", Cmap({{3, 1, Format6('A', {2, 3})}})));
    EXPECT_NE(Outline('A'), "null");
    EXPECT_EQ(Outline('B'), "null");
    EXPECT_EQ(Advance('B'), 700.0);
}

TEST_F(TrueType, BearingBehindTheEndGivesNoOutline) {
    Open(Letters().Set("hmtx", BigBytes().U16(500).U16(0)));
    EXPECT_EQ(Outline('A'), "null");
    EXPECT_EQ(Advance('A'), 0.0);
}

TEST_F(TrueType, NoLongMetricsGiveNoAdvance) {
    FontBuilder builder = Letters();
    BigBytes hhea;
    hhea.Zeros(36);
    Open(builder.Set("hhea", hhea));
    EXPECT_EQ(Advance('A'), 0.0);
}

TEST_F(TrueType, TableThatReachesPastTheEndIsReadAsFarAsItGoes) {
    std::string bytes = Letters().Build();
    BigBytes file;
    file.Add(bytes);
    for (size_t at = 12; at < 12 + 7 * 16; at += 16) file.Put32(at + 12, 0xFFFFFFFF);
    ASSERT_NE(OpenBytes(file), 0);
    EXPECT_EQ(Outline('A'), kTriangleText);
    UseAll();
}

TEST_F(TrueType, FileCutAnywhereIsNoFault) {
    std::string bytes = Letters().Set("kern", Kern({{1, 2, 9}})).Build();
    int opened = 0;
    for (size_t length = 0; length < bytes.size(); length += 3) {
        if (!OpenBytes(bytes.substr(0, length))) continue;
        ++opened;
        UseAll();
    }
    EXPECT_GT(opened, 0);
}

TEST_F(TrueType, RandomDamageIsNoFault) {
    u32 seed = std::random_device()();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    std::string whole =
        Letters().Set("kern", Kern({{1, 2, 9}})).Add(CompoundHead().U16(3).U16(1).U16(1).U16(1)).Build();
    for (int round = 0; round < 150; ++round) {
        std::string bytes = whole;
        for (u32 i = random() % 6 + 1; i > 0; --i) bytes[random() % bytes.size()] = char(random());
        if (OpenBytes(bytes)) UseAll();
    }
}

// Short memory.

// A font whose characters are drawn in every way: 'A' simple, 'B' a small compound, 'C' one of many pieces.
FontBuilder EveryWay() {
    BigBytes few = CompoundHead(), many = CompoundHead();
    few.U16(1 | 2 | 32).U16(1).U16(0).U16(0).U16(1 | 2).U16(1).U16(0).U16(0);
    for (int i = 0; i < 30; ++i) many.U16(i < 29 ? 1 | 2 | 32 : 1 | 2).U16(1).U16(0).U16(0);
    return FontBuilder().Add("").Add(SimpleGlyph({kTriangle})).Add(few).Add(many).Set("kern", Kern({{1, 2, 9}}));
}

// The index stays with the font, so each round opens it anew.
TEST_F(TrueType, EveryAllocationOfEveryCallMayFail) {
    Open(EveryWay());
    CloseFontKQ(&font);
    kqtest::FailEveryAllocation([&] {
        if (!OpenFontKQ(&font, 0, 1000, 72, 72)) return;
        for (u8 c : {'A', 'B', 'C', 'A', 'B', 'C'}) FreeMemoryKQ(GetFontOutlineKQ(c, &font, 0, 0));
        EXPECT_EQ(KernX('A', 'B'), 9.0);
        EXPECT_EQ(Advance('A'), 500.0);
        CloseFontKQ(&font);
    });
}

// The first allocation is for the index, the second for the plan of a character that has one, the third for the block
// at its full size.
TEST_F(TrueType, OutlineIsWholeWithoutMemoryForWhatTheFontKeeps) {
    Open(EveryWay());
    std::string whole[3];
    for (int c = 0; c < 3; ++c) whole[c] = Outline(u8('A' + c));
    for (int c = 0; c < 3; ++c)
        for (i64 n = 1; n <= (c < 2 ? 3 : 1); ++n) {
            Open(EveryWay());
            KQEnv->Error = 0;
            kq::allocationFaults.Set(n, true);
            EXPECT_EQ(Outline(u8('A' + c)), whole[c]) << n;
            EXPECT_EQ(kq::allocationFaults.failures, 1);
            kq::allocationFaults.Clear();
            EXPECT_EQ(GetErrorKQ(), 0u);
            EXPECT_EQ(Outline(u8('A' + c)), whole[c]) << n;
        }
}

TEST_F(TrueType, OutlineWithoutMemoryIsNullWithTheReason) {
    Open(Letters());
    kq::allocationFaults.Set(1, false);
    EXPECT_EQ(GetFontOutlineKQ('A', &font, 0, 0), nullptr);
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
}

TEST_F(TrueType, OutlineThatFindsMemoryOnTheSecondTryIsWholeAndNoError) {
    Open(Letters());
    KQEnv->Error = 0;
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(Outline('A'), kTriangleText);
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), 0u);
}

// A compound of nine pieces: the glyphs given, then ones without contours.
FontBuilder NinePieces(const std::vector<std::string>& glyphs) {
    FontBuilder builder = FontBuilder().Add("");
    BigBytes compound = CompoundHead();
    for (u32 i = 0; i < 9; ++i)
        compound.U16(i < 8 ? 1 | 2 | 32 : 1 | 2).U16(2 + std::min(i, u32(glyphs.size()))).U16(0).U16(0);
    builder.Add(compound);
    for (const std::string& glyph : glyphs) builder.Add(glyph);
    return builder.Add(BigBytes().Zeros(10));
}

// The first component fills 144 of the first 1024 bytes; of the second, a move, 35 lines and the close fit.
TEST_F(TrueType, CommandsThatDoNotFitAreLeftOutAndTheEndIsKept) {
    Contour curve = {{0, 0, false}, {0, 100, false}};
    Open(NinePieces({SimpleGlyph({curve}), SimpleGlyph({Contour(200, {1, 1, true})})}));
    kq::allocationFaults.Set(3, false);   // behind the index and the first 1024 bytes
    std::string text = Outline('A');
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
    std::string expected = "M 0 150 C 0 150 0 -100 0 100 C 0 150 0 100 0 -100 Z M 1 199";
    for (int i = 0; i < 35; ++i) expected += " L 1 199";
    EXPECT_EQ(text, expected + " Z E");
}

// The first component leaves 8 of the first 1024 bytes, and the close of the second takes them.
TEST_F(TrueType, OutlineWhoseEndFindsNoMemoryIsNull) {
    std::string lines = SimpleGlyph({Contour(200, {1, 1, true})});
    Open(NinePieces({lines, lines}));
    kq::allocationFaults.Set(3, false);
    EXPECT_EQ(Outline('A'), "null");
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
    EXPECT_NE(Outline('A'), "null");
}

// The whole of 1.4 MB cannot be had, but pieces of up to 100 KB can.
TEST_F(TrueType, OutlineThatIsLargerThanMemoryKeepsWhatFits) {
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({Contour(60000, {1, 1, true})}));
    builder.wideLoca = true;
    Open(builder);
    kq::mostChunkData = kq::kChunkData;
    KQOutlineCommand* block = GetFontOutlineKQ('A', &font, 0, 0);
    kq::mostChunkData = 0;
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
    ASSERT_NE(block, nullptr);
    size_t commands = 0;
    for (const KQOutlineCommand* c = block; c->kind != KQOUTLINE_END; c = KQNextOutline(c)) ++commands;
    EXPECT_GT(commands, 40 * 1024 / 24u);
    EXPECT_LE(commands * 24, kq::kChunkData + 24);
    FreeMemoryKQ(block);
}

// 'A' is written while it is read, by the general transform; 'B' by a plan, whose transform only scales.
TEST_F(TrueType, BothWaysOfWritingGiveTheSame) {
    u32 seed = std::random_device()();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 100; ++round) {
        std::vector<Contour> contours(random() % 4 + 1);
        for (Contour& contour : contours)
            for (u32 i = random() % 9 + 1; i > 0; --i)
                contour.push_back({int(random() % 4000) - 2000, int(random() % 4000) - 2000, random() % 2 == 0});
        Open(NinePieces({SimpleGlyph(contours, 31)}));
        ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 36), 0);
        EXPECT_EQ(Outline('A', 0.5, 7), Outline('B', 0.5, 7)) << "round " << round;
    }
}

// The triangle becomes three controls, which want a larger block than was counted.
TEST_F(TrueType, BytesThatChangeWhileTheFontIsOpenDoNotOverrunABlock) {
    Open(Letters());
    EXPECT_EQ(Outline('A'), kTriangleText);
    size_t flags = size_t(font.glyfTable - font.fontData) + 14;
    std::fstream file(font.fontFile, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(std::streamoff(flags));
    file.write("\0\0\0", 3);
    file.close();
    if (font.fontData[flags] != 0) GTEST_SKIP() << "the host keeps others from writing";
    EXPECT_EQ(Outline('A'), "M 50 200 C 50 150 100 0 -100 -100 Z E");
}

TEST_F(TrueType, EveryAllocationAndFileCallOfAnOpenMayFail) {
    Open(Letters());
    auto open = [&] {
        OpenFontKQ(&font, 0, 12, 72, 72);
        CloseFontKQ(&font);
    };
    CloseFontKQ(&font);
    kqtest::FailEveryAllocation(open);
    kqtest::FailEveryFileCall(open);
}

}   // namespace
