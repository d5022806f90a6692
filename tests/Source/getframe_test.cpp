#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "Source/Frames.h"
#include "support/FrameModule.h"

namespace {

using kqtest::theModule;

constexpr u32 kBackground = 0xFF123456;

// Frames whose every pixel tells its frame, row and column: alpha 255, red the frame, green the row, blue the column.
void PaintPlaces(i32 frame, KQBitmap* target) {
    for (i32 y = 0; y < target->height; ++y)
        for (i32 x = 0; x < target->width; ++x) {
            u8* at = target->data + i64(y) * target->rowBytes + x * 4;
            at[0] = 255;
            at[1] = u8(frame);
            at[2] = u8(y);
            at[3] = u8(x);
        }
}

u32 Place(i32 frame, i32 y, i32 x) { return 0xFF000000u | u32(frame) << 16 | u32(y) << 8 | u32(x); }

class getframe : public kqtest::FrameTest {
protected:
    void SetUp() override {
        FrameTest::SetUp();
        module.paint = PaintPlaces;
    }

    KQClip* Clip() {
        KQClip* clip = MakeClip();
        clip->backgroundColor = kBackground;
        return clip;
    }

    static bool AllAre(const KQBitmap* bitmap, u32 colour) {
        for (i32 y = 0; y < bitmap->height; ++y)
            for (i32 x = 0; x < bitmap->width; ++x)
                if (Pixel(bitmap, x, y) != colour) return false;
        return true;
    }

    static int GetAt(KQClip* clip, KQBitmap* bitmap, KQTimeValue time, KQTimeValue duration) {
        return GetFrameKQ(clip, bitmap, &time, &duration, static_cast<TagItem*>(nullptr));
    }
};

TEST_F(getframe, TruncationOfTimesIsDefinedForEveryDouble) {
    EXPECT_EQ(kq::TruncateToI32(2.9), 2);
    EXPECT_EQ(kq::TruncateToI32(-2.9), -2);
    EXPECT_EQ(kq::TruncateToI32(1e300), 2147483647);
    EXPECT_EQ(kq::TruncateToI32(-1e300), -2147483647 - 1);
    EXPECT_EQ(kq::TruncateToI32(NAN), -2147483647 - 1);
    EXPECT_EQ(kq::TruncateToI32(2147483646.5), 2147483646);
    EXPECT_EQ(kq::TruncateToI32(-2147483647.5), -2147483647);
}

TEST_F(getframe, GivesZeroForNullClipAndWithoutBegin) {
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(GetFrameKQ(nullptr, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    KQClip* clip = MakeClip(false);
    EXPECT_EQ(Get(clip, bitmap, 0), 0);
    EXPECT_TRUE(module.calls.empty());
}

TEST_F(getframe, EveryFrameTimeLandsOnItsFrame) {
    module.frames = 2000;
    KQClip* clip = Clip();
    for (f64 rate : {23.976, 24.0, 25.0, 29.97, 30000.0 / 1001.0, 59.94}) {
        clip->frameRate = rate;
        for (i32 n = 0; n < 2000; ++n) {
            KQTimeValue time = {f64(n), rate};
            ASSERT_EQ(kq::FrameAt(clip, &time), n) << rate;
        }
    }
}

TEST_F(getframe, NullTimeIsFrameZero) {
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 1);
    EXPECT_EQ(Pixel(bitmap, 3, 2), Place(0, 2, 3));
}

TEST_F(getframe, StartTimeShiftsFrames) {
    KQClip* clip = Clip();
    clip->startTime = {2.0, 30.0};
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 5), 1);
    EXPECT_EQ(Pixel(bitmap, 0, 0), Place(3, 0, 0));
}

TEST_F(getframe, TimeBeforeTheStartReadsAsBackground) {
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, -2), 1);
    EXPECT_TRUE(AllAre(bitmap, kBackground));
    EXPECT_TRUE(module.calls.empty());
}

TEST_F(getframe, TimeOneFrameBeforeTheStartTruncatesToFrameZero) {
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, -1), 1);
    EXPECT_EQ(Pixel(bitmap, 0, 0), Place(0, 0, 0));
}

