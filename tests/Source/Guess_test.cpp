#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "pal/file.h"
#include "support/FrameModule.h"

namespace {

constexpr i32 kWidth = 64, kHeight = 48;

using Frame = std::vector<u8>;

// Film frame `n`: a wave that moves sideways and has no detail from row to row.
Frame Film(i32 n) {
    Frame frame(kWidth * kHeight * 4, 255);
    for (i32 i = 0; i < kWidth * kHeight; ++i)
        for (i32 k = 1; k < 4; ++k)
            frame[size_t(i * 4 + k)] = u8(128 + 100 * std::sin((i % kWidth + 11 * n) / 6.0 + k));
    return frame;
}

// Video of the fields of two frames, the even rows of one and the odd rows of the other.
Frame Weave(const Frame& even, const Frame& odd) {
    Frame frame = even;
    for (size_t y = 1; y < kHeight; y += 2)
        std::copy_n(odd.begin() + i64(y * kWidth * 4), kWidth * 4, frame.begin() + i64(y * kWidth * 4));
    return frame;
}

// `count` frames of film on video, two and three fields a frame in turn, without the first `skip` frames.
std::vector<Frame> Telecine(i32 count, i32 skip, bool evenFirst) {
    std::vector<i32> fields;
    for (i32 n = 0; i32(fields.size()) < (count + skip) * 2; ++n) fields.insert(fields.end(), n % 2 ? 3 : 2, n);
    std::vector<Frame> video;
    for (i32 i = skip; i < count + skip; ++i) {
        i32 first = fields[size_t(2 * i)], second = fields[size_t(2 * i + 1)];
        video.push_back(evenFirst ? Weave(Film(first), Film(second)) : Weave(Film(second), Film(first)));
    }
    return video;
}

class Guess : public kqtest::FrameTest {
protected:
    KQClip* Clip(std::vector<Frame> frames, i32 width = kWidth, i32 height = kHeight) {
        video = std::move(frames);
        module.width = width;
        module.height = height;
        module.frames = i32(video.size());
        module.paint = [this](i32 frame, KQBitmap* target) {
            std::copy(video[size_t(frame)].begin(), video[size_t(frame)].end(), target->data);
        };
        return MakeClip(false);
    }

    // Runs a program of the host, which writes the file `name`; false where it cannot be run.
    bool MadeBy(const std::string& command, const std::string& name) {
        if (pal::Separator() != '/') return false;
        return std::system((command + " '" + name + "' >/dev/null 2>&1").c_str()) == 0;
    }

    // The frames of a raw file of alpha, red, green, blue, or in the order red, green, blue, alpha.
    static std::vector<Frame> ReadRaw(const std::string& name, i32 width, i32 height, bool alphaLast) {
        std::vector<u8> bytes = kqtest::ReadWholeFile(name);
        size_t size = size_t(width) * size_t(height) * 4;
        if (alphaLast)
            for (size_t i = 0; i + 3 < bytes.size(); i += 4)
                std::rotate(bytes.begin() + i64(i), bytes.begin() + i64(i) + 3, bytes.begin() + i64(i) + 4);
        std::vector<Frame> frames;
        for (size_t at = 0; at + size <= bytes.size(); at += size)
            frames.emplace_back(bytes.begin() + i64(at), bytes.begin() + i64(at + size));
        return frames;
    }

    // A clip of one frame with these pixels, packed.
    KQClip* Still(const std::vector<u32>& pixels) {
        Frame frame;
        for (u32 pixel : pixels)
            for (int shift : {24, 16, 8, 0}) frame.push_back(u8(pixel >> shift));
        return Clip({frame}, i32(pixels.size()), 1);
    }

