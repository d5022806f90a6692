// How a clip is taken: its alpha, its rate and fields, and the removal of 3:2 pull-down.
//
// The pull-down of a sequence is counted by the numbers of its files, so that a gap does not shift the phase. A frame
// whose files are not all there is missing, as a file without pull-down would be.
#include <algorithm>
#include <cstdlib>
#include <numeric>

#include "apps/kqclip/FrameRange.h"
#include "apps/kqclip/Material.h"

namespace kqclip {

namespace {

constexpr long long kMostSources = 10000000;

// The source frames, counted from the first file's number, of presented frame `frame` in a phase: in each group of
// five, three stand for themselves and the rows of the other two make one frame.
struct Group {
    int first;
    bool woven;

    Group(int frame, int phase) {
        int u = frame + phase - 1;
        first = u % 4 + u / 4 * 5 - phase + 1;
        woven = u % 4 == 3;
    }
};

// The phase of a clip of which a part that begins `offset` frames later has phase `phase`.
int PhaseOfWhole(int phase, int offset) { return ((phase - 1 - offset % 5) + 5) % 5 + 1; }

}   // namespace

void Material::Interpret() {
    InterpretAlpha();
    InterpretTime();
}

void Material::InterpretAlpha() {
    if (options_.alpha == "none") clip_->alphaMode = 0;
    if (options_.alpha == "grey") clip_->alphaMode = 1;
    if (options_.alpha == "straight" || options_.alpha == "premultiplied") {
        clip_->alphaMode = 2;
        clip_->alphaPremultiplied = options_.alpha == "premultiplied";
    }
    if (options_.invert) clip_->alphaInvert = 1;
    if (options_.matte) clip_->matteColor = *options_.matte;
}

void Material::InterpretTime() {
    KQClip* clip = clip_.get();
    if (options_.rate) clip->frameRate = clip->sourceRate = clip->nativeRate = *options_.rate;
    if (options_.fields) SetClipOptionsKQ(clip, KQTAG_CLIP_FIELDS, *options_.fields, 0);
    if (options_.pulldown.empty()) return;
    int phase = options_.pulldown == "guess" ? GuessPullDown() : std::atoi(options_.pulldown.c_str());
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, 0, 0);
    sequence_ ? RemoveFromFiles(phase) : RemoveFromFilm(phase);
}

void Material::RemoveFromFilm(int phase) {
    SetClipOptionsKQ(clip_.get(), KQTAG_CLIP_PULLDOWN, phase, 0);
    numbers_.resize(size_t(std::max(clip_->frameCount, 0)));
    std::iota(numbers_.begin(), numbers_.end(), 0);
    first_ = 0;
    last_ = int(numbers_.size()) - 1;
}

void Material::RemoveFromFiles(int phase) {
    PresentFiles();
    if (phase == 0) return;
    long long span = (long long)(files_.back().number) - files_.front().number + 1;
    if (span > kMostSources)
        throw Failure("missing-frames", "cannot remove the pull-down of '" + options_.path + "': its numbers " +
                                            std::to_string(files_.front().number) + " and " +
                                            std::to_string(files_.back().number) + " are too far apart; " +
                                            "move the files that do not belong to it");
    clip_->sourceFrames = i32(span);
    SetClipOptionsKQ(clip_.get(), KQTAG_CLIP_PULLDOWN, phase, 0);
    clip_->sourceFrames = i32(files_.size());
    PresentGroups(phase, clip_->frameCount, int(span));
    clip_->frameCount = i32(numbers_.size());
}

// The presented frames, at most `count`, of which all files are there; the first that would need a file behind the last
// number is the end.
void Material::PresentGroups(int phase, int count, int span) {
    std::vector<int> fileAt(size_t(span), -1);
    for (size_t i = 0; i < files_.size(); ++i) {
        fileAt[size_t(files_[i].number - files_.front().number)] = int(i);
        files_[i].presented = -1;
    }
    numbers_.clear();
    sources_.clear();
    first_ = 0;
    last_ = -1;
    for (int frame = 0; frame < count; ++frame) {
        Group group(frame, phase);
        if (group.first + group.woven >= span) return;
        last_ = frame;
        int first = fileAt[size_t(group.first)], second = group.woven ? fileAt[size_t(group.first) + 1] : -1;
        for (int file : {first, second})
            if (file >= 0) files_[size_t(file)].presented = frame;
        if (first < 0 || (group.woven && second < 0)) continue;
        numbers_.push_back(frame);
        sources_.push_back({first, second});
    }
}