TEST_F(getframe, TimePastTheEndReadsAsBackground) {
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    for (f64 frame : {10.0, 1e9, 1e300, -1e300, f64(NAN)}) {
        EXPECT_EQ(Get(clip, bitmap, frame), 1);
        EXPECT_TRUE(AllAre(bitmap, kBackground)) << frame;
    }
    EXPECT_TRUE(module.calls.empty());
}

TEST_F(getframe, OwnSizeGoesStraightIntoTheCallersBitmap) {
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    u32 allocations = KQEnv->AllocCount;
    EXPECT_EQ(Get(clip, bitmap, 4), 1);
    EXPECT_EQ(KQEnv->AllocCount, allocations);
    for (i32 y = 0; y < 6; ++y)
        for (i32 x = 0; x < 8; ++x) ASSERT_EQ(Pixel(bitmap, x, y), Place(4, y, x));
}

TEST_F(getframe, ModuleGetsTrackAndWholeRectangle) {
    KQClip* clip = Clip();
    clip->track = 3;
    Get(clip, MakeBitmap(8, 6), 4);
    ASSERT_EQ(module.calls.size(), 1u);
    const kqtest::FrameCall& call = module.calls[0];
    EXPECT_EQ(call.track, 3);
    EXPECT_EQ(call.frame, 4);
    EXPECT_EQ(call.width, 8);
    EXPECT_EQ(call.height, 6);
    EXPECT_EQ(call.rect.x, 0);
    EXPECT_EQ(call.rect.y, 0);
}

TEST_F(getframe, OtherSizeIsPointScaled) {
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(4, 12);
    EXPECT_EQ(Get(clip, bitmap, 4), 1);
    for (i32 y = 0; y < 12; ++y)
        for (i32 x = 0; x < 4; ++x) ASSERT_EQ(Pixel(bitmap, x, y), Place(4, y / 2, x * 2));
    EXPECT_EQ(module.calls[0].bitmapWidth, 8);
}

TEST_F(getframe, ModuleThatScalesGetsTheCallersBitmap) {
    module.properties |= KQFORMAT_SCALES;
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(4, 12);
    KQRectT<long> rect = {1, 2, 0, 0};
    KQTimeValue time = At(clip, 4);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 20,
                         KQTAG_FRAME_HEIGHT, 30, 0),
              1);
    ASSERT_EQ(module.calls.size(), 1u);
    const kqtest::FrameCall& call = module.calls[0];
    EXPECT_EQ(call.bitmapWidth, 4);
    EXPECT_EQ(call.rect.x, 1);
    EXPECT_EQ(call.rect.y, 2);
    EXPECT_EQ(call.width, 20);
    EXPECT_EQ(call.height, 30);
}

TEST_F(getframe, RectPutsItsPointOnTheCorner) {
    module.width = module.height = 40;
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(16, 16);
    KQRectT<long> rect = {10, 10, 0, 0};
    KQTimeValue time = At(clip, 2);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 40,
                         KQTAG_FRAME_HEIGHT, 40, 0),
              1);
    for (i32 y = 0; y < 16; ++y)
        for (i32 x = 0; x < 16; ++x) ASSERT_EQ(Pixel(bitmap, x, y), Place(2, y + 10, x + 10));
}

TEST_F(getframe, NegativeRectLeavesATransparentMargin) {
    module.width = module.height = 20;
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(40, 40, 0xFFFFFFFF);
    KQRectT<long> rect = {-10, -10, 0, 0};
    KQTimeValue time = At(clip, 2);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 20,
                         KQTAG_FRAME_HEIGHT, 20, 0),
              1);
    for (i32 y = 0; y < 40; ++y)
        for (i32 x = 0; x < 40; ++x) {
            bool inside = x >= 10 && x < 30 && y >= 10 && y < 30;
            ASSERT_EQ(Pixel(bitmap, x, y), inside ? Place(2, y - 10, x - 10) : 0u);
        }
}

TEST_F(getframe, FrameOffTheBitmapReadsAsBackground) {
    KQClip* clip = Clip();
    KQTimeValue time = At(clip, 2);
    for (KQRectT<long> rect : {KQRectT<long>{8, 0, 0, 0}, {0, 6, 0, 0}, {-8, 0, 0, 0}, {0, -6, 0, 0}}) {
        KQBitmap* bitmap = MakeBitmap(8, 6);
        EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, 0), 1);
        EXPECT_TRUE(AllAre(bitmap, kBackground));
    }
    EXPECT_TRUE(module.calls.empty());
}