    std::vector<Frame> video;
};

// Pull-down.

TEST_F(Guess, FindsEveryPhaseAndDominance) {
    for (bool evenFirst : {true, false})
        for (i32 skip = 0; skip < 5; ++skip) {
            KQClip* clip = Clip(Telecine(40, skip, evenFirst));
            EXPECT_EQ(GuessPullDownKQ(clip), 1) << skip;
            // Frames 2 and 3 of the telecine are combed: the cadence begins with frame 4, which is frame -1.
            i32 phase = (1 + skip) % 5 + 1;
            EXPECT_EQ(clip->pullDown, phase) << skip;
            EXPECT_EQ(clip->fieldOrder, evenFirst ? 1 : 2) << skip;
            EXPECT_DOUBLE_EQ(clip->frameRate, 24.0);
            EXPECT_EQ(clip->frameCount, 32);
        }
}

TEST_F(Guess, WhatItFindsGivesTheFilmBack) {
    for (bool evenFirst : {true, false})
        for (i32 skip = 0; skip < 5; ++skip) {
            KQClip* clip = Clip(Telecine(40, skip, evenFirst));
            ASSERT_EQ(GuessPullDownKQ(clip), 1);
            ASSERT_EQ(BeginClipIOKQ(clip, static_cast<TagItem*>(nullptr)), 1);
            KQBitmap* bitmap = MakeBitmap(kWidth, kHeight);
            // Film frames in order, from whichever is the first.
            i32 offset = -1;
            for (i32 n = 0; n < 30; ++n) {
                ASSERT_EQ(Get(clip, bitmap, n), 1);
                Frame shown = Bytes(bitmap);
                if (offset < 0)
                    for (i32 k = 0; k < 6; ++k)
                        if (shown == Film(k)) offset = k - n;
                if (n > 1) {
                    ASSERT_EQ(shown == Film(n + offset), true) << skip << " " << n;
                }
            }
        }
}

TEST_F(Guess, FindsNothingInPlainVideoAndLeavesTheClip) {
    std::vector<Frame> plain;
    for (i32 n = 0; n < 60; ++n) plain.push_back(Film(n));
    KQClip* clip = Clip(plain);
    clip->fieldOrder = 2;
    clip->pullDown = 0;
    clip->flags |= KQCLIP_BLEND;
    f64 rate = clip->frameRate;
    EXPECT_EQ(GuessPullDownKQ(clip), 0);
    EXPECT_EQ(clip->pullDown, 0);
    EXPECT_EQ(clip->fieldOrder, 2);
    EXPECT_EQ(clip->frameRate, rate);
    EXPECT_TRUE(clip->flags & KQCLIP_BLEND);
}

TEST_F(Guess, IdenticalFramesHaveNoCadenceAndKeepThePhase) {
    KQClip* clip = Clip(std::vector<Frame>(60, Film(0)));
    clip->pullDown = 3;
    EXPECT_EQ(GuessPullDownKQ(clip), 0);
    EXPECT_EQ(clip->pullDown, 3);
}

// Frames that fetches asked for, as far as they are the windows' own.
std::vector<i32> Asked(const kqtest::FrameModule& module) {
    std::vector<i32> frames;
    for (const auto& call : module.calls) frames.push_back(call.frame);
    return frames;
}

std::vector<i32> Range(std::initializer_list<std::pair<i32, i32>> parts) {
    std::vector<i32> frames;
    for (auto [first, count] : parts)
        for (i32 i = 0; i < count; ++i) frames.push_back(first + i);
    return frames;
}

TEST_F(Guess, ShortClipIsExaminedInOneWindow) {
    GuessPullDownKQ(Clip(std::vector<Frame>(3, Film(0))));
    EXPECT_EQ(Asked(module), Range({{0, 3}}));
}

TEST_F(Guess, ClipOf39FramesHasOneWindow) {
    GuessPullDownKQ(Clip(std::vector<Frame>(39, Film(0))));
    EXPECT_EQ(Asked(module), Range({{0, 20}}));
}

TEST_F(Guess, ClipOf40FramesHasTwoWindows) {
    GuessPullDownKQ(Clip(std::vector<Frame>(40, Film(0))));
    EXPECT_EQ(Asked(module), Range({{0, 20}, {20, 20}}));
}

TEST_F(Guess, ClipOf60FramesHasThreeWindows) {
    GuessPullDownKQ(Clip(std::vector<Frame>(67, Film(0))));
    EXPECT_EQ(Asked(module), Range({{0, 20}, {33, 20}, {47, 20}}));
}

TEST_F(Guess, PhaseOfALaterWindowCountsFromTheClipsStart) {
    for (i32 length : {42, 43, 44, 45, 46}) {
        std::vector<Frame> frames = Telecine(length, 0, true);
        for (i32 i = 0; i < 20; ++i) frames[size_t(i)] = frames[0];
        KQClip* clip = Clip(frames);
        EXPECT_EQ(GuessPullDownKQ(clip), 1) << length;
        EXPECT_EQ(clip->pullDown, 2) << length;
    }
}

TEST_F(Guess, TieGoesToTheEarlierPattern) {
    // Of five frames the fourth alone is combed: 0x18 and 0x0C both agree in four, and 0x18 comes first.
    Frame flat = Film(0);
    KQClip* clip = Clip({flat, flat, flat, Weave(Film(0), Film(3)), flat});
    EXPECT_EQ(GuessPullDownKQ(clip), 1);
    EXPECT_EQ(clip->pullDown, 1);
}

TEST_F(Guess, FailedFrameEndsAWindow) {
    KQClip* clip = Clip(Telecine(40, 0, true));
    module.failFrame = 5;
    EXPECT_EQ(GuessPullDownKQ(clip), 1) << "the second window is whole";
    module.failFrame = 25;
    module.calls.clear();
    clip->pullDown = 0;
    EXPECT_EQ(GuessPullDownKQ(clip), 1);
    module.frameFails = true;
    clip->pullDown = 4;
    clip->fieldOrder = 2;
    EXPECT_EQ(GuessPullDownKQ(clip), 0);
    EXPECT_EQ(clip->pullDown, 4);
    EXPECT_EQ(clip->fieldOrder, 2);
}

TEST_F(Guess, OddHeightLeavesItsLastRowOut) {
    std::vector<Frame> frames = Telecine(20, 0, true);
    for (size_t n = 0; n < frames.size(); ++n) frames[n].resize(kWidth * 47 * 4, n % 2 ? 255 : 0);
    KQClip* clip = Clip(frames, kWidth, 47);
    EXPECT_EQ(GuessPullDownKQ(clip), 1);
    EXPECT_EQ(clip->pullDown, 2);
}

TEST_F(Guess, ClosedClipIsOpenedAndClosedAgain) {
    KQClip* clip = Clip(Telecine(20, 0, true));
    CloseClipKQ(clip);
    i32 opens = module.opens, closes = module.closes;
    EXPECT_EQ(GuessPullDownKQ(clip), 1);
    EXPECT_EQ(module.opens, opens + 1);
    EXPECT_EQ(module.closes, closes + 1);
    EXPECT_EQ(clip->flags & (KQCLIP_OPEN | KQCLIP_IO), 0u);
    module.openFails = true;
    EXPECT_EQ(GuessPullDownKQ(clip), 0);
    EXPECT_EQ(GuessAlphaKQ(clip), 0);
    module.openFails = false;
}

TEST_F(Guess, ClipWithinInputStaysThere) {
    KQClip* clip = Clip(Telecine(20, 0, true));
    BeginClipIOKQ(clip, static_cast<TagItem*>(nullptr));
    i32 begins = module.begins, ends = module.ends;
    EXPECT_EQ(GuessPullDownKQ(clip), 1);
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(module.begins, begins);
    EXPECT_EQ(module.ends, ends);
    EXPECT_EQ(clip->flags & (KQCLIP_OPEN | KQCLIP_IO), u32(KQCLIP_OPEN | KQCLIP_IO));
}

TEST_F(Guess, InputThatCannotBeBegunIsAFailure) {
    KQClip* clip = Clip(Telecine(20, 0, true));
    module.beginFails = true;
    clip->alphaMode = 2;
    EXPECT_EQ(GuessPullDownKQ(clip), 0);
    EXPECT_EQ(GuessAlphaKQ(clip), 0);
    EXPECT_EQ(clip->alphaMode, 2);
    EXPECT_EQ(clip->frameRate, 30.0);
    module.beginFails = false;
}

TEST_F(Guess, NullClipsGiveZero) {
    EXPECT_EQ(GuessPullDownKQ(nullptr), 0);
    EXPECT_EQ(GuessAlphaKQ(nullptr), 0);
}

// A wave that moves sideways, as a source of ffmpeg at 24 frames a second.
constexpr char kFilm[] =
    "ffmpeg -y -f lavfi -i \"nullsrc=size=64x48:rate=24:duration=3,format=gbrp,"
    "geq=r='128+100*sin((X+11*N)/6)':g='128+100*sin((X+7*N)/9)':b='128+90*sin((X-9*N)/5)'\"";

TEST_F(Guess, FindsWhatTheTelecineFilterMade) {
    for (const char* field : {"top", "bottom"})
        for (i32 skip = 0; skip < 5; ++skip) {
            std::string name = Folder() + "telecine.raw";
            std::string command = std::string(kFilm) + " -vf telecine=first_field=" + field +
                                  ":pattern=23,trim=" + "start_frame=" + std::to_string(skip) +
                                  ":end_frame=" + std::to_string(skip + 60) + " -pix_fmt argb -f rawvideo";
            if (!MadeBy(command, name)) GTEST_SKIP() << "ffmpeg cannot be run here; the film woven above stands for it";
            std::vector<Frame> frames = ReadRaw(name, kWidth, kHeight, false);
            ASSERT_EQ(frames.size(), 60u);
            KQClip* clip = Clip(frames);
            EXPECT_EQ(GuessPullDownKQ(clip), 1) << field << " " << skip;
            EXPECT_EQ(clip->pullDown, (1 + skip) % 5 + 1) << field << " " << skip;
            EXPECT_EQ(clip->fieldOrder, field[0] == 't' ? 1 : 2) << field << " " << skip;
        }
}

TEST_F(Guess, FindsNothingInPlainVideoOfTheSameSource) {
    std::string name = Folder() + "plain.raw";
    if (!MadeBy(std::string(kFilm) + " -frames:v 60 -pix_fmt argb -f rawvideo", name))
        GTEST_SKIP() << "ffmpeg cannot be run here; the plain film above stands for it";
    std::vector<Frame> frames = ReadRaw(name, kWidth, kHeight, false);
    ASSERT_EQ(frames.size(), 60u);
    EXPECT_EQ(GuessPullDownKQ(Clip(frames)), 0);
}

// Alpha.

// What the guess left, as text.
std::string Kind(const KQClip* clip) {
    return std::to_string(clip->alphaMode) + (clip->alphaInvert ? " inverted" : "") +
           (clip->alphaPremultiplied ? " matted" : "");
}

TEST_F(Guess, DepthWithoutAlphaIsSettledWithoutAFrame) {
    KQClip* clip = Still({0xFF112233});
    clip->depth = 24;
    clip->alphaMode = clip->alphaInvert = clip->alphaPremultiplied = 1;
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "0");
    EXPECT_TRUE(module.calls.empty());
}

