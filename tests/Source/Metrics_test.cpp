#include "Source/Metrics.h"

#include <algorithm>
#include <vector>

#include "support/Fixture.h"

namespace {

using Metrics = kqtest::KQTest;

std::vector<i16> Grid(i32 available, i16 spacing) {
    std::vector<i16> widths(5);
    kq::ComputeGridWidths(widths.data(), available, 14, spacing);
    return widths;
}

TEST_F(Metrics, FontsOfADisplayOf999AreSmaller) {
    EXPECT_EQ(kq::InterfaceFontHeights(999).main, -9);
    EXPECT_EQ(kq::InterfaceFontHeights(999).small, -7);
    EXPECT_EQ(kq::InterfaceFontHeights(1000).main, -11);
    EXPECT_EQ(kq::InterfaceFontHeights(1000).small, -9);
}

TEST_F(Metrics, GridOfAWideDisplay) {
    // (1024 / 14 - 2) * 3 / 4 = 53, down to 52, to 48 that divides; U = 2 + 48 + 8 = 58.
    EXPECT_EQ(Grid(1896, 2), (std::vector<i16>{38, 28, 18, 13, 8}));
    EXPECT_EQ(Grid(1024, 2), Grid(5000, 2));
}

TEST_F(Metrics, GridOfANarrowDisplay) {
    // (616 / 14 - 2) * 3 / 4 = 31, down to 28, to 24; U = 34.
    EXPECT_EQ(Grid(616, 2), (std::vector<i16>{22, 16, 10, 7, 4}));
}

TEST_F(Metrics, GridWithoutADivisorStopsAfterTenTries) {
    // With an odd spacing 2S + g is never a multiple of 4: 52 - 40 = 12; U = 3 + 12 + 12 = 27.
    EXPECT_EQ(Grid(1024, 3), (std::vector<i16>{17, 12, 7, 4, 2}));
}

TEST_F(Metrics, RowHeightTruncates) {
    EXPECT_EQ(kq::ComputeRowHeight(14), 20);
    EXPECT_EQ(kq::ComputeRowHeight(13), 18);
    EXPECT_EQ(kq::ComputeRowHeight(0), -4);
}

TEST_F(Metrics, StartWithoutAScreenFillsThem) {
    EXPECT_EQ(std::vector<i16>(KQEnv->GUI->GridWidths, KQEnv->GUI->GridWidths + 5), Grid(1920 - 24, 2));
    EXPECT_EQ(KQEnv->GUI->RowHeight, 20);
}

TEST_F(Metrics, SingleWindowModeSharesTheMainWindowsWidth) {
    CleanUpKQ();
    TagItem single[] = {{KQTAG_InitNoMDI, 0}, {KQTAG_End, 0}};
    ASSERT_NE(kqtest::InitWithoutWindow(single), nullptr);
    EXPECT_EQ(std::vector<i16>(KQEnv->GUI->GridWidths, KQEnv->GUI->GridWidths + 5), Grid(640 - 24, 2));
    EXPECT_EQ(KQEnv->GUI->RowHeight, 20);
}

TEST_F(Metrics, SavedMainWindowWithoutASizeIs640By480Maximised) {
    KQEnv->AppWindowW = 300;
    kq::FramePlace place = kq::SavedMainWindowPlace(*KQEnv);
    EXPECT_EQ(place.width, 640);
    EXPECT_EQ(place.height, 480);
    EXPECT_TRUE(place.maximised);
}

TEST_F(Metrics, SavedMaximisedMainWindowKeepsItsSize) {
    KQEnv->AppWindowX = 5;
    KQEnv->AppWindowW = 300;
    KQEnv->AppWindowH = 200;
    KQEnv->AppWindowMaximised = 1;
    kq::FramePlace place = kq::SavedMainWindowPlace(*KQEnv);
    EXPECT_EQ(place.x, 5);
    EXPECT_EQ(place.width, 300);
    EXPECT_EQ(place.height, 200);
    EXPECT_TRUE(place.maximised);
}

TEST_F(Metrics, SavedFrameOfWidthZeroIs640By480Maximised) {
    KQEnv->AppWindowX = 5;
    KQEnv->AppWindowH = 300;
    kq::FramePlace place = kq::SavedFramePlace(*KQEnv);
    EXPECT_EQ(place.width, 640);
    EXPECT_EQ(place.height, 480);
    EXPECT_TRUE(place.maximised);
}

TEST_F(Metrics, SavedMaximisedFrameIsNominally640By400) {
    KQEnv->AppWindowX = 5;
    KQEnv->AppWindowW = KQEnv->AppWindowH = 300;
    KQEnv->AppWindowMaximised = 1;
    kq::FramePlace place = kq::SavedFramePlace(*KQEnv);
    EXPECT_EQ(place.x, 0);
    EXPECT_EQ(place.y, 0);
    EXPECT_EQ(place.width, 640);
    EXPECT_EQ(place.height, 400);
    EXPECT_TRUE(place.maximised);
}

TEST_F(Metrics, SavedFrameKeepsItsPlace) {
    KQEnv->AppWindowX = 5;
    KQEnv->AppWindowY = -6;
    KQEnv->AppWindowW = 300;
    KQEnv->AppWindowH = 200;
    kq::FramePlace place = kq::SavedFramePlace(*KQEnv);
    EXPECT_EQ(place.x, 5);
    EXPECT_EQ(place.y, -6);
    EXPECT_EQ(place.width, 300);
    EXPECT_EQ(place.height, 200);
    EXPECT_FALSE(place.maximised);
}

}   // namespace
