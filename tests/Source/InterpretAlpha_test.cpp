#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "Source/AlphaRows.h"
#include "Source/Frames.h"
#include "Source/Simd.h"
#include "kq/nativebitmap.h"
#include "support/FrameModule.h"

namespace {

// Runs `body` at every width that this machine has.
template <class Body>
void AtEveryWidth(Body body) {
    for (int width = 0; width <= int(kq::BestSimd()); ++width) {
        kq::SimdInUse() = kq::Simd(width);
        SCOPED_TRACE(testing::Message() << "vector width " << width);
        body();
    }
    kq::SimdInUse() = kq::BestSimd();
}

// The clip's fields that decide on alpha.
struct Alpha {
    i32 mode, invert, premultiplied;
    KQFloatRGB matte = {0.0, 0.0, 0.0, 0.0};
    u32 background = 0xFF102030;
};

struct Argb {
    int a, r, g, b;
    explicit Argb(u32 packed) : a(packed >> 24), r(packed >> 16 & 255), g(packed >> 8 & 255), b(packed & 255) {}
    Argb(int alpha, int red, int green, int blue) : a(alpha), r(red), g(green), b(blue) {}
    u32 Packed() const { return u32(a) << 24 | u32(r) << 16 | u32(g) << 8 | u32(b); }
};

int Cut(double value) { return int(value); }

// The plain form, a pixel as packed colour.
u32 PlainRead(u32 pixel, const Alpha& alpha) {
    Argb p(pixel), background(alpha.background);
    if (alpha.mode == 0) return Argb(255, p.r, p.g, p.b).Packed();
    if (alpha.mode == 1) return Argb((p.r + p.g + p.b) / 3, background.r, background.g, background.b).Packed();
    if (alpha.mode != 2) return pixel;
    int a = alpha.invert > 0 ? 255 - p.a : p.a;
    if (!alpha.premultiplied || a == 0) return Argb(a, p.r, p.g, p.b).Packed();
    auto undo = [a](int c, double matte) {
        int value = (c * 255 - (255 - a) * Cut(matte * 255.0)) / a;
        return value < 0 ? 0 : value > 255 ? 255 : value;
    };
    return Argb(a, undo(p.r, alpha.matte.red), undo(p.g, alpha.matte.green), undo(p.b, alpha.matte.blue)).Packed();
}

u32 PlainWrite(u32 pixel, const Alpha& alpha) {
    Argb p(pixel);
    int x = alpha.invert > 0 ? 255 : 0;
    if (alpha.mode == 1) return Argb(255, p.a ^ x, p.a ^ x, p.a ^ x).Packed();
    int a = p.a ^ x;
    if (alpha.mode == 0) a = 0 ^ (x ^ 255);
    if (!alpha.premultiplied) return Argb(a, p.r, p.g, p.b).Packed();
    auto mix = [&p](int c, double matte) { return ((255 - p.a) * Cut(matte * 255.0) + c * p.a) / 255 & 255; };
    return Argb(a, mix(p.r, alpha.matte.red), mix(p.g, alpha.matte.green), mix(p.b, alpha.matte.blue)).Packed();
}

class InterpretAlpha : public kqtest::FrameTest {
protected:
    void SetUp() override {
        FrameTest::SetUp();
        random.seed(seed);
    }

    static void Set(KQClip* clip, const Alpha& alpha) {
        clip->alphaMode = alpha.mode;
        clip->alphaInvert = alpha.invert;
        clip->alphaPremultiplied = alpha.premultiplied;
        clip->matteColor = alpha.matte;
        clip->backgroundColor = alpha.background;
    }

    void FillRandom(KQBitmap* bitmap) {
        for (i32 i = 0; i < bitmap->dataSize; ++i) {
            u32 r = random();
            bitmap->data[i] = r & 0x700 ? u8(r) : r & 1 ? 255 : 0;
        }
    }

    // All kinds of alpha, with matte colours in and out of their range.
    std::vector<Alpha> Kinds() {
        std::vector<Alpha> kinds;
        for (i32 mode : {0, 1, 2, 3})
            for (i32 invert : {0, 1, -1})
                for (i32 premultiplied : {0, 1}) {
                    kinds.push_back({mode, invert, premultiplied});
                    kinds.push_back({mode, invert, premultiplied, {1.0, 1.0, 1.0, 0.0}});
                    auto part = [this] { return f64(random() % 1001) / 1000.0; };
                    kinds.push_back({mode, invert, premultiplied, {part(), part(), part(), 0.0}, u32(random())});
                    kinds.push_back({mode, invert, premultiplied, {-0.5, 1.75, 40.0, 0.0}});
                }
        return kinds;
    }