TEST_F(getframe, LastVisibleColumnIsNoBackground) {
    KQClip* clip = Clip();
    KQTimeValue time = At(clip, 2);
    KQRectT<long> rect = {7, 5, 0, 0};
    KQBitmap* bitmap = MakeBitmap(8, 6, 0xFFFFFFFF);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, 0), 1);
    EXPECT_EQ(Pixel(bitmap, 0, 0), Place(2, 5, 7));
    EXPECT_EQ(Pixel(bitmap, 1, 0), 0u);
    EXPECT_EQ(Pixel(bitmap, 0, 1), 0u);
}

TEST_F(getframe, RenderSizeOfZeroBesideTheBitmapClearsAll) {
    KQClip* clip = Clip();
    KQTimeValue time = At(clip, 2);
    KQRectT<long> rect = {-2, -2, 0, 0};
    KQBitmap* bitmap = MakeBitmap(8, 6, 0xFFFFFFFF);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 0,
                         KQTAG_FRAME_HEIGHT, 0, 0),
              1);
    EXPECT_TRUE(AllAre(bitmap, 0));
}

TEST_F(getframe, HugeRectanglesAreHarmless) {
    KQClip* clip = Clip();
    KQTimeValue time = At(clip, 2);
    constexpr long most = std::numeric_limits<long>::max(), least = std::numeric_limits<long>::min();
    for (KQRectT<long> rect : {KQRectT<long>{most, most, 0, 0}, {least, least, 0, 0}, {0, most, 0, 0}}) {
        KQBitmap* bitmap = MakeBitmap(8, 6);
        EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 0x7FFFFFFF,
                             KQTAG_FRAME_HEIGHT, 0x7FFFFFFF, 0),
                  1);
    }
}

TEST_F(getframe, FailureOfTheModuleFillsAndSetsItsCode) {
    module.frameFails = true;
    KQClip* clip = Clip();
    for (i32 width : {8, 5}) {
        KQBitmap* bitmap = MakeBitmap(width, 6);
        KQEnv->Error = 0;
        EXPECT_EQ(Get(clip, bitmap, 2), 0);
        EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
        EXPECT_TRUE(AllAre(bitmap, kBackground));
    }
    module.frameFails = false;
    EXPECT_EQ(Get(clip, MakeBitmap(8, 6), 2), 1) << "the clip stays usable";
}

TEST_F(getframe, MissingSlotIsAFailureOfTheModule) {
    KQClip* clip = Clip();
    desc.GetFrame = nullptr;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 2), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_TRUE(AllAre(bitmap, kBackground));
}

TEST_F(getframe, ClipWithoutModuleFillsAndFailsWithoutCode) {
    KQClip* clip = Clip();
    clip->format = nullptr;
    KQEnv->Error = 0;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 2), 0);
    EXPECT_EQ(GetErrorKQ(), 0u);
    EXPECT_TRUE(AllAre(bitmap, kBackground));
    clip->format = &desc;
}

// Sequences.

TEST_F(getframe, SequenceFramePutsItsFileInTheClipForTheCall) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    for (const char* name : {"shot08.tst", "shot09.tst", "shot10.tst"}) kqtest::WriteWholeFile(Folder() + name, "x");
    KQClip* clip = Clip();
    std::string spec = Folder() + "shot[##].tst";
    clip->fileSpec = CopyFileSpecKQ(spec.c_str());
    clip->sourceFrames = clip->frameCount = 3;
    clip->frameNumbers = static_cast<i32*>(AllocMemoryKQ(3 * sizeof(i32), 0));
    for (i32 i = 0; i < 3; ++i) clip->frameNumbers[i] = 8 + i;
    char* kept = clip->fileSpec;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 1), 1);
    ASSERT_EQ(module.calls.size(), 1u);
    EXPECT_EQ(module.calls[0].fileSpec, Folder() + "shot09.tst");
    EXPECT_EQ(module.calls[0].frame, 0);
    EXPECT_EQ(clip->fileSpec, kept);
    module.frameFails = true;
    EXPECT_EQ(Get(clip, bitmap, 1), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_EQ(clip->fileSpec, kept);
}

