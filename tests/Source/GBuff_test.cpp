#include "kq/gbuffers.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <random>

#include "support/FrameModule.h"

namespace {

class GBuff : public kqtest::FrameTest {
protected:
    void SetUp() override {
        FrameTest::SetUp();
        module.planes = [this](i32 frame, u32 mask, KQGBufferArray* array) {
            lastFrame = frame;
            lastMask = mask;
            for (int i = 0; i < 8; ++i)
                if (mask >> i & 1) array->planes[i] = MakePlane(module.width, module.height, format);
            return 1;
        };
    }

    KQClip* Clip(u32 mask = 0xFF) {
        KQClip* clip = MakeClip();
        clip->gbufferMask = mask;
        return clip;
    }

    // A plane whose samples tell their place: byte k is 16 * y + x + 1 + k * 64.
    static KQGBuffer* MakePlane(i32 width, i32 height, GBufferFormat format) {
        KQGBuffer* plane = AllocGBufferKQ(width, height, format);
        for (i32 y = 0; y < height; ++y)
            for (i32 x = 0; x < width; ++x)
                for (i32 k = 0; k < plane->pixelBytes; ++k)
                    plane->data[y * plane->rowBytes + x * plane->pixelBytes + k] = Sample(y, x, k);
        return plane;
    }

    static u8 Sample(i32 y, i32 x, i32 k) { return u8(16 * y + x + 1 + k * 64); }

    static u8 At(const KQGBuffer* plane, i32 x, i32 y, i32 k = 0) {
        return plane->data[y * plane->rowBytes + x * plane->pixelBytes + k];
    }

    static int Get(KQClip* clip, u32 mask, KQGBufferArray* array, f64 frame) {
        KQTimeValue time = FrameTest::At(clip, frame);
        return GetGBuffersKQ(clip, mask, array, &time, nullptr, static_cast<TagItem*>(nullptr));
    }

