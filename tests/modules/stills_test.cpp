// The stills module through the library, on every platform: what it reads, writes and refuses. A kind that the
// platform's image library does not know is refused.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>

#include "support/StillsFixture.h"

namespace {

using namespace kqtest;
namespace fs = std::filesystem;

class Stills : public StillsTest {
protected:
    // A picture that tells `number` in every pixel.
    Bitmap Numbered(int number, i32 width = 24, i32 height = 10) {
        return MakePicture(width, height, [&](i32 x, i32 y) { return Pixel{255, number, x * 5, y * 7}; });
    }

    std::string Name(int number) {
        char name[32];
        std::snprintf(name, sizeof name, "shot.%04d.png", number);
        return Folder() + name;
    }

    void WriteSequence(const std::vector<int>& numbers) {
        for (int number : numbers) ASSERT_TRUE(Write(Name(number), Numbered(number).get(), false));
    }

    std::vector<std::string> Names() {
        std::vector<std::string> names;
        for (auto& entry : fs::directory_iterator(Folder())) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
};

// Every file of the folder that holds the picture itself.

struct Made {
    const char* file;
    bool alpha;
    int tolerance;   // 0: exact
};

class StillsMade : public StillsTest, public testing::WithParamInterface<Made> {};

TEST_P(StillsMade, IsReadAsItWasMade) {
    const Made& made = GetParam();
    if (!Reads(ExtensionOf(made.file))) return ExpectNotOpened(made.file);
    KQClip* clip = Open(Seed(made.file));
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->width, kStillWidth);
    EXPECT_EQ(clip->height, kStillHeight);
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->pixelAspect, 1.0);
    EXPECT_EQ(clip->depth, made.alpha ? 32 : 24);
    EXPECT_EQ(clip->alphaMode, made.alpha ? 2 : 0);
    EXPECT_EQ(clip->alphaPremultiplied, 0);
    EXPECT_TRUE(clip->flags & KQCLIP_ALPHA_KNOWN);
    BeginClipIOKQ(clip, nullptr);
    Bitmap got = Frame(clip);
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
    ASSERT_NE(got, nullptr);
    auto wanted = MakePicture(kStillWidth, kStillHeight, [&](i32 x, i32 y) { return StillPixel(x, y, made.alpha); });
    EXPECT_LE(Difference(got.get(), wanted.get()), made.tolerance);
    EXPECT_TRUE(messages.empty());
}

// Lossy kinds, and those whose colours went through a multiplication by alpha, are near.
INSTANTIATE_TEST_SUITE_P(
    Files, StillsMade,
    testing::Values(Made{"plain.bmp", false, 0}, Made{"plain.dds", false, 0}, Made{"plain.dpx", false, 0},
                    Made{"plain.exr", false, 0}, Made{"plain.gif", false, 0}, Made{"plain.hdr", false, 12},
                    Made{"plain.iff", false, 0}, Made{"plain.jp2", false, 0}, Made{"plain.jpg", false, 16},
                    Made{"plain.pic", false, 0}, Made{"alpha.pic", true, 0}, Made{"plain.rgb", false, 0},
                    Made{"plain.png", false, 0}, Made{"plain.ppm", false, 0}, Made{"plain.psd", false, 0},
                    Made{"plain.rla", false, 0}, Made{"plain.sgi", false, 0}, Made{"plain.tga", false, 0},
                    Made{"plain.tif", false, 0}, Made{"plain.webp", false, 0}, Made{"alpha.dpx", true, 0},
                    Made{"alpha.exr", true, 3}, Made{"alpha.png", true, 0}, Made{"alpha.sgi", true, 0},
                    Made{"alpha.tga", true, 3}, Made{"alpha.tif", true, 0}, Made{"multiplied.tif", true, 3},
                    Made{"interlaced.png", false, 0}, Made{"deep.png", false, 0}, Made{"deep.tif", false, 0},
                    Made{"deep.dpx", false, 0}, Made{"cmyk.tif", false, 1}, Made{"cmyk.jpg", false, 14},
                    Made{"runs.tga", false, 0}, Made{"lzw.tif", false, 0}, Made{"tiled.tif", false, 0},
                    Made{"tiled.exr", false, 0}),
    [](const auto& made) {
        std::string name = made.param.file;
        std::replace(name.begin(), name.end(), '.', '_');
        return name;
    });

