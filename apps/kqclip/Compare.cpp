// kqclip compare: how near two clips are, channel by channel.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/FrameRange.h"
#include "apps/kqclip/Output.h"
#include "apps/kqclip/Progress.h"

namespace fs = std::filesystem;

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

// The frames that are compared, side by side, and those that only one clip has.
struct Pairs {
    std::vector<std::pair<Step, Step>> both;
    std::vector<int> onlyLeft, onlyRight;
};

// Frames belong together by their numbers or by their place.
Pairs Pair(const std::vector<Step>& a, const std::vector<Step>& b, bool byNumber) {
    Pairs pairs;
    if (!byNumber) {
        size_t count = std::min(a.size(), b.size());
        for (size_t i = 0; i < count; ++i) pairs.both.emplace_back(a[i], b[i]);
        for (size_t i = count; i < a.size(); ++i) pairs.onlyLeft.push_back(a[i].number);
        for (size_t i = count; i < b.size(); ++i) pairs.onlyRight.push_back(b[i].number);
        return pairs;
    }
    std::map<int, Step> right;
    for (const Step& step : b) right.emplace(step.number, step);
    for (const Step& step : a) {
        auto found = right.find(step.number);
        if (found == right.end()) {
            pairs.onlyLeft.push_back(step.number);
            continue;
        }
        pairs.both.emplace_back(step, found->second);
        right.erase(found);
    }
    for (const auto& [number, step] : right) pairs.onlyRight.push_back(number);
    return pairs;
}

void Print(const Json& comparison) {
    for (const char* side : {"onlyLeft", "onlyRight"})
        if (comparison[side] != "")
            std::printf("only the %s clip has: %s\n", side[4] == 'L' ? "first" : "second",
                        comparison[side].get<std::string>().c_str());
    for (const auto& [name, channel] : comparison["channels"].items())
        std::printf("%-6s largest %3d, mean %.6f\n", name.c_str(), channel["largest"].get<int>(),
                    channel["mean"].get<double>());
    if (!comparison["firstDifferent"].is_null())
        std::printf("the first frame that differs is %d\n", comparison["firstDifferent"].get<int>());
    int tolerance = comparison["tolerance"];
    std::string within = tolerance > 0 ? " within " + std::to_string(tolerance) : "";
    std::printf("%s\n", comparison["equal"] ? ("equal" + within).c_str() : "different");
}

// Two files of one sequence would both stand for all of it, and be equal; they are meant as they are named.
bool AreStillsOfOneSequence(const std::string& a, const std::string& b) {
    std::error_code error;
    auto isFile = [&](const std::string& path) { return fs::is_regular_file(PathFrom(path), error); };
    auto folder = [](const std::string& path) { return PathFrom(FolderOf(path).empty() ? "." : FolderOf(path)); };
    auto pattern = PatternOfFile(a), other = PatternOfFile(b);
    return pattern && other && isFile(a) && isFile(b) && pattern->DigitsOf(NameOf(b)) && other->DigitsOf(NameOf(a)) &&
           fs::equivalent(folder(a), folder(b), error);
}

InputOptions Alone(const InputOptions& input, bool alone) {
    InputOptions options = input;
    options.single |= alone;
    return options;
}

// Frames of two sequences without lists belong together by their numbers, unless both are whole and equally long.
Pairs PairFrames(const Material& a, const Material& b, Missing missing, bool lists, Report& report) {
    bool fills = missing != Missing::Error && missing != Missing::Skip;
    std::vector<Step> left = a.Plan(report, !fills, lists), right = b.Plan(report, !fills, lists);
    bool alike = left.size() == right.size() && (fills || (!a.HasGaps() && !b.HasGaps()));
    return Pair(left, right, a.IsSequence() && b.IsSequence() && !lists && !alike);
}

}   // namespace

void Compare(const CommonOptions& common, const InputOptions& left, const InputOptions& right, int tolerance,
             Report& report) {
    bool alone = AreStillsOfOneSequence(left.path, right.path);
    Material a(Alone(left, alone)), b(Alone(right, alone));
    report.facts["left"] = a.Describe();
    report.facts["right"] = b.Describe();
    KQClip *clipA = a.Clip(), *clipB = b.Clip();
    if (clipA->width != clipB->width || clipA->height != clipB->height)
        throw Failure("different-size", "cannot compare '" + left.path + "' and '" + right.path +
                                            "': their pictures have different sizes, " + SizeText(clipA) + " and " +
                                            SizeText(clipB) + "; convert one with --size");
    bool lists = !left.frames.empty() || !right.frames.empty();
    Pairs pairs = PairFrames(a, b, left.missing, lists, report);
    Bitmap bitmapA = MakeBitmap(clipA->width, clipA->height), bitmapB = MakeBitmap(clipA->width, clipA->height);
    Difference total;
    Json first = nullptr;
    int compared = 0;
    Progress progress("compare", int(pairs.both.size()), common.progress);
    for (size_t i = 0; i < pairs.both.size(); ++i) {
        const auto& [stepA, stepB] = pairs.both[i];
        bool there = a.Fetch(stepA, bitmapA.get(), report);
        there = b.Fetch(stepB, bitmapB.get(), report) && there;
        if (there && AddDifference(total, bitmapA.get(), bitmapB.get()) > tolerance && first.is_null())
            first = stepA.number;
        compared += there;
        progress.Show(int(i + 1));
    }
    bool equal = first.is_null() && pairs.onlyLeft.empty() && pairs.onlyRight.empty() && compared > 0;
    report.facts["comparison"] = {{"compared", compared},
                                  {"onlyLeft", ShowFrames(pairs.onlyLeft)},
                                  {"onlyRight", ShowFrames(pairs.onlyRight)},
                                  {"channels", Tell(total)},
                                  {"firstDifferent", first},
                                  {"tolerance", tolerance},
                                  {"equal", equal}};
    if (!equal) report.exitCode = kDifferent;
    if (!common.json) Print(report.facts["comparison"]);
}

}   // namespace kqclip
