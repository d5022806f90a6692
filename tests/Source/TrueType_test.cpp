// Fonts as they are opened: their tables and maps, kerning and advances, and what damage does.
#include "Source/TrueTypeTables.h"

#include <limits>
#include <random>

#include "support/TrueTypeTest.h"

namespace {

using namespace kqtest;

class TrueType : public TrueTypeTest {};

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