TEST_F(Stills, GreyFilesGiveThreeEqualChannels) {
    for (const char* file : {"grey.png", "grey.tif", "greyalpha.png", "plain.pgm"}) {
        if (!Reads(ExtensionOf(file))) continue;
        Bitmap got = Read(Seed(file));
        ASSERT_NE(got, nullptr) << file;
        for (i32 y = 0; y < kStillHeight; ++y)
            for (i32 x = 0; x < kStillWidth; ++x) {
                Pixel p = PixelAt(got.get(), x, y), made = StillPixel(x, y, true);
                EXPECT_TRUE(p.red == p.green && p.green == p.blue) << file;
                int grey = int(0.2126 * made.red + 0.7152 * made.green + 0.0722 * made.blue + 0.5);
                EXPECT_NEAR(p.red, grey, 1) << file << ' ' << x << ',' << y;
                EXPECT_EQ(p.alpha, std::string(file) == "greyalpha.png" ? made.alpha : 255) << file;
            }
    }
}

TEST_F(Stills, PalettesAreExpanded) {
    Bitmap got = Read(Seed("palette.png"));
    ASSERT_NE(got, nullptr);
    std::vector<u32> colours;
    for (i32 i = 0; i < got->dataSize; i += 4) {
        u32 colour;
        std::memcpy(&colour, got->data + i, 4);
        colours.push_back(colour);
        EXPECT_EQ(got->data[i], 255);
    }
    std::sort(colours.begin(), colours.end());
    EXPECT_EQ(std::unique(colours.begin(), colours.end()) - colours.begin(), 16);
}

// Writing.

constexpr const char* kLossless[] = {"bmp", "dpx", "exr", "png", "ppm", "rgb", "sgi", "tga", "tif"};

TEST_F(Stills, LosslessKindsGiveBackEveryPixel) {
    std::mt19937 random(7);
    for (const char* extension : kLossless) {
        if (!Writes(extension)) continue;
        for (auto [width, height] : {std::pair(1, 1), {19, 13}, {64, 3}, {3, 65}, {641, 40}}) {
            auto picture = MakePicture(width, height, [&](i32, i32) {
                u32 r = u32(random());
                return Pixel{255, int(r & 255), int(r >> 8 & 255), int(r >> 16 & 255)};
            });
            std::string path = Folder() + "a." + extension;
            ASSERT_TRUE(Write(path, picture.get(), false)) << extension << ' ' << width;
            Bitmap got = Read(path);
            ASSERT_NE(got, nullptr) << extension << ' ' << width;
            EXPECT_EQ(Difference(got.get(), picture.get()), 0) << extension << ' ' << width << 'x' << height;
        }
    }
}

TEST_F(Stills, StraightAlphaGoesRoundExactly) {
    std::mt19937 random(8);
    auto picture = MakePicture(57, 31, [&](i32, i32) {
        u32 r = u32(random());
        return Pixel{int(r >> 24), int(r & 255), int(r >> 8 & 255), int(r >> 16 & 255)};
    });
    int kinds = 0;
    for (const char* extension : {"png", "tif", "tga", "dpx", "sgi", "rgb"}) {
        if (!Writes(extension)) continue;
        ++kinds;
        std::string path = Folder() + "a." + extension;
        ASSERT_TRUE(Write(path, picture.get(), true)) << extension;
        Bitmap got = Read(path);
        ASSERT_NE(got, nullptr) << extension;
        EXPECT_EQ(Difference(got.get(), picture.get()), 0) << extension;
    }
    EXPECT_GE(kinds, 2);
}