TEST_F(getframe, MissingSequenceFileFillsAndFailsWithoutTheModule) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    KQClip* clip = Clip();
    clip->fileSpec = CopyFileSpecKQ((Folder() + "shot[##].tst").c_str());
    char* kept = clip->fileSpec;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 1), 0);
    EXPECT_TRUE(AllAre(bitmap, kBackground));
    EXPECT_TRUE(module.calls.empty());
    EXPECT_EQ(clip->fileSpec, kept);
}

TEST_F(getframe, SequenceWithoutASpecificationOrPastItsTableFails) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    KQClip* clip = Clip();
    EXPECT_EQ(Get(clip, MakeBitmap(8, 6), 1), 0);
    EXPECT_TRUE(module.calls.empty());
}

// Fields.

TEST_F(getframe, FieldClipGivesWholeFramesAtTheDefaultDuration) {
    KQClip* clip = Clip();
    clip->fieldOrder = 1;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 3), 1);
    for (i32 y = 0; y < 6; ++y) EXPECT_EQ(Pixel(bitmap, 0, y), Place(3, y, 0));
}

// Rows of 0, 10, 30, 60, 100, ... in every byte but alpha.
void PaintRows(i32, KQBitmap* target) {
    for (i32 y = 0; y < target->height; ++y)
        for (i32 x = 0; x < target->width * 4; ++x) target->data[y * target->rowBytes + x] = u8(y * (y + 1) * 5);
}

std::vector<int> Rows(const KQBitmap* bitmap) {
    std::vector<int> rows;
    for (i32 y = 0; y < bitmap->height; ++y) rows.push_back(bitmap->data[y * bitmap->rowBytes + 1]);
    return rows;
}

TEST_F(getframe, OneFieldKeepsEvenRowsOfFieldZeroAndOddRowsOfFieldOne) {
    module.paint = PaintRows;
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    clip->fieldOrder = 1;
    EXPECT_EQ(GetAt(clip, bitmap, {0, 60}, {1, 60}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{0, 15, 30, 65, 100, 100}));
    EXPECT_EQ(GetAt(clip, bitmap, {1, 60}, {1, 60}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{10, 10, 35, 60, 105, 150}));
    clip->fieldOrder = 2;
    EXPECT_EQ(GetAt(clip, bitmap, {0, 60}, {1, 60}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{10, 10, 35, 60, 105, 150}));
    EXPECT_EQ(GetAt(clip, bitmap, {1, 60}, {1, 60}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{0, 15, 30, 65, 100, 100}));
}

TEST_F(getframe, OddHeightEndsWithACopyWhereOddRowsAreKept) {
    module.paint = PaintRows;
    module.height = 5;
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 5);
    clip->fieldOrder = 1;
    EXPECT_EQ(GetAt(clip, bitmap, {0, 60}, {1, 60}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{0, 15, 30, 65, 100}));
    EXPECT_EQ(GetAt(clip, bitmap, {1, 60}, {1, 60}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{10, 10, 35, 60, 60}));
}

TEST_F(getframe, HeightOfOneIsLeftByEveryRowFilter) {
    KQBitmap* bitmap = MakeBitmap(3, 1, 0x12345678);
    for (u32 flag : {kq::kKeepEvenRows, kq::kKeepOddRows, kq::kSmooth}) {
        kq::FilterRows(bitmap, flag);
        EXPECT_TRUE(AllAre(bitmap, 0x12345678));
    }
}

TEST_F(getframe, HeightOfTwoIsDoubled) {
    KQBitmap* bitmap = MakeBitmap(3, 2);
    auto fill = [&] {
        for (i32 x = 0; x < 3; ++x) {
            SetPixel(bitmap, x, 0, 0x10101010);
            SetPixel(bitmap, x, 1, 0x40404040);
        }
    };
    fill();
    kq::FilterRows(bitmap, kq::kKeepEvenRows);
    EXPECT_TRUE(AllAre(bitmap, 0x10101010));
    fill();
    kq::FilterRows(bitmap, kq::kKeepOddRows);
    EXPECT_TRUE(AllAre(bitmap, 0x40404040));
    fill();
    kq::FilterRows(bitmap, kq::kSmooth);
    EXPECT_TRUE(AllAre(bitmap, 0x28282828));
}

