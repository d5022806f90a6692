// The heads that are read without the helper say what the image library says of the same file; what they cannot tell
// they leave to it, and no bytes lead them astray.
#include <filesystem>
#include <random>

#include <OpenImageIO/imageio.h>

#include "modules/stills/oiio/Heads.h"
#include "support/StillsFixture.h"

// The thread sanitizer asks this for what it is not to tell of. The image library was not built for it, so that what
// its threads hand each other looks like races, also when it is told to use one thread. What this program does is
// looked at.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() { return "race:libOpenImageIO\n"; }

namespace {

using namespace kqtest;
using stills::oiio::KindOf;
using stills::oiio::ReadPlainHead;

class StillsHeads : public KQTest {
protected:
    static std::vector<std::string> Seeds() {
        std::vector<std::string> seeds;
        for (auto& entry : std::filesystem::directory_iterator(KQ_STILLS))
            if (entry.path().extension() != ".py") seeds.push_back(entry.path().string());
        return seeds;
    }

    static bool Plain(const std::vector<u8>& bytes, stills::Head& head) {
        auto kind = KindOf(bytes.data(), bytes.size(), "");
        return kind && ReadPlainHead(*kind, bytes.data(), std::min(bytes.size(), stills::oiio::kHeadBytes), head);
    }

    static std::vector<u8> WithSpec(const std::string& path, OIIO::ImageSpec spec) {
        std::vector<u8> pixels(size_t(spec.width) * size_t(spec.height) * 4);
        auto output = OIIO::ImageOutput::create(path);
        EXPECT_TRUE(output && output->open(path, spec) && output->write_image(OIIO::TypeDesc::UINT8, pixels.data()));
        output->close();
        return ReadWholeFile(path);
    }
};

TEST_F(StillsHeads, AgreeWithTheImageLibrary) {
    int told = 0;
    for (const std::string& path : Seeds()) {
        stills::Head head;
        if (!Plain(ReadWholeFile(path), head)) continue;
        ++told;
        auto input = OIIO::ImageInput::open(path);
        ASSERT_TRUE(input) << path;
        const OIIO::ImageSpec& spec = input->spec();
        EXPECT_EQ(head.width, spec.full_width) << path;
        EXPECT_EQ(head.height, spec.full_height) << path;
        EXPECT_EQ(head.alpha, spec.alpha_channel >= 0) << path;
        EXPECT_EQ(float(head.pixelAspect), spec.get_float_attribute("PixelAspectRatio", 1.0f)) << path;
    }
    EXPECT_GE(told, 15);
}

TEST_F(StillsHeads, CommonKindsNeedNoHelper) {
    for (const char* file : {"plain.png", "alpha.png", "plain.jpg", "plain.tif", "alpha.tif", "plain.dpx", "alpha.dpx",
                             "plain.exr", "alpha.exr", "interlaced.png", "deep.png", "deep.tif"}) {
        stills::Head head;
        EXPECT_TRUE(Plain(ReadWholeFile(std::string(KQ_STILLS) + file), head)) << file;
        EXPECT_EQ(head.width, kStillWidth) << file;
        EXPECT_EQ(head.height, kStillHeight) << file;
        EXPECT_EQ(head.alpha, file[0] == 'a') << file;
    }
}

TEST_F(StillsHeads, PixelsThatAreNotSquareAreTheLibrarys) {
    for (const char* name : {"a.png", "a.jpg", "a.tif", "a.dpx", "a.exr"}) {
        OIIO::ImageSpec spec(8, 6, 3, OIIO::TypeDesc::UINT8);
        spec.attribute("PixelAspectRatio", 2.0f);
        spec.attribute("XResolution", 72.0f);
        spec.attribute("YResolution", 144.0f);
        std::vector<u8> bytes = WithSpec(Folder() + name, spec);
        auto input = OIIO::ImageInput::open(Folder() + name);
        ASSERT_TRUE(input);
        float aspect = input->spec().get_float_attribute("PixelAspectRatio", 1.0f);
        stills::Head head;
        EXPECT_TRUE(!Plain(bytes, head) || float(head.pixelAspect) == aspect) << name;
    }
}

TEST_F(StillsHeads, AnAspectWithAZeroIsNone) {
    const std::vector<u8> bytes = ReadWholeFile(std::string(KQ_STILLS) + "plain.png");
    auto withShape = [&](u8 across, u8 down) {
        const u8 chunk[21] = {0, 0, 0, 9, 'p', 'H', 'Y', 's', 0, 0, 0, across, 0, 0, 0, down};
        std::vector<u8> longer = bytes;
        longer.insert(longer.begin() + 33, chunk, chunk + sizeof chunk);
        return longer;
    };
    stills::Head head;
    EXPECT_TRUE(Plain(withShape(0, 1), head));
    EXPECT_EQ(head.pixelAspect, 1.0);
    EXPECT_TRUE(Plain(withShape(3, 3), head));
    EXPECT_FALSE(Plain(withShape(2, 1), head));
}

TEST_F(StillsHeads, NoPrefixIsReadBeyondItsEnd) {
    for (const std::string& path : Seeds()) {
        std::vector<u8> bytes = ReadWholeFile(path);
        for (size_t count = 0; count < std::min<size_t>(bytes.size(), 3000); count += count < 200 ? 1 : 13) {
            std::vector<u8> cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(count));
            stills::Head head;
            EXPECT_TRUE(!Plain(cut, head) || (head.width > 0 && head.height > 0));
        }
    }
}

TEST_F(StillsHeads, DamagedHeadsGiveSaneSizesOrNone) {
    u32 seed = 20261121;
    std::mt19937 random(seed);
    for (const std::string& path : Seeds()) {
        std::vector<u8> bytes = ReadWholeFile(path);
        bytes.resize(std::min<size_t>(bytes.size(), 2100));
        for (int round = 0; round < 3000; ++round) {
            std::vector<u8> damaged = bytes;
            for (u32 i = 1 + u32(random() % 4); i > 0; --i) damaged[random() % damaged.size()] = u8(random());
            stills::Head head;
            if (!Plain(damaged, head)) continue;
            EXPECT_TRUE(head.width >= 1 && head.width <= 32767 && head.height >= 1 && head.height <= 32767)
                << path << " seed " << seed << " round " << round;
        }
    }
}

}   // namespace
