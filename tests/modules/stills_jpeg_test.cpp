// JPEG files of every make, whole, damaged, cut and reduced: damage that libjpeg only notes is told, and a frame that
// is decoded at a reduced size is the same picture.
#include <cmath>
#include <cstdio>
#include <random>

#include <jpeglib.h>

#include "support/StillsFixture.h"

namespace {

using namespace kqtest;
using Bytes = std::vector<u8>;
using Painter = std::function<Pixel(i32, i32)>;

// How a file is made.
struct Make {
    const char* name;
    int channels;   // 1: grey, 3: colours, 4: CMYK
    int sampling;   // of luminance for each sample of colour, along each side
    bool progressive;
    int restart;   // blocks between restart markers; 0: none
};

constexpr Make kMakes[] = {
    {"coarse colours", 3, 2, false, 0}, {"full colours", 3, 1, false, 0}, {"grey", 1, 1, false, 0},
    {"progressive", 3, 2, true, 0},     {"restarts", 3, 2, false, 8},     {"cmyk", 4, 1, false, 0},
};

Bytes RowOf(const Make& make, const Painter& at, i32 width, i32 y) {
    Bytes row;
    for (i32 x = 0; x < width; ++x) {
        Pixel p = at(x, y);
        if (make.channels == 1)
            row.push_back(u8(p.red));
        else
            for (int value : {p.red, p.green, p.blue}) row.push_back(u8(value));
        if (make.channels == 4) row.push_back(255);   // inverted, as such files are
    }
    return row;
}

Bytes Jpeg(const Make& make, i32 width, i32 height, const Painter& at) {
    jpeg_compress_struct codec = {};
    jpeg_error_mgr errors;
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    jpeg_mem_dest(&codec, &memory, &size);
    codec.image_width = JDIMENSION(width);
    codec.image_height = JDIMENSION(height);
    codec.input_components = make.channels;
    codec.in_color_space = make.channels == 1 ? JCS_GRAYSCALE : make.channels == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, 95, TRUE);
    codec.comp_info[0].h_samp_factor = codec.comp_info[0].v_samp_factor = make.sampling;
    codec.restart_interval = unsigned(make.restart);
    if (make.progressive) jpeg_simple_progression(&codec);
    jpeg_start_compress(&codec, TRUE);
    for (i32 y = 0; y < height; ++y) {
        Bytes row = RowOf(make, at, width, y);
        JSAMPROW line = row.data();
        jpeg_write_scanlines(&codec, &line, 1);
    }
    jpeg_finish_compress(&codec);
    Bytes bytes(memory, memory + size);
    jpeg_destroy_compress(&codec);
    std::free(memory);
    return bytes;
}

// Soft slopes, as skies have them.
Pixel Slope(i32 x, i32 y) { return {255, x * 255 / 640, y * 255 / 480, (x + y) * 255 / 1120}; }

// Waves of a few blocks' length, which no reduced picture may move.
Pixel Wave(i32 x, i32 y) {
    auto wave = [](double angle) { return int(128 + 90 * std::sin(angle)); };
    return {255, wave(x / 9.0), wave(y / 8.0), wave((x + y) / 12.0)};
}

// Grain on a slope, so that blocks take many bytes.
Pixel Grain(i32 x, i32 y) {
    u32 noise = u32(x) * 73856093u ^ u32(y) * 19349663u;
    noise = (noise ^ noise >> 13) * 1274126177u;
    return {255, 60 + x / 4 + int(noise >> 27), 60 + y / 4 + int(noise >> 22 & 31), 100 + int(noise >> 17 & 31)};
}

constexpr i32 kWidth = 320, kHeight = 240;

// Where the stream of the first scan begins.
size_t StreamOf(const Bytes& bytes) {
    for (size_t i = 2; i + 4 < bytes.size();) {
        size_t length = size_t(bytes[i + 2] << 8 | bytes[i + 3]);
        if (bytes[i + 1] == 0xDA) return i + 2 + length;
        i += 2 + length;
    }
    return bytes.size();
}

class StillsJpeg : public StillsTest {
protected:
    std::string Store(const Bytes& bytes) {
        messages.clear();
        WriteWholeFile(Folder() + "a.jpg", bytes.data(), bytes.size());
        return Folder() + "a.jpg";
    }

