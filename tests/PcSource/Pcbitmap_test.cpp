#include "kq/nativebitmap.h"

#include <cstring>
#include <limits>

#include "PcSource/DisplayPalette.h"
#include "PcSource/NativeRecord.h"
#include "pal/display.h"
#include "pal/null/display.h"
#include "support/Fixture.h"

namespace {

constexpr i32 kLeast = std::numeric_limits<i32>::min(), kMost = std::numeric_limits<i32>::max();

class Pcbitmap : public kqtest::KQTest {
protected:
    void TearDown() override {
        pal::SetDisplay(nullptr);
        pal::ClearNullScreen();
        EXPECT_EQ(pal::NullHandlesOut(), 0) << "contexts or bitmaps of the display were left behind";
        KQTest::TearDown();
    }
};

// A native bitmap that is freed with the test, filled with 0xEE.
struct Held {
    KQNativeBitmap* bitmap;

    explicit Held(KQNativeBitmap* taken) : bitmap(taken) {
        if (bitmap) std::memset(bitmap->data, 0xEE, size_t(bitmap->dataSize));
    }

    Held(i32 width, i32 height, i32 depth) : Held(AllocNativeBitmapKQ(width, height, depth)) {}

    ~Held() { FreeBitmapKQ(bitmap); }

    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    operator KQNativeBitmap*() const { return bitmap; }
    KQNativeBitmap* operator->() const { return bitmap; }

    std::vector<u8> Bytes() const { return {bitmap->data, bitmap->data + bitmap->dataSize}; }

    u8* At(i32 x, i32 y) const {
        return bitmap->data + bitmap->firstRowOffset + y * bitmap->rowBytes + x * bitmap->pixelBytes;
    }

    u16 Word(i32 x, i32 y) const { return u16(At(x, y)[0] | At(x, y)[1] << 8); }
};

struct HeldPortable {
    KQBitmap* bitmap;

    HeldPortable(i32 width, i32 height, u32 colour) : bitmap(AllocBitmapKQ(width, height, 32)) {
        FillBitmapKQ(bitmap, colour);
    }

    ~HeldPortable() { FreeBitmapKQ(bitmap); }

    HeldPortable(const HeldPortable&) = delete;
    HeldPortable& operator=(const HeldPortable&) = delete;

    operator KQBitmap*() const { return bitmap; }
    KQBitmap* operator->() const { return bitmap; }
};

using Four = std::vector<u8>;

Four Pixel(const u8* at, size_t bytes) { return {at, at + bytes}; }

TEST_F(Pcbitmap, Width3At24BitsHasAStrideOf12) {
    Held bitmap(3, 7, 24);
    EXPECT_EQ(bitmap->rowBytes, -12);
    EXPECT_EQ(bitmap->firstRowOffset, 12 * 6);
    EXPECT_EQ(bitmap->dataSize, 12 * 7);
    EXPECT_EQ(bitmap->pixelBytes, 3);
    EXPECT_EQ(bitmap->nativeFlag, 1);
}

TEST_F(Pcbitmap, Row0IsTheLastInMemory) {
    Held bitmap(3, 2, 24);
    KQRGB colour{0x1111, 0x2222, 0x3333, 0};
    WritePixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(Pixel(bitmap->data + 12, 3), (Four{0x33, 0x22, 0x11}));
}

TEST_F(Pcbitmap, HeaderDescribesTheImage) {
    Held bitmap(3, 7, 24);
    KQBitmapHeader expected{40, 3, 7, 1, 24, 0, 84, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&bitmap->header, &expected, 40), 0);
}

TEST_F(Pcbitmap, Depth33GivesAnEmptyRecord) {
    KQNativeBitmap* bitmap = AllocNativeBitmapKQ(100, 100, 33);
    ASSERT_NE(bitmap, nullptr);
    KQNativeBitmap empty{};
    EXPECT_EQ(std::memcmp(bitmap, &empty, sizeof empty), 0);
    FreeBitmapKQ(bitmap);
}

TEST_F(Pcbitmap, BadSizesAndDepthsGiveNull) {
    EXPECT_EQ(AllocNativeBitmapKQ(-1, 5, 24), nullptr);
    EXPECT_EQ(AllocNativeBitmapKQ(5, -1, 24), nullptr);
    EXPECT_EQ(AllocNativeBitmapKQ(0x10000, 0x10000, 16), nullptr);
    EXPECT_EQ(AllocNativeBitmapKQ(kMost, 1, 24), nullptr);
    EXPECT_EQ(AllocNativeBitmapKQ(kMost, 1, 8), nullptr);
    EXPECT_EQ(AllocNativeBitmapKQ(5, 5, 12), nullptr);
    EXPECT_EQ(AllocDDBitmapKQ(-5, 5, 24), nullptr);
    EXPECT_EQ(AllocDDBitmapKQ(0, 5, 24), nullptr);
    EXPECT_EQ(AllocDDBitmapKQ(kMost, kMost, 24), nullptr);
}

TEST_F(Pcbitmap, SizeOfZeroIsLegal) {
    Held bitmap(0, 3, 24), flat(3, 0, 16);
    EXPECT_EQ(bitmap->dataSize, 0);
    FillBitmapKQ(bitmap, 1);
    FillBitmapKQ(flat, 1);
}

TEST_F(Pcbitmap, EveryFailingAllocationIsCopedWith) {
    kqtest::FailEveryAllocation([] { FreeBitmapKQ(AllocNativeBitmapKQ(20, 10, 24)); });
    kqtest::FailEveryAllocation([] { FreeBitmapKQ(AllocNativeBitmapKQ(20, 10, 33)); });
    kqtest::FailEveryAllocation([] { FreeBitmapKQ(AllocDDBitmapKQ(20, 10, 24)); });
}