TEST_F(Stills, MultipliedKindGivesBackColoursWhereThereIsAlpha) {
    auto picture = MakePicture(256, 17, [](i32 x, i32 y) { return Pixel{x, (x * 7) & 255, y * 15, 255 - x}; });
    if (!Writes("exr")) {
        EXPECT_FALSE(Write(Folder() + "a.exr", picture.get(), true));
        EXPECT_FALSE(fs::exists(Folder() + "a.exr"));
        return;
    }
    ASSERT_TRUE(Write(Folder() + "a.exr", picture.get(), true));
    Bitmap got = Read(Folder() + "a.exr");
    ASSERT_NE(got, nullptr);
    for (i32 y = 0; y < 17; ++y)
        for (i32 x = 0; x < 256; ++x) {
            Pixel a = PixelAt(picture.get(), x, y), b = PixelAt(got.get(), x, y);
            EXPECT_EQ(a.alpha, b.alpha);
            if (x == 0) continue;
            EXPECT_TRUE(a.red == b.red && a.green == b.green && a.blue == b.blue) << x << ',' << y;
        }
}

TEST_F(Stills, LossyKindsAreNear) {
    auto picture = MakePicture(64, 48, [](i32 x, i32 y) { return Pixel{255, x * 4, y * 5, (x + y) * 2}; });
    for (const char* extension : {"jpg", "hdr"}) {
        if (!Writes(extension)) continue;
        ASSERT_TRUE(Write(Folder() + "a." + extension, picture.get(), false));
        Bitmap got = Read(Folder() + "a." + extension);
        ASSERT_NE(got, nullptr) << extension;
        EXPECT_LE(Difference(got.get(), picture.get()), 16) << extension;
    }
}

TEST_F(Stills, KindsWithoutAlphaDropIt) {
    auto picture = MakePicture(8, 8, [](i32, i32) { return Pixel{10, 200, 100, 50}; });
    ASSERT_TRUE(Write(Folder() + "a.jpg", picture.get(), true));
    Bitmap got = Read(Folder() + "a.jpg");
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(PixelAt(got.get(), 4, 4).alpha, 255);
    EXPECT_NEAR(PixelAt(got.get(), 4, 4).red, 200, 4);
}

TEST_F(Stills, AFileWithoutAlphaIsWrittenWhenTheClipHasNone) {
    auto picture = MakePicture(8, 8, [](i32, i32) { return Pixel{10, 200, 100, 50}; });
    ASSERT_TRUE(Write(Folder() + "a.png", picture.get(), false));
    KQClip* clip = Open(Folder() + "a.png");
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->depth, 24);
    Shut(clip);
}

TEST_F(Stills, ALongExtensionIsWrittenAsItsShortForm) {
    auto picture = Numbered(3);
    ASSERT_TRUE(Write(Folder() + "a.tiff", picture.get(), false));
    KQClip* clip = OpenClipKQ((Folder() + "a.tiff").c_str(), KQTAG_CLIP_EXTENSION, "tif\0", 0);
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->width, 24);
    Shut(clip);
}

TEST_F(Stills, ALongExtensionNeedsItsTag) {
    ASSERT_TRUE(Write(Folder() + "a.tiff", Numbered(3).get(), false));
    EXPECT_EQ(OpenClipKQ((Folder() + "a.tiff").c_str(), nullptr), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADFORMAT));
}

TEST_F(Stills, WritingReplacesAndLeavesNothingElse) {
    ASSERT_TRUE(Write(Folder() + "a.png", Numbered(1).get(), false));
    ASSERT_TRUE(Write(Folder() + "a.png", Numbered(2, 7, 5).get(), false));
    EXPECT_EQ(Names(), std::vector<std::string>{"a.png"});
    Bitmap got = Read(Folder() + "a.png");
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(got->width, 7);
}

TEST_F(Stills, AKindThatIsNotWrittenIsToldBeforeAFrame) {
    WriteWholeFile(Folder() + "a.xyz", "old");
    EXPECT_FALSE(Write(Folder() + "a.xyz", Numbered(1).get(), false));
    EXPECT_TRUE(WasTold("a.xyz"));
    EXPECT_EQ(ReadWholeFile(Folder() + "a.xyz").size(), 3u);
}

TEST_F(Stills, AFolderThatIsNotThereIsAnError) {
    EXPECT_FALSE(Write(Folder() + "none/a.png", Numbered(1).get(), false));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
    EXPECT_TRUE(WasTold("a.png"));
}

// Frames at other sizes.

