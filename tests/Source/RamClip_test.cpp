#include "Source/Startup.h"
#include "kq/clip.h"
#include "kq/formats.h"
#include "kq/frames.h"
#include "kq/nativebitmap.h"
#include "support/Fixture.h"

namespace {

class RamClip : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        InitFormatModulesKQ(nullptr);
        clip = NewClipKQ();
        clip->format = reinterpret_cast<KQFormatDesc*>(KQEnv->formatModules.TailPred);
        clip->width = 6;
        clip->height = 4;
        clip->frameRate = 25.0;
        clip->alphaPremultiplied = 0;
    }

    void TearDown() override {
        CloseClipKQ(clip);
        FreeClipKQ(clip);
        kq::FreeFormatModules();
        KQTest::TearDown();
    }

    // Adds a frame of one colour.
    int Add(u32 colour, i32 width = 6, i32 height = 4) {
        KQBitmap* bitmap = AllocBitmapKQ(width, height, 32);
        if (!bitmap) return 0;
        FillBitmapKQ(bitmap, colour);
        int added = AddFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
        FreeBitmapKQ(bitmap);
        return added;
    }

    // The pixel at (x, y) of source frame `frame` as a packed colour, in a bitmap of 0x01020304 at the clip's size.
    u32 Pixel(i32 frame, i32 x, i32 y) {
        KQBitmap* bitmap = AllocBitmapKQ(6, 4, 32);
        FillBitmapKQ(bitmap, 0x01020304);
        EXPECT_TRUE(clip->format->GetFrame(clip, bitmap, frame, nullptr, 6, 4, 0));
        const u8* p = bitmap->data + y * bitmap->rowBytes + x * 4;
        u32 colour = u32(p[0]) << 24 | u32(p[1]) << 16 | u32(p[2]) << 8 | p[3];
        FreeBitmapKQ(bitmap);
        return colour;
    }

    KQClip* clip = nullptr;
};

TEST_F(RamClip, PropertiesAre142) {
    EXPECT_EQ(GetImportPropertiesKQ(clip->format), 142u);
    EXPECT_EQ(GetExportPropertiesKQ(clip), 142u);
}

TEST_F(RamClip, ModuleHasNoNameTypesExtensionsOrOptionalSlots) {
    EXPECT_STREQ(clip->format->node.Name, "");
    EXPECT_EQ(clip->format->importTypeCount, 0);
    EXPECT_EQ(clip->format->importExtCount, 0);
    EXPECT_EQ(clip->format->fileType, KQ_ANYCODE);
    EXPECT_EQ(clip->format->GetGBuffers, nullptr);
    EXPECT_EQ(clip->format->ClipOptions, nullptr);
}

TEST_F(RamClip, CheckFileAlwaysSaysNo) {
    EXPECT_EQ(clip->format->CheckFile(clip->format, "x", KQ_ANYCODE, KQ_ANYCODE, 0), 0);
}

TEST_F(RamClip, OpenWithoutListFails) {
    EXPECT_EQ(OpenClipKQ(clip, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
}

TEST_F(RamClip, OpenWithAnEmptyListFails) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    EXPECT_EQ(OpenClipKQ(clip, nullptr), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
}

TEST_F(RamClip, OpenTakesSizeFromTheFirstFrameAndCountsAll) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0xFF000000, 6, 4));
    ASSERT_TRUE(Add(0xFF000000, 60, 40));
    clip->width = clip->height = clip->sourceFrames = 1;
    ASSERT_TRUE(OpenClipKQ(clip, nullptr));
    EXPECT_EQ(clip->width, 6);
    EXPECT_EQ(clip->height, 4);
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(clip->frameRate, 25.0);
}

TEST_F(RamClip, FramesComeBackInTheOrderOfAddingWithOpaqueAlpha) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0x80102030));
    ASSERT_TRUE(Add(0xFF405060));
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(Pixel(0, 0, 0), 0xFF102030u);
    EXPECT_EQ(Pixel(1, 5, 3), 0xFF405060u);
}

