#include "kq/rect.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using Rect = KQRectT<long>;
using RealRect = KQRectT<double>;

template <class T>
void ExpectRect(const KQRectT<T>& r, T x, T y, T width, T height) {
    EXPECT_EQ(r.x, x);
    EXPECT_EQ(r.y, y);
    EXPECT_EQ(r.width, width);
    EXPECT_EQ(r.height, height);
}

TEST(Rect, SetRBOrdersItsCorners) {
    Rect r;
    r.SetRB(10, 20, 5, 8);
    ExpectRect(r, 5L, 8L, 6L, 13L);
}

TEST(Rect, SetRBIsInclusiveInDoubleToo) {
    RealRect r;
    r.SetRB(0.5, 3.0, 2.0, 1.0);
    ExpectRect(r, 0.5, 1.0, 2.5, 3.0);
}

TEST(Rect, SetRBAcrossTheWholeRangeWraps) {
    Rect r;
    r.SetRB(std::numeric_limits<long>::max(), 0, std::numeric_limits<long>::min(), 0);
    ExpectRect(r, std::numeric_limits<long>::min(), 0L, 0L, 1L);
}

TEST(Rect, SizesOfZeroOrBelowAreEmpty) {
    EXPECT_TRUE((Rect{0, 0, 0, 5}.Empty()));
    EXPECT_TRUE((Rect{0, 0, 5, -1}.Empty()));
    EXPECT_FALSE((Rect{0, 0, 1, 1}.Empty()));
    EXPECT_TRUE((RealRect{0, 0, 0.0, 1}.Empty()));
    EXPECT_FALSE((RealRect{0, 0, 0.1, 0.1}.Empty()));
    EXPECT_TRUE((RealRect{0, 0, std::numeric_limits<double>::quiet_NaN(), 1}.Empty()));
}

TEST(Rect, UnionWithAnEmptyOtherChangesNothing) {
    Rect r{1, 2, 3, 4};
    r.Union(Rect{100, 100, 0, 9});
    ExpectRect(r, 1L, 2L, 3L, 4L);
}

TEST(Rect, UnionOnAnEmptyOneCopies) {
    Rect r{1, 2, -3, 4};
    r.Union(Rect{5, 6, 7, 8});
    ExpectRect(r, 5L, 6L, 7L, 8L);
}

TEST(Rect, UnionOfTwoEmptyOnesCopiesTheOther) {
    Rect r{1, 2, 0, 4};
    r.Union(Rect{5, 6, 7, -8});
    ExpectRect(r, 5L, 6L, 7L, -8L);
}

TEST(Rect, UnionHoldsBoth) {
    Rect r{0, 0, 10, 10};
    r.Union(Rect{-5, 4, 3, 20});
    ExpectRect(r, -5L, 0L, 15L, 24L);
}

TEST(Rect, UnionWithAPointOnAnEmptyOneIsOnePixel) {
    Rect r{9, 9, 0, 0};
    r.Union(3, 4);
    ExpectRect(r, 3L, 4L, 1L, 1L);
}

TEST(Rect, UnionWithAPointAddsOneLessOnTheFarSide) {
    Rect r{0, 0, 10, 10};
    r.Union(20, 20);
    ExpectRect(r, 0L, 0L, 20L, 20L);
    r = {0, 0, 10, 10};
    r.Union(-10, -10);
    ExpectRect(r, -10L, -10L, 20L, 20L);
}

TEST(Rect, UnionWithAPointInsideChangesNothing) {
    RealRect r{0, 0, 10, 10};
    r.Union(10.0, 9.5);
    ExpectRect(r, 0.0, 0.0, 10.0, 10.0);
}

TEST(Rect, TouchingEdgesDoNotOverlap) {
    Rect r{0, 0, 10, 10};
    EXPECT_EQ(r.Intersect(Rect{10, 0, 10, 10}), 0);
    ExpectRect(r, 0L, 0L, 0L, 0L);
}

TEST(Rect, IntersectGivesTheCommonPart) {
    Rect r{0, 0, 10, 10};
    EXPECT_EQ(r.Intersect(Rect{5, 5, 10, 10}), 1);
    ExpectRect(r, 5L, 5L, 5L, 5L);
}

TEST(Rect, IntersectOfDoublesGivesTheCommonPart) {
    RealRect r{0, 0, 10, 10};
    EXPECT_EQ(r.Intersect(RealRect{9.5, -1, 10, 10}), 1);
    ExpectRect(r, 9.5, 0.0, 0.5, 9.0);
}

TEST(Rect, IntersectThatFailsAcrossLeavesThePosition) {
    Rect r{1, 2, 10, 10};
    EXPECT_EQ(r.Intersect(Rect{50, 5, 10, 10}), 0);
    ExpectRect(r, 1L, 2L, 0L, 0L);
}

TEST(Rect, IntersectThatFailsVerticallyAloneMayHaveSetX) {
    Rect r{1, 2, 10, 10};
    EXPECT_EQ(r.Intersect(Rect{5, 50, 10, 10}), 0);
    ExpectRect(r, 5L, 2L, 0L, 0L);
}

TEST(Rect, IntersectWithAnEmptySideIsEmpty) {
    Rect r{1, 2, 10, 10};
    EXPECT_EQ(r.Intersect(Rect{1, 2, 0, 10}), 0);
    ExpectRect(r, 1L, 2L, 0L, 0L);
    Rect empty{1, 2, 10, 0};
    EXPECT_EQ(empty.Intersect(Rect{1, 2, 10, 10}), 0);
    ExpectRect(empty, 1L, 2L, 0L, 0L);
}

}   // namespace
