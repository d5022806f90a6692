// The wide forms of the pixel loops against plain ones, on random and odd sizes, at every level of this processor.
#include <cstring>
#include <random>

#include "Source/ByteOrder.h"
#include "Source/PackRun.h"
#include "Source/PixelUnits.h"
#include "Source/Yuv422.h"
#include "support/Fixture.h"

using Bytes = std::vector<u8>;
using kq::Simd;

namespace {

class PixelKernels : public testing::Test {
protected:
    Bytes Random(size_t count, int values = 256) {
        Bytes bytes(count + 1024);
        for (u8& byte : bytes) byte = u8(random() % u32(values));
        return bytes;
    }

    static std::vector<Simd> Levels() {
        std::vector<Simd> levels = {Simd::Plain};
        if (kq::BestSimd() >= Simd::Avx2) levels.push_back(Simd::Avx2);
        if (kq::BestSimd() >= Simd::Avx512) levels.push_back(Simd::Avx512);
        return levels;
    }

    u32 seed = std::random_device()();
    std::mt19937 random{seed};
    testing::ScopedTrace trace{__FILE__, __LINE__, "seed " + std::to_string(seed)};
};

// The packing rule pixel by pixel.
Bytes PackPlainly(const Bytes& values, i32 size, i32 width, i32 height) {
    Bytes out;
    size_t literal = 0;
    i32 open = 0;
    auto same = [&](i32 a, i32 b) {
        return std::memcmp(&values[size_t(a * size)], &values[size_t(b * size)], size_t(size)) == 0;
    };
    for (i32 y = 0; y < height; ++y)
        for (i32 x = 0; x < width;) {
            i32 at = y * width + x, left = width - x, run = 1;
            while (run < left && run < 128 && same(at, at + run)) ++run;
            bool opens = size == 1 ? left >= 5 && run >= 4 : left >= 2 && run >= 2;
            if (opens) {
                open = 0;
                out.push_back(u8(run - 1));
                out.insert(out.end(), values.begin() + at * size, values.begin() + (at + 1) * size);
                x += run;
                continue;
            }
            if (open == 0) {
                literal = out.size();
                out.push_back(0);
            }
            out.insert(out.end(), values.begin() + at * size, values.begin() + (at + 1) * size);
            out[literal] = u8(127 + ++open);
            if (open == 128) open = 0;
            ++x;
        }
    return out;
}

}   // namespace

TEST_F(PixelKernels, RotationsAreEachOthersInverse) {
    for (Simd level : Levels())
        for (size_t count : {0u, 1u, 3u, 31u, 32u, 33u, 64u, 65u, 1000u}) {
            Bytes before = Random(count * 4), bytes = before;
            kq::RotateToBitmap(bytes.data(), count, level);
            for (size_t i = 0; i < count * 4; ++i) ASSERT_EQ(bytes[i], before[i / 4 * 4 + (i + 3) % 4]) << i;
            ASSERT_EQ(Bytes(bytes.begin() + i64(count) * 4, bytes.end()),
                      Bytes(before.begin() + i64(count) * 4, before.end()));
            kq::RotateToFile(bytes.data(), bytes.data(), count, level);
            ASSERT_EQ(bytes, before);
        }
}

TEST_F(PixelKernels, WideningAndNarrowingFollowThePlainForm) {
    kq::PixelTable ramp, colours;
    Bytes channel(256), red = Random(256), green = Random(256), blue = Random(256);
    for (size_t i = 0; i < 256; ++i) channel[i] = u8(i);
    kq::FillPixelTable(&ramp, channel.data(), channel.data(), channel.data());
    kq::FillPixelTable(&colours, red.data(), green.data(), blue.data());
    EXPECT_TRUE(ramp.grey);
    EXPECT_FALSE(colours.grey);
    for (Simd level : Levels())
        for (size_t count = 0; count < 150; ++count) {
            Bytes source = Random(count * 4);
            auto same = [&](auto plain, auto wide, size_t bytes) {
                Bytes a(count * 40 + 64, 7), b = a;
                plain(a.data());
                wide(b.data());
                a.resize(bytes);
                b.resize(bytes);
                ASSERT_EQ(a, b) << count;
            };
            for (auto* table : {&ramp, &colours})
                for (i32 bits : {1, 2, 4, 8})
                    same([&](u8* to) { kq::WidenIndexes(source.data(), count, bits, table, to, Simd::Plain); },
                         [&](u8* to) { kq::WidenIndexes(source.data(), count, bits, table, to, level); },
                         count * 32 / size_t(bits));
            same([&](u8* to) { kq::WidenTriples(source.data(), count, to, Simd::Plain); },
                 [&](u8* to) { kq::WidenTriples(source.data(), count, to, level); }, count * 4);
            same([&](u8* to) { kq::NarrowToTriples(source.data(), count, to, Simd::Plain); },
                 [&](u8* to) { kq::NarrowToTriples(source.data(), count, to, level); }, count * 3);
            same([&](u8* to) { kq::NarrowToReds(source.data(), count, to, Simd::Plain); },
                 [&](u8* to) { kq::NarrowToReds(source.data(), count, to, level); }, count);
        }
}