TEST_F(getframe, DurationOfJustOverOneFieldGivesAWholeFrame) {
    module.paint = PaintRows;
    KQClip* clip = Clip();
    clip->frameRate = 25.0;
    clip->fieldOrder = 1;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(GetAt(clip, bitmap, {0, 25}, {1.02, 50.0}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{0, 10, 30, 60, 100, 150}));
    EXPECT_EQ(GetAt(clip, bitmap, {0, 25}, {1.0199, 50.0}), 1);
    EXPECT_EQ(Rows(bitmap), (std::vector<int>{0, 15, 30, 65, 100, 100}));
}

TEST_F(getframe, FieldInterpolationTakesAlphaAlong) {
    module.paint = [](i32, KQBitmap* target) { PaintRows(0, target); };
    KQClip* clip = Clip();
    clip->fieldOrder = 1;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    GetAt(clip, bitmap, {0, 60}, {1, 60});
    EXPECT_EQ(Pixel(bitmap, 0, 1), 0x0F0F0F0Fu);
}

// Pull-down.

TEST_F(getframe, PullDownPhaseOneWalksTheCadence) {
    KQClip* clip = Clip();
    clip->pullDown = 1;
    clip->fieldOrder = 1;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    for (i32 frame : {0, 1, 2}) {
        Get(clip, bitmap, frame);
        EXPECT_EQ(Pixel(bitmap, 0, 0), Place(frame, 0, 0));
    }
    EXPECT_EQ(Get(clip, bitmap, 3), 1);
    for (i32 y = 0; y < 6; ++y) EXPECT_EQ(Pixel(bitmap, 0, y), Place(y & 1 ? 3 : 4, y, 0));
    Get(clip, bitmap, 4);
    EXPECT_EQ(Pixel(bitmap, 0, 0), Place(5, 0, 0));
}

TEST_F(getframe, PullDownWeavesFromTheOtherRowsInTheOtherDominance) {
    KQClip* clip = Clip();
    clip->pullDown = 1;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    for (i32 order : {0, 2}) {
        clip->fieldOrder = order;
        EXPECT_EQ(Get(clip, bitmap, 3), 1);
        for (i32 y = 0; y < 6; ++y) EXPECT_EQ(Pixel(bitmap, 0, y), Place(y & 1 ? 4 : 3, y, 0));
    }
}

TEST_F(getframe, PullDownWovenFrameSucceedsThoughAFetchFails) {
    KQClip* clip = Clip();
    clip->pullDown = 1;
    module.failFrame = 3;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    EXPECT_EQ(Get(clip, bitmap, 3), 1);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    EXPECT_EQ(Pixel(bitmap, 0, 0), kBackground);
    EXPECT_EQ(Pixel(bitmap, 0, 1), Place(4, 1, 0));
}

TEST_F(getframe, PullDownOfEveryPhaseFollowsTheFormula) {
    module.frames = 60;
    KQClip* clip = Clip();
    KQBitmap* bitmap = MakeBitmap(8, 6);
    clip->fieldOrder = 1;
    for (i32 phase = 1; phase <= 5; ++phase) {
        clip->pullDown = phase;
        for (i32 frame = 0; frame < 40; ++frame) {
            i32 u = frame + phase - 1;
            i32 source = (u & 3) + (u >> 2) * 5 - phase + 1;
            Get(clip, bitmap, frame);
            ASSERT_EQ(Pixel(bitmap, 0, 1), Place(source, 1, 0)) << phase << " " << frame;
            ASSERT_EQ(Pixel(bitmap, 0, 0), Place((u & 3) == 3 ? source + 1 : source, 0, 0)) << phase << " " << frame;
        }
    }
}

// Blending. The plain form: doubles in order, products cut, sums in 8 bits.

u8 PlainPart(u8 value, f64 weight) { return u8(value * i32(weight * 65536.0) >> 16); }