    // The picture at a size; also how it went.
    Bitmap ReadAt(const Bytes& bytes, i32 width = 0, i32 height = 0) {
        KQClip* clip = Open(Store(bytes));
        if (!clip) return nullptr;
        BeginClipIOKQ(clip, nullptr);
        Bitmap got = Frame(clip, 0, width, height);
        error = KQEnv->Error;
        EndClipIOKQ(clip, nullptr);
        Shut(clip);
        return got;
    }

    void ExpectToldAsDamaged() {
        EXPECT_EQ(error, u32(KQERR_READ));
        EXPECT_TRUE(WasTold("a.jpg"));
        EXPECT_FALSE(WasTold("/proc/"));
    }

    u32 error = KQERR_NONE;
};

TEST_F(StillsJpeg, EveryMakeIsReadAsItWasMade) {
    for (const Make& make : kMakes) {
        SCOPED_TRACE(make.name);
        Bitmap got = ReadAt(Jpeg(make, kWidth, kHeight, Slope));
        ASSERT_NE(got, nullptr);
        EXPECT_EQ(error, u32(KQERR_NONE));
        EXPECT_TRUE(messages.empty());
        auto wanted = MakePicture(kWidth, kHeight, [&](i32 x, i32 y) {
            Pixel p = Slope(x, y);
            return make.channels == 1 ? Pixel{255, p.red, p.red, p.red} : p;
        });
        EXPECT_LE(Difference(got.get(), wanted.get()), 6);
    }
}

TEST_F(StillsJpeg, DamageInTheBodyIsToldAndTheRestShown) {
    for (const Make& make : kMakes) {
        SCOPED_TRACE(make.name);
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        Bitmap whole = ReadAt(bytes);
        ASSERT_NE(whole, nullptr);
        std::fill_n(bytes.begin() + std::ptrdiff_t(bytes.size() * 3 / 5), 400, u8(0x55));
        Bitmap got = ReadAt(bytes);
        ASSERT_NE(got, nullptr);
        ExpectToldAsDamaged();
        if (make.progressive) continue;   // its scans cover the whole picture, each
        for (i32 x = 0; x < kWidth; x += 7)
            EXPECT_EQ(PixelAt(got.get(), x, kHeight / 4).green, PixelAt(whole.get(), x, kHeight / 4).green);
    }
}

TEST_F(StillsJpeg, DamageIsToldAtEverySize) {
    Bytes bytes = Jpeg(kMakes[0], kWidth, kHeight, Grain);
    std::fill_n(bytes.begin() + std::ptrdiff_t(bytes.size() / 2), 400, u8(0x55));
    for (i32 part : {1, 2, 3, 4, 8, 30}) {
        EXPECT_NE(ReadAt(bytes, kWidth / part, kHeight / part), nullptr) << part;
        ExpectToldAsDamaged();
    }
}

TEST_F(StillsJpeg, DamageBelowTheLastRowThatIsWantedIsTold) {
    Bytes bytes = Jpeg(kMakes[0], kWidth, kHeight, Grain);
    std::fill_n(bytes.end() - 300, 200, u8(0x55));
    EXPECT_NE(ReadAt(bytes, 1, 1), nullptr);
    ExpectToldAsDamaged();
}

TEST_F(StillsJpeg, ACutStreamIsNeverTakenForWhole) {
    for (const Make& make : kMakes) {
        SCOPED_TRACE(make.name);
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        size_t stream = StreamOf(bytes);
        for (size_t part = 1; part < 20; ++part) {
            Bytes cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(stream + (bytes.size() - stream) * part / 20));
            Bitmap got = ReadAt(cut, part % 2 ? 0 : 40, part % 2 ? 0 : 30);
            EXPECT_TRUE(WasTold("a.jpg")) << part;
            if (got) ExpectToldAsDamaged();
            EXPECT_TRUE(got || part == 1 || make.progressive) << part;   // it may be cut within a table
        }
    }
}