TEST_F(PixelKernels, EveryPairOfChromaAndEveryLightFollowThePlainForm) {
    for (Simd level : Levels()) {
        Bytes pairs(256 * 256 * 4 + 64), plain(256 * 256 * 8), wide = plain;
        for (size_t i = 0; i < 256 * 256; ++i) {
            u8* pair = &pairs[i * 4];
            pair[0] = u8(i);
            pair[2] = u8(i >> 8);
            pair[1] = u8(random());
            pair[3] = u8(random());
        }
        kq::Yuv422ToPixels(pairs.data(), 131072, plain.data(), Simd::Plain);
        kq::Yuv422ToPixels(pairs.data(), 131072, wide.data(), level);
        ASSERT_EQ(plain, wide);
    }
}

TEST_F(PixelKernels, YuvRowsOfAnyWidthFollowThePlainForm) {
    for (Simd level : Levels())
        for (i32 width = 0; width < 140; ++width) {
            Bytes source = Random(size_t(width) * 4), plain(size_t(width) * 4 + 8, 7), wide = plain;
            kq::Yuv422ToPixels(source.data(), width, plain.data(), Simd::Plain);
            kq::Yuv422ToPixels(source.data(), width, wide.data(), level);
            ASSERT_EQ(plain, wide) << width;
            kq::PixelsToYuv422(source.data(), width, plain.data(), Simd::Plain);
            kq::PixelsToYuv422(source.data(), width, wide.data(), level);
            ASSERT_EQ(plain, wide) << width;
        }
}

TEST_F(PixelKernels, RandomPixelsToYuvFollowThePlainForm) {
    Bytes source = Random(400000), plain(200000), wide = plain;
    for (Simd level : Levels()) {
        kq::PixelsToYuv422(source.data(), 100000, plain.data(), Simd::Plain);
        kq::PixelsToYuv422(source.data(), 100000, wide.data(), level);
        ASSERT_EQ(plain, wide);
    }
}

