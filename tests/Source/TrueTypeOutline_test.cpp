// Outlines: simple and compound glyphs, and what short memory leaves of them.
#include "Source/TrueTypeOutline.h"

#include <cstring>
#include <random>

#include "Source/MemoryChunk.h"
#include "support/TrueTypeTest.h"

namespace {

using namespace kqtest;

class TrueTypeOutline : public TrueTypeTest {};

TEST_F(TrueTypeOutline, SpaceGivesABlockWithOnlyTheEndMark) {
    Open(FontBuilder().Add("").Add("", 300));
    EXPECT_EQ(Outline('A'), "E");
    EXPECT_EQ(Advance('A'), 300.0);
}

TEST_F(TrueTypeOutline, GlyphWithoutContoursGivesOnlyTheEndMark) { EXPECT_EQ(OutlineOf(BigBytes().Zeros(10)), "E"); }

TEST_F(TrueTypeOutline, PointsOnTheCurveGiveLinesAndAClosingLine) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle})), kTriangleText);
}

TEST_F(TrueTypeOutline, OriginMovesTheOutline) {
    Open(Letters());
    EXPECT_EQ(Outline('A', 1000, -50), "M 1000 150 L 1100 150 L 1000 50 L 1000 150 Z E");
}

TEST_F(TrueTypeOutline, ClosingLineIsSentEvenToThePointWhereThePathStands) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {9, 0, true}, {0, 0, true}}})),
              "M 0 200 L 9 200 L 0 200 L 0 200 Z E");
}

TEST_F(TrueTypeOutline, ControlPointGivesACurveInHermiteForm) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {50, 100, false}, {100, 0, true}}})),
              "M 0 200 C 100 200 100 -200 100 200 L 0 200 Z E");
}

TEST_F(TrueTypeOutline, ControlAtTheEndCurvesBackToTheStart) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {100, 0, true}, {50, 100, false}}})),
              "M 0 200 L 100 200 C 0 200 -100 -200 -100 200 Z E");
}

TEST_F(TrueTypeOutline, TwoControlsInARowMeetInTheirMiddle) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {0, 100, false}, {100, 100, false}, {100, 0, true}}})),
              "M 0 200 C 50 100 0 -200 100 0 C 100 200 100 0 0 200 L 0 200 Z E");
}

TEST_F(TrueTypeOutline, ContourThatStartsOffTheCurveStartsAtTheImpliedMidpoint) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, false}, {100, 100, true}}})),
              "M 0 150 C 100 100 0 -100 200 0 C 0 150 -200 200 0 -100 Z E");
}

TEST_F(TrueTypeOutline, ContourThatStartsOffTheCurveStartsAtTheNextPointOnIt) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, true}, {100, 100, true}}})),
              "M 0 100 L 100 100 C 0 100 -200 200 0 -200 Z E");
}

TEST_F(TrueTypeOutline, ContourOfControlsAloneIsAClosedCurve) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, false}, {100, 100, false}, {100, 0, false}}})),
              "M 0 150 C 50 100 0 -100 100 0 C 100 150 100 0 0 100 C 50 200 0 100 -100 0 C 0 150 -100 0 0 -100 Z E");
}

TEST_F(TrueTypeOutline, ContourOfTwoControlsRunsThereAndBack) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, false}, {0, 100, false}}})),
              "M 0 150 C 0 150 0 -100 0 100 C 0 150 0 100 0 -100 Z E");
}

TEST_F(TrueTypeOutline, ContourOfOneControlGivesNothing) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{7, 7, false}}, kTriangle})), kTriangleText);
}

TEST_F(TrueTypeOutline, ContourOfOnePointIsAMoveAndALineToItself) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{7, 8, true}}})), "M 7 192 L 7 192 Z E");
}

TEST_F(TrueTypeOutline, ContoursGoInOrder) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{1, 0, true}, {2, 0, true}}, {{3, 0, true}, {4, 0, true}}})),
              "M 1 200 L 2 200 L 1 200 Z M 3 200 L 4 200 L 3 200 Z E");
}

TEST_F(TrueTypeOutline, BearingAndLeastXShiftTheGlyph) {
    Open(FontBuilder().Add("").Add(SimpleGlyph({{{30, 0, true}, {40, 0, true}}}, 30), 500, 7));
    EXPECT_EQ(Outline('A'), "M 7 200 L 17 200 L 7 200 Z E");
}

TEST_F(TrueTypeOutline, BearingBehindTheLongMetricsComesFromTheTrailingArray) {
    FontBuilder builder =
        FontBuilder().Add("", 900, 1).Add("", 0, 2).Add(SimpleGlyph({{{0, 0, true}, {1, 0, true}}}), 0, 9);
    builder.longMetrics = 1;
    Open(builder);
    EXPECT_EQ(Outline('B'), "M 9 200 L 10 200 L 9 200 Z E");
    EXPECT_EQ(Advance('B'), 900.0);
}