TEST_F(StillsJpeg, TheRowsInFrontOfACutAreShown) {
    for (const Make& make : {kMakes[0], kMakes[1], kMakes[2], kMakes[4], kMakes[5]}) {
        SCOPED_TRACE(make.name);
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        Bitmap whole = ReadAt(bytes);
        bytes.resize(bytes.size() / 2);
        Bitmap got = ReadAt(bytes);
        ASSERT_NE(got, nullptr);
        for (i32 y = 0; y < kHeight / 3; ++y)
            for (i32 x = 0; x < kWidth; ++x)
                ASSERT_EQ(PixelAt(got.get(), x, y).green, PixelAt(whole.get(), x, y).green) << x << ',' << y;
    }
}

TEST_F(StillsJpeg, AFileWithoutItsEndMarkerIsToldAndWhole) {
    for (const Make& make : kMakes) {
        SCOPED_TRACE(make.name);
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        Bitmap whole = ReadAt(bytes);
        bytes.resize(bytes.size() - 2);
        Bitmap got = ReadAt(bytes);
        ASSERT_NE(got, nullptr);
        ExpectToldAsDamaged();
        EXPECT_TRUE(WasTold("cut off"));
        EXPECT_EQ(Difference(got.get(), whole.get()), 0);
    }
}

TEST_F(StillsJpeg, AFileThatEndsBeforeItsFirstRowIsRefused) {
    for (const Make& make : {kMakes[0], kMakes[2], kMakes[3], kMakes[4]}) {
        SCOPED_TRACE(make.name);
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        size_t stream = StreamOf(bytes);
        for (size_t more : {0u, 1u, 20u}) {
            Bytes cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(stream + more));
            EXPECT_EQ(ReadAt(cut), nullptr) << more;
            EXPECT_TRUE(WasTold("cut off")) << more;
        }
    }
}

TEST_F(StillsJpeg, WhatStandsBehindTheEndIsNoDamage) {
    for (const Make& make : kMakes) {
        SCOPED_TRACE(make.name);
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        bytes.insert(bytes.end(), 1000, u8(0xFF));
        EXPECT_NE(ReadAt(bytes), nullptr);
        EXPECT_EQ(error, u32(KQERR_NONE));
        EXPECT_TRUE(messages.empty());
    }
}

TEST_F(StillsJpeg, AnUnknownVersionIsNoDamage) {
    Bytes bytes = Jpeg(kMakes[0], kWidth, kHeight, Grain);
    bytes[11] = 9;   // behind the marker, the length and "JFIF"
    EXPECT_NE(ReadAt(bytes), nullptr);
    EXPECT_EQ(error, u32(KQERR_NONE));
    EXPECT_TRUE(messages.empty());
}

// Reduced frames. The tolerance for the whole frame's own pixels holds where the picture is smooth; where it is not, a
// reduced pixel is near the mean of its block. At half the size, colours that are stored coarsely are taken as they are
// stored, where the whole frame has them smoothed.

constexpr i32 kSmooth = 6, kMean = 6, kMeanAtHalf = 12;

TEST_F(StillsJpeg, AReducedFrameIsTheWholeOneScaled) {
    for (const Make& make : kMakes) {
        Bytes bytes = Jpeg(make, 640, 480, Slope);
        Bitmap whole = ReadAt(bytes);
        ASSERT_NE(whole, nullptr);
        for (auto [width, height] : {std::pair(320, 240),
                                     {319, 239},
                                     {213, 160},
                                     {160, 120},
                                     {128, 96},
                                     {100, 75},
                                     {80, 60},
                                     {80, 480},
                                     {640, 60},
                                     {79, 59},
                                     {33, 25},
                                     {5, 4},
                                     {1, 1}}) {
            Bitmap got = ReadAt(bytes, width, height), wanted(AllocBitmapKQ(width, height, 32));
            ASSERT_NE(got, nullptr);
            ScaleBitmapKQ(whole.get(), wanted.get(), nullptr, nullptr);
            EXPECT_LE(Difference(got.get(), wanted.get()), kSmooth) << make.name << ' ' << width << 'x' << height;
        }
    }
}