TEST_F(Pcbitmap, FreeIgnoresNullAndWhatIsNotOurs) {
    FreeBitmapKQ(static_cast<KQNativeBitmap*>(nullptr));
    KQNativeBitmap* bitmap = AllocNativeBitmapKQ(2, 2, 24);
    bitmap->ownership = 0x100;
    FreeBitmapKQ(bitmap);
    EXPECT_EQ(bitmap->width, 2);
    bitmap->ownership = 0;
    FreeBitmapKQ(bitmap);
}

TEST_F(Pcbitmap, ReadPixelWidensAndIsOpaque) {
    for (i32 depth : {24, 32}) {
        Held bitmap(2, 2, depth);
        u8 bytes[] = {0x12, 0xAB, 0xFF};
        std::memcpy(bitmap.At(1, 0), bytes, 3);
        KQRGB colour;
        ReadPixelKQ(bitmap, 1, 0, &colour);
        EXPECT_EQ(colour.blue, 0x1212);
        EXPECT_EQ(colour.green, 0xABAB);
        EXPECT_EQ(colour.red, 0xFFFF);
        EXPECT_EQ(colour.alpha, 0xFFFF);
    }
}

TEST_F(Pcbitmap, ReadPixelOf16BitsKeepsBlueInGreensLowBits) {
    Held bitmap(1, 1, 16);
    u16 word = 0x001F;
    std::memcpy(bitmap.At(0, 0), &word, 2);
    KQRGB colour;
    ReadPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(colour.red, 0);
    EXPECT_EQ(colour.green, 0x0707);
    EXPECT_EQ(colour.blue, 0xF8F8);
    EXPECT_EQ(colour.alpha, 0xFFFF);
}

TEST_F(Pcbitmap, ReadPixelOf8BitsWritesRedAlone) {
    Held bitmap(2, 1, 8);
    KQRGB colour{1, 2, 3, 4};
    ReadPixelKQ(bitmap, 1, 0, &colour);
    EXPECT_EQ(colour.red, 0xEEEE);
    EXPECT_EQ(colour.green, 2);
    EXPECT_EQ(colour.blue, 3);
    EXPECT_EQ(colour.alpha, 4);
    KQFloatRGB real{1, 2, 3, 4};
    ReadFloatPixelKQ(bitmap, 1, 0, &real);
    EXPECT_EQ(real.red, 0xEE * 0.00392156862745098);
    EXPECT_EQ(real.alpha, 4);
}

TEST_F(Pcbitmap, WritePixelTakesTopBytesAndLeavesTheFourthAlone) {
    Held bitmap(1, 1, 32);
    KQRGB colour{0x1234, 0x5678, 0x9ABC, 0xDEF0};
    WritePixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(bitmap.Bytes(), (Four{0x9A, 0x56, 0x12, 0xEE}));
}

TEST_F(Pcbitmap, WritePixelOf16BitsTakesTop5BitsWithoutExchange) {
    Held bitmap(1, 1, 16);
    KQRGB colour{0xFFFF, 0x0FFF, 0x0000, 0};
    WritePixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(bitmap.Word(0, 0), 0x7C00 | 1 << 5);
}

TEST_F(Pcbitmap, FloatPixelsReadWithAlphaOne) {
    Held bitmap(1, 1, 24);
    u8 bytes[] = {0, 128, 255};
    std::memcpy(bitmap->data, bytes, 3);
    KQFloatRGB colour;
    ReadFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(colour.blue, 0.0);
    EXPECT_EQ(colour.green, 128 * 0.00392156862745098);
    EXPECT_EQ(colour.red, 255 * 0.00392156862745098);
    EXPECT_EQ(colour.alpha, 1.0);
}

TEST_F(Pcbitmap, FloatReadOf16BitsKeepsBlueInGreensLowBits) {
    Held bitmap(1, 1, 16);
    u16 word = 0x001F;
    std::memcpy(bitmap->data, &word, 2);
    KQFloatRGB colour;
    ReadFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(colour.green, 7 * 0.00392156862745098);
    EXPECT_EQ(colour.blue, 248 * 0.00392156862745098);
}

TEST_F(Pcbitmap, WriteFloatPixelRoundsAndWraps) {
    Held bitmap(1, 1, 24);
    KQFloatRGB colour{1.5, 0.5, 1.0, 0.0};
    WriteFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(Pixel(bitmap->data, 3), (Four{255, 128, 127}));
}

TEST_F(Pcbitmap, WriteFloatPixelOf32BitsLeavesTheFourthByteAlone) {
    Held bitmap(2, 1, 32);
    KQFloatRGB colour{1.0, 0.5, 0.25, 0.75};
    WriteFloatPixelKQ(bitmap, 1, 0, &colour);
    EXPECT_EQ(Pixel(bitmap.At(1, 0), 4), (Four{64, 128, 255, 0xEE}));
    EXPECT_EQ(Pixel(bitmap.At(0, 0), 4), Four(4, 0xEE));
}

