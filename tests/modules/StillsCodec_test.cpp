// Tests of the stills codec itself: what it writes it reads again, and damaged files are answers.
#include "modules/stills/Codec.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "support/Fixture.h"

namespace {

using stills::Head;
using stills::Pixels;
using stills::Problem;
using Bytes = std::vector<u8>;

const char* const kExactKinds[] = {"png", "bmp", "tif"};

bool KeepsAlpha(const char* kind) { return std::strcmp(kind, "bmp") != 0; }

Bytes RandomPixels(int width, int height, bool alpha, unsigned seed, int colours = 0) {
    std::mt19937 random(seed);
    Bytes pixels(size_t(width) * size_t(height) * 4);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        unsigned word = unsigned(random());
        if (colours) word = word % unsigned(colours) * 2654435761u;
        std::memcpy(&pixels[i], &word, 4);
        if (!alpha) pixels[i] = 255;
    }
    return pixels;
}

// Soft slopes, as photographs have them.
Bytes Slopes(int width, int height) {
    Bytes pixels;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int v : {255, x * 255 / width, y * 255 / height, (x + y) * 255 / (width + height)})
                pixels.push_back(u8(v));
    return pixels;
}

const std::string kSamples = KQ_STILLS;

class StillsCodecTest : public kqtest::KQTest {
protected:
    std::string Path(const std::string& name) { return Folder() + name; }

    std::string Write(const std::string& name, const char* extension, int width, int height, bool alpha,
                      const Bytes& pixels, double aspect = 1.0) {
        Head head = {width, height, alpha, aspect, ""};
        Problem problem;
        EXPECT_TRUE(stills::WritePixels(Path(name).c_str(), extension, head, pixels.data(), problem)) << problem;
        return Path(name);
    }

    Head HeadOf(const std::string& path) {
        Head head;
        Problem problem;
        EXPECT_TRUE(stills::ReadHead(path.c_str(), head, problem)) << problem;
        return head;
    }

    Bytes Read(const std::string& path, int width, int height) {
        Bytes pixels(size_t(width) * size_t(height) * 4, 0x5A);
        Head head;
        Problem problem;
        EXPECT_EQ(stills::ReadPixels(path.c_str(), width, height, pixels.data(), head, problem), Pixels::Whole)
            << problem;
        return pixels;
    }

    Bytes Store(const std::string& name, const Bytes& bytes, int width, int height) {
        kqtest::WriteWholeFile(Path(name), bytes.data(), bytes.size());
        return Read(Path(name), width, height);
    }

    // Both questions are answered with no and a reason.
    void ExpectRefused(const std::string& path) {
        Head head;
        Problem problem;
        EXPECT_FALSE(stills::ReadHead(path.c_str(), head, problem)) << path;
        EXPECT_FALSE(problem.empty());
        Bytes pixels(4 * 4 * 4, 0x5A);
        problem.clear();
        EXPECT_EQ(stills::ReadPixels(path.c_str(), 4, 4, pixels.data(), head, problem), Pixels::None) << path;
        EXPECT_FALSE(problem.empty());
        EXPECT_EQ(pixels, Bytes(pixels.size(), 0x5A)) << "what could not be read is left as it was";
    }
};

TEST_F(StillsCodecTest, NamesTheKindsOfEveryPlatform) {
    for (const char* kind : {"png", "tif", "jpg", "bmp", "tiff", "jpeg"}) {
        EXPECT_TRUE(stills::Reads(kind)) << kind;
        EXPECT_TRUE(stills::Writes(kind)) << kind;
    }
    for (const char* kind : {"", " ", "p", "png ", "pn", "png tif", "txt", "flm"}) {
        EXPECT_FALSE(stills::Reads(kind)) << kind;
        EXPECT_FALSE(stills::Writes(kind)) << kind;
    }
}