    u32 seed = std::random_device{}();
    std::mt19937 random;
};

TEST_F(InterpretAlpha, ReadingIsThePlainFormForEveryKind) {
    module.width = 71;
    module.height = 5;
    std::vector<u8> frame;
    module.paint = [&frame](i32, KQBitmap* target) { std::copy(frame.begin(), frame.end(), target->data); };
    KQClip* clip = MakeClip();
    KQBitmap* bitmap = MakeBitmap(71, 5);
    KQBitmap* stored = MakeBitmap(71, 5);
    AtEveryWidth([&] {
        for (const Alpha& alpha : Kinds()) {
            FillRandom(stored);
            frame = Bytes(stored);
            Set(clip, alpha);
            ASSERT_EQ(Get(clip, bitmap, 0), 1);
            for (i32 y = 0; y < 5; ++y)
                for (i32 x = 0; x < 71; ++x)
                    ASSERT_EQ(Pixel(bitmap, x, y), PlainRead(Pixel(stored, x, y), alpha))
                        << "seed " << seed << std::hex << " pixel " << Pixel(stored, x, y) << " mode " << alpha.mode
                        << " invert " << alpha.invert << " matted " << alpha.premultiplied;
        }
    });
}

TEST_F(InterpretAlpha, ReadingTouchesOnlyWhatTheFrameCovers) {
    module.properties |= KQFORMAT_SCALES;
    module.paint = [](i32, KQBitmap* target) { FillBitmapKQ(target, 0x00FFFFFF); };
    KQClip* clip = MakeClip();
    clip->alphaMode = 0;
    KQBitmap* bitmap = MakeBitmap(12, 12);
    KQRectT<long> rect = {-2, -3, 0, 0};
    KQTimeValue time = At(clip, 0);
    GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 8, KQTAG_FRAME_HEIGHT, 6, 0);
    for (i32 y = 0; y < 12; ++y)
        for (i32 x = 0; x < 12; ++x) {
            bool inside = x >= 2 && x < 10 && y >= 3 && y < 9;
            ASSERT_EQ(Pixel(bitmap, x, y), inside ? 0xFFFFFFFFu : 0u) << x << " " << y;
        }
}

// Every colour against every matte and alpha: 16.7 million quotients, at each width.
TEST_F(InterpretAlpha, UnmattingIsExactForEveryColourMatteAndAlpha) {
    AtEveryWidth([] {
        for (i32 m = 0; m < 256; ++m)
            for (u32 a = 0; a < 256; ++a) {
                u32 row[86];
                for (u32 i = 0; i < 86; ++i) {
                    u32 c = i * 3;
                    row[i] = a | c << 8 | ((c + 1) & 255) << 16 | ((c + 2) & 255) << 24;
                }
                kq::UnmatteRow(row, 86, 0, {m, m, m});
                for (u32 i = 0; i < 256; ++i) {
                    i32 value = a ? (i32(i) * 255 - (255 - i32(a)) * m) / i32(a) : i32(i);
                    u32 expected = u32(value < 0 ? 0 : value > 255 ? 255 : value);
                    ASSERT_EQ(row[i / 3] >> (8 + i % 3 * 8) & 255, expected) << m << " " << a << " " << i;
                }
            }
    });
}

TEST_F(InterpretAlpha, MattingIsExactForEveryColourMatteAndAlpha) {
    AtEveryWidth([] {
        for (i32 m = 0; m < 256; ++m)
            for (u32 s = 0; s < 256; ++s) {
                u32 row[86], out[86];
                for (u32 i = 0; i < 86; ++i) {
                    u32 c = i * 3;
                    row[i] = s | c << 8 | ((c + 1) & 255) << 16 | ((c + 2) & 255) << 24;
                }
                kq::MatteRow(out, row, 86, 255, 0, {m, m, m});
                for (u32 i = 0; i < 256; ++i)
                    ASSERT_EQ(out[i / 3] >> (8 + i % 3 * 8) & 255, ((255 - s) * u32(m) + i * s) / 255)
                        << m << " " << s << " " << i;
            }
    });
}

TEST_F(InterpretAlpha, MatteAgainstWhiteIsUndone) {
    module.paint = [](i32, KQBitmap* target) { FillBitmapKQ(target, 0x80FF7F7F); };
    KQClip* clip = MakeClip();
    Set(clip, {2, 0, 1, {1.0, 1.0, 1.0, 0.0}});
    KQBitmap* bitmap = MakeBitmap(8, 6);
    Get(clip, bitmap, 0);
    EXPECT_EQ(Pixel(bitmap, 0, 0), 0x80FF0000u);
}

