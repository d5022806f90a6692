// The examples of docs/clips.md. What stands between the "snippet" marks is what the page shows, line for line; the
// last test compares the two.
#include <KQLib.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "Source/Startup.h"
#include "support/BuiltModules.h"
#include "support/Fixture.h"

namespace {

// A film of ten frames of 8 x 6, frame i filled with the grey 16 * i, in a RAM clip at 25 frames a second.
class ClipsPage : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        SetScratchDirKQ(Folder().c_str());
        InitFormatModulesKQ(nullptr);
        clip = NewClipKQ();
        clip->format = reinterpret_cast<KQFormatDesc*>(KQEnv->formatModules.TailPred);
        clip->width = 8;
        clip->height = 6;
        clip->frameRate = clip->sourceRate = clip->nativeRate = 25.0;
        clip->alphaPremultiplied = 0;
        bitmap = AllocBitmapKQ(8, 6, 32);
        ASSERT_TRUE(CreateClipKQ(clip, 0));
        for (u32 i = 0; i < 10; ++i) {
            FillBitmapKQ(bitmap, 0xFF000000 | i * 0x101010);
            ASSERT_TRUE(AddFrameKQ(clip, bitmap, nullptr, nullptr, nullptr));
        }
        clip->frameCount = clip->sourceFrames;
    }

    void TearDown() override {
        CloseClipKQ(clip);
        FreeClipKQ(clip);
        FreeBitmapKQ(bitmap);
        SetScratchDirKQ(nullptr);
        kq::FreeFormatModules();
        KQTest::TearDown();
    }

    // Blue of the pixel at the top left, and of the one below it.
    u8 Blue(i32 row = 0) const { return bitmap->data[row * bitmap->rowBytes + 3]; }

    KQClip* clip = nullptr;
    KQBitmap* bitmap = nullptr;
};

TEST_F(ClipsPage, Time) {
    // snippet time
    KQTimeValue third = {3.0, clip->frameRate};   // 3 / rate seconds: frame 3
    KQTimeValue half = {1.0, 2.0};                // half a second: frame 12 at 25 frames a second
    BeginClipIOKQ(clip, nullptr);
    GetFrameKQ(clip, bitmap, &third, nullptr, nullptr);
    // end
    EXPECT_EQ(Blue(), 0x30);
    GetFrameKQ(clip, bitmap, &half, nullptr, nullptr);
    EXPECT_EQ(Blue(), 0x00) << "past the end is background";
    EndClipIOKQ(clip, nullptr);
}

TEST_F(ClipsPage, Fields) {
    // snippet fields
    SetClipOptionsKQ(clip, KQTAG_CLIP_FIELDS, 1, 0);
    KQTimeValue start = {5.0, 25.0};            // field 10, the first of frame 5
    KQTimeValue field = {1.0, 50.0};            // lasts one field
    BeginClipIOKQ(clip, nullptr);
    GetFrameKQ(clip, bitmap, &start, &field, nullptr);     // even rows; odd rows interpolated
    GetFrameKQ(clip, bitmap, &start, nullptr, nullptr);    // the whole frame
    EndClipIOKQ(clip, nullptr);
    // end
    EXPECT_EQ(Blue(0), 0x50);
    EXPECT_EQ(Blue(1), 0x50);
}

TEST_F(ClipsPage, PullDown) {
    // snippet pulldown
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 1, 0);
    // 10 source frames are presented as 8; the rate goes from 25 to 20.
    // end
    EXPECT_EQ(clip->frameCount, 8);
    EXPECT_EQ(clip->frameRate, 20.0);
}

TEST_F(ClipsPage, Edits) {
    // snippet edits
    KQTimeValue second = {2.0, clip->frameRate};
    DeleteFrameKQ(clip, &second);          // frame 3 is now frame 2
    InsertFrameBeforeKQ(clip, &second);    // a new frame 2, background so far
    FillBitmapKQ(bitmap, 0xFFFF0000);
    ModifyFrameKQ(clip, bitmap, &second, nullptr, nullptr);
    // end
    EXPECT_EQ(clip->frameCount, 10);
    BeginClipIOKQ(clip, nullptr);
    ASSERT_TRUE(GetFrameKQ(clip, bitmap, &second, nullptr, nullptr));
    EXPECT_EQ(bitmap->data[1], 0xFF);
    KQTimeValue next = {3.0, 25.0};
    ASSERT_TRUE(GetFrameKQ(clip, bitmap, &next, nullptr, nullptr));
    EXPECT_EQ(Blue(), 0x30);
    EndClipIOKQ(clip, nullptr);
}

TEST_F(ClipsPage, Alpha) {
    FillBitmapKQ(bitmap, 0x80FFFFFF);
    KQBitmap* stored = AllocBitmapKQ(8, 6, 32);
    // snippet alpha
    KQFloatRGB black = {0.0, 0.0, 0.0, 0.0};
    SetClipOptionsKQ(clip, KQTAG_CLIP_ALPHA, 2, KQTAG_CLIP_PREMULTIPLIED, 1, KQTAG_CLIP_MATTE, &black, 0);
    Interpret_Alpha(clip, bitmap, stored, nullptr);   // straight white, alpha 128, goes out as grey 128
    // end
    EXPECT_EQ(stored->data[0], 0x80);
    EXPECT_EQ(stored->data[1], 0x80);
    FreeBitmapKQ(stored);
}

// A program that has just started, with one module in a folder.
class ClipsPageStart : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        std::filesystem::copy_file(kqtest::ModulePath("example.ifm"), Folder() + "example.ifm");
    }

    void TearDown() override {
        kq::FreeFormatModules();
        KQTest::TearDown();
    }
};

TEST_F(ClipsPageStart, Modules) {
    std::string folder = Folder();
    char* modules = folder.data();
    // snippet modules
    InitFormatModulesKQ(nullptr);
    char* folders[] = {modules, nullptr};   // `modules` is the folder's path
    EnumFilesKQ(folders, nullptr, FormatModule_CheckFile, 0, 0);
    // end
    auto last = reinterpret_cast<const KQFormatDesc*>(KQEnv->formatModules.TailPred);
    ASSERT_NE(last->pluginInfo, nullptr);
    EXPECT_EQ(last->pluginInfo->FileSpec, Folder() + "example.ifm");
}

// The lines between the marks of a file, by the snippet's name, without their common indent.
std::map<std::string, std::string> Snippets(const std::string& path, const std::string& begin, const std::string& end) {
    std::map<std::string, std::string> snippets;
    std::ifstream file(path);
    std::string line, name;
    while (std::getline(file, line)) {
        size_t first = line.find_first_not_of(' ');
        std::string text = first == std::string::npos ? "" : line.substr(first);
        if (text.rfind(begin, 0) == 0)
            name = text.substr(begin.size());
        else if (text == end)
            name.clear();
        else if (!name.empty())
            snippets[name] += text + "\n";
    }
    return snippets;
}

TEST_F(ClipsPage, PageShowsTheseLines) {
    auto tested = Snippets(KQ_TREE "/tests/docs/Clips_test.cpp", "// snippet ", "// end");
    auto shown = Snippets(KQ_TREE "/docs/clips.md", "```cpp ", "```");
    EXPECT_EQ(tested.size(), 6u);
    EXPECT_EQ(shown, tested);
}

}   // namespace