std::vector<u8> PlainBlend(const std::vector<std::vector<u8>>& frames, i32 frameCount, f64 rate, f64 time,
                           f64 duration) {
    f64 length = std::max(duration, 1.0 / rate);
    f64 start = std::max(time * rate, 0.0), end = std::min((time + length) * rate, f64(frameCount));
    i32 first = i32(start + 1e-7), last = i32(end + 1e-7);
    f64 span = end - start, scale = 1.0 / span;
    std::vector<u8> out(frames[0].size());
    auto frame = [&](i32 n, size_t i) { return n < i32(frames.size()) ? frames[size_t(n)][i] : u8(0); };
    for (size_t i = 0; i < out.size(); ++i) {
        f64 weight = first == last ? span : 1.0 - (start - first);
        out[i] = PlainPart(frame(first, i), weight * scale);
        for (i32 n = first + 1; n < last; ++n) out[i] = u8(out[i] + PlainPart(frame(n, i), scale));
        f64 tail = (end - last) * scale;
        if (first != last && tail > 0.01) out[i] = u8(out[i] + PlainPart(frame(last, i), tail));
    }
    return out;
}

class Blending : public getframe {
protected:
    void SetUp() override {
        getframe::SetUp();
        random.seed(seed);
        module.frames = 12;
        module.width = 37;
        module.height = 11;
        for (i32 n = 0; n < 12; ++n) {
            std::vector<u8> frame(37 * 11 * 4);
            for (u8& byte : frame) byte = u8(random());
            frames.push_back(frame);
        }
        module.paint = [this](i32 frame, KQBitmap* target) {
            std::copy(frames[size_t(frame)].begin(), frames[size_t(frame)].end(), target->data);
        };
    }

    u32 seed = std::random_device{}();
    std::mt19937 random;
    std::vector<std::vector<u8>> frames;
};

using getframeBlend = Blending;

TEST_F(getframeBlend, ByFramesIsThePlainSum) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    KQBitmap* bitmap = MakeBitmap(37, 11);
    for (int round = 0; round < 300; ++round) {
        f64 time = f64(random() % 10000) / 30000.0, duration = f64(random() % 10000) / 30000.0;
        f64 left = 12.0 - time * 30.0;
        if (left < 0.06) continue;
        ASSERT_EQ(GetAt(clip, bitmap, {time, 1.0}, {duration, 1.0}), 1);
        ASSERT_EQ(Bytes(bitmap), PlainBlend(frames, 12, 30.0, time, duration))
            << "seed " << seed << " time " << time << " duration " << duration;
    }
}

TEST_F(getframeBlend, OfAWholeFrameIsThatFrame) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    KQBitmap* bitmap = MakeBitmap(37, 11);
    EXPECT_EQ(Get(clip, bitmap, 5), 1);
    EXPECT_EQ(Bytes(bitmap), frames[5]);
}

TEST_F(getframeBlend, OfAnIntervalThatIsTooShortFillsAndFails) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    for (i32 order : {0, 1}) {
        clip->fieldOrder = order;
        for (f64 frame : {12.0, 11.96, 40.0, f64(NAN)}) {
            KQBitmap* bitmap = MakeBitmap(37, 11);
            EXPECT_EQ(GetAt(clip, bitmap, {frame, 30.0}, {1.0, 30.0}), 0) << frame;
            EXPECT_TRUE(AllAre(bitmap, kBackground));
        }
    }
}

TEST_F(getframeBlend, UsesPullDownWhenItIsSet) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    clip->pullDown = 1;
    clip->fieldOrder = 1;
    KQBitmap* bitmap = MakeBitmap(37, 11);
    EXPECT_EQ(Get(clip, bitmap, 4), 1);
    EXPECT_EQ(Bytes(bitmap), frames[5]);
}

TEST_F(getframeBlend, AWovenFrameThatFindsNoMemoryIsBackground) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    clip->pullDown = 1;
    KQBitmap* bitmap = MakeBitmap(37, 11);
    ASSERT_EQ(Get(clip, bitmap, 3), 1);
    const auto good = Bytes(bitmap);
    i64 seen = 0;
    for (i64 n = 1; n < 10; ++n) {
        std::memset(bitmap->data, 0xEE, size_t(bitmap->dataSize));
        kq::allocationFaults.Set(n, true);
        int done = Get(clip, bitmap, 3);
        bool reached = kq::allocationFaults.failures > 0;
        kq::allocationFaults.Clear();
        if (!reached) break;
        seen += done;
        EXPECT_TRUE(!done || Bytes(bitmap) == good || AllAre(bitmap, kBackground)) << n;
    }
    EXPECT_GT(seen, 0);
}

