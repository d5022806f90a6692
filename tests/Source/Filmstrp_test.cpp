// Filmstrip files: read and written to the byte, held against hand-made files and against the ffmpeg program.
#include "Source/Startup.h"
#include "support/FormatTest.h"

using kqtest::Bytes;
using kqtest::FormatTest;

namespace {

// The bytes of a film of `frames` frames whose pixel bytes count up, with `leading` label rows of 0xEE.
Bytes Film(int frames, int width, int height, int leading, int rate) {
    Bytes bytes;
    u8 next = 0;
    for (int f = 0; f < frames; ++f) {
        for (int i = 0; i < width * height * 4; ++i) bytes.push_back(next++);
        bytes.insert(bytes.end(), size_t(leading * width * 4), 0xEE);
    }
    bytes.insert(bytes.end(), size_t(leading * width * 4), 0);
    kqtest::PutText(bytes, "Rand");
    kqtest::Put32(bytes, u32(frames));
    kqtest::Put16(bytes, 0);
    kqtest::Put16(bytes, 0);
    kqtest::Put16(bytes, u16(width));
    kqtest::Put16(bytes, u16(height));
    kqtest::Put16(bytes, u16(leading));
    kqtest::Put16(bytes, u16(rate));
    bytes.insert(bytes.end(), 16, 0);
    return bytes;
}

class Filmstrip : public FormatTest {
protected:
    Filmstrip() : FormatTest(kq::MakeFilmstripModule, "x.flm") {}
};

}   // namespace

TEST_F(Filmstrip, OpenTakesSizeFramesAndRateFromTheTrailer) {
    Write(Film(3, 5, 4, 16, 24));
    ASSERT_TRUE(Open());
    EXPECT_EQ(clip->width, 5);
    EXPECT_EQ(clip->height, 4);
    EXPECT_EQ(clip->depth, 32);
    EXPECT_EQ(clip->sourceFrames, 3);
    EXPECT_EQ(clip->sourceRate, 24.0);
}

TEST_F(Filmstrip, FrameBytesComeAlphaFirst) {
    Write(Film(1, 2, 1, 16, 24));
    ASSERT_TRUE(Open());
    EXPECT_EQ(Frame(0), (Bytes{3, 0, 1, 2, 7, 4, 5, 6}));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

TEST_F(Filmstrip, AFilmOpensThroughTheRegistry) {
    InitFormatModulesKQ(nullptr);
    Write(Film(3, 5, 4, 16, 24));
    KQClip* opened = OpenClipKQ(path.c_str(), KQTAG_CLIP_NOGUESS, 0, 0);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->frameCount, 3);
    EXPECT_EQ(opened->frameRate, 24.0);
    EXPECT_EQ(opened->alphaMode, 2);
    CloseClipKQ(opened);
    FreeClipKQ(opened);
    kq::FreeFormatModules();
}