// The phase, or 0 when none is seen. Frames that are not there would disturb the look: of a sequence with gaps the
// longest part without any is looked at.
int Material::GuessPullDown() {
    KQClip* clip = clip_.get();
    if (!sequence_) return GuessPullDownKQ(clip) ? clip->pullDown : 0;
    size_t first = 0, count = 0;
    for (size_t from = 0, to; from < files_.size(); from = to) {
        for (to = from + 1; to < files_.size() && files_[to].number == files_[to - 1].number + 1;) ++to;
        if (to - from <= count) continue;
        first = from;
        count = to - from;
    }
    LendNumbers(first, count);
    int found = GuessPullDownKQ(clip) ? clip->pullDown : 0;
    FreeMemoryKQ(clip->frameNumbers);
    clip->frameNumbers = nullptr;
    return found ? PhaseOfWhole(found, files_[first].number - files_.front().number) : 0;
}

// The library finds the files of a sequence by its name alone, and takes the first bracket for the number's place.
void Material::LendNumbers(size_t first, size_t count) {
    KQClip* clip = clip_.get();
    std::string name = NameOf(clip->fileSpec);
    if (name.compare(name.find('['), 2, "[#") != 0)
        throw Failure("wrong-use",
                      "--pulldown guess: file names such as '" + NameOf(files_.front().path) +
                          "', with a [ in front of the number, cannot be looked at; say the phase, or rename the files",
                      kWrongUse);
    i32* table = static_cast<i32*>(AllocMemoryKQ(count * sizeof(i32), 0));
    if (!table) throw Failure("no-memory", "out of memory for the frame numbers of '" + options_.path + "'");
    for (size_t i = 0; i < count; ++i) table[i] = files_[first + i].number;
    FreeMemoryKQ(clip->frameNumbers);
    clip->frameNumbers = table;
    clip->sourceFrames = clip->frameCount = i32(count);
}

bool Material::HasGaps() const {
    return !numbers_.empty() && (long long)(last_)-first_ >= (long long)(numbers_.size());
}

// The numbers from the first to the last that are not there, as ParseFrames reads them.
std::string Material::GapText() const {
    std::string text;
    if (!HasGaps()) return text;
    auto add = [&text](long long from, long long to) {
        if (from > to) return;
        if (!text.empty()) text += ',';
        text += std::to_string(from);
        if (to > from) text.append("-").append(std::to_string(to));
    };
    long long next = first_;
    for (int number : numbers_) {
        add(next, (long long)(number)-1);
        next = (long long)(number) + 1;
    }
    add(next, last_);
    return text;
}

std::string Material::AlphaSource() const {
    if (!options_.alpha.empty()) return "given";
    if (clip_->depth != 32) return "no alpha channel";
    return FormatTellsAlpha() ? "the file" : "guessed";
}

// Whether the module settles the alpha of the first file by itself, so that nothing was left to guess.
bool Material::FormatTellsAlpha() const {
    if (!clip_->format->pluginInfo) return false;
    ClipHandle probe(NewClipKQ());
    if (!probe) return false;
    probe->format = clip_->format;
    probe->fileSpec = MakeFileSpecKQ(opened_.c_str());
    if (!probe->fileSpec || !probe->format->Open(probe.get(), nullptr)) return false;
    bool tells = probe->flags & KQCLIP_ALPHA_KNOWN;
    probe->format->Close(probe.get());
    return tells;
}

Json Material::Describe() const {
    static const char* const kAlphaNames[] = {"none", "grey", "straight"};
    const KQClip* clip = clip_.get();
    const KQFloatRGB& matte = clip->matteColor;
    bool premultiplied = clip->alphaMode == 2 && clip->alphaPremultiplied;
    Json alpha = {{"mode", premultiplied ? "premultiplied" : kAlphaNames[std::clamp(clip->alphaMode, 0, 2)]},
                  {"inverted", clip->alphaInvert != 0},
                  {"matte", Json::array({matte.red, matte.green, matte.blue})},
                  {"source", AlphaSource()}};
    std::string pulldown = options_.pulldown == "guess" ? "guessed"
                           : options_.pulldown.empty()  ? "not looked for"
                                                        : "given";
    Json described = {
        {"path", options_.path},
        {"name", clip->fileSpec},
        {"format", clip->format->node.Name ? clip->format->node.Name : ""},
        {"module", clip->format->pluginInfo ? Json(clip->format->pluginInfo->FileSpec) : Json("built in")},
        {"sequence", sequence_},
        {"width", clip->width},
        {"height", clip->height},
        {"depth", clip->depth},
        {"pixelAspect", clip->pixelAspect},
        {"frames", clip->frameCount},
        {"rate", clip->frameRate},
        {"rateSource", rateSource_},
        {"seconds", Seconds()},
        {"fields", clip->fieldOrder},
        {"pulldown", {{"phase", clip->pullDown}, {"source", pulldown}}},
        {"alpha", alpha}};
    if (!numbers_.empty())
        described["numbers"] = {{"first", numbers_.front()},
                                {"last", numbers_.back()},
                                {"present", ShowFrames(numbers_)},
                                {"missing", GapText()}};
    return described;
}

}   // namespace kqclip