    GBufferFormat format = KQGBUFFER_Format0;
    i32 lastFrame = -1;
    u32 lastMask = 0;
};

TEST_F(GBuff, FormatsHaveTheirBytes) {
    const i32 bytes[] = {1, 2, 4, 4, 3, 8, 8};
    for (u32 i = 0; i < 7; ++i) {
        KQGBuffer* plane = AllocGBufferKQ(5, 3, GBufferFormat(i));
        EXPECT_EQ(plane->pixelBytes, bytes[i]);
        EXPECT_EQ(plane->rowBytes, 5 * bytes[i]);
        EXPECT_EQ(plane->dataSize, 15 * bytes[i]);
        EXPECT_EQ(plane->reserved, 0u);
        FreeGBufferKQ(plane);
    }
}

TEST_F(GBuff, UnknownFormatGivesAnEmptyPlane) {
    KQGBuffer* plane = AllocGBufferKQ(5, 3, GBufferFormat(7));
    ASSERT_NE(plane, nullptr);
    EXPECT_EQ(plane->pixelBytes, 0);
    EXPECT_EQ(plane->dataSize, 0);
    FreeGBufferKQ(plane);
}

TEST_F(GBuff, SizesThatDoNotFitAreRefused) {
    EXPECT_EQ(AllocGBufferKQ(-1, 3, KQGBUFFER_Format0), nullptr);
    EXPECT_EQ(AllocGBufferKQ(3, -1, KQGBUFFER_Format0), nullptr);
    EXPECT_EQ(AllocGBufferKQ(INT_MAX, INT_MAX, KQGBUFFER_Format5), nullptr);
}

TEST_F(GBuff, FreeingNullIsHarmless) {
    FreeGBufferKQ(nullptr);
    FreeGBufferArrayKQ(nullptr);
    KQGBufferArray array = {};
    array.planes[2] = AllocGBufferKQ(1, 1, KQGBUFFER_Format0);
    FreeGBufferArrayKQ(&array);
    EXPECT_EQ(array.planes[2], nullptr);
}

TEST_F(GBuff, OwnSizePassesThePlanesThrough) {
    KQClip* clip = Clip();
    KQGBufferArray array = {};
    ASSERT_EQ(Get(clip, 0x11, &array, 3), 1);
    EXPECT_EQ(lastFrame, 3);
    EXPECT_EQ(lastMask, 0x11u);
    ASSERT_NE(array.planes[0], nullptr);
    ASSERT_NE(array.planes[4], nullptr);
    EXPECT_EQ(array.planes[1], nullptr);
    for (i32 y = 0; y < 6; ++y)
        for (i32 x = 0; x < 8; ++x) EXPECT_EQ(At(array.planes[0], x, y), Sample(y, x, 0));
    FreeGBufferArrayKQ(&array);
}

TEST_F(GBuff, ChannelsThatTheClipDoesNotOfferAreDropped) {
    KQClip* clip = Clip(0x06);
    KQGBufferArray array = {};
    EXPECT_EQ(Get(clip, 0x03, &array, 3), 1);
    EXPECT_EQ(lastMask, 0x02u);
    EXPECT_EQ(array.planes[0], nullptr);
    FreeGBufferArrayKQ(&array);
}

TEST_F(GBuff, MaskThatTheClipEmptiesDoesNotCallTheModule) {
    KQClip* clip = Clip(0x06);
    KQGBufferArray array = {};
    EXPECT_EQ(Get(clip, 0x01, &array, 3), 0);
    EXPECT_EQ(Get(clip, 0, &array, 3), 0);
    EXPECT_EQ(module.planeCalls, 0);
}

TEST_F(GBuff, FramesOutsideTheSourceGiveZero) {
    KQClip* clip = Clip();
    KQGBufferArray array = {};
    for (f64 frame : {-2.0, 10.0, 1e300, -1e300}) EXPECT_EQ(Get(clip, 1, &array, frame), 0);
    EXPECT_EQ(module.planeCalls, 0);
    EXPECT_EQ(GetGBuffersKQ(nullptr, 1, &array, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
}

TEST_F(GBuff, ModuleWithoutTheSlotGivesZero) {
    KQClip* clip = Clip();
    KQGBufferArray array = {};
    desc.GetGBuffers = nullptr;
    EXPECT_EQ(Get(clip, 1, &array, 3), 0);
    clip->format = nullptr;
    EXPECT_EQ(Get(clip, 1, &array, 3), 0);
    clip->format = &desc;
}

TEST_F(GBuff, FailureOfTheSlotLeavesItsCode) {
    module.planes = [](i32, u32, KQGBufferArray*) {
        KQEnv->Error = KQERR_BADDATA;
        return 0;
    };
    KQClip* clip = Clip();
    KQGBufferArray array = {};
    EXPECT_EQ(Get(clip, 1, &array, 3), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_BADDATA);
}

TEST_F(GBuff, PlanesGoBySourceIndexWhateverTheEdits) {
    KQClip* clip = Clip();
    KQTimeValue time = FrameTest::At(clip, 2);
    InsertFrameBeforeKQ(clip, &time);
    clip->pullDown = 1;
    KQGBufferArray array = {};
    EXPECT_EQ(Get(clip, 1, &array, 4), 1);
    EXPECT_EQ(lastFrame, 4);
    FreeGBufferArrayKQ(&array);
}

TEST_F(GBuff, SinglePlaneIsThatOfTheLowestBit) {
    KQClip* clip = Clip();
    KQTimeValue time = FrameTest::At(clip, 2);
    KQGBuffer* plane = GetGBufferKQ(clip, 0x0C, &time, nullptr, static_cast<TagItem*>(nullptr));
    ASSERT_NE(plane, nullptr);
    EXPECT_EQ(lastMask, 0x04u);
    FreeGBufferKQ(plane);
    EXPECT_EQ(GetGBufferKQ(clip, 0, &time, nullptr, static_cast<TagItem*>(nullptr)), nullptr);
    EXPECT_EQ(GetGBufferKQ(clip, 0x100, &time, nullptr, static_cast<TagItem*>(nullptr)), nullptr);
}

TEST_F(GBuff, SinglePlaneThatFailsLeavesNothingBehind) {
    module.planes = [](i32, u32, KQGBufferArray* array) {
        array->planes[2] = AllocGBufferKQ(2, 2, KQGBUFFER_Format0);
        return 0;
    };
    KQClip* clip = Clip();
    EXPECT_EQ(GetGBufferKQ(clip, 0x04, nullptr, nullptr, static_cast<TagItem*>(nullptr)), nullptr);
}

TEST_F(GBuff, OtherSizeIsScaledForEveryFormat) {
    KQClip* clip = Clip();
    for (u32 i = 0; i < 7; ++i) {
        format = GBufferFormat(i);
        KQTimeValue time = FrameTest::At(clip, 2);
        KQGBuffer* plane = GetGBufferKQ(clip, 1, &time, nullptr, KQTAG_GBUFFER_WIDTH, 4, KQTAG_GBUFFER_HEIGHT, 12, 0);
        ASSERT_NE(plane, nullptr);
        EXPECT_EQ(plane->width, 4);
        EXPECT_EQ(plane->height, 12);
        for (i32 y = 0; y < 12; ++y)
            for (i32 x = 0; x < 4; ++x)
                for (i32 k = 0; k < plane->pixelBytes; ++k) ASSERT_EQ(At(plane, x, y, k), Sample(y / 2, x * 2, k)) << i;
        FreeGBufferKQ(plane);
    }
}

TEST_F(GBuff, RectGivesPlaceAndSize) {
    KQClip* clip = Clip();
    KQRectT<long> rect = {2, 1, 3, 4};
    KQTimeValue time = FrameTest::At(clip, 2);
    KQGBuffer* plane = GetGBufferKQ(clip, 1, &time, nullptr, KQTAG_GBUFFER_RECT, &rect, 0);
    ASSERT_NE(plane, nullptr);
    EXPECT_EQ(plane->width, 3);
    EXPECT_EQ(plane->height, 4);
    for (i32 y = 0; y < 4; ++y)
        for (i32 x = 0; x < 3; ++x) EXPECT_EQ(At(plane, x, y), Sample(y + 1, x + 2, 0));
    FreeGBufferKQ(plane);
}

TEST_F(GBuff, MarginBelowIsClearedOnlyInPartForLargerSamples) {
    format = KQGBUFFER_Format1;
    KQClip* clip = Clip();
    KQRectT<long> rect = {-2, -1, 12, 10};
    KQTimeValue time = FrameTest::At(clip, 2);
    // Undefined samples must not look like cleared ones.
    KQGBuffer* plane = GetGBufferKQ(clip, 1, &time, nullptr, KQTAG_GBUFFER_RECT, &rect, 0);
    ASSERT_NE(plane, nullptr);
    for (i32 x = 0; x < 12 * 2; ++x) EXPECT_EQ(plane->data[x], 0) << "the row above";
    for (i32 y = 1; y < 7; ++y) {
        for (i32 x = 0; x < 12; ++x) {
            bool inside = x >= 2 && x < 10;
            EXPECT_EQ(At(plane, x, y), inside ? Sample(y - 1, x - 2, 0) : 0) << x << " " << y;
        }
    }
    for (i32 i = 0; i < 3 * 12; ++i) EXPECT_EQ(plane->data[7 * 24 + i], 0) << "half of the three rows below";
    FreeGBufferKQ(plane);
}

TEST_F(GBuff, MarginBelowLeavesTheRestOfItsBand) {
    // A plane that the module gives larger than the clip passes unscaled, and its margins lie outside the clip.
    module.planes = [](i32, u32, KQGBufferArray* array) {
        array->planes[0] = AllocGBufferKQ(8, 10, KQGBUFFER_Format1);
        std::fill(array->planes[0]->data, array->planes[0]->data + array->planes[0]->dataSize, u8(7));
        return 1;
    };
    KQClip* clip = Clip();
    KQGBuffer* plane = GetGBufferKQ(clip, 1, nullptr, nullptr, static_cast<TagItem*>(nullptr));
    ASSERT_NE(plane, nullptr);
    for (i32 i = 0; i < 8 * 10 * 2; ++i) {
        bool cleared = i >= 6 * 16 && i < 6 * 16 + 4 * 8;
        ASSERT_EQ(plane->data[i], cleared ? 0 : 7) << i;
    }
    FreeGBufferKQ(plane);
}

TEST_F(GBuff, FieldsAreTheOtherWayRoundThanFramesAndDoubled) {
    KQClip* clip = Clip();
    KQTimeValue field = {1.0, 60.0};
    for (i32 order : {1, 2})
        for (i32 n : {0, 1}) {
            clip->fieldOrder = order;
            KQTimeValue time = {f64(n), 60.0};
            KQGBuffer* plane = GetGBufferKQ(clip, 1, &time, &field, static_cast<TagItem*>(nullptr));
            ASSERT_NE(plane, nullptr);
            bool odd = (order == 1) == (n == 0);
            for (i32 y = 0; y < 6; ++y)
                EXPECT_EQ(At(plane, 3, y), Sample(odd ? y | 1 : y & ~1, 3, 0)) << order << " " << n << " " << y;
            FreeGBufferKQ(plane);
        }
}

TEST_F(GBuff, LongerDurationGivesTheWholeFrame) {
    KQClip* clip = Clip();
    clip->fieldOrder = 1;
    KQGBuffer* plane = GetGBufferKQ(clip, 1, nullptr, nullptr, static_cast<TagItem*>(nullptr));
    ASSERT_NE(plane, nullptr);
    for (i32 y = 0; y < 6; ++y) EXPECT_EQ(At(plane, 3, y), Sample(y, 3, 0));
    FreeGBufferKQ(plane);
}

TEST_F(GBuff, OddHeightLeavesTheLastRowOfAField) {
    module.height = 5;
    KQClip* clip = Clip();
    clip->fieldOrder = 1;
    KQTimeValue time = {0.0, 60.0}, field = {1.0, 60.0};
    KQGBuffer* plane = GetGBufferKQ(clip, 1, &time, &field, static_cast<TagItem*>(nullptr));
    ASSERT_NE(plane, nullptr);
    EXPECT_EQ(At(plane, 0, 2), Sample(3, 0, 0));
    EXPECT_EQ(At(plane, 0, 4), Sample(4, 0, 0));
    FreeGBufferKQ(plane);
}

TEST_F(GBuff, FailedAllocationOfAScaledPlaneGivesANullEntry) {
    KQClip* clip = Clip();
    KQGBufferArray array = {};
    KQTimeValue time = FrameTest::At(clip, 2);
    module.planes = [this](i32, u32, KQGBufferArray* a) {
        a->planes[0] = MakePlane(8, 6, KQGBUFFER_Format0);
        kq::allocationFaults.Set(1, true);
        return 1;
    };
    EXPECT_EQ(GetGBuffersKQ(clip, 1, &array, &time, nullptr, KQTAG_GBUFFER_WIDTH, 4, 0), 1);
    kq::allocationFaults.Clear();
    EXPECT_EQ(array.planes[0], nullptr);
}

TEST_F(GBuff, EveryFailedAllocationLeavesNothingBehind) {
    KQClip* clip = Clip();
    module.planes = [](i32, u32, KQGBufferArray* array) {
        array->planes[0] = AllocGBufferKQ(8, 6, KQGBUFFER_Format4);
        return array->planes[0] != nullptr;
    };
    kqtest::FailEveryAllocation([&] {
        KQTimeValue time = FrameTest::At(clip, 2);
        FreeGBufferKQ(GetGBufferKQ(clip, 1, &time, nullptr, KQTAG_GBUFFER_WIDTH, 4, 0));
        FreeGBufferKQ(AllocGBufferKQ(3, 3, KQGBUFFER_Format6));
    });
}

TEST_F(GBuff, ScalingFollowsTheFixedPointSteps) {
    KQGBuffer* source = MakePlane(3, 1, KQGBUFFER_Format0);
    KQGBuffer* target = AllocGBufferKQ(2, 1, KQGBUFFER_Format0);
    ScaleGBufferKQ(source, target, nullptr, nullptr);
    EXPECT_EQ(target->data[0], Sample(0, 0, 0));
    EXPECT_EQ(target->data[1], Sample(0, 1, 0));
    FreeGBufferKQ(source);
    FreeGBufferKQ(target);
}

TEST_F(GBuff, ScalingClipsTheTargetTruly) {
    KQGBuffer* source = MakePlane(2, 1, KQGBUFFER_Format4);
    KQGBuffer* target = AllocGBufferKQ(10, 1, KQGBUFFER_Format4);
    std::fill(target->data, target->data + target->dataSize, u8(0xEE));
    KQRectT<long> place = {-1, 0, 4, 1};
    ScaleGBufferKQ(source, target, nullptr, &place);
    EXPECT_EQ(target->data[0], Sample(0, 0, 0));
    EXPECT_EQ(target->data[3], Sample(0, 1, 0));
    EXPECT_EQ(target->data[6], Sample(0, 1, 0));
    EXPECT_EQ(target->data[9], 0xEE);
    FreeGBufferKQ(source);
    FreeGBufferKQ(target);
}

TEST_F(GBuff, ScalingIsThatOfBitmaps) {
    u32 seed = std::random_device{}();
    std::mt19937 random(seed);
    for (int round = 0; round < 300; ++round) {
        i32 w = i32(random() % 20) + 1, h = i32(random() % 20) + 1;
        i32 tw = i32(random() % 20) + 1, th = i32(random() % 20) + 1;
        KQGBuffer* source = MakePlane(w, h, KQGBUFFER_Format2);
        KQGBuffer* target = AllocGBufferKQ(tw, th, KQGBUFFER_Format2);
        KQBitmap* from = AllocBitmapKQ(w, h, 32);
        KQBitmap* to = AllocBitmapKQ(tw, th, 32);
        std::copy(source->data, source->data + source->dataSize, from->data);
        std::fill(target->data, target->data + target->dataSize, u8(0xEE));
        std::fill(to->data, to->data + to->dataSize, u8(0xEE));
        KQRectT<long> place = {long(random() % 9) - 4, long(random() % 9) - 4, long(random() % 30) + 1,
                               long(random() % 30) + 1};
        ScaleGBufferKQ(source, target, nullptr, &place);
        ScaleBitmapKQ(from, to, nullptr, &place);
        ASSERT_EQ(std::vector<u8>(target->data, target->data + target->dataSize), Bytes(to)) << "seed " << seed;
        FreeBitmapKQ(from);
        FreeBitmapKQ(to);
        FreeGBufferKQ(source);
        FreeGBufferKQ(target);
    }
}

TEST_F(GBuff, ScalingOfNullsAndEmptySizesDoesNothing) {
    KQGBuffer* plane = MakePlane(2, 2, KQGBUFFER_Format0);
    ScaleGBufferKQ(nullptr, plane, nullptr, nullptr);
    ScaleGBufferKQ(plane, nullptr, nullptr, nullptr);
    KQRectT<long> empty = {0, 0, 0, 0}, far = {LONG_MAX, LONG_MIN, LONG_MAX, LONG_MAX};
    ScaleGBufferKQ(plane, plane, nullptr, &empty);
    ScaleGBufferKQ(plane, plane, &far, nullptr);
    ScaleGBufferKQ(plane, plane, nullptr, &far);
    FreeGBufferKQ(plane);
}

// Sequences.

class GBuffSequence : public GBuff {
protected:
    void SetUp() override {
        GBuff::SetUp();
        module.properties &= ~u32(KQFORMAT_MULTIFRAME);
        for (const char* name : {"p0.tst", "p1.tst", "p2.tst"}) kqtest::WriteWholeFile(Folder() + name, "x");
        clip = Clip();
        clip->fileSpec = CopyFileSpecKQ((Folder() + "p[#].tst").c_str());
        clip->sourceFrames = clip->frameCount = 3;
        kept = clip->fileSpec;
        module.planes = [](i32, u32, KQGBufferArray* array) {
            array->planes[0] = AllocGBufferKQ(8, 6, KQGBUFFER_Format4);
            return array->planes[0] != nullptr;
        };
    }

    // Asks for the plane of frame 1 at another size; whether the call said that it has it.
    bool Try() {
        KQGBufferArray array = {};
        KQTimeValue time = FrameTest::At(clip, 1);
        bool done = GetGBuffersKQ(clip, 1, &array, &time, nullptr, KQTAG_GBUFFER_WIDTH, 4, 0) != 0;
        FreeGBufferArrayKQ(&array);
        EXPECT_EQ(clip->fileSpec, kept);
        return done;
    }

    KQClip* clip = nullptr;
    char* kept = nullptr;
};

TEST_F(GBuffSequence, ModuleGetsTheFileOfTheFrameAndIndex0) {
    std::string file;
    module.planes = [&](i32 frame, u32, KQGBufferArray* array) {
        EXPECT_EQ(frame, 0);
        file = clip->fileSpec;
        array->planes[0] = AllocGBufferKQ(8, 6, KQGBUFFER_Format0);
        return 1;
    };
    EXPECT_TRUE(Try());
    EXPECT_EQ(file, Folder() + "p1.tst");
}

TEST_F(GBuffSequence, MissingFileGivesZeroWithoutTheModule) {
    std::filesystem::remove(Folder() + "p1.tst");
    EXPECT_FALSE(Try());
    EXPECT_EQ(module.planeCalls, 0);
}

TEST_F(GBuffSequence, EveryFailedAllocationPutsTheSpecificationBack) {
    kqtest::FailEveryAllocation([&] { Try(); });
    EXPECT_TRUE(Try());
}

TEST_F(GBuffSequence, EveryFailedFileCallPutsTheSpecificationBack) {
    i64 failed = 0;
    kqtest::FailEveryFileCall([&] { failed += !Try(); });
    EXPECT_GT(failed, 0);
    EXPECT_TRUE(Try());
}

TEST_F(GBuff, StartTimeShiftsPlanesAndTheirFields) {
    KQClip* clip = Clip();
    clip->startTime = {2.0, 1.0};
    KQGBufferArray array = {};
    KQTimeValue time = {2.0 * 30.0 + 3, 30.0};
    EXPECT_EQ(GetGBuffersKQ(clip, 1, &array, &time, nullptr, static_cast<TagItem*>(nullptr)), 1);
    EXPECT_EQ(lastFrame, 3);
    FreeGBufferArrayKQ(&array);
    KQTimeValue before = {2.0 * 30.0 - 1.5, 30.0};
    EXPECT_EQ(GetGBuffersKQ(clip, 1, &array, &before, nullptr, static_cast<TagItem*>(nullptr)), 0);
    // Field 1 of frame 3 counts from the start too: it keeps the even rows in order 1.
    clip->fieldOrder = 1;
    KQTimeValue field = {2.0 * 60.0 + 7, 60.0}, half = {1.0, 60.0};
    ASSERT_EQ(GetGBuffersKQ(clip, 1, &array, &field, &half, static_cast<TagItem*>(nullptr)), 1);
    EXPECT_EQ(lastFrame, 3);
    EXPECT_EQ(At(array.planes[0], 2, 1), Sample(0, 2, 0));
    EXPECT_EQ(At(array.planes[0], 2, 0), Sample(0, 2, 0));
    FreeGBufferArrayKQ(&array);
}

}   // namespace