TEST_F(Guess, OpaquePictureHasNoAlpha) {
    KQClip* clip = Still({0xFF112233, 0xFF445566});
    clip->alphaPremultiplied = 1;
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "0");
}

TEST_F(Guess, TransparentPictureHasNoAlpha) {
    KQClip* clip = Still({0x00112233, 0x00445566});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "0");
}

TEST_F(Guess, EdgesMattedAgainstBlackAreFound) {
    KQClip* clip = Still({0, 0, 0, 0x80404040, 0xFF808080, 0xFF101010});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2 matted");
    EXPECT_EQ(clip->matteColor.red, 0.0);
}

TEST_F(Guess, MatteColourTakesTheBytesTimesTheUnit) {
    KQClip* clip = Still({0x00FF8001, 0x00FF8001, 0x00FF8001, 0xFF123456});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2 matted");
    EXPECT_EQ(clip->matteColor.red, 255 * 0.00392156862745098);
    EXPECT_EQ(clip->matteColor.green, 128 * 0.00392156862745098);
    EXPECT_EQ(clip->matteColor.blue, 1 * 0.00392156862745098);
}

TEST_F(Guess, EdgesBrighterThanTheMatteAllowsAreStraight) {
    KQClip* clip = Still({0, 0, 0, 0x40FFFFFF, 0xFF808080});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2");
}