TEST_F(PixelKernels, PackingFollowsTheRulePixelByPixelAndUnpacks) {
    for (int round = 0; round < 3000; ++round) {
        i32 width = i32(random() % (round % 10 ? 20 : 700)) + 1, height = i32(random() % 4) + 1;
        i32 size = std::array{1, 3, 4}[random() % 3];
        // Values of one byte repeated, rarely or often equal.
        Bytes pixels(size_t(width * height) * 4 + 1024);
        u32 kinds = random() % 3 + 1, stay = random() % 4;
        u8 value = 0;
        for (i32 i = 0; i < width * height; ++i) {
            if (random() % 4 >= stay) value = u8(random() % (kinds * kinds * kinds));
            std::memset(&pixels[size_t(i) * 4], value, 4);
        }
        Bytes values;
        for (i32 i = 0; i < width * height; ++i)
            values.insert(values.end(), pixels.begin() + i * 4, pixels.begin() + i * 4 + size);
        Bytes expected = PackPlainly(values, size, width, height);
        values.resize(values.size() + 1024);
        for (Simd level : Levels()) {
            Bytes packed(size_t(height) * kq::PackedBound(size_t(width * size)));
            kq::RunPacker packer;
            kq::EqualBits equal;
            u8* end = packed.data();
            for (i32 y = 0; y < height; ++y) {
                const u8 *row = &values[size_t(y * width * size)], *pixelRow = &pixels[size_t(y * width) * 4];
                if (size == 1) kq::MarkEqualBytes(row, width, &equal, level);
                if (size == 3) kq::MarkEqualColours(pixelRow, width, &equal, level);
                if (size == 4) kq::MarkEqualPixels(pixelRow, width, &equal, level);
                end = size == 1   ? kq::PackBytes(&packer, row, width, &equal, end)
                      : size == 3 ? kq::PackTriples(&packer, row, width, &equal, end)
                                  : kq::PackQuads(&packer, row, width, &equal, end);
            }
            packed.resize(size_t(end - packed.data()));
            ASSERT_EQ(packed, expected) << width << "x" << height << " of " << size;
        }
        // Unpacked in pieces of input and output of random size.
        kq::RunUnpacker unpacker;
        size_t count = size_t(width * height), done = 0, given = 0;
        const u8* in = expected.data();
        Bytes out(count * size_t(size) + 8, 0x77);
        while (done < count) {
            given = std::min(expected.size(), given + random() % 600);
            size_t want = std::min(count - done, size_t(random() % 500));
            done += kq::UnpackRuns(&unpacker, size, &in, expected.data() + given, &out[done * size_t(size)], want);
            for (size_t i = done * size_t(size); i < out.size(); ++i) ASSERT_EQ(out[i], 0x77);
        }
        ASSERT_TRUE(std::equal(out.begin(), out.end() - 8, values.begin()));
        ASSERT_EQ(in, expected.data() + expected.size());
    }
}

using Unpacker = size_t (*)(kq::RunUnpacker*, const u8** in, const u8* end, u8* out, size_t want, Simd level);

template <i32 Size>
size_t UnpackValues(kq::RunUnpacker* unpacker, const u8** in, const u8* end, u8* out, size_t want, Simd level) {
    return kq::UnpackRuns(unpacker, Size, in, end, out, want, level);
}

// Any packets, also such as no packer makes, in pieces: the same values, input used and bytes left alone.
TEST_F(PixelKernels, UnpackingFollowsThePlainFormForAnyPackets) {
    const struct {
        Unpacker unpack;
        size_t in, out;
    } kinds[] = {{UnpackValues<1>, 1, 1}, {UnpackValues<2>, 2, 2},      {UnpackValues<3>, 3, 3},
                 {UnpackValues<4>, 4, 4}, {kq::UnpackGreyPixels, 1, 4}, {kq::UnpackTriplePixels, 3, 4}};
    for (int round = 0; round < 1200; ++round) {
        auto kind = kinds[round % 6];
        Bytes packed;
        size_t values = 0;
        u32 most = random() % 2 ? 128 : random() % 20 + 1;
        for (u32 packets = random() % 60; packets > 0; --packets) {
            u32 count = random() % most + 1;
            bool run = random() % 2;
            packed.push_back(u8((count - 1) | (run ? 0 : 128)));
            for (size_t i = 0; i < (run ? 1 : count) * kind.in; ++i) packed.push_back(u8(random()));
            values += count;
        }
        if (random() % 4 == 0) packed.resize(random() % (packed.size() + 1));   // cut
        size_t wanted = random() % (values + 2), firstIn = random() % (packed.size() + 1);
        size_t firstWant = random() % (wanted + 1);
        auto unpack = [&](Simd level, const u8** in) {
            Bytes out(wanted * kind.out + 64, 0x77);
            kq::RunUnpacker unpacker;
            *in = packed.data();
            size_t done = kind.unpack(&unpacker, in, packed.data() + firstIn, out.data(), firstWant, level);
            u8* rest = out.data() + done * kind.out;
            done += kind.unpack(&unpacker, in, packed.data() + packed.size(), rest, wanted - done, level);
            for (size_t i = done * kind.out; i < out.size(); ++i) EXPECT_EQ(out[i], 0x77) << "at " << i;
            return out;
        };
        const u8 *plainIn, *in;
        Bytes plain = unpack(Simd::Plain, &plainIn);
        for (Simd level : Levels()) {
            ASSERT_EQ(unpack(level, &in), plain) << "kind " << round % 6 << ", level " << int(level);
            ASSERT_EQ(in, plainIn);
        }
    }
}