TEST_F(StillsCodecTest, ExactKindsComeBackExactly) {
    for (const char* kind : kExactKinds)
        for (bool alpha : {false, true})
            for (int width : {1, 2, 3, 17, 64}) {
                if (alpha && !KeepsAlpha(kind)) continue;
                SCOPED_TRACE(std::string(kind) + (alpha ? " with alpha " : " ") + std::to_string(width));
                Bytes pixels = RandomPixels(width, 11, alpha, unsigned(width));
                std::string path = Write(std::string("a.") + kind, kind, width, 11, alpha, pixels);
                Head head = HeadOf(path);
                EXPECT_EQ(head.width, width);
                EXPECT_EQ(head.height, 11);
                EXPECT_EQ(head.alpha, alpha);
                EXPECT_EQ(head.pixelAspect, 1.0);
                EXPECT_FALSE(head.format.empty());
                EXPECT_EQ(Read(path, width, 11), pixels);
            }
}

TEST_F(StillsCodecTest, ColourUnderTransparentPixelsIsKept) {
    Bytes pixels = {0, 10, 20, 30, 1, 200, 100, 50, 255, 1, 2, 3, 128, 250, 251, 252};
    for (const char* kind : kExactKinds)
        if (KeepsAlpha(kind)) {
            EXPECT_EQ(Read(Write("t", kind, 2, 2, true, pixels), 2, 2), pixels) << kind;
        }
}

TEST_F(StillsCodecTest, WithoutAlphaTheFileHasNone) {
    Bytes pixels = RandomPixels(5, 5, true, 9);
    for (const char* kind : kExactKinds) {
        std::string path = Write("n", kind, 5, 5, false, pixels);
        EXPECT_FALSE(HeadOf(path).alpha) << kind;
        EXPECT_EQ(Read(path, 5, 5)[0], 255) << kind;
    }
}

TEST_F(StillsCodecTest, JpegComesBackNearlyAndDropsAlpha) {
    Bytes pixels = Slopes(64, 48);
    std::string path = Write("a.jpg", "jpg", 64, 48, true, pixels);
    EXPECT_FALSE(HeadOf(path).alpha);
    Bytes back = Read(path, 64, 48);
    int largest = 0;
    for (size_t i = 0; i < pixels.size(); ++i) largest = std::max(largest, std::abs(int(pixels[i]) - int(back[i])));
    EXPECT_LE(largest, 12);
}

TEST_F(StillsCodecTest, GifKeepsFewColoursExactly) {
    Bytes pixels = RandomPixels(40, 30, false, 3, 256);
    std::string path = Write("a.gif", "gif", 40, 30, false, pixels);
    EXPECT_FALSE(HeadOf(path).alpha);
    EXPECT_EQ(Read(path, 40, 30), pixels);
}

TEST_F(StillsCodecTest, GifKeepsTransparentPixels) {
    Bytes pixels = RandomPixels(40, 30, false, 3, 100);
    for (size_t i = 0; i < pixels.size(); i += 12) pixels[i] = 0;
    std::string path = Write("a.gif", "gif", 40, 30, true, pixels);
    EXPECT_TRUE(HeadOf(path).alpha);
    Bytes back = Read(path, 40, 30);
    for (size_t i = 0; i < pixels.size(); i += 4) {
        ASSERT_EQ(back[i], pixels[i]);
        if (pixels[i]) {
            ASSERT_EQ(std::memcmp(&back[i], &pixels[i], 4), 0);
        }
    }
}

TEST_F(StillsCodecTest, GifOfManyColoursIsNear) {
    Bytes pixels = Slopes(64, 48), back = Read(Write("a.gif", "gif", 64, 48, false, pixels), 64, 48);
    i64 sum = 0;
    for (size_t i = 0; i < pixels.size(); ++i) sum += std::abs(int(pixels[i]) - int(back[i]));
    EXPECT_LE(sum / double(pixels.size()), 8.0);
}

TEST_F(StillsCodecTest, PixelAspectIsKept) {
    Bytes pixels = RandomPixels(4, 4, false, 1);
    for (const char* kind : {"png", "tif", "jpg"})
        for (double aspect : {0.5, 1.0, 1.0667, 2.0})
            EXPECT_NEAR(HeadOf(Write("p", kind, 4, 4, false, pixels, aspect)).pixelAspect, aspect, 0.02) << kind;
}