TEST_F(InterpretAlpha, WritingIsThePlainFormForEveryKind) {
    KQClip* clip = MakeClip();
    AtEveryWidth([&] {
        for (const Alpha& alpha : Kinds()) {
            i32 width = i32(random() % 90) + 1, height = i32(random() % 4) + 1;
            KQBitmap* source = AllocBitmapKQ(width, height, 32);
            KQBitmap* target = AllocBitmapKQ(width, height, 32);
            FillRandom(source);
            Set(clip, alpha);
            ASSERT_EQ(Interpret_Alpha(clip, source, target, nullptr), 1);
            for (i32 y = 0; y < height; ++y)
                for (i32 x = 0; x < width; ++x)
                    ASSERT_EQ(Pixel(target, x, y), PlainWrite(Pixel(source, x, y), alpha))
                        << "seed " << seed << std::hex << " pixel " << Pixel(source, x, y) << " mode " << alpha.mode
                        << " invert " << alpha.invert << " matted " << alpha.premultiplied;
            std::vector<u8> apart = Bytes(target);
            Interpret_Alpha(clip, source, source, nullptr);
            ASSERT_EQ(Bytes(source), apart) << "in place";
            FreeBitmapKQ(source);
            FreeBitmapKQ(target);
        }
    });
}

TEST_F(InterpretAlpha, WritingWithoutAlphaGivesOpaqueAndInvertedTransparent) {
    KQClip* clip = MakeClip();
    KQBitmap* source = MakeBitmap(3, 3, 0x40102030);
    KQBitmap* target = MakeBitmap(3, 3);
    Set(clip, {0, 0, 0});
    Interpret_Alpha(clip, source, target, nullptr);
    EXPECT_EQ(Pixel(target, 2, 2), 0xFF102030u);
    Set(clip, {0, 1, 0});
    Interpret_Alpha(clip, source, target, nullptr);
    EXPECT_EQ(Pixel(target, 2, 2), 0x00102030u);
}

TEST_F(InterpretAlpha, WritingWithoutAlphaStillMattesByTheTrueAlpha) {
    KQClip* clip = MakeClip();
    KQBitmap* source = MakeBitmap(3, 3, 0x40808080);
    KQBitmap* target = MakeBitmap(3, 3);
    Set(clip, {0, 0, 1});
    Interpret_Alpha(clip, source, target, nullptr);
    EXPECT_EQ(Pixel(target, 1, 1), 0xFF202020u);
}

TEST_F(InterpretAlpha, WritingDoesTheWholeBitmapWhateverTheRectangle) {
    KQClip* clip = MakeClip();
    KQBitmap* source = MakeBitmap(3, 3, 0x40102030);
    KQBitmap* target = MakeBitmap(3, 3);
    Set(clip, {0, 0, 0});
    KQRectT<long> rect = {1, 1, 1, 1};
    EXPECT_EQ(Interpret_Alpha(clip, source, target, &rect), 1);
    EXPECT_EQ(Pixel(target, 0, 0), 0xFF102030u);
    EXPECT_EQ(Pixel(target, 2, 2), 0xFF102030u);
}

TEST_F(InterpretAlpha, WritingAndReadingBackGivesThePictureWhereItIsOpaque) {
    module.width = 64;
    module.height = 4;
    KQClip* clip = MakeClip();
    KQBitmap* source = MakeBitmap(64, 4);
    FillRandom(source);
    FillAlphaKQ(source, 255);
    KQBitmap* written = MakeBitmap(64, 4);
    Set(clip, {2, 1, 1, {0.25, 0.5, 0.75, 0.0}});
    Interpret_Alpha(clip, source, written, nullptr);
    module.paint = [written](i32, KQBitmap* target) {
        std::copy(written->data, written->data + written->dataSize, target->data);
    };
    KQBitmap* read = MakeBitmap(64, 4);
    Get(clip, read, 0);
    EXPECT_EQ(Bytes(read), Bytes(source));
}

TEST_F(InterpretAlpha, NullsAndOtherDepthsAreRefused) {
    KQClip* clip = MakeClip();
    KQBitmap* bitmap = MakeBitmap(3, 3);
    KQBitmap* plane = AllocBitmapKQ(3, 3, 8);
    EXPECT_EQ(Interpret_Alpha(nullptr, bitmap, bitmap, nullptr), 0);
    EXPECT_EQ(Interpret_Alpha(clip, nullptr, bitmap, nullptr), 0);
    EXPECT_EQ(Interpret_Alpha(clip, bitmap, static_cast<KQBitmap*>(nullptr), nullptr), 0);
    EXPECT_EQ(Interpret_Alpha(clip, bitmap, plane, nullptr), 0);
    EXPECT_EQ(Interpret_Alpha(clip, plane, bitmap, nullptr), 0);
    FreeBitmapKQ(plane);
}

