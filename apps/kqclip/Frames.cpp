// Going through the frames of a clip: which ones, what stands for one that is missing, and a look at the files.
#include <algorithm>

#include "apps/kqclip/FrameRange.h"
#include "apps/kqclip/Material.h"

namespace kqclip {

namespace {

constexpr long long kMostFrames = 10000000;

// At most 200 letters of a list, for a message of one line.
std::string Short(const std::string& list) { return list.size() > 200 ? list.substr(0, 200) + "..." : list; }

// The position of the number in `numbers` that is nearest to `wanted`, the lower one of two.
size_t NearestPosition(const std::vector<int>& numbers, int wanted) {
    size_t after = size_t(std::lower_bound(numbers.begin(), numbers.end(), wanted) - numbers.begin());
    if (after == 0) return 0;
    if (after == numbers.size()) return after - 1;
    return (long long)(numbers[after]) - wanted < (long long)(wanted)-numbers[after - 1] ? after : after - 1;
}

}   // namespace

// The presented frame that stands for a number that is not there; `at` is the first number above it.
int Material::Stand(int number, size_t at) const {
    switch (options_.missing) {
    case Missing::Hold: return at == 0 ? 0 : int(at) - 1;
    case Missing::Nearest: return int(NearestPosition(numbers_, number));
    case Missing::Black: return kBlack;
    default: return kLeftOut;
    }
}

// The numbers that the command line asks for.
std::vector<int> Material::Wanted(bool toleratesGaps) const {
    if (!options_.frames.empty()) return ParseFrames(options_.frames, options_.framesOption);
    if (toleratesGaps) return numbers_;
    if ((long long)(last_)-first_ >= kMostFrames)
        throw Failure("missing-frames", "'" + options_.path + "' has frames " + Short(ShowFrames(numbers_)) +
                                            ", more than ten million apart; choose some with " + options_.framesOption);
    std::vector<int> wanted;
    for (long long n = first_; n <= last_; ++n) wanted.push_back(int(n));
    return wanted;
}

std::vector<Step> Material::Plan(Report& report, bool toleratesGaps, bool keepsPlaces) const {
    for (const std::string& text : leftOut_) report.Warn("left-out", text);
    if (numbers_.empty()) throw Failure("no-frames", "'" + options_.path + "' holds no frames");
    std::vector<Step> steps;
    std::vector<int> absent;
    for (int number : Wanted(toleratesGaps)) {
        size_t at = size_t(std::lower_bound(numbers_.begin(), numbers_.end(), number) - numbers_.begin());
        bool there = at < numbers_.size() && numbers_[at] == number;
        int index = there ? int(at) : Stand(number, at);
        if (!there) absent.push_back(number);
        if (index != kLeftOut || keepsPlaces) steps.push_back({number, index, !there});
    }
    bool gaps = absent.empty() && toleratesGaps && options_.frames.empty() && HasGaps();
    if (absent.empty() && !gaps) return steps;
    std::string which = gaps ? GapText() : ShowFrames(absent);
    std::string text =
        "'" + options_.path + "' has no frame " + Short(which) + " (it has " + Short(ShowFrames(numbers_)) + ")";
    if (options_.missing == Missing::Error && !gaps) throw Failure("missing-frames", text + options_.missingHint);
    report.missing = which;
    report.Warn("missing-frames", text);
    return steps;
}

// "frame 3 of 'shot.####.png' (shot.0003.png)"; a file that no frame shows by its name alone.
std::string Material::NameOfFile(int number, int file) const {
    if (file < 0) return "frame " + std::to_string(number) + " of '" + options_.path + "'";
    std::string name = NameOf(files_[size_t(file)].path);
    if (number < 0) return "file " + name + " of '" + options_.path + "'";
    return NameOfFile(number, -1) + " (" + name + ")";
}

// One file of the sequence as a clip of its own, taken as the sequence is; null with a code in Error when it cannot be
// opened.
ClipHandle Material::OpenAlone(const std::string& file) const {
    std::string extension = ShortExtension(options_.extension.empty() ? ExtensionOf(file) : options_.extension);
    char code[4] = {};
    std::copy(extension.begin(), extension.end(), code);
    TagItem tags[] = {{KQTAG_CLIP_SINGLE, 0},
                      {KQTAG_CLIP_NOGUESS, 0},
                      {extension.empty() ? KQTAG_Ignore : KQTAG_CLIP_EXTENSION, uptr(code)},
                      {KQTAG_End, 0}};
    ClipHandle alone(OpenClipKQ(file.c_str(), tags));
    if (!alone) return alone;
    alone->alphaMode = clip_->alphaMode;
    alone->alphaInvert = clip_->alphaInvert;
    alone->alphaPremultiplied = clip_->alphaPremultiplied;
    alone->matteColor = clip_->matteColor;
    return alone;
}

void Material::CheckFile(int file, Report& report) const {
    ThrowIfInterrupted();
    ListenAnew();
    int number = files_[size_t(file)].presented;
    ClipHandle alone = OpenAlone(files_[size_t(file)].path);
    if (!alone)
        return NoteDamage(number, NameOfFile(number, file) + " cannot be read: " + ReasonOf(GetErrorKQ()).why + Said(),
                          report);
    if (alone->width != clip_->width || alone->height != clip_->height)
        NoteOtherSize(number, file, alone.get(), "is scaled when it is read", report);
    if (alone->depth == 32 && MayLoseAlpha()) NoteLostAlpha(number, file, report);
}

}   // namespace kqclip