TEST_F(TrueTypeOutline, LeastYOfTheFontAndDescenderPlaceTheBaseLine) {
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({kTriangle}));
    builder.yMin = -150;
    Open(builder);
    EXPECT_EQ(Outline('A'), "M 0 50 L 100 50 L 0 -50 L 0 50 Z E");
}

TEST_F(TrueTypeOutline, ObliqueStyleSlantsByTheHeightBelowTheTop) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle}), KQFONT_Oblique), "M -35 200 L 65 200 L -17.5 100 L -35 200 Z E");
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle}), 1 | 4), kTriangleText);
}

TEST_F(TrueTypeOutline, ObliqueStyleIsOneBitAmongOthers) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({kTriangle}), ~0), "M -35 200 L 65 200 L -17.5 100 L -35 200 Z E");
}

TEST_F(TrueTypeOutline, ObliqueStyleSlantsInFontUnits) {
    Open(Letters());
    ASSERT_NE(OpenFontKQ(&font, KQFONT_Oblique, 1000, 144, 36), 0);
    EXPECT_EQ(Outline('A'), "M -70 100 L 130 100 L -35 50 L -70 100 Z E");
}

TEST_F(TrueTypeOutline, ObliqueStyleSlantsControlsToo) {
    EXPECT_EQ(OutlineOf(SimpleGlyph({{{0, 0, true}, {50, 100, false}, {100, 0, true}}}), KQFONT_Oblique),
              "M -35 200 C 65 200 135 -200 65 200 L -35 200 Z E");
}

TEST_F(TrueTypeOutline, ObliqueStyleSlantsAComponentBeforeItsMatrixAndOffset) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 128).U16(1).U16(7).U16(0).U16(0x4000).U16(0x2000).U16(0x1000).U16(0xC000);
    Open(Letters().Add(glyph), KQFONT_Oblique);
    // u = -35, 65, -17.5 and v = 200, 200, 100: X = u + v / 2 + 7, Y = u / 4 - v.
    EXPECT_EQ(Outline('C'), "M 72 -208.75 L 172 -183.75 L 39.5 -104.375 L 72 -208.75 Z E");
}

TEST_F(TrueTypeOutline, MetricsDoNotSlant) {
    Open(Letters().Set("kern", Kern({{1, 2, 9}})), KQFONT_Oblique);
    EXPECT_EQ(Advance('A'), 600.0);
    EXPECT_EQ(KernX('A', 'B'), 9.0);
    EXPECT_EQ(GetLineAdvanceKQ(&font), 1100.0);
}

TEST_F(TrueTypeOutline, ResolutionsScaleTheAxesApart) {
    Open(Letters());
    ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 36), 0);
    EXPECT_EQ(Outline('A'), "M 0 100 L 200 100 L 0 50 L 0 100 Z E");
    EXPECT_EQ(GetLineAdvanceKQ(&font), 550.0);
}

TEST_F(TrueTypeOutline, ShortAndRepeatedStepsAreRead) {
    BigBytes glyph;
    glyph.U16(1).U16(0).U16(0).U16(0).U16(0).U16(3).U16(3).Zeros(3);   // three bytes of instructions
    glyph.U8(1 | 2 | 16 | 4 | 32).U8(1 | 2 | 16 | 32 | 8).U8(1).U8(1 | 2 | 4);
    glyph.U8(10).U8(20).U8(30).U8(5).U8(50).U8(7);
    EXPECT_EQ(OutlineOf(glyph), "M 10 150 L 30 150 L 60 150 L 55 157 L 10 150 Z E");
}

TEST_F(TrueTypeOutline, WideLocationsAreRead) {
    FontBuilder builder = Letters();
    builder.wideLoca = true;
    Open(builder);
    EXPECT_EQ(Outline('A'), kTriangleText);
    EXPECT_EQ(Outline('B'), "M 200 200 L 300 200 L 300 100 L 200 100 L 200 200 Z E");
}

// Compounds.

TEST_F(TrueTypeOutline, ComponentsStandAtTheirOffsets) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32).U16(1).U16(10).U16(u32(-20)).U16(1 | 2).U16(2).U16(0).U16(0);
    Open(Letters().Add(glyph));
    EXPECT_EQ(Outline('C'),
              "M 10 220 L 110 220 L 10 120 L 10 220 Z "
              "M 200 200 L 300 200 L 300 100 L 200 100 L 200 200 Z E");
}