TEST_F(StillsCodecTest, AnotherSizeTakesTheNearestLowerPixels) {
    Bytes pixels = RandomPixels(30, 20, true, 5);
    std::string path = Write("a.png", "png", 30, 20, true, pixels);
    const int sizes[][2] = {{15, 10}, {7, 3}, {1, 1}, {60, 40}, {31, 19}, {13, 20}};
    for (auto [width, height] : sizes) {
        Bytes scaled = Read(path, width, height);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                int fromX = (x * ((30 << 16) / width)) >> 16, fromY = (y * ((20 << 16) / height)) >> 16;
                ASSERT_EQ(std::memcmp(&scaled[size_t(y * width + x) * 4], &pixels[size_t(fromY * 30 + fromX) * 4], 4),
                          0)
                    << width << " x " << height << " at " << x << ", " << y;
            }
    }
}

TEST_F(StillsCodecTest, ALongerFileIsReplacedWhole) {
    Write("a.png", "png", 64, 64, true, RandomPixels(64, 64, true, 1));
    Bytes small = RandomPixels(2, 2, true, 2);
    std::string path = Write("a.png", "png", 2, 2, true, small);
    EXPECT_EQ(Read(path, 2, 2), small);
    EXPECT_LT(kqtest::ReadWholeFile(path).size(), 4096u);
}

TEST_F(StillsCodecTest, NamesAreUtf8) {
    Bytes pixels = RandomPixels(3, 3, true, 4);
    std::string path = Write("\xC3\xA4 \xE7\x94\xBB \xF0\x9F\x8E\xAC.png", "png", 3, 3, true, pixels);
    EXPECT_EQ(Read(path, 3, 3), pixels);
    EXPECT_FALSE(kqtest::ReadWholeFile(path).empty());
}

TEST_F(StillsCodecTest, MissingEmptyAndForeignFilesAreRefused) {
    ExpectRefused(Path("none.png"));
    ExpectRefused(Path("no/such/folder.png"));
    ExpectRefused(Folder());
    ExpectRefused("");
    kqtest::WriteWholeFile(Path("empty.png"), "");
    ExpectRefused(Path("empty.png"));
    kqtest::WriteWholeFile(Path("text.png"), "This is no picture at all, but a line of text.\n");
    ExpectRefused(Path("text.png"));
}

TEST_F(StillsCodecTest, AFileThatCannotBeWrittenIsToldAndOneOfNoKindIsNot) {
    Head head = {2, 2, false, 1.0, ""};
    Bytes pixels(16);
    Problem problem;
    EXPECT_FALSE(stills::WritePixels(Path("no/such/a.png").c_str(), "png", head, pixels.data(), problem));
    EXPECT_FALSE(problem.empty());
    problem.clear();
    EXPECT_FALSE(stills::WritePixels(Path("a.xyz").c_str(), "xyz", head, pixels.data(), problem));
    EXPECT_FALSE(problem.empty());
    EXPECT_TRUE(kqtest::ReadWholeFile(Path("a.xyz")).empty());
}

TEST_F(StillsCodecTest, ManyThreadsInTurnLeaveNothingOpen) {
    Bytes pixels = RandomPixels(16, 16, true, 6);
    std::string path = Write("a.png", "png", 16, 16, true, pixels);
    for (int i = 0; i < 20; ++i) std::thread([&] { EXPECT_EQ(Read(path, 16, 16), pixels); }).join();
    EXPECT_EQ(std::remove(path.c_str()), 0) << "a file that is still open cannot be removed everywhere";
}

void PutBig(Bytes& bytes, u32 value) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(u8(value >> shift));
}

u32 Crc(const u8* at, size_t count) {
    u32 crc = ~0u;
    for (; count > 0; --count) {
        crc ^= *at++;
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320u : 0);
    }
    return ~crc;
}

void PutChunk(Bytes& png, const char* name, const Bytes& data) {
    PutBig(png, u32(data.size()));
    size_t from = png.size();
    png.insert(png.end(), name, name + 4);
    png.insert(png.end(), data.begin(), data.end());
    PutBig(png, Crc(&png[from], png.size() - from));
}