TEST_F(Pcbitmap, WriteFloatPixelOf16BitsRoundsToBytesThenTakesTop5Bits) {
    Held bitmap(3, 1, 16);
    KQFloatRGB colour{1.0, 0.5, 7.4 / 255.0, 0.0};
    WriteFloatPixelKQ(bitmap, 1, 0, &colour);
    EXPECT_EQ(bitmap.Word(1, 0), 31 << 10 | 16 << 5);
    colour.blue = 7.6 / 255.0;
    WriteFloatPixelKQ(bitmap, 1, 0, &colour);
    EXPECT_EQ(bitmap.Word(1, 0), 31 << 10 | 16 << 5 | 1);
    EXPECT_EQ(bitmap.Word(0, 0), 0xEEEE);
    EXPECT_EQ(bitmap.Word(2, 0), 0xEEEE);
}

TEST_F(Pcbitmap, WriteFloatPixelOf8BitsTakesRed) {
    Held bitmap(3, 1, 8);
    KQFloatRGB colour{0.5, 1.0, 1.0, 1.0};
    WriteFloatPixelKQ(bitmap, 1, 0, &colour);
    EXPECT_EQ(Pixel(bitmap.At(0, 0), 3), (Four{0xEE, 128, 0xEE}));
}

TEST_F(Pcbitmap, WriteFloatPixelWrapsAtEveryDepth) {
    KQFloatRGB colour{1.5, 1.5, 1.5, 0.0};
    Held eight(1, 1, 8), two(1, 1, 16), four(1, 1, 32);
    for (KQNativeBitmap* bitmap : {eight.bitmap, two.bitmap, four.bitmap}) WriteFloatPixelKQ(bitmap, 0, 0, &colour);
    EXPECT_EQ(eight->data[0], 127);
    EXPECT_EQ(two.Word(0, 0), 15 << 10 | 15 << 5 | 15);
    EXPECT_EQ(Pixel(four->data, 3), Four(3, 127));
}

TEST_F(Pcbitmap, StrideFollowsFromWidthTimesDepth) {
    KQNativeBitmap bitmap{};
    kq::SetNativeFormat(&bitmap, 3, 2, 15);
    EXPECT_EQ(bitmap.rowBytes, -8);
    EXPECT_EQ(bitmap.dataSize, 16);
    kq::SetNativeFormat(&bitmap, 10, 1, 4);
    EXPECT_EQ(bitmap.rowBytes, -8);
}

TEST_F(Pcbitmap, FillOfAnEmptyBitmapTouchesNothing) {
    for (i32 depth : {8, 16, 24, 32})
        for (auto [width, height] : {std::pair{5, 0}, {0, 5}, {0, 0}}) {
            Held bitmap(AllocNativeBitmapKQ(width, height, depth));
            FillBitmapKQ(bitmap, 0x102030);
            EXPECT_EQ(bitmap->dataSize, 0);
        }
}

TEST_F(Pcbitmap, FillIgnoresAlpha) {
    Held three(2, 2, 24), four(2, 2, 32);
    FillBitmapKQ(three, 0xFF102030);
    FillBitmapKQ(four, 0xFF102030);
    EXPECT_EQ(Pixel(three.At(1, 1), 3), (Four{0x30, 0x20, 0x10}));
    EXPECT_EQ(Pixel(four.At(1, 1), 4), (Four{0x30, 0x20, 0x10, 0}));
}

TEST_F(Pcbitmap, FillOf16BitsExchangesRedAndBlue) {
    Held bitmap(3, 2, 16);
    FillBitmapKQ(bitmap, 0x00F80010);
    for (i32 y = 0; y < 2; ++y)
        for (i32 x = 0; x < 3; ++x) EXPECT_EQ(bitmap.Word(x, y), (0x10 >> 3) << 10 | 0xF8 >> 3);
}

TEST_F(Pcbitmap, FillOf8BitsSetsAllBytesToRed) {
    Held bitmap(3, 2, 8);
    FillBitmapKQ(bitmap, 0xFF102030);
    EXPECT_EQ(bitmap.Bytes(), Four(8, 0x10));
}

TEST_F(Pcbitmap, FillLeavesRowPaddingAlone) {
    for (i32 depth : {16, 24}) {
        Held bitmap(3, 2, depth);
        FillBitmapKQ(bitmap, 0x102030);
        EXPECT_EQ(bitmap->data[3 * depth / 8], 0xEE);
    }
}