TEST_F(getframeBlend, SucceedsWithOneWorkBitmapAlone) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    KQBitmap* bitmap = MakeBitmap(37, 11);
    kq::allocationFaults.Set(3, false);
    EXPECT_EQ(GetAt(clip, bitmap, {0.5, 30.0}, {8.0, 30.0}), 1);
    kq::allocationFaults.Clear();
    EXPECT_EQ(Bytes(bitmap), PlainBlend(frames, 12, 30.0, 0.5 / 30.0, 8.0 / 30.0));
}

// Row y of a frame mixed with the interpolation of its neighbours, as the four cases of a row have it.
u8 PlainMix(const std::vector<u8>& f, i32 x, i32 y, i32 height, i32 rowBytes, i32 a, i32 b) {
    auto at = [&](i32 row) { return i32(f[size_t(row * rowBytes + x)]); };
    if (height == 1) return u8((at(0) * b + at(0) * a) >> 16);
    if (y == 0) return u8((at(1) * b + at(0) * a) >> 16);
    if (y == height - 1) return u8((y & 1 ? at(y) * b + at(y - 1) * a : at(y) * a + at(y - 1) * b) >> 16);
    i32 mean = (at(y - 1) + at(y + 1)) >> 1;
    return u8((y & 1 ? mean * a + at(y) * b : mean * b + at(y) * a) >> 16);
}

std::vector<u8> PlainFieldBlend(const std::vector<std::vector<u8>>& frames, i32 height, i32 order, f64 rate, f64 time,
                                f64 duration) {
    f64 length = std::max(duration, 1.0 / (2.0 * rate));
    f64 start = std::max(time * rate, 0.0), end = std::min((time + length) * rate, f64(frames.size()));
    i32 first = i32(start + 1e-7), last = i32(end + 1e-7);
    f64 span = end - start, scale = 1.0 / span;
    std::vector<u8> out(frames[0].size());
    i32 rowBytes = i32(out.size()) / height;
    auto put = [&](i32 n, f64 one, f64 two, bool add) {
        i32 a = i32(one * 65536.0), b = i32(two * 65536.0);
        if (order == 2) std::swap(a, b);
        for (i32 i = 0; i < i32(out.size()); ++i) {
            u8 value = PlainMix(frames[size_t(n)], i % rowBytes, i / rowBytes, height, rowBytes, a, b);
            out[size_t(i)] = add ? u8(out[size_t(i)] + value) : value;
        }
    };
    f64 fraction = start - first, whole = first != last ? 1.0 : end - last, one, two;
    if (fraction >= 0.5) {
        one = 0.0;
        two = whole - fraction;
    } else {
        one = 0.5 - fraction;
        if (whole < 0.5) one -= 0.5 - whole;
        two = whole - 0.5;
    }
    put(first, std::max(one, 0.0) * scale, std::max(two, 0.0) * scale, false);
    for (i32 n = first + 1; n < last; ++n) put(n, scale * 0.5, scale * 0.5, true);
    f64 tail = end - last;
    if (first != last && tail * scale > 0.01)
        put(last, (tail >= 0.5 ? 0.5 : tail) * scale, (tail >= 0.5 ? tail - 0.5 : 0.0) * scale, true);
    return out;
}

TEST_F(getframeBlend, ByFieldsIsThePlainMix) {
    KQClip* clip = Clip();
    clip->flags |= KQCLIP_BLEND;
    KQBitmap* bitmap = MakeBitmap(37, 11);
    for (int round = 0; round < 300; ++round) {
        f64 time = f64(random() % 10000) / 30000.0, duration = f64(random() % 10000) / 60000.0;
        if (12.0 - time * 30.0 < 0.06) continue;
        clip->fieldOrder = round & 1 ? 1 : 2;
        ASSERT_EQ(GetAt(clip, bitmap, {time, 1.0}, {duration, 1.0}), 1);
        ASSERT_EQ(Bytes(bitmap), PlainFieldBlend(frames, 11, clip->fieldOrder, 30.0, time, duration))
            << "seed " << seed << " time " << time << " duration " << duration << " order " << clip->fieldOrder;
    }
}