TEST_F(RamClip, FrameRetrievalGoesThroughTheClipLayer) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0xFF102030));
    KQBitmap* bitmap = AllocBitmapKQ(12, 8, 32);
    ASSERT_TRUE(BeginClipIOKQ(clip, nullptr));
    EXPECT_TRUE(GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr));
    EXPECT_EQ(bitmap->data[bitmap->dataSize - 1], 0x30);
    KQTimeValue past = {1, 25};
    EXPECT_TRUE(GetFrameKQ(clip, bitmap, &past, nullptr, nullptr));
    EXPECT_EQ(bitmap->data[bitmap->dataSize - 1], 0);
    EXPECT_TRUE(EndClipIOKQ(clip, nullptr));
    FreeBitmapKQ(bitmap);
}

TEST_F(RamClip, FrameOfAnotherSizeKeepsItInItsOwnNode) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0xFF000000));
    ASSERT_TRUE(Add(0xFF111111, 2, 2));
    ASSERT_TRUE(Add(0xFF222222, 20, 20));
    EXPECT_EQ(Pixel(1, 1, 1), 0xFF111111u);
    EXPECT_EQ(Pixel(1, 2, 1), 0x01020304u);
    EXPECT_EQ(Pixel(2, 5, 3), 0xFF222222u);
    EXPECT_EQ(clip->width, 6);
}

TEST_F(RamClip, GetFrameWithoutNodeFails) {
    KQBitmap* bitmap = AllocBitmapKQ(6, 4, 32);
    EXPECT_EQ(clip->format->GetFrame(clip, bitmap, 0, nullptr, 6, 4, 0), 0);
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    EXPECT_EQ(clip->format->GetFrame(clip, bitmap, 0, nullptr, 6, 4, 0), 0);
    EXPECT_EQ(clip->format->GetFrame(clip, bitmap, -1, nullptr, 6, 4, 0), 0);
    FreeBitmapKQ(bitmap);
}

TEST_F(RamClip, AddFrameIgnoresTheTime) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0xFF111111));
    KQBitmap* bitmap = AllocBitmapKQ(6, 4, 32);
    FillBitmapKQ(bitmap, 0xFF222222);
    KQTimeValue time = {100, 25};
    EXPECT_TRUE(AddFrameKQ(clip, bitmap, &time, nullptr, nullptr));
    FreeBitmapKQ(bitmap);
    EXPECT_EQ(Pixel(1, 0, 0), 0xFF222222u);
}

TEST_F(RamClip, AddFrameAppliesTheAlphaInterpretation) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    clip->alphaMode = 1;
    ASSERT_TRUE(Add(0x80102030));
    EXPECT_EQ(Pixel(0, 0, 0), 0xFF808080u);
}

TEST_F(RamClip, AddFrameWithoutCreateFails) {
    EXPECT_EQ(Add(0xFF000000), 0);
    EXPECT_EQ(clip->sourceFrames, 0);
}

TEST_F(RamClip, CreateAgainFreesTheFrames) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0xFF000000));
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    EXPECT_EQ(OpenClipKQ(clip, nullptr), 0);
}

TEST_F(RamClip, CloseFreesTheListAndMayBeCalledTwice) {
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(Add(0xFF000000));
    CloseClipKQ(clip);
    EXPECT_EQ(clip->moduleData, nullptr);
    CloseClipKQ(clip);
}

TEST_F(RamClip, EveryAllocationMayFail) {
    kqtest::FailEveryAllocation([&] {
        clip->sourceFrames = 0;
        if (CreateClipKQ(clip, 0)) {
            i32 added = Add(0xFF102030) != 0;
            EXPECT_EQ(clip->sourceFrames, added);
        }
        CloseClipKQ(clip);
    });
}

}   // namespace