TEST_F(Pcbitmap, FullWhiteOf16BitsCopiesAs248) {
    Held native(2, 1, 16);
    HeldPortable portable(2, 1, 0);
    u16 words[] = {0x7FFF, 0xFFFF};
    std::memcpy(native->data, words, 4);
    CopyBitmapKQ(native, portable, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(Pixel(portable->data, 8), (Four{255, 248, 248, 248, 255, 248, 248, 248}));
}

TEST_F(Pcbitmap, CopyOf16BitsKeepsGreensLowBitsZero) {
    Held native(1, 1, 16);
    HeldPortable portable(1, 1, 0);
    u16 word = 0x001F;
    std::memcpy(native->data, &word, 2);
    CopyBitmapKQ(native, portable, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(Pixel(portable->data, 4), (Four{255, 0, 0, 248}));
}

TEST_F(Pcbitmap, CopyToNativeDropsAlphaAndLeavesTheFourthByteAlone) {
    HeldPortable portable(2, 2, 0x80FF8107);
    Held four(2, 2, 32), three(2, 2, 24), two(2, 2, 16);
    for (KQNativeBitmap* target : {four.bitmap, three.bitmap, two.bitmap})
        CopyBitmapKQ(portable, target, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(Pixel(four.At(1, 1), 4), (Four{0x07, 0x81, 0xFF, 0xEE}));
    EXPECT_EQ(Pixel(three.At(1, 1), 3), (Four{0x07, 0x81, 0xFF}));
    EXPECT_EQ(two.Word(1, 1), 31 << 10 | 16 << 5);
    EXPECT_EQ(three->data[6], 0xEE);
}

TEST_F(Pcbitmap, CopyTurnsRowsOver) {
    HeldPortable portable(1, 2, 0);
    portable->data[5] = 0xAA;
    Held native(1, 2, 24);
    CopyBitmapKQ(portable, native, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(native->data[2], 0xAA);
    EXPECT_EQ(native->data[4 + 2], 0);
}

TEST_F(Pcbitmap, CopyWithA8BitSideDoesNothing) {
    HeldPortable portable(2, 2, 0x01020304);
    KQBitmap* plane = AllocBitmapKQ(2, 2, 8);
    FillBitmapKQ(plane, 0x55);
    Held native(2, 2, 8), three(2, 2, 24);
    CopyBitmapKQ(portable, native, 0, 0, -1, -1, 0, 0);
    CopyBitmapKQ(plane, three, 0, 0, -1, -1, 0, 0);
    CopyBitmapKQ(three, plane, 0, 0, -1, -1, 0, 0);
    CopyBitmapKQ(native, portable, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(native.Bytes(), Four(8, 0xEE));
    EXPECT_EQ(three.Bytes(), Four(16, 0xEE));
    EXPECT_EQ(plane->data[0], 0x55);
    EXPECT_EQ(portable->data[1], 2);
    FreeBitmapKQ(plane);
}

TEST_F(Pcbitmap, CopyToNativeThatStartsLeftOfTheTargetGrows) {
    HeldPortable portable(40, 1, 0);
    for (i32 x = 0; x < 40; ++x) portable->data[x * 4 + 3] = u8(x);
    Held native(100, 1, 24);
    CopyBitmapKQ(portable, native, 0, 0, 10, 1, -4, 0);
    for (i32 x = 0; x < 100; ++x) EXPECT_EQ(native.At(x, 0)[0], x < 14 ? x + 4 : 0xEE);
}

TEST_F(Pcbitmap, EqualDepthsCopyAsBlocks) {
    for (i32 depth : {8, 16, 24, 32}) {
        Held source(4, 3, depth), target(5, 4, depth);
        for (i32 i = 0; i < source->dataSize; ++i) source->data[i] = u8(i);
        CopyBitmapKQ(source, target, 1, 1, 2, 2, 3, 2);
        size_t bytes = size_t(2 * depth / 8);
        EXPECT_EQ(Pixel(target.At(3, 2), bytes), Pixel(source.At(1, 1), bytes));
        EXPECT_EQ(Pixel(target.At(3, 3), bytes), Pixel(source.At(1, 2), bytes));
        EXPECT_EQ(target.At(2, 2)[0], 0xEE);
    }
}

TEST_F(Pcbitmap, UnlikeDepthsConvert) {
    Held two(1, 1, 16), three(1, 1, 24), four(1, 1, 32);
    KQRGB colour{0xFFFF, 0x8080, 0x0808, 0};
    WritePixelKQ(three, 0, 0, &colour);
    CopyBitmapKQ(three, two, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(two.Word(0, 0), 31 << 10 | 16 << 5 | 1);
    CopyBitmapKQ(two, four, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(four.Bytes(), (Four{8, 128, 248, 0xEE}));
}

TEST_F(Pcbitmap, UnlikeDepthsWith8BitsDoNothing) {
    Held plane(2, 2, 8), three(2, 2, 24);
    CopyBitmapKQ(plane, three, 0, 0, -1, -1, 0, 0);
    CopyBitmapKQ(three, plane, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(plane.Bytes(), Four(8, 0xEE));
    EXPECT_EQ(three.Bytes(), Four(16, 0xEE));
}

TEST_F(Pcbitmap, CopyOfTwo16BitsKeepsTheWord) {
    Held source(1, 1, 16), target(1, 1, 16);
    CopyBitmapKQ(source, target, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(target.Word(0, 0), 0xEEEE);
}

TEST_F(Pcbitmap, RectLimitsTheCopyByPlaceInTheSource) {
    for (i32 depth : {24, 32}) {
        Held source(6, 6, 24), target(6, 6, depth);
        FillBitmapKQ(source, 0x010203);
        KQRectT<long> rect{2, 3, 2, 1};
        CopyBitmapKQ(source, target, &rect, 1, 1, 5, 5, 0, 0);
        for (i32 y = 0; y < 6; ++y)
            for (i32 x = 0; x < 6; ++x)
                EXPECT_EQ(target.At(x, y)[0], y == 2 && (x == 1 || x == 2) ? 3 : 0xEE) << x << ' ' << y;
    }
}

TEST_F(Pcbitmap, NullRectIsTheWholeSource) {
    Held source(3, 3, 24), target(3, 3, 32);
    FillBitmapKQ(source, 0x010203);
    CopyBitmapKQ(source, target, nullptr, 0, 0, -1, -1, 0, 0);
    EXPECT_EQ(Pixel(target.At(2, 2), 4), (Four{3, 2, 1, 0xEE}));
}

TEST_F(Pcbitmap, NullRectStopsAtTheSourcesEdge) {
    for (i32 depth : {24, 32}) {
        Held source(4, 4, 24), target(8, 8, depth), given(8, 8, depth);
        for (i32 y = 0; y < 4; ++y)
            for (i32 x = 0; x < 4; ++x) source.At(x, y)[0] = u8(16 * y + x + 1);
        const KQRectT<long> whole{0, 0, 4, 4};
        CopyBitmapKQ(source, target, nullptr, 2, 1, 4, 1, 0, 0);
        CopyBitmapKQ(source, given, &whole, 2, 1, 4, 1, 0, 0);
        for (i32 x = 0; x < 4; ++x) {
            EXPECT_EQ(target.At(x, 0)[0], x < 2 ? 16 + 3 + x : 0xEE) << x;
            EXPECT_EQ(given.At(x, 0)[0], target.At(x, 0)[0]) << x;
        }
    }
}

TEST_F(Pcbitmap, NativeCopiesWithExtremeWordsAreDefined) {
    Held source(4, 2, 24), target(4, 3, 24), other(3, 4, 16);
    long far = std::numeric_limits<long>::max();
    KQRectT<long> rects[] = {{-far, -far, far, far}, {0, 0, far, far}, {far, far, far, far}};
    for (i32 a : {kLeast, -1, 0, kMost})
        for (i32 b : {kLeast, -1, 0, kMost})
            for (const KQRectT<long>& rect : rects) {
                CopyBitmapKQ(source, target, &rect, a, b, a, b, b, a);
                CopyBitmapKQ(source, other, &rect, a, b, b, a, b, a);
                CopyBitmapKQ(source, other, a, b, kMost, 3, a, b);
            }
}

TEST_F(Pcbitmap, ScaleOf16To16BitsClearsBit15) {
    Held source(1, 1, 16), target(2, 1, 16);
    ScaleBitmapKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(target.Word(1, 0), 0xEEEE & 0x7FFF);
}

TEST_F(Pcbitmap, ScaleOf32To32BitsLeavesTheFourthByteAlone) {
    Held source(1, 1, 32), target(1, 1, 32);
    u8 bytes[] = {1, 2, 3, 4};
    std::memcpy(source->data, bytes, 4);
    ScaleBitmapKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(target.Bytes(), (Four{1, 2, 3, 0xEE}));
}

TEST_F(Pcbitmap, ScaleToPortableReadsThreeBytesWhateverTheDepth) {
    Held source(4, 1, 16);
    HeldPortable target(4, 1, 0);
    for (i32 i = 0; i < 8; ++i) source->data[i] = u8(10 + i);
    ScaleBitmapKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(Pixel(target->data, 4), (Four{255, 12, 11, 10}));
    EXPECT_EQ(Pixel(target->data + 8, 4), (Four{255, 16, 15, 14}));
    // The last pixel's third byte lies behind the source's memory and reads as 0.
    EXPECT_EQ(Pixel(target->data + 12, 4), (Four{255, 0, 17, 16}));
}

TEST_F(Pcbitmap, ScaleIntoA8BitTargetLeavesItAlone) {
    Held source(2, 2, 24), target(2, 2, 8);
    KQBitmap* plane = AllocBitmapKQ(2, 2, 8);
    FillBitmapKQ(plane, 0x55);
    HeldPortable portable(2, 2, 0x01020304);
    ScaleBitmapKQ(source, plane, nullptr, nullptr);
    ScaleBitmapKQ(portable, target, nullptr, nullptr);
    ScaleBitmapKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(plane->data[3], 0x55);
    EXPECT_EQ(target.Bytes(), Four(8, 0xEE));
    FreeBitmapKQ(plane);
}

TEST_F(Pcbitmap, ScaleToNativeDropsAlpha) {
    HeldPortable source(1, 1, 0x80FF8107);
    Held four(2, 1, 32), three(2, 1, 24), two(2, 1, 16);
    for (KQNativeBitmap* target : {four.bitmap, three.bitmap, two.bitmap})
        ScaleBitmapKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(Pixel(four.At(1, 0), 4), (Four{0x07, 0x81, 0xFF, 0xEE}));
    EXPECT_EQ(Pixel(three.At(1, 0), 3), (Four{0x07, 0x81, 0xFF}));
    EXPECT_EQ(two.Word(1, 0), 31 << 10 | 16 << 5);
}

// --- the display

KQDrawInfo ScreenDraw(i32 originX = 0, i32 originY = 0) { return {pal::TakeScreenContext(), originX, originY}; }

void EndDraw(const KQDrawInfo& draw) { pal::ReleaseScreenContext(draw.deviceContext); }

// What a table of the test saw of the drawing calls.
struct Seen {
    int dibs = 0, blits = 0, stretches = 0;
    pal::DrawPlace from{}, to{};
    void* service = nullptr;
};

Seen seen;
pal::DisplayFormat wanted;

pal::DisplayTable RecordingTable() {
    seen = {};
    pal::DisplayTable table = pal::nullDisplay;
    table.drawDib = [](void* service, void*, pal::DrawPlace to, const pal::DibHeader*, const void*,
                       pal::DrawPlace from) {
        ++seen.dibs;
        seen.from = from;
        seen.to = to;
        seen.service = service;
        return true;
    };
    table.blit = [](void*, pal::DrawPlace to, void*, i32 x, i32 y) {
        ++seen.blits;
        seen.to = to;
        seen.from = {x, y, to.width, to.height};
    };
    table.stretch = [](void*, pal::DrawPlace to, void*, pal::DrawPlace from) {
        ++seen.stretches;
        seen.to = to;
        seen.from = from;
    };
    return table;
}

pal::DisplayTable FormatTable(pal::DisplayFormat format) {
    wanted = format;
    pal::DisplayTable table = pal::nullDisplay;
    table.format = [](pal::DisplayFormat* answer) { *answer = wanted; };
    return table;
}

std::vector<std::string> debugLines;

void RecordDebug(const char* text) { debugLines.push_back(text); }

TEST_F(Pcbitmap, DisplayWithoutAScreenIs1920By1080At24Bits) {
    i32 width = 0, height = 0, depth = 0;
    GetDisplayFormatKQ(&width, &height, &depth);
    EXPECT_EQ(width, 1920);
    EXPECT_EQ(height, 1080);
    EXPECT_EQ(depth, 24);
    EXPECT_EQ(SuggestedDepthKQ(), 24);
}

TEST_F(Pcbitmap, DisplayFormatTakesNullPointers) { GetDisplayFormatKQ(nullptr, nullptr, nullptr); }

TEST_F(Pcbitmap, RefusedFormatRequestIsReported) {
    pal::DisplayTable table = pal::nullDisplay;
    table.askDib = [](void*, pal::DibRequest* request) { return request->header.size == 40 ? -7 : 1; };
    pal::SetDisplay(&table);
    debugLines.clear();
    SetDebugSinkKQ(RecordDebug);
    GetDisplayFormatKQ(nullptr, nullptr, nullptr);
    table.askDib = nullptr;
    GetDisplayFormatKQ(nullptr, nullptr, nullptr);
    pal::SetDisplay(nullptr);
    GetDisplayFormatKQ(nullptr, nullptr, nullptr);
    SetDebugSinkKQ(nullptr);
    EXPECT_EQ(debugLines, (std::vector<std::string>{"Escape: Failed. -7", "Escape: Failed. 0"}));
}

TEST_F(Pcbitmap, DibSupportIsReported) {
    debugLines.clear();
    SetDebugSinkKQ(RecordDebug);
    ShowDibSupport(24);
    SetDebugSinkKQ(nullptr);
    ASSERT_EQ(debugLines.size(), 1u);
    EXPECT_EQ(debugLines[0], "DIB 20 x 20, 24 bits: result 1, flags 15\n");
}

TEST_F(Pcbitmap, SuggestedDepthOfAn8BitScreenIs24) {
    pal::DisplayTable table = FormatTable({800, 600, 8, true, 20});
    pal::SetDisplay(&table);
    EXPECT_EQ(SuggestedDepthKQ(), 24);
}

TEST_F(Pcbitmap, SuggestedDepthIsTheScreens) {
    for (i32 depth : {16, 24, 32}) {
        pal::DisplayTable table = FormatTable({800, 600, depth, false, 0});
        pal::SetDisplay(&table);
        EXPECT_EQ(SuggestedDepthKQ(), depth);
    }
}

TEST_F(Pcbitmap, DDBitmapHasASectionAtTheSuggestedDepth) {
    pal::DisplayTable table = FormatTable({800, 600, 16, false, 0});
    pal::SetDisplay(&table);
    Held bitmap(AllocDDBitmapKQ(5, 4, 24));
    ASSERT_NE(bitmap.bitmap, nullptr);
    EXPECT_EQ(bitmap->depth, 16);
    EXPECT_EQ(bitmap->rowBytes, -12);
    EXPECT_NE(ConvertDDBitmapKQ(bitmap), 0);
}

TEST_F(Pcbitmap, RefusedSectionGivesNullAndLeavesNothing) {
    pal::DisplayTable table = pal::nullDisplay;
    table.createSection = [](void*, const pal::DibHeader*, void**) -> void* { return nullptr; };
    pal::SetDisplay(&table);
    EXPECT_EQ(AllocDDBitmapKQ(5, 4, 24), nullptr);
}

TEST_F(Pcbitmap, ConvertOfAPlainBitmapIs0) {
    Held bitmap(2, 2, 24);
    EXPECT_EQ(ConvertDDBitmapKQ(bitmap), 0);
}

TEST_F(Pcbitmap, DrawPutsPixelsOnTheScreenAtTheOrigin) {
    for (bool section : {false, true}) {
        pal::ClearNullScreen();
        Held bitmap(section ? AllocDDBitmapKQ(3, 2, 24) : AllocNativeBitmapKQ(3, 2, 24));
        FillBitmapKQ(bitmap, 0x102030);
        KQRGB corner{0xFFFF, 0, 0, 0};
        WritePixelKQ(bitmap, 0, 0, &corner);
        KQDrawInfo draw = ScreenDraw(100, 50);
        DrawBitmapKQ(&draw, bitmap, 7, 9);
        EndDraw(draw);
        EXPECT_EQ(pal::NullScreenPixel(107, 59), 0xFF0000u);
        EXPECT_EQ(pal::NullScreenPixel(109, 60), 0x102030u);
        EXPECT_EQ(pal::NullScreenPixel(110, 60), 0u);
        EXPECT_EQ(pal::NullScreenPixel(107, 58), 0u);
    }
}

TEST_F(Pcbitmap, DrawOfPlainPixelsGoesThroughTheDrawingService) {
    pal::DisplayTable table = RecordingTable();
    pal::SetDisplay(&table);
    Held bitmap(3, 2, 24);
    KQDrawInfo draw = ScreenDraw(10, 20);
    DrawBitmapKQ(&draw, bitmap, 1, 2);
    EndDraw(draw);
    EXPECT_EQ(seen.dibs, 1);
    EXPECT_EQ(seen.to, (pal::DrawPlace{11, 22, 3, 2}));
    EXPECT_EQ(seen.from, (pal::DrawPlace{0, 0, 3, 2}));
    EXPECT_EQ(seen.service, KQEnv->DrawDib);
}

TEST_F(Pcbitmap, DrawOf8BitsGoesToTheServiceWithItsHeader) {
    pal::DisplayTable table = RecordingTable();
    static u16 bits;
    table.drawDib = [](void*, void*, pal::DrawPlace, const pal::DibHeader* header, const void*, pal::DrawPlace) {
        bits = header->bitCount;
        return true;
    };
    pal::SetDisplay(&table);
    Held bitmap(3, 2, 8);
    KQDrawInfo draw = ScreenDraw();
    DrawBitmapKQ(&draw, bitmap, 0, 0);
    EndDraw(draw);
    EXPECT_EQ(bits, 8);
}

TEST_F(Pcbitmap, DrawOf8BitsWithoutAScreenDrawsNothing) {
    Held bitmap(3, 2, 8);
    FillBitmapKQ(bitmap, 0xFFFFFF);
    KQDrawInfo draw = ScreenDraw();
    DrawBitmapKQ(&draw, bitmap, 0, 0);
    StretchBitmapKQ(&draw, bitmap, 0, 0, 3, 2, 0, 0, 6, 4);
    EndDraw(draw);
    EXPECT_EQ(pal::NullScreenPixel(0, 0), 0u);
}

TEST_F(Pcbitmap, StretchDrawsEverySourcePixel) {
    for (bool section : {false, true}) {
        pal::ClearNullScreen();
        Held bitmap(section ? AllocDDBitmapKQ(2, 1, 24) : AllocNativeBitmapKQ(2, 1, 24));
        FillBitmapKQ(bitmap, 0x102030);
        KQRGB right{0, 0xFFFF, 0, 0};
        WritePixelKQ(bitmap, 1, 0, &right);
        KQDrawInfo draw = ScreenDraw();
        StretchBitmapKQ(&draw, bitmap, 0, 0, 2, 1, 10, 10, 4, 2);
        EndDraw(draw);
        EXPECT_EQ(pal::NullScreenPixel(11, 11), 0x102030u);
        EXPECT_EQ(pal::NullScreenPixel(12, 10), 0x00FF00u);
        EXPECT_EQ(pal::NullScreenPixel(14, 10), 0u);
    }
}

TEST_F(Pcbitmap, StretchFromANegativeSourceShortensIt) {
    pal::DisplayTable table = RecordingTable();
    pal::SetDisplay(&table);
    Held bitmap(30, 30, 24);
    KQDrawInfo draw = ScreenDraw();
    StretchBitmapKQ(&draw, bitmap, -5, -6, 20, 20, 1, 2, 40, 50);
    EndDraw(draw);
    EXPECT_EQ(seen.from, (pal::DrawPlace{0, 0, 15, 14}));
    EXPECT_EQ(seen.to, (pal::DrawPlace{1, 2, 40, 50}));
}

TEST_F(Pcbitmap, StretchToANegativeTargetShortensIt) {
    pal::DisplayTable table = RecordingTable();
    pal::SetDisplay(&table);
    Held bitmap(30, 30, 24);
    KQDrawInfo draw = ScreenDraw();
    StretchBitmapKQ(&draw, bitmap, 1, 2, 20, 20, -3, -4, 40, 50);
    EndDraw(draw);
    EXPECT_EQ(seen.from, (pal::DrawPlace{1, 2, 20, 20}));
    EXPECT_EQ(seen.to, (pal::DrawPlace{0, 0, 37, 46}));
}

TEST_F(Pcbitmap, StretchOfASizeOf0OrBelowDrawsNothing) {
    pal::DisplayTable table = RecordingTable();
    pal::SetDisplay(&table);
    Held bitmap(30, 30, 24);
    KQDrawInfo draw = ScreenDraw();
    StretchBitmapKQ(&draw, bitmap, -5, 0, 5, 20, 0, 0, 40, 50);
    StretchBitmapKQ(&draw, bitmap, 0, -25, 5, 20, 0, 0, 40, 50);
    StretchBitmapKQ(&draw, bitmap, 0, 0, 5, 20, -40, 0, 40, 50);
    StretchBitmapKQ(&draw, bitmap, 0, 0, 5, 20, 0, 0, 40, -50);
    StretchBitmapKQ(&draw, bitmap, kLeast, kLeast, kLeast, kLeast, kLeast, kLeast, kLeast, kLeast);
    EndDraw(draw);
    EXPECT_EQ(seen.dibs, 0);
}

TEST_F(Pcbitmap, StretchOfASectionIsNotClipped) {
    pal::DisplayTable table = RecordingTable();
    pal::SetDisplay(&table);
    Held bitmap(AllocDDBitmapKQ(30, 30, 24));
    KQDrawInfo draw = ScreenDraw(5, 5);
    StretchBitmapKQ(&draw, bitmap, -5, 0, 20, 20, -10, 2, 40, 50);
    EndDraw(draw);
    EXPECT_EQ(seen.stretches, 1);
    EXPECT_EQ(seen.from, (pal::DrawPlace{-5, 0, 20, 20}));
    EXPECT_EQ(seen.to, (pal::DrawPlace{-5, 7, 40, 50}));
}

TEST_F(Pcbitmap, ImageOfAnUnknownIdIsNull) { EXPECT_EQ(GetImageKQ(1), nullptr); }

// An image resource of 2 x 1 pixels of 24 bits, blue and red, with id 5.
void* LoadTwoPixels(i32 id, i32* width, i32* height) {
    if (id != 5) return nullptr;
    pal::DibHeader header{40, 2, 1, 1, 24, 0, 8, 0, 0, 0, 0};
    void* pixels = nullptr;
    void* image = pal::MakeSection(nullptr, &header, &pixels);
    u8 bytes[] = {255, 0, 0, 0, 0, 255};
    std::memcpy(pixels, bytes, 6);
    *width = 2;
    *height = 1;
    return image;
}

TEST_F(Pcbitmap, ImageIsDrawnIntoABitmapOfItsSize) {
    pal::DisplayTable table = pal::nullDisplay;
    table.loadImage = LoadTwoPixels;
    pal::SetDisplay(&table);
    KQNativeBitmap* bitmap = GetImageKQ(5);
    ASSERT_NE(bitmap, nullptr);
    EXPECT_EQ(bitmap->width, 2);
    EXPECT_EQ(bitmap->height, 1);
    EXPECT_EQ(Pixel(bitmap->data, 6), (Four{255, 0, 0, 0, 0, 255}));
    FreeBitmapKQ(bitmap);
    kqtest::FailEveryAllocation([] { FreeBitmapKQ(GetImageKQ(5)); });
}

// --- the palette

std::vector<pal::PaletteEntry> BuildPalette(i32 staticColours) {
    pal::PaletteEntry system[256];
    for (int i = 0; i < 256; ++i) system[i] = {u8(i), 1, 2, 0};
    std::vector<pal::PaletteEntry> entries(256);
    kq::BuildDisplayPalette(system, staticColours, *KQEnv->GUI, entries.data());
    return entries;
}

Four Entry(const pal::PaletteEntry& entry) { return {entry.red, entry.green, entry.blue, entry.flags}; }

TEST_F(Pcbitmap, PaletteKeepsTheSystemsColoursAtBothEnds) {
    auto entries = BuildPalette(20);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Entry(entries[size_t(i)]), (Four{u8(i), 1, 2, 0}));
    for (int i = 246; i < 256; ++i) EXPECT_EQ(Entry(entries[size_t(i)]), (Four{u8(i), 1, 2, 0}));
}

TEST_F(Pcbitmap, PaletteHoldsTheInterfaceColoursBehindThem) {
    auto entries = BuildPalette(20);
    const KQGUIInfo& gui = *KQEnv->GUI;
    u32 colours[] = {gui.ColorHighlight, gui.ColorShadow, gui.ColorSelected, gui.ColorBackground,
                     gui.ColorPanel,     gui.ColorText,   gui.ColorTabStrip, gui.ColorWhite};
    for (size_t i = 0; i < 8; ++i)
        EXPECT_EQ(Entry(entries[10 + i]), (Four{u8(colours[i] >> 16), u8(colours[i] >> 8), u8(colours[i]), 4}));
}

TEST_F(Pcbitmap, PaletteHoldsACubeOf216WithBlueInnermost) {
    auto entries = BuildPalette(20);
    EXPECT_EQ(Entry(entries[18]), (Four{0, 0, 0, 4}));
    EXPECT_EQ(Entry(entries[19]), (Four{0, 0, 51, 4}));
    EXPECT_EQ(Entry(entries[24]), (Four{0, 51, 0, 4}));
    EXPECT_EQ(Entry(entries[54]), (Four{51, 0, 0, 4}));
    EXPECT_EQ(Entry(entries[233]), (Four{255, 255, 255, 4}));
}

TEST_F(Pcbitmap, PaletteCubeHoldsEveryColourOfItsSteps) {
    auto entries = BuildPalette(20);
    for (size_t index = 0; index < 216; ++index) {
        u8 red = u8(index / 36 * 51), green = u8(index / 6 % 6 * 51), blue = u8(index % 6 * 51);
        EXPECT_EQ(Entry(entries[18 + index]), (Four{red, green, blue, pal::kNoCollapse})) << index;
    }
}

TEST_F(Pcbitmap, PalettePlacesBehindTheCubeHoldColoursOfTheirOwn) {
    auto entries = BuildPalette(20);
    for (int i = 234; i < 246; ++i) EXPECT_EQ(Entry(entries[size_t(i)]), (Four{u8(256 - i), 0, 0, 4}));
}

TEST_F(Pcbitmap, PaletteOfManyStaticColoursCutsTheCube) {
    for (i32 count : {100, 256, 1000, -4, 0}) {
        auto entries = BuildPalette(count);
        EXPECT_EQ(entries.size(), 256u);
        if (count >= 256) {
            EXPECT_EQ(Entry(entries[200]), (Four{200, 1, 2, 0}));
        }
    }
}

TEST_F(Pcbitmap, PaletteIsMadeAtStartOnAPaletteDisplay) {
    CleanUpKQ();
    static int live, given;
    live = given = 0;
    pal::DisplayTable table = FormatTable({800, 600, 8, true, 20});
    table.systemPalette = [](void*, pal::PaletteEntry entries[256]) { std::memset(entries, 0, 1024); };
    table.createPalette = [](const pal::PaletteEntry entries[256]) -> void* {
        live += entries[233].red == 255;
        return &live;
    };
    table.deletePalette = [](void*) { --live; };
    table.setDibPalette = [](void*, void*) { return ++given == 0; };
    pal::SetDisplay(&table);
    debugLines.clear();
    SetDebugSinkKQ(RecordDebug);
    kqtest::InitWithoutWindow();
    SetDebugSinkKQ(nullptr);
    EXPECT_NE(KQEnv->DisplayPalette, nullptr);
    EXPECT_EQ(live, 1);
    EXPECT_EQ(given, 1);
    EXPECT_EQ(debugLines, (std::vector<std::string>{"DrawDibSetPalette: Failed."}));
    CleanUpKQ();
    EXPECT_EQ(live, 0);
    pal::SetDisplay(nullptr);
    kqtest::InitWithoutWindow();
    EXPECT_EQ(KQEnv->DisplayPalette, nullptr);
}

}   // namespace