// A PNG of one row, its bytes stored as they are.
Bytes PngRow(int width, int bits, int colourType, const Bytes& row, const Bytes& palette = {},
             const Bytes& alpha = {}) {
    Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}, head;
    PutBig(head, u32(width));
    PutBig(head, 1);
    for (int value : {bits, colourType, 0, 0, 0}) head.push_back(u8(value));
    PutChunk(png, "IHDR", head);
    if (!palette.empty()) PutChunk(png, "PLTE", palette);
    if (!alpha.empty()) PutChunk(png, "tRNS", alpha);
    u32 length = u32(row.size()) + 1, a = 1, b = 0;
    Bytes data = {0x78, 1, 1, u8(length), u8(length >> 8), u8(~length), u8(~length >> 8), 0};
    data.insert(data.end(), row.begin(), row.end());
    for (size_t i = 7; i < data.size(); ++i) b = (b + (a = (a + data[i]) % 65521)) % 65521;
    PutBig(data, b << 16 | a);
    PutChunk(png, "IDAT", data);
    PutChunk(png, "IEND", {});
    return png;
}

TEST_F(StillsCodecTest, SixteenBitsBecomeTheNearestEight) {
    Bytes row;
    Bytes wanted;
    for (unsigned value : {0u, 127u, 128u, 129u, 255u, 256u, 385u, 386u, 32767u, 32768u, 65407u, 65535u})
        for (unsigned v : {value, 65535 - value, value / 2, 65535u - value / 3}) {
            row.push_back(u8(v >> 8));
            row.push_back(u8(v));
            wanted.push_back(u8((v * 255.0 + 32767.5) / 65535.0));
        }
    for (size_t i = 0; i < wanted.size(); i += 4) std::rotate(&wanted[i], &wanted[i + 3], &wanted[i] + 4);
    EXPECT_EQ(Store("deep.png", PngRow(12, 16, 6, row), 12, 1), wanted);
}

TEST_F(StillsCodecTest, SixteenBitColourAndGreyAreExpanded) {
    EXPECT_EQ(Store("c.png", PngRow(1, 16, 2, {0, 129, 0x80, 0, 0xFF, 0xFF}), 1, 1), (Bytes{255, 1, 128, 255}));
    EXPECT_EQ(Store("g.png", PngRow(2, 16, 0, {0, 128, 0x12, 0x34}), 2, 1), (Bytes{255, 0, 0, 0, 255, 18, 18, 18}));
}

TEST_F(StillsCodecTest, GreyOfEveryDepthIsExpanded) {
    EXPECT_EQ(Store("g8.png", PngRow(2, 8, 0, {7, 250}), 2, 1), (Bytes{255, 7, 7, 7, 255, 250, 250, 250}));
    EXPECT_EQ(Store("g4.png", PngRow(2, 4, 0, {0x1F}), 2, 1), (Bytes{255, 17, 17, 17, 255, 255, 255, 255}));
    EXPECT_EQ(Store("g2.png", PngRow(2, 2, 0, {0x60}), 2, 1), (Bytes{255, 85, 85, 85, 255, 170, 170, 170}));
    EXPECT_EQ(Store("g1.png", PngRow(2, 1, 0, {0x40}), 2, 1), (Bytes{255, 0, 0, 0, 255, 255, 255, 255}));
}

TEST_F(StillsCodecTest, GreyWithAlphaIsExpanded) {
    EXPECT_EQ(Store("ga.png", PngRow(1, 8, 4, {90, 30}), 1, 1), (Bytes{30, 90, 90, 90}));
    EXPECT_TRUE(HeadOf(Path("ga.png")).alpha);
}

TEST_F(StillsCodecTest, PalettesAreExpandedWithTheirAlpha) {
    Bytes palette = {1, 2, 3, 200, 100, 50};
    EXPECT_EQ(Store("p.png", PngRow(2, 8, 3, {1, 0}, palette), 2, 1), (Bytes{255, 200, 100, 50, 255, 1, 2, 3}));
    EXPECT_FALSE(HeadOf(Path("p.png")).alpha);
    EXPECT_EQ(Store("t.png", PngRow(2, 8, 3, {1, 0}, palette, {64}), 2, 1), (Bytes{255, 200, 100, 50, 64, 1, 2, 3}));
    EXPECT_TRUE(HeadOf(Path("t.png")).alpha);
}

