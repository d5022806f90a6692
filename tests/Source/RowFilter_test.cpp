// The wide forms of the row loops against plain ones, on random rows of random lengths.
#include "Source/RowFilter.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Source/AlphaSurvey.h"
#include "Source/Simd.h"

namespace {

using Bytes = std::vector<u8>;

class RowFilter : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        if (GetParam() > int(kq::BestSimd())) GTEST_SKIP() << "this machine has no vectors of this width";
        kq::SimdInUse() = kq::Simd(GetParam());
        random.seed(seed);
        RecordProperty("seed", int(seed));
    }

    void TearDown() override { kq::SimdInUse() = kq::BestSimd(); }

    Bytes Random(size_t size) {
        Bytes bytes(size);
        for (u8& byte : bytes) byte = u8(random());
        return bytes;
    }

    // A length of pixels in bytes; short ones often.
    size_t Length() { return (random() % 4 ? random() % 40 : random() % 3000) * 4; }

    kq::Weight Weight() {
        switch (random() % 5) {
        case 0: return 65536;
        case 1: return 0;
        case 2: return 65535;
        default: return random() % 65537;
        }
    }

    u32 seed = std::random_device{}();
    std::mt19937 random;
};

INSTANTIATE_TEST_SUITE_P(Widths, RowFilter, testing::Values(0, 1, 2));

TEST_P(RowFilter, AveragesCutTowardZero) {
    for (int round = 0; round < 500; ++round) {
        size_t n = Length();
        Bytes above = Random(n), below = Random(n), target(n);
        kq::AverageRows(target.data(), above.data(), below.data(), n);
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(target[i], (above[i] + below[i]) >> 1) << "seed " << seed;
        Bytes halved = above;
        kq::HalveRow(halved.data(), below.data(), n);
        ASSERT_EQ(halved, target) << "seed " << seed;
    }
}

TEST_P(RowFilter, SmoothingHandsTheUnfilteredRowOn) {
    for (int round = 0; round < 500; ++round) {
        size_t n = Length();
        Bytes above = Random(n), row = Random(n), below = Random(n);
        Bytes kept = above, filtered = row;
        kq::SmoothRow(filtered.data(), kept.data(), below.data(), n);
        ASSERT_EQ(kept, row) << "seed " << seed;
        for (size_t i = 0; i < n; ++i)
            ASSERT_EQ(filtered[i], (above[i] + 2 * row[i] + below[i]) >> 2) << "seed " << seed;
    }
}

TEST_P(RowFilter, BlendsCutProductsAndWrapSums) {
    for (int round = 0; round < 1000; ++round) {
        size_t n = Length();
        int count = int(random() % kq::kMostBlended) + 1;
        std::vector<Bytes> rows;
        const u8* sources[kq::kMostBlended];
        kq::Weight weights[kq::kMostBlended];
        for (int k = 0; k < count; ++k) {
            rows.push_back(Random(n));
            weights[k] = Weight();
        }
        for (int k = 0; k < count; ++k) sources[k] = rows[size_t(k)].data();
        Bytes expected(n);
        for (int k = 0; k < count; ++k)
            for (size_t i = 0; i < n; ++i) expected[i] = u8(expected[i] + (rows[size_t(k)][i] * weights[k] >> 16));
        Bytes target(n);
        kq::BlendRows(target.data(), sources, weights, count, n);
        ASSERT_EQ(target, expected) << "seed " << seed;
        kq::BlendRows(rows[0].data(), sources, weights, count, n);
        ASSERT_EQ(rows[0], expected) << "in place, seed " << seed;
    }
}

TEST_P(RowFilter, EveryByteTimesEveryWeightIsExact) {
    Bytes row(256), target(256);
    for (size_t i = 0; i < 256; ++i) row[i] = u8(i);
    const u8* source = row.data();
    for (kq::Weight weight = 0; weight <= 65536; ++weight) {
        kq::BlendRows(target.data(), &source, &weight, 1, 256);
        for (u32 i = 0; i < 256; ++i) ASSERT_EQ(target[i], i * weight >> 16) << weight;
    }
}

TEST_P(RowFilter, FieldRowsMixTheRowWithItsNeighbours) {
    for (int round = 0; round < 1000; ++round) {
        size_t n = Length();
        Bytes above = Random(n), row = Random(n), below = Random(n), target = Random(n), before = target;
        kq::FieldRow from = {above.data(), row.data(), below.data(), Weight(), Weight()};
        Bytes mixed(n);
        for (size_t i = 0; i < n; ++i)
            mixed[i] = u8((((above[i] + below[i]) >> 1) * u64(from.between) + row[i] * u64(from.own)) >> 16);
        kq::AddFieldRow(target.data(), from, n);
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(target[i], u8(before[i] + mixed[i])) << "seed " << seed;
        kq::SetFieldRow(target.data(), from, n);
        ASSERT_EQ(target, mixed) << "seed " << seed;
    }
}