TEST_F(StillsJpeg, MoreThanHalfTheSizeIsTheLibrarysOwnScaling) {
    for (const Make& make : kMakes) {
        Bytes bytes = Jpeg(make, kWidth, kHeight, Grain);
        Bitmap whole = ReadAt(bytes);
        ASSERT_NE(whole, nullptr);
        for (auto [width, height] : {std::pair(161, 120), {160, 121}, {319, 239}, {500, 500}, {40, 200}}) {
            Bitmap got = ReadAt(bytes, width, height), wanted(AllocBitmapKQ(width, height, 32));
            ASSERT_NE(got, nullptr);
            ScaleBitmapKQ(whole.get(), wanted.get(), nullptr, nullptr);
            EXPECT_EQ(Difference(got.get(), wanted.get()), 0) << make.name << ' ' << width << 'x' << height;
        }
    }
}

// The mean of the block of `side` pixels that holds (x, y).
double MeanOfBlock(const KQBitmap* bitmap, i32 x, i32 y, i32 side, int channel) {
    double sum = 0;
    int count = 0;
    i32 left = x / side * side, top = y / side * side;
    for (i32 v = top; v < std::min(top + side, bitmap->height); ++v)
        for (i32 u = left; u < std::min(left + side, bitmap->width); ++u, ++count)
            sum += bitmap->data[i64(v) * bitmap->rowBytes + u * 4 + channel];
    return sum / count;
}

void ExpectMeans(const KQBitmap* got, const KQBitmap* whole, i32 side) {
    double worst = 0;
    for (i32 y = 0; y < got->height; ++y)
        for (i32 x = 0; x < got->width; ++x)
            for (int channel = 1; channel < 4; ++channel) {
                i32 fromX = i32(i64(x) * ((i64(whole->width) << 16) / got->width) >> 16);
                i32 fromY = i32(i64(y) * ((i64(whole->height) << 16) / got->height) >> 16);
                double mean = MeanOfBlock(whole, fromX, fromY, side, channel);
                worst = std::max(worst, std::abs(mean - got->data[i64(y) * got->rowBytes + x * 4 + channel]));
            }
    EXPECT_LE(worst, side == 2 ? kMeanAtHalf : kMean) << got->width << 'x' << got->height;
}

TEST_F(StillsJpeg, AReducedPixelIsTheMeanOfItsBlock) {
    for (const Painter& painter : {Painter(Wave), Painter(Grain)})
        for (const Make& make : {kMakes[0], kMakes[1], kMakes[2], kMakes[3], kMakes[4]}) {
            SCOPED_TRACE(make.name);
            Bytes bytes = Jpeg(make, 320, 240, painter);
            Bitmap whole = ReadAt(bytes);
            ASSERT_NE(whole, nullptr);
            ExpectMeans(ReadAt(bytes, 40, 30).get(), whole.get(), 8);
            ExpectMeans(ReadAt(bytes, 29, 13).get(), whole.get(), 8);
            ExpectMeans(ReadAt(bytes, 80, 60).get(), whole.get(), 4);
            ExpectMeans(ReadAt(bytes, 61, 59).get(), whole.get(), 4);
            ExpectMeans(ReadAt(bytes, 160, 120).get(), whole.get(), 2);
            ExpectMeans(ReadAt(bytes, 131, 101).get(), whole.get(), 2);
        }
}

TEST_F(StillsJpeg, SidesThatAreNoMultipleOfABlockAreReduced) {
    for (auto [width, height] : {std::pair(1, 1), {7, 3}, {9, 17}, {33, 15}, {641, 479}, {637, 9}}) {
        Bytes bytes = Jpeg(kMakes[0], width, height, Slope);
        Bitmap whole = ReadAt(bytes);
        ASSERT_NE(whole, nullptr);
        for (i32 part : {2, 4, 5, 8, 9, 16}) {
            i32 w = std::max(1, width / part), h = std::max(1, height / part);
            Bitmap got = ReadAt(bytes, w, h), wanted(AllocBitmapKQ(w, h, 32));
            ASSERT_NE(got, nullptr);
            ScaleBitmapKQ(whole.get(), wanted.get(), nullptr, nullptr);
            EXPECT_LE(Difference(got.get(), wanted.get()), kSmooth) << width << 'x' << height << " / " << part;
        }
    }
}

}   // namespace