TEST_F(StillsCodecTest, AHeadThatClaimsTooMuchIsRefused) {
    Bytes png = PngRow(1, 8, 0, {7});
    Bytes head;
    PutBig(head, 60000);
    PutBig(head, 60000);
    std::copy(head.begin(), head.end(), png.begin() + 16);
    Bytes crc;
    PutBig(crc, Crc(&png[12], 17));
    std::copy(crc.begin(), crc.end(), png.begin() + 29);
    kqtest::WriteWholeFile(Path("huge.png"), png.data(), png.size());
    ExpectRefused(Path("huge.png"));
}

// Decoders that make room before they can be asked for the size never see these.
TEST_F(StillsCodecTest, ClaimsThatNoFileCanKeepAreRefused) {
    const std::pair<size_t, u32> kClaims[] = {
        {12, 0x7FFFFFFF}, {16, 60000}, {24, 1 << 20}, {28, 1 << 20}, {88, 1 << 24}};
    for (auto [at, value] : kClaims) {
        Bytes dds = kqtest::ReadWholeFile(kSamples + "plain.dds");
        std::memcpy(&dds[at], &value, 4);
        kqtest::WriteWholeFile(Path("a.dds"), dds.data(), dds.size());
        ExpectRefused(Path("a.dds"));
    }
    Bytes tif = kqtest::ReadWholeFile(kSamples + "tiled.tif");
    const u8 kTileHeight[] = {0x43, 1, 3, 0, 1, 0, 0, 0};   // a directory entry of one short; the last one counts
    auto tag = std::find_end(tif.begin(), tif.end(), kTileHeight, kTileHeight + 8);
    ASSERT_LT(tag - tif.begin() + 12, i64(tif.size()));
    const u8 kHuge[] = {4, 0, 1, 0, 0, 0, 0xF0, 0xFF, 0xFF, 0x0F};   // one long
    std::copy(kHuge, kHuge + 10, tag + 2);
    kqtest::WriteWholeFile(Path("a.tif"), tif.data(), tif.size());
    ExpectRefused(Path("a.tif"));
}

// One white pixel at 2, 1 of a canvas of 4 x 3.
TEST_F(StillsCodecTest, AGifPictureStandsInItsPlaceOnTheCanvas) {
    Bytes gif = {'G', 'I',  'F', '8', '9', 'a', 4, 0, 3, 0, 0x80, 0, 0, 0,    0, 0, 255, 255,
                 255, 0x2C, 2,   0,   1,   0,   1, 0, 1, 0, 0,    2, 2, 0x4C, 1, 0, 0x3B};
    Bytes pixels = Store("a.gif", gif, 4, 3);
    Bytes wanted(4 * 3 * 4, 0);
    std::fill_n(wanted.begin() + (1 * 4 + 2) * 4, 4, u8(255));
    EXPECT_EQ(pixels, wanted);
    Head head = HeadOf(Path("a.gif"));
    EXPECT_EQ(head.width, 4);
    EXPECT_EQ(head.height, 3);
    EXPECT_TRUE(head.alpha);
}

// A cut file is refused, or (cut in what comes behind the pixels) read whole; it never gives wrong pixels for right.
TEST_F(StillsCodecTest, CutFilesAreAnswers) {
    for (const char* kind : {"png", "bmp", "tif", "jpg", "gif"}) {
        if (!stills::Writes(kind)) continue;
        Bytes pixels = RandomPixels(24, 18, false, 8, 200);
        std::string path = Write("whole", kind, 24, 18, false, pixels);
        Bytes whole = kqtest::ReadWholeFile(path);
        Bytes right = Read(path, 24, 18);
        int refused = 0;
        for (size_t length = 0; length < whole.size(); length += 1 + whole.size() / 150) {
            std::string cut = Path("cut");
            kqtest::WriteWholeFile(cut, whole.data(), length);
            Bytes got(right.size(), 0x5A);
            Problem problem;
            Head head;
            bool read = stills::ReadPixels(cut.c_str(), 24, 18, got.data(), head, problem) == Pixels::Whole;
            EXPECT_EQ(read, problem.empty());
            refused += !read;
            if (read) {
                EXPECT_EQ(got, right) << kind << " cut at " << length << " of " << whole.size();
            }
        }
        EXPECT_GT(refused, 50) << kind;
    }
}

