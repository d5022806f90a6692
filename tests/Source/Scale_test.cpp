#include "kq/bitmap.h"
#include "kq/nativebitmap.h"

#include "support/Fixture.h"

namespace {

using Scale = kqtest::KQTest;

// Columns that a row of `from` source bytes scaled into `rect` of a row `width` wide takes; -1 where none was written.
std::vector<int> Columns(i32 from, KQRectT<long> rect, i32 width) {
    KQBitmap* source = AllocBitmapKQ(from, 1, 8);
    KQBitmap* target = AllocBitmapKQ(width, 1, 8);
    for (i32 i = 0; i < from; ++i) source->data[i] = u8(i);
    FillBitmapKQ(target, 255);
    ScaleBitmapKQ(source, target, nullptr, &rect);
    std::vector<int> columns;
    for (i32 i = 0; i < width; ++i) columns.push_back(target->data[i] == 255 ? -1 : target->data[i]);
    FreeBitmapKQ(source);
    FreeBitmapKQ(target);
    return columns;
}

TEST_F(Scale, FourToTwoTakesColumns0And2) { EXPECT_EQ(Columns(4, {0, 0, 2, 1}, 2), (std::vector<int>{0, 2})); }

TEST_F(Scale, TwoToFourTakesEachColumnTwice) { EXPECT_EQ(Columns(2, {0, 0, 4, 1}, 4), (std::vector<int>{0, 0, 1, 1})); }

TEST_F(Scale, ThreeToTwoTakesColumns0And1) { EXPECT_EQ(Columns(3, {0, 0, 2, 1}, 2), (std::vector<int>{0, 1})); }

TEST_F(Scale, TargetLeftOfTheEdgeSkipsSamplesWithoutMovingTheOthers) {
    std::vector<int> expected(10, -1);
    expected[0] = 0, expected[1] = 1, expected[2] = 1;
    EXPECT_EQ(Columns(2, {-1, 0, 4, 1}, 10), expected);
}

TEST_F(Scale, TargetBeyondTheRightEdgeIsCut) {
    EXPECT_EQ(Columns(4, {3, 0, 4, 1}, 5), (std::vector<int>{-1, -1, -1, 0, 1}));
}

}   // namespace
