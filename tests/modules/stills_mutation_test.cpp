// Damaged stills of every kind: the program lives through all, none takes longer than ten seconds, and what is refused
// is named.
//
// KQ_MUTATIONS sets how many files are tried (200; `make mutate` tries 2,000) and KQ_SEED the run.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

#include "support/StillsFixture.h"

namespace {

using namespace kqtest;

class StillsMutation : public StillsTest {
protected:
    // One of the files to damage is of the kind that this extension names.
    static void ExpectSeed(const std::vector<std::string>& seeds, u32 code) {
        std::string extension;
        for (int shift = 24; shift >= 0 && u8(code >> shift); shift -= 8) extension += char(code >> shift);
        bool found = std::any_of(seeds.begin(), seeds.end(),
                                 [&](const std::string& seed) { return ExtensionOf(seed) == extension; });
        // JPEG XR (Windows only) has none: wine's decoder crashes on a small one.
        bool without = extension == "jxr" || extension == "wdp";
        EXPECT_TRUE(found || without) << "no still to damage of the kind ." << extension;
    }
};

u32 Setting(const char* name, u32 otherwise) {
    const char* text = std::getenv(name);
    return text ? u32(std::strtoul(text, nullptr, 10)) : otherwise;
}

// A few bytes set, a field set to an extreme, a stretch cut out, repeated or zeroed, or the end cut off.
void Damage(std::vector<u8>& bytes, std::mt19937& random) {
    auto upTo = [&](size_t most) { return most ? random() % most : 0; };
    auto at = [&] { return random() % 3 ? upTo(std::min<size_t>(bytes.size(), 256)) : upTo(bytes.size()); };
    for (u32 rounds = 1 + u32(upTo(4)); rounds > 0 && bytes.size() > 8; --rounds) {
        size_t place = at(), length = 1 + upTo(std::min<size_t>(bytes.size() - place, 64));
        auto from = bytes.begin() + std::ptrdiff_t(place),
             to = from + std::ptrdiff_t(std::min(length, bytes.size() - place));
        switch (upTo(6)) {
        case 0: *from = u8(random()); break;
        case 1: *from ^= u8(1u << upTo(8)); break;
        case 2: {
            static constexpr u8 kExtremes[] = {0x00, 0xFF, 0x7F, 0x80};
            std::fill(from, std::min(to, from + 4), kExtremes[upTo(4)]);
            break;
        }
        case 3: bytes.erase(from, to); break;
        case 4: {
            std::vector<u8> copy(from, to);
            bytes.insert(from, copy.begin(), copy.end());
            break;
        }
        case 5: bytes.resize(upTo(bytes.size())); break;
        }
    }
}

TEST_F(StillsMutation, ProgramLivesAndNamesTheFile) {
    u32 count = Setting("KQ_MUTATIONS", 200), seed = Setting("KQ_SEED", 20261121);
    std::printf("%u mutated stills, KQ_SEED %u\n", count, seed);
    std::vector<std::string> seeds;
    for (auto& entry : std::filesystem::directory_iterator(KQ_STILLS)) {
        std::string path = entry.path().string();
        if (Reads(ExtensionOf(path))) seeds.push_back(path);
    }
    std::sort(seeds.begin(), seeds.end());
    for (i32 i = 0; i < Module()->importExtCount; ++i) ExpectSeed(seeds, Module()->importExts[i]);
    std::mt19937 random(seed);
    u32 whole = 0, damaged = 0, refused = 0;
    double slowest = 0;
    std::map<std::string, u32> deaths;
    for (u32 i = 0; i < count; ++i) {
        const std::string& origin = seeds[i % seeds.size()];
        std::vector<u8> bytes = ReadWholeFile(origin);
        Damage(bytes, random);
        std::string name = "m" + std::to_string(i) + "." + ExtensionOf(origin), path = Folder() + name;
        WriteWholeFile(path, bytes.data(), bytes.size());
        messages.clear();
        auto start = std::chrono::steady_clock::now();
        Bitmap got = Read(path);
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        slowest = std::max(slowest, seconds);
        EXPECT_LT(seconds, 10.0) << origin << " mutation " << i;
        if (WasTold("signal")) ++deaths[ExtensionOf(origin)];
        bool clean = got && GetErrorKQ() == KQERR_NONE;
        whole += clean;
        damaged += got && !clean;
        refused += !got;
        EXPECT_FALSE(WasTold("/proc/")) << origin << " mutation " << i;
        EXPECT_TRUE(clean || WasTold(name)) << origin << " mutation " << i;
        std::filesystem::remove(path);
    }
    std::printf("%u read as whole, %u as damaged, %u refused; slowest %.3f s; deaths of the decoder:", whole, damaged,
                refused, slowest);
    for (auto& [kind, times] : deaths) std::printf(" %s %u", kind.c_str(), times);
    std::printf("%s\n", deaths.empty() ? " none" : "");
    Bitmap after = Read(Seed("plain.png"));
    ASSERT_NE(after, nullptr);
}

}   // namespace
