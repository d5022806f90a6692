#include <cstring>
#include <limits>
#include <vector>

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

// A bitmap that is freed with the test, with a byte of its own at every place.
template <class Bitmap>
struct Held {
    Bitmap* bitmap;

    explicit Held(Bitmap* taken) : bitmap(taken) {
        for (i32 i = 0; i < bitmap->dataSize; ++i) bitmap->data[i] = u8(i * 37 + 5);
    }

    ~Held() { FreeBitmapKQ(bitmap); }

    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    operator Bitmap*() const { return bitmap; }
    Bitmap* operator->() const { return bitmap; }

    std::vector<u8> Bytes() const { return {bitmap->data, bitmap->data + bitmap->dataSize}; }
};

using Portable = Held<KQBitmap>;
using Native = Held<KQNativeBitmap>;

TEST_F(Scale, EqualSizesWithNullRectsCopyPixelForPixel) {
    for (i32 depth : {8, 32})
        for (i32 width : {1, 3, 64, 333}) {
            Portable source(AllocBitmapKQ(width, 7, depth)), target(AllocBitmapKQ(width, 7, depth));
            std::memset(target->data, 0, size_t(target->dataSize));
            ScaleBitmapKQ(source, target, nullptr, nullptr);
            EXPECT_EQ(source.Bytes(), target.Bytes()) << width << " of " << depth;
        }
    Native source(AllocNativeBitmapKQ(4, 7, 24)), target(AllocNativeBitmapKQ(4, 7, 24));
    std::memset(target->data, 0, size_t(target->dataSize));
    ScaleBitmapKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(source.Bytes(), target.Bytes());
}

// All four overloads with the rectangles, into targets that must stay as they are.
void ExpectNothing(KQRectT<long> from, KQRectT<long> to) {
    Portable source(AllocBitmapKQ(9, 8, 32)), target(AllocBitmapKQ(9, 8, 32));
    Native nativeSource(AllocNativeBitmapKQ(9, 8, 24)), nativeTarget(AllocNativeBitmapKQ(9, 8, 24));
    std::vector<u8> before = target.Bytes(), nativeBefore = nativeTarget.Bytes();
    ScaleBitmapKQ(source, target, &from, &to);
    ScaleBitmapKQ(nativeSource, target, &from, &to);
    ScaleBitmapKQ(source, nativeTarget, &from, &to);
    ScaleBitmapKQ(nativeSource, nativeTarget, &from, &to);
    EXPECT_EQ(target.Bytes(), before);
    EXPECT_EQ(nativeTarget.Bytes(), nativeBefore);
}

TEST_F(Scale, TargetSizeOfZeroDoesNothing) {
    ExpectNothing({0, 0, 9, 8}, {0, 0, 0, 8});
    ExpectNothing({0, 0, 9, 8}, {0, 0, 9, 0});
    ExpectNothing({0, 0, 9, 8}, {2, 2, 0, 0});
}

TEST_F(Scale, NegativeTargetSizeDoesNothing) {
    constexpr long kLeast = std::numeric_limits<i32>::min();
    for (long size : {-1L, -5L, kLeast}) {
        ExpectNothing({0, 0, 9, 8}, {4, 4, size, 4});
        ExpectNothing({0, 0, 9, 8}, {4, 4, 4, size});
    }
}

TEST_F(Scale, TargetOutsideDoesNothing) {
    ExpectNothing({0, 0, 9, 8}, {9, 0, 4, 4});
    ExpectNothing({0, 0, 9, 8}, {0, 8, 4, 4});
    ExpectNothing({0, 0, 9, 8}, {-4, 0, 4, 4});
    ExpectNothing({0, 0, 9, 8}, {0, -4, 4, 4});
}

TEST_F(Scale, SourceSizeOfZeroRepeatsItsFirstPixel) {
    Portable source(AllocBitmapKQ(9, 8, 8)), target(AllocBitmapKQ(4, 4, 8));
    KQRectT<long> from{3, 2, 0, 0};
    ScaleBitmapKQ(source, target, &from, nullptr);
    EXPECT_EQ(target.Bytes(), std::vector<u8>(16, source->data[2 * 9 + 3]));
}

TEST_F(Scale, NegativeSourceSizeMirrors) {
    Portable source(AllocBitmapKQ(4, 1, 8)), target(AllocBitmapKQ(4, 1, 8));
    KQRectT<long> from{3, 0, -4, 1};
    ScaleBitmapKQ(source, target, &from, nullptr);
    EXPECT_EQ(target.Bytes(), (std::vector<u8>{source->data[3], source->data[2], source->data[1], source->data[0]}));
}

TEST_F(Scale, SizesThatOverflowAreDefined) {
    constexpr long kMost = std::numeric_limits<i32>::max(), kLeast = std::numeric_limits<i32>::min();
    Portable source(AllocBitmapKQ(9, 8, 32)), target(AllocBitmapKQ(9, 8, 32));
    Native nativeSource(AllocNativeBitmapKQ(9, 8, 16)), nativeTarget(AllocNativeBitmapKQ(9, 8, 24));
    for (long place : {0L, -1L, kMost, kLeast, 32768L})
        for (long size : {1L, 9L, 32768L, 65536L, kMost, kLeast})
            for (long other : {9L, 65536L, kMost}) {
                KQRectT<long> one{place, place, size, size}, two{0, -3, other, other}, three{place, 0, other, 8};
                for (auto [from, to] : {std::pair{&one, &two}, {&two, &one}, {&one, &three}}) {
                    ScaleBitmapKQ(source, target, from, to);
                    ScaleBitmapKQ(nativeSource, target, from, to);
                    ScaleBitmapKQ(source, nativeTarget, from, to);
                    ScaleBitmapKQ(nativeSource, nativeTarget, from, to);
                }
            }
}

TEST_F(Scale, EmptyBitmapsAreDefined) {
    Portable empty(AllocBitmapKQ(0, 0, 32)), target(AllocBitmapKQ(3, 3, 32));
    std::vector<u8> before = target.Bytes();
    ScaleBitmapKQ(empty, target, nullptr, nullptr);
    ScaleBitmapKQ(target, empty, nullptr, nullptr);
    EXPECT_EQ(target.Bytes(), before);
}

TEST_F(Scale, OtherEqualDepthsThan32And8DoNothing) {
    Portable source(AllocBitmapKQ(4, 4, 32)), target(AllocBitmapKQ(4, 4, 32));
    std::vector<u8> before = target.Bytes();
    std::memset(source->data, 0, size_t(source->dataSize));
    for (i32 depth : {16, 24, 0, 64}) {
        source->depth = target->depth = depth;
        ScaleBitmapKQ(source, target, nullptr, nullptr);
        CopyBitmapKQ(source, target, 1, 0, 2, 2, 0, 0);
    }
    EXPECT_EQ(target.Bytes(), before);
}

}   // namespace