TEST_F(Stills, AScaledFrameIsTheLibrarysOwnScaling) {
    for (const char* file : {"plain.png", "alpha.tif", "plain.bmp", "tiled.tif"}) {
        KQClip* clip = Open(Seed(file));
        ASSERT_NE(clip, nullptr);
        BeginClipIOKQ(clip, nullptr);
        Bitmap whole = Frame(clip);
        for (auto [width, height] : {std::pair(5, 4), {19, 6}, {40, 13}, {1, 1}, {37, 50}, {18, 12}}) {
            Bitmap scaled = Frame(clip, 0, width, height);
            Bitmap wanted(AllocBitmapKQ(width, height, 32));
            ScaleBitmapKQ(whole.get(), wanted.get(), nullptr, nullptr);
            ASSERT_NE(scaled, nullptr);
            EXPECT_EQ(Difference(scaled.get(), wanted.get()), 0) << file << ' ' << width << 'x' << height;
        }
        EndClipIOKQ(clip, nullptr);
        Shut(clip);
    }
}

TEST_F(Stills, APositionShowsAPartOfTheFrame) {
    KQClip* clip = Open(Seed("plain.png"));
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    for (auto [x, y] : {std::pair(4, 3), {-4, -3}, {4, -3}}) {
        KQRectT<long> rect = {x, y, 0, 0};
        Bitmap bitmap(AllocBitmapKQ(10, 8, 32));
        ASSERT_TRUE(GetFrameKQ(clip, bitmap.get(), nullptr, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH,
                               kStillWidth, KQTAG_FRAME_HEIGHT, kStillHeight, 0));
        for (i32 v = 0; v < 8; ++v)
            for (i32 u = 0; u < 10; ++u) {
                Pixel got = PixelAt(bitmap.get(), u, v), made = StillPixel(u + x, v + y, false);
                bool inside = u + x >= 0 && v + y >= 0;
                EXPECT_EQ(got.alpha, inside ? 255 : 0);
                EXPECT_EQ(got.red, inside ? made.red : 0);
                EXPECT_EQ(got.blue, inside ? made.blue : 0);
            }
    }
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

// Sequences.

TEST_F(Stills, NumberedFilesAreOneClip) {
    WriteSequence({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    KQClip* clip = Open(Name(1), false);
    ASSERT_NE(clip, nullptr);
    EXPECT_EQ(clip->sourceFrames, 12);
    BeginClipIOKQ(clip, nullptr);
    for (int i = 0; i < 12; ++i) {
        Bitmap got = Frame(clip, i);
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(Difference(got.get(), Numbered(i + 1).get()), 0) << i;
    }
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Stills, FramesComeInAnyOrder) {
    std::vector<int> numbers;
    for (int i = 0; i < 30; ++i) numbers.push_back(i * 3 + (i > 20 ? 1 : 0));
    WriteSequence(numbers);
    KQClip* clip = Open(Name(0), false);
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    std::mt19937 random(3);
    for (int i = 29; i >= 0; --i) EXPECT_EQ(PixelAt(Frame(clip, i).get(), 0, 0).red, numbers[size_t(i)]);
    for (int i = 0; i < 60; ++i) {
        int frame = int(random() % 30);
        i32 size = random() % 2 ? 24 : 12;
        EXPECT_EQ(PixelAt(Frame(clip, frame, size, 10).get(), 0, 0).red, numbers[size_t(frame)]);
    }
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

TEST_F(Stills, AFrameThatChangesWhileItIsReadAheadIsReadAnew) {
    WriteSequence({0, 1, 2, 3, 4});
    KQClip* clip = Open(Name(0), false);
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    EXPECT_EQ(PixelAt(Frame(clip, 0).get(), 0, 0).red, 0);
    ASSERT_TRUE(Write(Name(1), Numbered(99).get(), false));
    EXPECT_EQ(PixelAt(Frame(clip, 1).get(), 0, 0).red, 99);
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

TEST_F(Stills, AFrameOfAnotherSizeIsScaledAndToldOnce) {
    WriteSequence({0, 1, 2, 3});
    ASSERT_TRUE(Write(Name(1), Numbered(1, 48, 20).get(), false));
    ASSERT_TRUE(Write(Name(2), Numbered(2, 48, 20).get(), false));
    KQClip* clip = Open(Name(0), false);
    ASSERT_NE(clip, nullptr);
    BeginClipIOKQ(clip, nullptr);
    for (int i = 0; i < 4; ++i) {
        Bitmap got = Frame(clip, i);
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(GetErrorKQ(), u32(i == 1 || i == 2 ? KQERR_BADDATA : KQERR_NONE));
        EXPECT_EQ(PixelAt(got.get(), 3, 0).red, i);
    }
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_TRUE(WasTold("shot.0001.png"));
    EXPECT_TRUE(WasTold("48 x 20"));
}

TEST_F(Stills, AWrittenClipOfManyFramesIsAFileAFrame) {
    KQClip* clip = NewClipKQ();
    clip->fileSpec = MakeFileSpecKQ((Folder() + "out[###].png").c_str());
    clip->format = Module();
    clip->width = 24;
    clip->height = 10;
    clip->frameCount = 3;
    clip->frameRate = 24;
    ASSERT_TRUE(CreateClipKQ(clip, 0));
    ASSERT_TRUE(BeginClipIOKQ(clip, nullptr));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(AddFrameKQ(clip, Numbered(i).get(), nullptr, nullptr, nullptr));
    EXPECT_TRUE(EndClipIOKQ(clip, nullptr));
    Shut(clip);
    EXPECT_EQ(Names(), (std::vector<std::string>{"out000.png", "out001.png", "out002.png"}));
    EXPECT_EQ(PixelAt(Read(Folder() + "out002.png").get(), 0, 0).red, 2);
}

// Bad input.

// Whether its rows are shown is for the platform's image library to say.
TEST_F(Stills, ACutFileTellsItsNameAndGivesNoOtherPixels) {
    std::mt19937 random(4);   // grain, so that half the file is half the picture
    auto picture = MakePicture(200, 300, [&](i32 x, i32 y) { return Pixel{255, x, int(random() % 32), y / 2}; });
    for (const char* extension : {"png", "jpg", "bmp"}) {
        std::string path = Folder() + "cut." + extension;
        ASSERT_TRUE(Write(path, picture.get(), false));
        std::vector<u8> bytes = ReadWholeFile(path);
        WriteWholeFile(path, bytes.data(), bytes.size() / 2);
        messages.clear();
        Bitmap got = Read(path);
        EXPECT_NE(GetErrorKQ(), u32(KQERR_NONE)) << extension;
        EXPECT_TRUE(!got || GetErrorKQ() == KQERR_READ) << extension;
        EXPECT_TRUE(WasTold(std::string("cut.") + extension)) << extension;
        for (i32 y : {0, 10, 80}) EXPECT_NEAR(got ? PixelAt(got.get(), 50, y).red : 50, 50, 16) << extension << y;
    }
}

// Its directory stands at its end and went with it.
TEST_F(Stills, ACutTiffIsRefusedWithItsName) {
    std::string path = Folder() + "cut.tif";
    ASSERT_TRUE(Write(path, Numbered(1).get(), false));
    std::vector<u8> bytes = ReadWholeFile(path);
    WriteWholeFile(path, bytes.data(), bytes.size() / 2);
    EXPECT_EQ(Read(path), nullptr);
    EXPECT_NE(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_TRUE(WasTold("cut.tif"));
}

// What is missing at the end of a file that is taken for whole was none of its pixels.
TEST_F(Stills, ACutFileIsNeverTakenForWhole) {
    for (auto& entry : fs::directory_iterator(KQ_STILLS)) {
        std::string extension = ExtensionOf(entry.path().string()), path = Folder() + "cut." + extension;
        if (!Reads(extension)) continue;
        std::vector<u8> bytes = ReadWholeFile(entry.path().string());
        Bitmap whole = Read(entry.path().string());
        if (entry.path().filename() == "raw.pic") continue;   // it is refused
        ASSERT_NE(whole, nullptr) << entry.path();
        int noticed = 0;
        for (size_t part = 1; part < 40; ++part) {
            size_t length = bytes.size() * part / 40;
            WriteWholeFile(path, bytes.data(), length);
            messages.clear();
            Bitmap got = Read(path);
            bool clean = got && GetErrorKQ() == KQERR_NONE;
            noticed += !clean;
            EXPECT_FALSE(WasTold("/proc/")) << "the decoder's own name of the file";
            EXPECT_TRUE(clean || WasTold("cut.")) << entry.path() << " cut to " << length;
            EXPECT_TRUE(!clean || Difference(got.get(), whole.get()) == 0) << entry.path() << " cut to " << length;
        }
        EXPECT_GT(noticed, 5) << entry.path();
    }
}

TEST_F(Stills, WhatIsNoStillIsRefusedWithItsName) {
    const std::pair<const char*, std::string> kFiles[] = {{"empty.png", ""},
                                                          {"text.png", "this is no picture at all, but a text"},
                                                          {"text.tga", "neither"},
                                                          {"short.png", "\x89PNG\r\n\x1a\n"},
                                                          {"short.jpg", "\xff\xd8\xff"},
                                                          {"text.tif", "II*"}};
    for (auto& [name, bytes] : kFiles) {
        if (!Reads(ExtensionOf(name))) continue;
        WriteWholeFile(Folder() + name, bytes);
        messages.clear();
        EXPECT_EQ(Read(Folder() + name), nullptr) << name;
        EXPECT_NE(GetErrorKQ(), u32(KQERR_NONE)) << name;
        EXPECT_TRUE(WasTold(name)) << name;
    }
}

// Its image library gives black for it.
TEST_F(Stills, ASoftimagePictureThatIsNotPackedIsRefused) {
    if (!Reads("pic")) return ExpectNotOpened("raw.pic");
    EXPECT_EQ(Read(Seed("raw.pic")), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    EXPECT_TRUE(WasTold("raw.pic"));
    EXPECT_TRUE(WasTold("not packed"));
}

TEST_F(Stills, ContentsCountAndNotTheExtension) {
    fs::copy_file(Seed("plain.bmp"), Folder() + "really-bmp.png");
    Bitmap got = Read(Folder() + "really-bmp.png");
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(PixelAt(got.get(), 2, 1).red, 26);
}

TEST_F(Stills, AFileNameMayHoldAnyLetters) {
    std::string path = Folder() + "d\xC3\xA9j\xC3\xA0 \xE6\x98\xA0%d [1].png";
    ASSERT_TRUE(Write(path, Numbered(5).get(), false));
    Bitmap got = Read(path);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(PixelAt(got.get(), 0, 0).red, 5);
}

TEST_F(Stills, ClosedClipReopens) {
    KQClip* clip = Open(Seed("plain.png"));
    ASSERT_NE(clip, nullptr);
    CloseClipKQ(clip);
    ASSERT_TRUE(OpenClipKQ(clip, nullptr));
    BeginClipIOKQ(clip, nullptr);
    EXPECT_NE(Frame(clip), nullptr);
    EndClipIOKQ(clip, nullptr);
    Shut(clip);
}

TEST_F(Stills, ACloneReadsWithoutWhatTheModuleKeeps) {
    WriteSequence({0, 1, 2});
    KQClip* clip = Open(Name(0), false);
    ASSERT_NE(clip, nullptr);
    KQClip* clone = CloneClipKQ(clip, nullptr);
    BeginClipIOKQ(clone, nullptr);
    EXPECT_EQ(PixelAt(Frame(clone, 2).get(), 0, 0).red, 2);
    EndClipIOKQ(clone, nullptr);
    Shut(clone);
    Shut(clip);
}

TEST_F(Stills, OpenCopesWithEveryFailedAllocation) {
    Shut(Open(Seed("plain.png")));
    FailEveryAllocation([&] {
        KQClip* clip = Open(Seed("plain.png"));
        if (!clip) return;
        BeginClipIOKQ(clip, nullptr);
        Frame(clip, 0, 7, 5);
        EndClipIOKQ(clip, nullptr);
        Shut(clip);
    });
}

TEST_F(Stills, ExtensionsAreNamedOneByOne) {
    for (const char* extension : {"png", "tif", "jpg", "bmp"}) {
        EXPECT_TRUE(Reads(extension)) << extension;
        EXPECT_TRUE(Writes(extension)) << extension;
    }
    EXPECT_EQ(GetImportPropertiesKQ(Module()), u32(KQFORMAT_READS | KQFORMAT_WRITES | KQFORMAT_SCALES));
    EXPECT_FALSE(Reads("avi"));
}

}   // namespace