TEST_F(TrueTypeOutline, ByteArgumentsAreTakenAsUnsigned) {
    Open(Letters().Add(CompoundHead().U16(2).U16(1).U8(0xFF).U8(0xFE)));
    EXPECT_EQ(Outline('C'), "M 255 -54 L 355 -54 L 255 -154 L 255 -54 Z E");
}

TEST_F(TrueTypeOutline, ArgumentsThatAreNoOffsetLeaveTheComponentAtTheOrigin) {
    Open(Letters().Add(CompoundHead().U16(1).U16(1).U16(10).U16(20)));
    EXPECT_EQ(Outline('C', 3, 4), "M 3 204 L 103 204 L 3 104 L 3 204 Z E");
}

TEST_F(TrueTypeOutline, EachOffsetIsScaledByItsOwnAxis) {
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(1).U16(5).U16(10)));
    ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 72), 0);
    EXPECT_EQ(Outline('C'), "M 10 190 L 210 190 L 10 90 L 10 190 Z E");
}

TEST_F(TrueTypeOutline, OneScaleServesBothAxes) {
    Open(Letters().Add(CompoundHead().U16(1 | 2 | 8).U16(1).U16(0).U16(0).U16(0x2000)));
    EXPECT_EQ(Outline('C'), "M 0 100 L 50 100 L 0 50 L 0 100 Z E");
}

TEST_F(TrueTypeOutline, TwoScalesServeXAndY) {
    Open(Letters().Add(CompoundHead().U16(1 | 2 | 64).U16(1).U16(0).U16(0).U16(0xE000).U16(0x2000)));
    EXPECT_EQ(Outline('C'), "M 0 100 L -50 100 L 0 50 L 0 100 Z E");
}

TEST_F(TrueTypeOutline, MatrixIsTakenInFileOrder) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 128).U16(1).U16(0).U16(0).U16(0x4000).U16(0x2000).U16(0x1000).U16(0xC000);
    Open(Letters().Add(glyph));
    // u = 0, 100, 0 and v = 200, 200, 100: X = u + v / 2, Y = u / 4 - v.
    EXPECT_EQ(Outline('C'), "M 100 -200 L 200 -175 L 50 -100 L 100 -200 Z E");
}

TEST_F(TrueTypeOutline, MatrixScalesItsFirstAndThirdValueByXAndTheOthersByY) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 128).U16(1).U16(0).U16(0).U16(0x4000).U16(0x2000).U16(0x1000).U16(0xC000);
    Open(Letters().Add(glyph));
    ASSERT_NE(OpenFontKQ(&font, 0, 1000, 144, 36), 0);
    // u = 0, 100, 0 and v = 200, 200, 100: X = 2 u + v / 4, Y = u / 2 - v / 2.
    EXPECT_EQ(Outline('C'), "M 50 -100 L 250 -50 L 25 -50 L 50 -100 Z E");
}

TEST_F(TrueTypeOutline, OneScaleGoesBeforeTwoAndTwoBeforeAMatrix) {
    BigBytes one = CompoundHead(), two = CompoundHead();
    one.U16(1 | 2 | 8 | 64 | 128 | 32).U16(1).U16(0).U16(0).U16(0x2000).U16(1 | 2).U16(2).U16(0).U16(0);
    two.U16(1 | 2 | 64 | 128).U16(1).U16(0).U16(0).U16(0x4000).U16(0x2000);
    Open(Letters().Add(one).Add(two));
    EXPECT_EQ(Outline('C'), "M 0 100 L 50 100 L 0 50 L 0 100 Z M 200 200 L 300 200 L 300 100 L 200 100 L 200 200 Z E");
    EXPECT_EQ(Outline('D'), "M 0 100 L 100 100 L 0 50 L 0 100 Z E");
}

TEST_F(TrueTypeOutline, ComponentThatIsItselfCompoundGivesNothing) {
    std::string nested = CompoundHead().U16(1 | 2).U16(1).U16(0).U16(0);
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32).U16(3).U16(0).U16(0).U16(1 | 2).U16(1).U16(0).U16(0);
    Open(Letters().Add(nested).Add(glyph));
    EXPECT_EQ(Outline('D'), kTriangleText);
}

TEST_F(TrueTypeOutline, CompoundOfItselfGivesNothing) {
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(3).U16(0).U16(0)));
    EXPECT_EQ(Outline('C'), "E");
}

TEST_F(TrueTypeOutline, ComponentUsesItsOwnBearingAndLeastX) {
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({{{30, 0, true}, {40, 0, true}}}, 30), 500, 7);
    Open(builder.Add(CompoundHead().U16(1 | 2).U16(1).U16(0).U16(0), 500, 99));
    EXPECT_EQ(Outline('B'), "M 7 200 L 17 200 L 7 200 Z E");
}