// Files that other programs wrote, each the same picture in its own way.
TEST_F(StillsCodecTest, FilesOfOtherProgramsHoldTheSamePicture) {
    Bytes plain = Read(kSamples + "plain.png", 19, 13), alpha = Read(kSamples + "alpha.png", 19, 13);
    for (const char* name : {"plain.bmp", "plain.dds", "plain.gif", "plain.ico", "plain.tif", "deep.png", "deep.tif",
                             "interlaced.png", "lzw.tif", "tiled.tif"}) {
        EXPECT_EQ(HeadOf(kSamples + name).width, 19) << name;
        EXPECT_EQ(Read(kSamples + name, 19, 13), plain) << name;
    }
    EXPECT_EQ(Read(kSamples + "alpha.tif", 19, 13), alpha);
    EXPECT_EQ(Read(kSamples + "grey.tif", 19, 13), Read(kSamples + "grey.png", 19, 13));
}

// Multiplied by alpha again, the colours are those that the file holds: the file cut them off, the division rounds.
TEST_F(StillsCodecTest, PremultipliedColoursBecomeStraight) {
    Bytes straight = Read(kSamples + "alpha.tif", 19, 13), divided = Read(kSamples + "multiplied.tif", 19, 13);
    EXPECT_TRUE(HeadOf(kSamples + "multiplied.tif").alpha);
    int partial = 0;
    for (size_t i = 0; i < straight.size(); i += 4) {
        ASSERT_EQ(divided[i], straight[i]);
        partial += straight[i] > 0 && straight[i] < 255;
        for (size_t c = 1; c < 4 && straight[i]; ++c)
            EXPECT_NEAR(divided[i + c] * straight[i] / 255.0, straight[i + c] * straight[i] / 255.0, 1.5) << i;
    }
    EXPECT_GT(partial, 0);
}

// KQ_MUTATIONS in the environment asks for more of each file.
TEST_F(StillsCodecTest, MutatedFilesAreAnswers) {
    const char* wish = std::getenv("KQ_MUTATIONS");
    int each = wish ? std::atoi(wish) : 25;
    unsigned seed = wish ? std::random_device()() : 20260;
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    int read = 0, refused = 0;
    for (const char* name : {"plain.png", "alpha.png", "palette.png", "interlaced.png", "deep.png", "plain.bmp",
                             "plain.dds", "plain.gif", "plain.ico", "plain.jpg", "cmyk.jpg", "plain.tif", "alpha.tif",
                             "deep.tif", "lzw.tif", "tiled.tif", "cmyk.tif"}) {
        Bytes whole = kqtest::ReadWholeFile(kSamples + name);
        ASSERT_FALSE(whole.empty()) << name;
        for (int i = 0; i < each; ++i) {
            Bytes changed = whole;
            for (unsigned n = 1 + random() % 6; n > 0; --n) {
                size_t reach = random() % 2 ? std::min<size_t>(changed.size(), 200) : changed.size();
                changed[random() % reach] = u8(random());
            }
            if (random() % 4 == 0) changed.resize(random() % changed.size());
            kqtest::WriteWholeFile(Path("changed"), changed.data(), changed.size());
            Head head;
            Problem problem;
            Bytes pixels(20 * 20 * 4);
            bool good =
                stills::ReadHead(Path("changed").c_str(), head, problem) &&
                stills::ReadPixels(Path("changed").c_str(), 20, 20, pixels.data(), head, problem) == Pixels::Whole;
            EXPECT_EQ(good, problem.empty());
            ++(good ? read : refused);
        }
    }
    std::printf("%d read, %d refused\n", read, refused);
    EXPECT_GT(refused, 0);
}

}   // namespace