TEST_F(InterpretAlpha, WritingToADisplayFormatIsThePlainFormForEveryKind) {
    KQClip* clip = MakeClip();
    for (i32 depth : {16, 24, 32})
        for (const Alpha& alpha : Kinds()) {
            if (alpha.mode == 3) continue;
            i32 width = i32(random() % 600) + 1, height = 3;
            KQBitmap* source = AllocBitmapKQ(width, height, 32);
            KQNativeBitmap* target = AllocNativeBitmapKQ(width, height, depth);
            FillRandom(source);
            Set(clip, alpha);
            ASSERT_EQ(Interpret_Alpha(clip, source, target, nullptr), 1);
            for (i32 y = 0; y < height; ++y)
                for (i32 x = 0; x < width; ++x) {
                    Argb expected(PlainWrite(Pixel(source, x, y), alpha));
                    const u8* at =
                        target->data + target->firstRowOffset + y * target->rowBytes + x * target->pixelBytes;
                    if (depth == 16) {
                        ASSERT_EQ(at[0] | at[1] << 8, expected.r >> 3 << 10 | expected.g >> 3 << 5 | expected.b >> 3);
                        continue;
                    }
                    ASSERT_EQ(at[0], expected.b) << "seed " << seed;
                    ASSERT_EQ(at[1], expected.g) << "seed " << seed;
                    ASSERT_EQ(at[2], expected.r) << "seed " << seed;
                }
            FreeBitmapKQ(source);
            FreeBitmapKQ(target);
        }
}

TEST_F(InterpretAlpha, BigFramesOnAllProcessorsEqualThoseOnOne) {
    constexpr i32 kWidth = 1301, kHeight = 801;
    KQClip* clip = NewClipKQ();
    clip->alphaMode = 2;
    clip->alphaPremultiplied = 1;
    clip->matteColor = {0.2, 0.4, 0.6, 1.0};
    KQBitmap* source = AllocBitmapKQ(kWidth, kHeight, 32);
    KQBitmap* results[2] = {AllocBitmapKQ(kWidth, kHeight, 32), AllocBitmapKQ(kWidth, kHeight, 32)};
    for (i32 i = 0; i < source->dataSize; ++i) source->data[i] = u8(i * 31 + i / 977);
    auto same = [&](auto work) {
        for (i32 k : {0, 1}) {
            KQEnv->Processors = k == 0 ? 1 : 3;
            CopyBitmapKQ(source, results[k], 0, 0, -1, -1, 0, 0);
            work(results[k]);
        }
        EXPECT_EQ(std::memcmp(results[0]->data, results[1]->data, size_t(source->dataSize)), 0);
    };
    same([&](KQBitmap* target) { Interpret_Alpha(clip, source, target, nullptr); });
    same([&](KQBitmap* target) { kq::ReadAlpha(clip, target, {0, 0, kWidth, kHeight}); });
    same([&](KQBitmap* target) { kq::ReadAlpha(clip, target, {5, 3, kWidth - 4, kHeight}); });
    for (u32 flags : {kq::kKeepEvenRows, kq::kKeepOddRows})
        same([&](KQBitmap* target) { kq::FilterRows(target, flags); });
    FreeBitmapKQ(source);
    for (KQBitmap* bitmap : results) FreeBitmapKQ(bitmap);
    FreeClipKQ(clip);
}

TEST_F(InterpretAlpha, WritingToADisplayFormatLeavesItsFourthByte) {
    KQClip* clip = MakeClip();
    Set(clip, {1, 0, 0});
    KQBitmap* source = MakeBitmap(2, 2, 0x40102030);
    KQNativeBitmap* target = AllocNativeBitmapKQ(2, 2, 32);
    std::fill(target->data, target->data + target->dataSize, u8(0xEE));
    Interpret_Alpha(clip, source, target, nullptr);
    EXPECT_EQ(target->data[3], 0xEE);
    EXPECT_EQ(target->data[0], 0x40);
    FreeBitmapKQ(target);
}

TEST_F(InterpretAlpha, EveryAllocationOfWritingMayFail) {
    KQClip* clip = MakeClip();
    KQBitmap* source = MakeBitmap(300, 7, 0x40102030);
    KQBitmap* target = MakeBitmap(300, 7);
    KQNativeBitmap* natives[] = {AllocNativeBitmapKQ(300, 7, 16), AllocNativeBitmapKQ(300, 7, 24),
                                 AllocNativeBitmapKQ(300, 7, 32)};
    for (const Alpha& alpha : Kinds()) {
        Set(clip, alpha);
        kqtest::FailEveryAllocation([&] {
            Interpret_Alpha(clip, source, target, nullptr);
            for (KQNativeBitmap* native : natives) Interpret_Alpha(clip, source, native, nullptr);
        });
    }
    for (KQNativeBitmap* native : natives) FreeBitmapKQ(native);
}

}   // namespace
