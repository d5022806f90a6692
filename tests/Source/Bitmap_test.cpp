#include "kq/bitmap.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "kq/nativebitmap.h"
#include "pal/program.h"
#include "support/Fixture.h"

namespace {

using Bitmap = kqtest::KQTest;

constexpr i32 kLeast = std::numeric_limits<i32>::min(), kMost = std::numeric_limits<i32>::max();

// A bitmap that is freed with the test, filled with bytes that count up.
struct Held {
    KQBitmap* bitmap;

    Held(i32 width, i32 height, i32 depth) : bitmap(AllocBitmapKQ(width, height, depth)) {
        for (i32 i = 0; i < bitmap->dataSize; ++i) bitmap->data[i] = u8(i);
    }

    ~Held() { FreeBitmapKQ(bitmap); }

    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    operator KQBitmap*() const { return bitmap; }
    KQBitmap* operator->() const { return bitmap; }

    std::vector<u8> Bytes() const { return {bitmap->data, bitmap->data + bitmap->dataSize}; }
};

// A name that no other run has.
std::string FreshName() { return "kqtest-" + std::to_string(std::random_device()()); }

TEST_F(Bitmap, OtherDepthsThan32And8GiveNull) {
    u32 error = GetErrorKQ();
    for (i32 depth : {0, 1, 16, 24, 33, -8, -32}) EXPECT_EQ(AllocBitmapKQ(10, 10, depth), nullptr) << depth;
    EXPECT_EQ(GetErrorKQ(), error);
}

TEST_F(Bitmap, RecordFollowsFromTheSize) {
    Held bitmap(7, 5, 32);
    EXPECT_EQ(bitmap->rowBytes, 28);
    EXPECT_EQ(bitmap->pixelBytes, 4);
    EXPECT_EQ(bitmap->dataSize, 140);
    EXPECT_EQ(bitmap->firstRowOffset, 0);
    EXPECT_EQ(bitmap->nativeFlag, 0);
    EXPECT_EQ(bitmap->ByteToUnit, KQEnv->ByteToUnit);
    EXPECT_EQ(bitmap->sharedHandle, nullptr);
    Held plane(7, 5, 8);
    EXPECT_EQ(plane->rowBytes, 7);
    EXPECT_EQ(plane->dataSize, 35);
}

TEST_F(Bitmap, SizeOfZeroIsLegal) {
    for (i32 depth : {32, 8}) {
        Held wide(5, 0, depth), high(0, 5, depth);
        EXPECT_EQ(wide->dataSize, 0);
        EXPECT_EQ(high->dataSize, 0);
        FillBitmapKQ(wide, 1);
        FillAlphaKQ(high, 1);
        CopyBitmapKQ(wide, wide, 0, 0, -1, -1, 0, 0);
        CopyBitmapKQ(high, wide, 0, 0, -1, -1, 0, 0);
    }
}

TEST_F(Bitmap, NegativeSizeGivesNull) {
    EXPECT_EQ(AllocBitmapKQ(-1, 10, 32), nullptr);
    EXPECT_EQ(AllocBitmapKQ(10, -1, 8), nullptr);
    EXPECT_EQ(AllocBitmapKQ(kLeast, kLeast, 8), nullptr);
}

TEST_F(Bitmap, SizeThatOverflowsGivesNull) {
    EXPECT_EQ(AllocBitmapKQ(0x10000, 0x10000, 32), nullptr);
    EXPECT_EQ(AllocBitmapKQ(0x40000000, 1, 32), nullptr);
    EXPECT_EQ(AllocBitmapKQ(kMost, kMost, 8), nullptr);
    EXPECT_EQ(AllocSharedBitmapKQ(0x10000, 0x10000, 32, "kqtest-large"), nullptr);
}

TEST_F(Bitmap, EveryFailingAllocationIsCopedWith) {
    kqtest::FailEveryAllocation([] { FreeBitmapKQ(AllocBitmapKQ(20, 10, 32)); });
    kqtest::FailEveryAllocation([] { FreeBitmapKQ(AllocSharedBitmapKQ(20, 10, 32, nullptr)); });
}

TEST_F(Bitmap, FreeIgnoresNull) { FreeBitmapKQ(static_cast<KQBitmap*>(nullptr)); }

TEST_F(Bitmap, ByteToUnitHoldsTheStatedConstant) {
    for (int i = 0; i < 256; ++i) EXPECT_EQ(KQEnv->ByteToUnit[i], i * 0.00392156862745098);
}

TEST_F(Bitmap, FillTurnsThePackedColourIntoBytes) {
    Held bitmap(3, 2, 32);
    FillBitmapKQ(bitmap, 0xFF102030);
    const u8 pixel[] = {0xFF, 0x10, 0x20, 0x30};
    for (int i = 0; i < 24; ++i) EXPECT_EQ(bitmap->data[i], pixel[i % 4]);
}

TEST_F(Bitmap, FillOf8BitsTakesTheLowestByte) {
    Held bitmap(5, 3, 8);
    FillBitmapKQ(bitmap, 0xFF102030);
    EXPECT_EQ(bitmap.Bytes(), std::vector<u8>(15, 0x30));
}

TEST_F(Bitmap, FillAlphaLeavesColourAlone) {
    Held bitmap(3, 2, 32);
    std::vector<u8> expected = bitmap.Bytes();
    for (size_t i = 0; i < expected.size(); i += 4) expected[i] = 0xCD;
    FillAlphaKQ(bitmap, 0xABCD);
    EXPECT_EQ(bitmap.Bytes(), expected);
}

TEST_F(Bitmap, FillAlphaLeaves8BitsAlone) {
    Held bitmap(3, 2, 8);
    std::vector<u8> expected = bitmap.Bytes();
    FillAlphaKQ(bitmap, 0xCD);
    EXPECT_EQ(bitmap.Bytes(), expected);
}

TEST_F(Bitmap, FillAlphaRectFillsTheFirstByteOfEachPixel) {
    Held bitmap(4, 3, 32);
    std::vector<u8> expected = bitmap.Bytes();
    for (size_t at : {20, 24, 36, 40}) expected[at] = 0xEE;
    KQRectT<long> rect{1, 1, 2, 2};
    FillAlphaRectKQ(bitmap, 0x1EE, &rect);
    EXPECT_EQ(bitmap.Bytes(), expected);
}

TEST_F(Bitmap, FillAlphaRectFillsPlainBytesAt8Bits) {
    Held bitmap(4, 3, 8);
    std::vector<u8> expected = bitmap.Bytes();
    for (size_t at : {5, 6, 9, 10}) expected[at] = 0xEE;
    KQRectT<long> rect{1, 1, 2, 2};
    FillAlphaRectKQ(bitmap, 0xEE, &rect);
    EXPECT_EQ(bitmap.Bytes(), expected);
}

TEST_F(Bitmap, FillAlphaRectOfAnEmptyOrNegativeRectangleDoesNothing) {
    Held bitmap(4, 3, 32);
    std::vector<u8> expected = bitmap.Bytes();
    for (KQRectT<long> rect : {KQRectT<long>{0, 0, 0, 2}, {0, 0, 2, 0}, {1, 1, -1, 2}, {1, 1, 2, -5}})
        FillAlphaRectKQ(bitmap, 0xEE, &rect);
    EXPECT_EQ(bitmap.Bytes(), expected);
}

TEST_F(Bitmap, FillAlphaRectOutsideStaysInTheBitmapsMemory) {
    Held bitmap(4, 3, 32);
    long far = std::numeric_limits<long>::max();
    for (KQRectT<long> rect :
         {KQRectT<long>{-100, -100, 10, 10}, {3, 2, far, far}, {far, far, 4, 4}, {-far, -far, 3, 3}})
        FillAlphaRectKQ(bitmap, 0xEE, &rect);
    EXPECT_EQ(bitmap->data[44], 0xEE);
}

TEST_F(Bitmap, ReadPixelWidensByRepeatingTheByte) {
    Held bitmap(2, 2, 32);
    u8 pixel[] = {0xAB, 0x12, 0x00, 0xFF};
    std::memcpy(bitmap->data + 12, pixel, 4);
    KQRGB colour;
    ReadPixelKQ(bitmap, 1, 1, &colour);
    EXPECT_EQ(colour.alpha, 0xABAB);
    EXPECT_EQ(colour.red, 0x1212);
    EXPECT_EQ(colour.green, 0);
    EXPECT_EQ(colour.blue, 0xFFFF);
}

TEST_F(Bitmap, ReadPixelOf8BitsWritesRedAlone) {
    Held bitmap(3, 2, 8);
    KQRGB colour{1, 2, 3, 4};
    ReadPixelKQ(bitmap, 1, 1, &colour);
    EXPECT_EQ(colour.red, 0x0404);
    EXPECT_EQ(colour.green, 2);
    EXPECT_EQ(colour.blue, 3);
    EXPECT_EQ(colour.alpha, 4);
}

TEST_F(Bitmap, WritePixelStoresTheTopBytes) {
    Held bitmap(2, 2, 32);
    KQRGB colour{0x1234, 0x5678, 0x9ABC, 0xDEF0};
    WritePixelKQ(bitmap, 0, 1, &colour);
    u8 expected[] = {0xDE, 0x12, 0x56, 0x9A};
    EXPECT_EQ(std::memcmp(bitmap->data + 8, expected, 4), 0);
}

TEST_F(Bitmap, WritePixelOf8BitsClearsTheThreeBytesBehind) {
    Held bitmap(6, 2, 8);
    KQRGB colour{0xCDEF, 1, 1, 1};
    WritePixelKQ(bitmap, 4, 0, &colour);
    EXPECT_EQ(bitmap.Bytes(), (std::vector<u8>{0, 1, 2, 3, 0xCD, 0, 0, 0, 8, 9, 10, 11}));
}

TEST_F(Bitmap, WritePixelOf8BitsIsCutAtTheEndOfTheBlock) {
    for (i32 x = 3; x < 6; ++x) {
        Held bitmap(6, 1, 8);
        KQRGB colour{0xCDEF, 1, 1, 1};
        WritePixelKQ(bitmap, x, 0, &colour);
        for (i32 i = 0; i < 6; ++i) EXPECT_EQ(bitmap->data[i], i < x ? i : i == x ? 0xCD : 0);
    }
}

TEST_F(Bitmap, ReadFloatPixelLooksEveryByteUp) {
    Held bitmap(1, 1, 32);
    u8 pixel[] = {255, 0, 128, 51};
    std::memcpy(bitmap->data, pixel, 4);
    KQFloatRGB colour;
    ReadFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(colour.alpha, 255 * 0.00392156862745098);
    EXPECT_EQ(colour.red, 0.0);
    EXPECT_EQ(colour.green, 128 * 0.00392156862745098);
    EXPECT_EQ(colour.blue, 51 * 0.00392156862745098);
}

TEST_F(Bitmap, ReadFloatPixelOf8BitsWritesRedAlone) {
    Held bitmap(3, 1, 8);
    KQFloatRGB colour{9, 8, 7, 6};
    ReadFloatPixelKQ(bitmap, 2, 0, &colour);
    EXPECT_EQ(colour.red, 2 * 0.00392156862745098);
    EXPECT_EQ(colour.green, 8);
    EXPECT_EQ(colour.blue, 7);
    EXPECT_EQ(colour.alpha, 6);
}

TEST_F(Bitmap, WriteFloatPixelRounds) {
    Held bitmap(1, 1, 32);
    KQFloatRGB colour{0.5, 0.0, 0.999, 1.0};
    WriteFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(bitmap.Bytes(), (std::vector<u8>{255, 128, 0, 255}));
}

TEST_F(Bitmap, WriteFloatPixelAboveOneWraps) {
    Held bitmap(1, 1, 32);
    KQFloatRGB colour{1.5, 2.0, -1.0, 1.5};
    WriteFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(bitmap.Bytes(), (std::vector<u8>{127, 127, 254, 2}));
}

TEST_F(Bitmap, WriteFloatPixelOfNoNumberGivesZero) {
    Held bitmap(1, 1, 32);
    f64 nan = std::numeric_limits<f64>::quiet_NaN(), infinity = std::numeric_limits<f64>::infinity();
    KQFloatRGB colour{nan, infinity, -infinity, 1e300};
    WriteFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(bitmap.Bytes(), (std::vector<u8>{0, 0, 0, 0}));
}

TEST_F(Bitmap, WriteFloatPixelOf8BitsTakesAlpha) {
    Held bitmap(3, 1, 8);
    KQFloatRGB colour{1.0, 0.0, 0.0, 0.2};
    WriteFloatPixelKQ(bitmap, 1, 0, &colour);
    EXPECT_EQ(bitmap.Bytes(), (std::vector<u8>{0, 51, 2}));
}

TEST_F(Bitmap, WholeCopyBetweenUnlikeDepthsTakesTheShortcut) {
    Held wide(4, 2, 32), plane(4, 2, 8);
    std::memset(plane->data, 0x77, 8);
    CopyBitmapKQ(plane, wide, 0, 0, -1, -1, 0, 0);
    for (int i = 0; i < 32; ++i) EXPECT_EQ(wide->data[i], i < 8 ? 0x77 : i);
}

TEST_F(Bitmap, ShortcutIntoASmallerBlockIsCut) {
    Held wide(4, 2, 32), plane(4, 2, 8);
    std::memset(wide->data, 0x77, 32);
    CopyBitmapKQ(wide, plane, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(plane.Bytes(), std::vector<u8>(8, 0x77));
}

TEST_F(Bitmap, CopyBetweenUnlikeDepthsAtAnotherPositionDoesNothing) {
    Held wide(4, 2, 32), plane(4, 2, 8);
    std::vector<u8> before = wide.Bytes();
    std::memset(plane->data, 0x77, 8);
    CopyBitmapKQ(plane, wide, 0, 0, -1, -1, 1, 0);
    CopyBitmapKQ(plane, wide, 0, 1, -1, -1, 0, 0);
    CopyBitmapKQ(plane, wide, 0, 0, 3, 2, 0, 0);
    EXPECT_EQ(wide.Bytes(), before);
}

TEST_F(Bitmap, CopyMovesARectangle) {
    for (i32 depth : {32, 8}) {
        Held source(6, 5, depth), target(7, 4, depth);
        std::memset(target->data, 0xEE, size_t(target->dataSize));
        CopyBitmapKQ(source, target, 2, 1, 3, 2, 4, 1);
        i32 bytes = depth / 8;
        for (i32 y = 0; y < 4; ++y)
            for (i32 x = 0; x < 7 * bytes; ++x) {
                bool inside = y >= 1 && y < 3 && x >= 4 * bytes;
                u8 expected = inside ? source->data[y * 6 * bytes + x - 2 * bytes] : 0xEE;
                EXPECT_EQ(target->data[y * 7 * bytes + x], expected) << x << ' ' << y;
            }
    }
}

TEST_F(Bitmap, CopyThatStartsLeftOfTheTargetGrows) {
    // 14 pixels from column 4 on arrive, though a strict clip would leave 6.
    Held source(40, 1, 8), target(100, 1, 8);
    std::memset(target->data, 0xEE, 100);
    CopyBitmapKQ(source, target, 0, 0, 10, 1, -4, 0);
    for (i32 x = 0; x < 100; ++x) EXPECT_EQ(target->data[x], x < 14 ? x + 4 : 0xEE);
}

TEST_F(Bitmap, CopyThatStartsAboveTheTargetGrows) {
    Held source(1, 40, 8), target(1, 100, 8);
    std::memset(target->data, 0xEE, 100);
    CopyBitmapKQ(source, target, 0, 0, 1, 10, 0, -4);
    for (i32 y = 0; y < 100; ++y) EXPECT_EQ(target->data[y], y < 14 ? y + 4 : 0xEE);
}

TEST_F(Bitmap, ShortcutLooksAtPositionsAfterTheMove) {
    Held wide(4, 2, 32), plane(4, 2, 8);
    std::memset(plane->data, 0x77, 8);
    CopyBitmapKQ(plane, wide, -3, -1, 4, 2, -3, -1);
    EXPECT_EQ(wide->data[0], 0x77);
}

TEST_F(Bitmap, CopyIsCutAtTheTargetsEdges) {
    Held source(10, 10, 8), target(4, 3, 8);
    CopyBitmapKQ(source, target, 5, 6, 5, 4, 2, 1);
    EXPECT_EQ(target.Bytes(), (std::vector<u8>{0, 1, 2, 3, 4, 5, 65, 66, 8, 9, 75, 76}));
}

TEST_F(Bitmap, CopyBeyondTheTargetDoesNothing) {
    Held source(4, 4, 8), target(4, 3, 8);
    std::vector<u8> before = target.Bytes();
    CopyBitmapKQ(source, target, 0, 0, -1, -1, 4, 0);
    CopyBitmapKQ(source, target, 0, 0, -1, -1, 0, kMost);
    CopyBitmapKQ(source, target, 0, 0, 0, 4, 0, 0);
    EXPECT_EQ(target.Bytes(), before);
}

TEST_F(Bitmap, CopyReadsOnIntoTheNextSourceRowButNotBehindTheLast) {
    Held source(4, 2, 8), target(6, 3, 8);
    std::memset(target->data, 0xEE, 18);
    CopyBitmapKQ(source, target, 2, 0, 4, 3, 0, 0);
    EXPECT_EQ(target.Bytes(), (std::vector<u8>{2, 3, 4, 5, 0xEE, 0xEE, 6, 7, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                                               0xEE, 0xEE, 0xEE}));
}

TEST_F(Bitmap, CopyFromBeforeTheSourceLeavesTheTargetAloneThere) {
    Held source(4, 2, 8), target(4, 1, 8);
    std::memset(target->data, 0xEE, 4);
    CopyBitmapKQ(source, target, -2, 0, 4, 1, 0, 0);
    EXPECT_EQ(target.Bytes(), (std::vector<u8>{0xEE, 0xEE, 0, 1}));
}

TEST_F(Bitmap, CopyWithExtremeWordsIsDefined) {
    Held source(4, 2, 32), target(4, 3, 32);
    for (i32 a : {kLeast, -1, 0, kMost})
        for (i32 b : {kLeast, -1, 0, kMost})
            for (i32 c : {kLeast, -1, 3, kMost}) CopyBitmapKQ(source, target, a, b, c, c, b, a);
}

TEST_F(Bitmap, CopyWithinABitmapGoesPixelByPixel) {
    Held bitmap(6, 1, 8);
    CopyBitmapKQ(bitmap, bitmap, 0, 0, 4, 1, 2, 0);
    EXPECT_EQ(bitmap.Bytes(), (std::vector<u8>{0, 1, 0, 1, 0, 1}));
}

TEST_F(Bitmap, SharedBitmapIsSeenByAnotherProcess) {
    char path[1024];
    pal::ProgramPath(path, sizeof path);
    std::string peer(path);
    peer.erase(peer.find_last_of("/\\") + 1);
    std::string name = FreshName();
    KQBitmap* bitmap = AllocSharedBitmapKQ(16, 8, 32, name.c_str());
    ASSERT_NE(bitmap, nullptr);
    EXPECT_NE(bitmap->sharedHandle, nullptr);
    FillBitmapKQ(bitmap, 0xFF123456);
    std::string command = peer + "shared_peer " + name;
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(bitmap->data[0], 0x80);
    EXPECT_EQ(bitmap->data[bitmap->dataSize - 1], 0xC0);
    FreeBitmapKQ(bitmap);
}

TEST_F(Bitmap, SharedNameThatExistsGivesTheSameMemory) {
    std::string name = FreshName();
    KQBitmap* first = AllocSharedBitmapKQ(5, 5, 8, name.c_str());
    KQBitmap* second = AllocSharedBitmapKQ(5, 5, 8, name.c_str());
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    first->data[24] = 99;
    EXPECT_EQ(second->data[24], 99);
    FreeBitmapKQ(first);
    EXPECT_EQ(second->data[24], 99);
    FreeBitmapKQ(second);
}

TEST_F(Bitmap, SharedMemoryGoesWithItsLastUser) {
    std::string name = FreshName();
    KQBitmap* first = AllocSharedBitmapKQ(5, 5, 8, name.c_str());
    ASSERT_NE(first, nullptr);
    first->data[0] = 99;
    FreeBitmapKQ(first);
    KQBitmap* second = AllocSharedBitmapKQ(500, 500, 8, name.c_str());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->data[0], 0);
    FreeBitmapKQ(second);
}

TEST_F(Bitmap, SharedNameWithLessMemoryGivesNull) {
    std::string name = FreshName();
    KQBitmap* first = AllocSharedBitmapKQ(5, 5, 8, name.c_str());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(AllocSharedBitmapKQ(500, 500, 32, name.c_str()), nullptr);
    FreeBitmapKQ(first);
}

TEST_F(Bitmap, SharedNameMayHoldSeparators) {
    KQBitmap* bitmap = AllocSharedBitmapKQ(5, 5, 8, "kqtest/with:other signs");
    ASSERT_NE(bitmap, nullptr);
    FreeBitmapKQ(bitmap);
}

TEST_F(Bitmap, SharedNamesThatDifferInASeparatorAreApart) {
    KQBitmap* bitmaps[4];
    const char* names[] = {"kqtest/apart", "kqtest_apart", "kqtest%2Fapart", "kqtest%apart"};
    for (int i = 0; i < 4; ++i) {
        bitmaps[i] = AllocSharedBitmapKQ(5, 5, 8, names[i]);
        ASSERT_NE(bitmaps[i], nullptr);
        FillBitmapKQ(bitmaps[i], u32(i + 1));
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(bitmaps[i]->data[0], i + 1) << names[i];
        FreeBitmapKQ(bitmaps[i]);
    }
}

TEST_F(Bitmap, SharedNameThatIsTooLongGivesNullOrMemory) {
    FreeBitmapKQ(AllocSharedBitmapKQ(5, 5, 8, std::string(3000, '/').c_str()));
    FreeBitmapKQ(AllocSharedBitmapKQ(5, 5, 8, std::string(3000, 'a').c_str()));
}

TEST_F(Bitmap, SharedSizeOfZeroIsLegal) {
    KQBitmap* bitmap = AllocSharedBitmapKQ(0, 5, 8, "kqtest-empty");
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(bitmap->dataSize, 0);
    FreeBitmapKQ(bitmap);
}

}   // namespace