TEST_P(RowFilter, ColourDifferenceLeavesAlphaOut) {
    for (int round = 0; round < 300; ++round) {
        size_t n = Length();
        Bytes one = Random(n), other = Random(n);
        u64 sum = 0;
        for (size_t i = 0; i < n; ++i)
            if (i % 4) sum += u64(std::abs(one[i] - other[i]));
        ASSERT_EQ(kq::ColourDifference(one.data(), other.data(), n / 4), sum) << "seed " << seed;
    }
}

TEST_P(RowFilter, ColourDifferenceOfMillionsOfPixelsDoesNotOverflow) {
    size_t pixels = (size_t(1) << 21) + 5;
    Bytes black(pixels * 4, 0), white(pixels * 4, 255);
    EXPECT_EQ(kq::ColourDifference(black.data(), white.data(), pixels), u64(pixels) * 765);
}

TEST_P(RowFilter, SurveyCountsBothEndsOfTheAlpha) {
    for (int round = 0; round < 300; ++round) {
        std::vector<u32> pixels(random() % 20000);
        for (u32& pixel : pixels) {
            u32 r = random();
            u32 alpha = r % 3 == 0 ? 0 : r % 3 == 1 ? 255 : r >> 8 & 255;
            pixel = alpha | (r >> 16 & 1 ? 0x11223300u : 0x44556600u);
        }
        // Often one end, or both, begin late.
        size_t from = pixels.empty() ? 0 : random() % pixels.size();
        for (size_t i = 0; i < from; ++i) pixels[i] |= round % 3 == 0 ? 255 : 0;
        u32 first[2] = {}, counts[2] = {}, identical[2] = {};
        for (u32 pixel : pixels)
            for (int end : {0, 1}) {
                if ((pixel & 255) != u32(end * 255)) continue;
                if (counts[end]++ == 0)
                    first[end] = pixel;
                else
                    identical[end] += pixel == first[end];
            }
        kq::AlphaSurvey survey = kq::SurveyAlpha(pixels.data(), pixels.size());
        ASSERT_EQ(survey.zeros.count, counts[0]) << "seed " << seed;
        ASSERT_EQ(survey.ones.count, counts[1]) << "seed " << seed;
        if (counts[0]) {
            ASSERT_EQ(survey.zeros.word, first[0]) << "seed " << seed;
        }
        if (counts[1]) {
            ASSERT_EQ(survey.ones.word, first[1]) << "seed " << seed;
        }
        ASSERT_EQ(survey.zeros.identical, identical[0]) << "seed " << seed;
        ASSERT_EQ(survey.ones.identical, identical[1]) << "seed " << seed;
    }
}

bool PlainFits(u32 pixel, u32 matte, bool inverted) {
    int a = int(pixel & 255);
    for (int shift : {8, 16, 24}) {
        int c = int(pixel >> shift & 255), m = int(matte >> shift & 255), t = 255 - a;
        if (!inverted && (c * 255 > m * t + (a + 1) * 255 || c * 255 < m * t - 255)) return false;
        if (inverted && (c * 255 > m * a + (256 - a) * 255 || c * 255 < m * a - 255)) return false;
    }
    return true;
}

TEST_P(RowFilter, FitOfAMatteIsThePlainTest) {
    for (int round = 0; round < 20000; ++round) {
        u32 pixel = random(), matte = random();
        bool inverted = random() & 1;
        // Bring the channels close to the border.
        for (int shift : {8, 16, 24}) {
            int a = int(pixel & 255), t = inverted ? a : 255 - a;
            int edge = (int(matte >> shift & 255) * t + int(random() % 3 - 1) * 255) / 255 + int(random() % 3) - 1;
            if (edge >= 0 && edge <= 255) pixel = (pixel & ~(255u << shift)) | u32(edge) << shift;
        }
        std::vector<u32> pixels(random() % 40 + 1, inverted ? 0u : 255u);
        pixels[random() % pixels.size()] = pixel;
        ASSERT_EQ(kq::FitsMatte(pixels.data(), pixels.size(), matte, inverted), PlainFits(pixel, matte, inverted))
            << "seed " << seed;
    }
}

}   // namespace