TEST_F(Guess, TransparentPixelsOfManyColoursAreStraight) {
    KQClip* clip = Still({0x00112233, 0x00223344, 0x00334455, 0xFF112233, 0xFF223344});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2");
}

TEST_F(Guess, FirstPixelItselfIsNoneOfTheIdenticalOnes) {
    // Three of a kind are two later ones, more than 3 / 2; two of three are one, which is not.
    EXPECT_EQ(GuessAlphaKQ(Still({0, 0, 0, 0xFF123456})), 1);
    KQClip* clip = Still({0, 0, 0x00FFFFFF, 0xFF123456, 0xFF654321});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2");
}

TEST_F(Guess, UpsideDownMatteIsFoundFromTheOpaquePixels) {
    KQClip* clip = Still({0xFF000000, 0xFF000000, 0xFF000000, 0x80404040, 0x00808080, 0x00101010, 0x00707070});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2 inverted matted");
}

TEST_F(Guess, UpsideDownMatteThatDoesNotFitStaysInverted) {
    KQClip* clip = Still({0xFF000000, 0xFF000000, 0xFF000000, 0xC0FFFFFF, 0x00808080, 0x00101010, 0x00707070});
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2 inverted");
}

TEST_F(Guess, FailedFrameLeavesTheInterpretation) {
    KQClip* clip = Still({0, 0, 0, 0xFF123456});
    clip->alphaMode = 1;
    clip->alphaInvert = 1;
    clip->alphaPremultiplied = 1;
    clip->pullDown = 2;
    clip->flags |= KQCLIP_BLEND;
    module.frameFails = true;
    EXPECT_EQ(GuessAlphaKQ(clip), 0);
    EXPECT_EQ(Kind(clip), "1 inverted matted");
    EXPECT_EQ(clip->pullDown, 2);
    EXPECT_TRUE(clip->flags & KQCLIP_BLEND);
}