TEST_F(TrueTypeOutline, ComponentThatShowsNothingIsPassedOver) {
    BigBytes glyph = CompoundHead();
    glyph.U16(1 | 2 | 32).U16(0).U16(0).U16(0).U16(1 | 2).U16(1).U16(0).U16(0);
    Open(Letters().Add(glyph));
    EXPECT_EQ(Outline('C'), kTriangleText);
}

TEST_F(TrueTypeOutline, ComponentsWithoutEndGiveNoOutline) {
    BigBytes glyph = CompoundHead();
    for (int i = 0; i < 2000; ++i) glyph.U16(1 | 2 | 32).U16(1).U16(0).U16(0);
    Open(Letters().Add(glyph));
    EXPECT_EQ(Outline('C'), "null");
}

TEST_F(TrueTypeOutline, ComponentBehindTheLastGlyphGivesNoOutline) {
    Open(Letters().Add(CompoundHead().U16(1 | 2).U16(4000).U16(0).U16(0)));
    EXPECT_EQ(Outline('C'), "null");
}

// A few pieces are placed by a plan, many are written while they are read; both ways write the same.
TEST_F(TrueTypeOutline, CompoundsOfAnyNumberOfPiecesAreWhole) {
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

TEST_F(TrueTypeOutline, BlockOfALargeCompoundIsMovedAFewTimesOnly) {
    BigBytes glyph = CompoundHead();
    for (u32 i = 0; i < 1000; ++i) glyph.U16(i < 999 ? 1 | 2 | 32 : 1 | 2).U16(1).U16(0).U16(0);
    Open(FontBuilder().Add("").Add(SimpleGlyph({Contour(200, {1, 1, true})})).Add(glyph));
    u32 before = KQEnv->AllocCount;
    KQOutlineCommand* block = GetFontOutlineKQ('B', &font, 0, 0);
    EXPECT_LE(KQEnv->AllocCount - before, 20u);
    ASSERT_NE(block, nullptr);
    FreeMemoryKQ(block);
}

TEST_F(TrueTypeOutline, CompoundOfMorePointsThanSenseGivesNoOutline) {
    Contour many(60000, {0, 0, true});
    BigBytes glyph = CompoundHead();
    for (int i = 0; i < 40; ++i) glyph.U16(i < 39 ? 1 | 2 | 32 : 1 | 2).U16(1).U16(0).U16(0);
    FontBuilder builder = FontBuilder().Add("").Add(SimpleGlyph({many})).Add(glyph);
    builder.wideLoca = true;
    Open(builder);
    EXPECT_NE(Outline('A'), "null");
    EXPECT_EQ(Outline('B'), "null");
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
TEST_F(TrueTypeOutline, EveryAllocationOfEveryCallMayFail) {
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
TEST_F(TrueTypeOutline, OutlineIsWholeWithoutMemoryForWhatTheFontKeeps) {
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

TEST_F(TrueTypeOutline, OutlineWithoutMemoryIsNullWithTheReason) {
    Open(Letters());
    kq::allocationFaults.Set(1, false);
    EXPECT_EQ(GetFontOutlineKQ('A', &font, 0, 0), nullptr);
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
}

TEST_F(TrueTypeOutline, OutlineThatFindsMemoryOnTheSecondTryIsWholeAndNoError) {
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
TEST_F(TrueTypeOutline, CommandsThatDoNotFitAreLeftOutAndTheEndIsKept) {
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
TEST_F(TrueTypeOutline, OutlineWhoseEndFindsNoMemoryIsNull) {
    std::string lines = SimpleGlyph({Contour(200, {1, 1, true})});
    Open(NinePieces({lines, lines}));
    kq::allocationFaults.Set(3, false);
    EXPECT_EQ(Outline('A'), "null");
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), KQERR_NOMEM);
    EXPECT_NE(Outline('A'), "null");
}

// The whole of 1.4 MB cannot be had, but pieces of up to 100 KB can.
TEST_F(TrueTypeOutline, OutlineThatIsLargerThanMemoryKeepsWhatFits) {
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
TEST_F(TrueTypeOutline, BothWaysOfWritingGiveTheSame) {
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
TEST_F(TrueTypeOutline, BytesThatChangeWhileTheFontIsOpenDoNotOverrunABlock) {
    Open(Letters());
    EXPECT_EQ(Outline('A'), kTriangleText);
    size_t flags = size_t(font.glyfTable - font.fontData) + 14;
    std::memset(font.fontData + flags, 0, 3);
    EXPECT_EQ(Outline('A'), "M 50 200 C 50 150 100 0 -100 -100 Z E");
}

}   // namespace
