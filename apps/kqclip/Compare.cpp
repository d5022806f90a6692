// kqclip compare: how near two clips are, channel by channel.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Progress.h"

namespace kqclip {

namespace {

constexpr const char* kChannels[4] = {"alpha", "red", "green", "blue"};

struct Difference {
    std::array<int, 4> largest{};
    std::array<double, 4> sum{};
    double pixels = 0;
};

// Adds the differences of two bitmaps of one size; the largest of all channels.
int AddDifference(Difference& total, const KQBitmap* a, const KQBitmap* b) {
    std::array<u64, 4> sums{};
    std::array<int, 4> largest{};
    for (i32 i = 0; i < a->dataSize; i += 4)
        for (int c = 0; c < 4; ++c) {
            int difference = std::abs(int(a->data[i + c]) - int(b->data[i + c]));
            sums[size_t(c)] += u64(difference);
            largest[size_t(c)] = std::max(largest[size_t(c)], difference);
        }
    for (size_t c = 0; c < 4; ++c) {
        total.sum[c] += double(sums[c]);
        total.largest[c] = std::max(total.largest[c], largest[c]);
    }
    total.pixels += a->dataSize / 4;
    return *std::max_element(largest.begin(), largest.end());
}

Json Tell(const Difference& total) {
    Json channels = Json::object();
    for (size_t c = 0; c < 4; ++c)
        channels[kChannels[c]] = {{"largest", total.largest[c]},
                                  {"mean", total.pixels > 0 ? total.sum[c] / total.pixels : 0.0}};
    return channels;
}

void Print(const Json& comparison) {
    for (const auto& [name, channel] : comparison["channels"].items())
        std::printf("%-6s largest %3d, mean %.6f\n", name.c_str(), channel["largest"].get<int>(),
                    channel["mean"].get<double>());
    if (!comparison["firstDifferent"].is_null())
        std::printf("the first frame that differs is %d\n", comparison["firstDifferent"].get<int>());
    std::printf("%s\n", comparison["equal"] ? "equal" : "different");
}

}   // namespace

void Compare(const CommonOptions& common, const InputOptions& left, const InputOptions& right, int tolerance,
             Report& report) {
    Material a(left), b(right);
    report.facts["left"] = a.Describe();
    report.facts["right"] = b.Describe();
    if (a.Clip()->width != b.Clip()->width || a.Clip()->height != b.Clip()->height)
        throw Failure("different-size", "cannot compare '" + left.path + "' and '" + right.path +
                                            "': their pictures have different sizes; convert one with --size",
                      kDifferent);
    std::vector<Step> stepsA = a.Plan(report, true), stepsB = b.Plan(report, true);
    size_t frames = std::min(stepsA.size(), stepsB.size());
    Bitmap bitmapA = MakeBitmap(a.Clip()->width, a.Clip()->height);
    Bitmap bitmapB = MakeBitmap(a.Clip()->width, a.Clip()->height);
    Difference total;
    Json first = nullptr;
    Progress progress("compare", int(frames), common.progress);
    for (size_t i = 0; i < frames; ++i) {
        a.Fetch(stepsA[i], bitmapA.get(), report);
        b.Fetch(stepsB[i], bitmapB.get(), report);
        if (AddDifference(total, bitmapA.get(), bitmapB.get()) > tolerance && first.is_null())
            first = stepsA[i].number;
        progress.Show(int(i + 1));
    }
    bool equal = first.is_null() && stepsA.size() == stepsB.size();
    report.facts["comparison"] = {{"frames", {{"left", stepsA.size()}, {"right", stepsB.size()}, {"compared", frames}}},
                                  {"channels", Tell(total)},
                                  {"firstDifferent", first},
                                  {"tolerance", tolerance},
                                  {"equal", equal}};
    if (!equal) report.exitCode = kDifferent;
    if (common.json) return;
    if (stepsA.size() != stepsB.size())
        std::printf("%zu and %zu frames; the first %zu are compared\n", stepsA.size(), stepsB.size(), frames);
    Print(report.facts["comparison"]);
}

}   // namespace kqclip