TEST_F(Guess, ReadsTheFirstFrameAloneAndAsItIsStored) {
    KQClip* clip = Still({0, 0, 0, 0x80404040, 0xFF123456});
    clip->alphaInvert = 1;
    clip->flags |= KQCLIP_BLEND;
    clip->pullDown = 4;
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(Kind(clip), "2 matted");
    EXPECT_EQ(clip->pullDown, 4);
    EXPECT_EQ(Asked(module), Range({{0, 1}}));
}

TEST_F(Guess, FindsThePicturesMattedByImageMagick) {
    for (u32 matte : {0x000000u, 0xFFFFFFu, 0xFF0000u, 0x336699u, 0x80C020u})
        for (bool inverted : {false, true}) {
            char colour[8];
            std::snprintf(colour, sizeof colour, "#%06X", matte);
            std::string name = Folder() + "matted.rgba";
            std::string picture =
                "\\( -size 64x48 -seed 7 plasma:orange-navy \\( -size 64x48 radial-gradient:white-black -level "
                "25%,75% \\) -alpha off -compose CopyOpacity -composite \\)";
            std::string command =
                "convert " + picture + " \\( -clone 0 -alpha extract \\) \\( -clone 0 -background '" + colour +
                "' -compose Over -flatten \\) -delete 0 -swap 0,1 -alpha off -compose CopyOpacity -composite " +
                "-depth 8";
            if (!MadeBy(command, name)) GTEST_SKIP() << "ImageMagick cannot be run here";
            std::vector<Frame> frames = ReadRaw(name, kWidth, kHeight, true);
            ASSERT_EQ(frames.size(), 1u);
            if (inverted)
                for (size_t at = 0; at < frames[0].size(); at += 4) frames[0][at] ^= 255;
            KQClip* clip = Clip(frames);
            EXPECT_EQ(GuessAlphaKQ(clip), 1);
            EXPECT_EQ(Kind(clip), inverted ? "2 inverted matted" : "2 matted") << colour;
            EXPECT_NEAR(clip->matteColor.red, (matte >> 16) / 255.0, 1e-9) << colour;
            EXPECT_NEAR(clip->matteColor.green, (matte >> 8 & 255) / 255.0, 1e-9) << colour;
            EXPECT_NEAR(clip->matteColor.blue, (matte & 255) / 255.0, 1e-9) << colour;
        }
}