TEST_F(getframeBlend, ByFieldsWorksOnSmallHeights) {
    for (i32 height : {1, 2, 3}) {
        module.height = height;
        for (auto& frame : frames) frame.resize(size_t(37 * 4 * height));
        KQClip* clip = Clip();
        clip->flags |= KQCLIP_BLEND;
        clip->fieldOrder = 1;
        KQBitmap* bitmap = MakeBitmap(37, height);
        ASSERT_EQ(GetAt(clip, bitmap, {1.3, 30.0}, {1.6, 30.0}), 1);
        EXPECT_EQ(Bytes(bitmap), PlainFieldBlend(frames, height, 1, 30.0, 1.3 / 30.0, 1.6 / 30.0)) << height;
        for (auto& frame : frames) frame.resize(37 * 4 * 11);
    }
}

// Failures.

TEST_F(getframe, EveryFailedAllocationGivesZeroOrAFrame) {
    KQClip* clip = Clip();
    KQBitmap* small = MakeBitmap(4, 3);
    kqtest::FailEveryAllocation([&] {
        for (u32 blend : {0u, u32(KQCLIP_BLEND)})
            for (i32 phase : {0, 1})
                for (i32 order : {0, 1}) {
                    clip->flags = (clip->flags & ~u32(KQCLIP_BLEND)) | blend;
                    clip->pullDown = phase;
                    clip->fieldOrder = order;
                    GetAt(clip, small, {3.2, 30.0}, {2.5, 30.0});
                }
    });
    clip->flags &= ~u32(KQCLIP_BLEND);
    clip->pullDown = clip->fieldOrder = 0;
    EXPECT_EQ(Get(clip, small, 3), 1);
}

// A sequence of three files that the clip finds by their numbers.
KQClip* MakeSequence(KQClip* clip, const std::string& folder) {
    for (const char* name : {"shot08.tst", "shot09.tst", "shot10.tst"}) kqtest::WriteWholeFile(folder + name, "x");
    clip->fileSpec = CopyFileSpecKQ((folder + "shot[##].tst").c_str());
    clip->sourceFrames = clip->frameCount = 3;
    clip->frameNumbers = static_cast<i32*>(AllocMemoryKQ(3 * sizeof(i32), 0));
    for (i32 i = 0; i < 3; ++i) clip->frameNumbers[i] = 8 + i;
    return clip;
}

TEST_F(getframe, EveryFailedAllocationOfASequenceFramePutsTheSpecificationBack) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    KQClip* clip = MakeSequence(Clip(), Folder());
    char* kept = clip->fileSpec;
    KQBitmap* whole = MakeBitmap(8, 6);
    KQBitmap* small = MakeBitmap(4, 3);
    kqtest::FailEveryAllocation([&] {
        for (KQBitmap* bitmap : {whole, small}) {
            FillBitmapKQ(bitmap, 0);
            if (!Get(clip, bitmap, 1)) {
                EXPECT_TRUE(AllAre(bitmap, kBackground));
            }
            EXPECT_EQ(clip->fileSpec, kept);
        }
    });
    EXPECT_EQ(Get(clip, whole, 1), 1);
}

TEST_F(getframe, EveryFailedFileCallOfASequenceFramePutsTheSpecificationBack) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    KQClip* clip = MakeSequence(Clip(), Folder());
    char* kept = clip->fileSpec;
    KQBitmap* bitmap = MakeBitmap(8, 6);
    i64 failed = 0;
    kqtest::FailEveryFileCall([&] {
        FillBitmapKQ(bitmap, 0);
        if (!Get(clip, bitmap, 1)) {
            ++failed;
            EXPECT_TRUE(AllAre(bitmap, kBackground));
        }
        EXPECT_EQ(clip->fileSpec, kept);
    });
    EXPECT_GT(failed, 0);
    EXPECT_EQ(Get(clip, bitmap, 1), 1);
}

}   // namespace