TEST_F(Guess, EveryFailedAllocationLeavesTheClipAsItWas) {
    KQClip* clip = Clip(Telecine(20, 0, true));
    kqtest::FailEveryAllocation([&] {
        clip->pullDown = 0;
        clip->fieldOrder = 0;
        if (!GuessPullDownKQ(clip)) {
            EXPECT_EQ(clip->pullDown, 0);
            EXPECT_EQ(clip->fieldOrder, 0);
        }
        GuessAlphaKQ(clip);
        EXPECT_EQ(clip->flags & (KQCLIP_OPEN | KQCLIP_IO), u32(KQCLIP_OPEN));
    });
}

// The guesses ask for times from 0 on, as any caller does, so that a clip that starts later shows its background first.

TEST_F(Guess, PullDownOfAClipThatStartsLaterLooksFromTimeZero) {
    KQClip* clip = Clip(Telecine(40, 0, true));
    clip->startTime = {60.0, 30.0};
    EXPECT_EQ(GuessPullDownKQ(clip), 0) << "all windows lie before the clip and are background";
    EXPECT_EQ(clip->startTime.value, 60.0);
    EXPECT_TRUE(module.calls.empty());
    clip->startTime = {-5.0, 30.0};
    EXPECT_EQ(GuessPullDownKQ(clip), 1) << "five frames on, the cadence is the same";
    i32 phase = clip->pullDown;
    clip->startTime = {0.0, 0.0};
    clip->pullDown = clip->fieldOrder = 0;
    clip->frameRate = clip->sourceRate = clip->nativeRate;
    EXPECT_EQ(GuessPullDownKQ(clip), 1);
    EXPECT_EQ(clip->pullDown, phase);
}

TEST_F(Guess, AlphaOfAClipThatStartsLaterSeesTheBackground) {
    KQClip* clip = Still({0x00000000, 0x80402010, 0xFF804020});
    clip->startTime = {1.0, 1.0};
    clip->backgroundColor = 0xFF000000;
    clip->alphaMode = 2;
    EXPECT_EQ(GuessAlphaKQ(clip), 1);
    EXPECT_EQ(clip->alphaMode, 0) << "the background is opaque all over";
    EXPECT_TRUE(module.calls.empty());
}

TEST_F(Guess, EveryFailedFileCallLeavesTheClipAsItWas) {
    std::vector<Frame> frames = Telecine(20, 0, true);
    KQClip* clip = Clip(frames);
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    for (i32 i = 0; i < 20; ++i)
        kqtest::WriteWholeFile(Folder() + "g" + std::to_string(i / 10) + std::to_string(i % 10) + ".tst", "x");
    clip->fileSpec = CopyFileSpecKQ((Folder() + "g[##].tst").c_str());
    module.paint = [&](i32, KQBitmap* target) {
        size_t number = std::stoul(module.calls.back().fileSpec.substr(Folder().size() + 1, 2));
        std::copy(frames[number].begin(), frames[number].end(), target->data);
    };
    char* kept = clip->fileSpec;
    i64 found = 0, missed = 0;
    kqtest::FailEveryFileCall([&] {
        CloseClipKQ(clip);   // the guesses reopen it, by its first file
        clip->pullDown = clip->fieldOrder = 0;
        clip->frameRate = clip->sourceRate = clip->nativeRate;
        clip->frameCount = clip->sourceFrames;
        i32 mode = clip->alphaMode = 2;
        clip->alphaPremultiplied = 1;
        int guessed = GuessPullDownKQ(clip);
        (guessed ? found : missed)++;
        EXPECT_EQ(clip->pullDown != 0, guessed != 0);
        if (!guessed) {
            EXPECT_EQ(clip->fieldOrder, 0);
            EXPECT_EQ(clip->frameRate, clip->nativeRate);
        }
        if (!GuessAlphaKQ(clip)) {
            EXPECT_EQ(clip->alphaMode, mode);
            EXPECT_EQ(clip->alphaPremultiplied, 1);
        }
        EXPECT_EQ(clip->flags & (KQCLIP_OPEN | KQCLIP_IO), 0u);
        EXPECT_EQ(clip->fileSpec, kept);
    });
    EXPECT_GT(found, 0);
    EXPECT_GT(missed, 0);
}

}   // namespace
