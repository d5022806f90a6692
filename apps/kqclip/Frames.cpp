// Going through the frames of a clip: which ones, what stands for one that is missing or damaged, and their pixels.
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

std::string SizeText(const KQClip* clip) {
    return std::to_string(clip->width) + " x " + std::to_string(clip->height) + " pixels";
}

}   // namespace

// The presented frame that stands for a number that is not there; `at` is the first number above it. -1 is black, -2
// none.
int Material::Stand(int number, size_t at) const {
    switch (options_.missing) {
    case Missing::Hold: return at == 0 ? 0 : int(at) - 1;
    case Missing::Nearest: return int(NearestPosition(numbers_, number));
    case Missing::Black: return -1;
    default: return -2;
    }
}

std::vector<Step> Material::Plan(Report& report, bool toleratesGaps) const {
    if (numbers_.empty()) throw Failure("no-frames", "'" + options_.path + "' holds no frames");
    bool asked = !options_.frames.empty();
    std::vector<int> wanted;
    if (asked)
        wanted = ParseFrames(options_.frames);
    else if (toleratesGaps)
        wanted = numbers_;
    else if ((long long)(numbers_.back()) - numbers_.front() >= kMostFrames)
        throw Failure("missing-frames", "'" + options_.path + "' has frames " + Short(ShowFrames(numbers_)) +
                                            ", more than ten million apart; choose some with --frames");
    else
        for (int n = numbers_.front(); n <= numbers_.back(); ++n) wanted.push_back(n);
    std::vector<Step> steps;
    std::vector<int> absent;
    for (int number : wanted) {
        size_t at = size_t(std::lower_bound(numbers_.begin(), numbers_.end(), number) - numbers_.begin());
        bool there = at < numbers_.size() && numbers_[at] == number;
        int index = there ? int(at) : Stand(number, at);
        if (!there) absent.push_back(number);
        if (index >= -1) steps.push_back({number, index, !there});
    }
    bool gaps = absent.empty() && toleratesGaps && !asked && HasGaps();
    if (absent.empty() && !gaps) return steps;
    std::string which = gaps ? GapText() : ShowFrames(absent);
    std::string text =
        "'" + options_.path + "' has no frame " + Short(which) + " (it has " + Short(ShowFrames(numbers_)) + ")";
    if (options_.missing == Missing::Error && !gaps)
        throw Failure("missing-frames", text + "; --missing hold, nearest, black or skip goes on without");
    report.missing = which;
    report.Warn("missing-frames", text);
    return steps;
}

// The file of a presented frame of a sequence, else the clip's.
std::string Material::FileOf(int index) const {
    if (!sequence_ || clip_->pullDown || index < 0 || index >= int(numbers_.size())) return clip_->fileSpec;
    std::string name = clip_->fileSpec;
    name.resize(name.size() + 16);
    return SequenceNumber_to_Name_Validate(name.data(), numbers_[size_t(index)]) ? name.c_str() : clip_->fileSpec;
}

// "frame 3 of 'shot.####.png' (shot.0003.png)".
std::string Material::NameOfFrame(int number, int index) const {
    std::string text = "frame " + std::to_string(number) + " of '" + options_.path + "'";
    return sequence_ && !clip_->pullDown ? text + " (" + NameOf(FileOf(index)) + ")" : text;
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

void Material::CheckFile(int index, Report& report) const {
    ThrowIfInterrupted();
    ListenAnew();
    int number = numbers_[size_t(index)];
    ClipHandle alone = OpenAlone(FileOf(index));
    if (!alone) {
        report.damaged.push_back(number);
        report.Warn("damaged-frame",
                    NameOfFrame(number, index) + " cannot be read: " + ReasonOf(GetErrorKQ()).why + Said());
    } else if (alone->width != clip_->width || alone->height != clip_->height) {
        report.otherSize.push_back(number);
        report.Warn("different-size", NameOfFrame(number, index) + " has " + SizeText(alone.get()) + ", the clip has " +
                                          SizeText(clip_.get()) + "; it is scaled when it is read");
    }
}

// A whole presented frame, or one of its fields.
bool Material::ReadRetrieved(KQClip* clip, int index, int field, KQBitmap* bitmap) const {
    KQTimeValue time = {index + (field == 1 ? 0.5 : 0.0), clip->frameRate};
    KQTimeValue half = {0.5, clip->frameRate};
    KQEnv->Error = KQERR_NONE;
    return GetFrameKQ(clip, bitmap, &time, field >= 0 ? &half : nullptr, nullptr) != 0;
}

void Material::NoteOtherSize(const Step& step, const KQClip* other, Report& report) const {
    report.otherSize.push_back(step.number);
    std::string size = other ? "has " + SizeText(other) : "is of another size";
    report.Warn("different-size", NameOfFrame(step.number, step.index) + " " + size + ", the clip has " +
                                      SizeText(clip_.get()) +
                                      "; it was scaled; leave it out with --frames, or convert it alone");
}

// Reads the step's frame; empty, or why it cannot be read. A frame that is there in part is read, and noted.
//
// A module that scales brings a frame of another size by itself and leaves KQERR_BADDATA; for others the head of each
// file is looked at first.
std::string Material::Read(const Step& step, KQBitmap* bitmap, Report& report) const {
    ListenAnew();
    bool numbered = sequence_ && !clip_->pullDown, scales = GetImportPropertiesKQ(clip_->format) & KQFORMAT_SCALES;
    ClipHandle alone = numbered && !scales ? OpenAlone(FileOf(step.index)) : ClipHandle();
    if (numbered && !scales && !alone) return ReasonOf(GetErrorKQ()).why + Said();
    bool resized = alone && (alone->width != clip_->width || alone->height != clip_->height);
    if (resized) NoteOtherSize(step, alone.get(), report);
    if (resized && !BeginClipIOKQ(alone.get(), nullptr)) return ReasonOf(GetErrorKQ()).why + Said();
    bool done = ReadRetrieved(resized ? alone.get() : clip_.get(), resized ? 0 : step.index, step.field, bitmap);
    u32 error = GetErrorKQ();
    if (!done) return ReasonOf(error).why + Said();
    if (error == KQERR_NONE) return "";
    if (error == KQERR_BADDATA && numbered) {
        NoteOtherSize(step, OpenAlone(FileOf(step.index)).get(), report);
        return "";
    }
    report.damaged.push_back(step.number);
    report.Warn("damaged-frame",
                NameOfFrame(step.number, step.index) + " is damaged: " +
                    (Said().empty() ? "the file ends before it, or holds no picture there" : "not all of it is there") +
                    Said());
    return "";
}

bool Material::Fetch(const Step& step, KQBitmap* bitmap, Report& report) const {
    ThrowIfInterrupted();
    if (step.index < 0) {
        FillBitmapKQ(bitmap, 0xFF000000);
        return true;
    }
    std::string why = Read(step, bitmap, report);
    ++report.framesRead;
    return why.empty() || Replace(step, why, bitmap, report);
}

bool Material::Replace(const Step& step, const std::string& why, KQBitmap* bitmap, Report& report) const {
    std::string text = NameOfFrame(step.number, step.index);
    if (options_.missing == Missing::Error)
        throw Failure("damaged-frame", "cannot read " + text + ": " + why +
                                           "; --missing hold, nearest, black or skip goes on without it");
    report.damaged.push_back(step.number);
    report.Warn("damaged-frame", text + " cannot be read: " + why);
    FillBitmapKQ(bitmap, 0xFF000000);
    if (options_.missing == Missing::Hold || options_.missing == Missing::Nearest) Borrow(step, bitmap);
    return options_.missing != Missing::Skip;
}

// The last readable frame before the step's, or the nearest on both sides; black where there is none. What is damaged
// on the way is told when its own turn comes.
void Material::Borrow(const Step& step, KQBitmap* bitmap) const {
    int frames = int(numbers_.size());
    for (int away = 1; away < frames; ++away)
        for (int index : {step.index - away, step.index + away}) {
            bool wanted = index >= 0 && index < frames && (index < step.index || options_.missing == Missing::Nearest);
            if (!wanted) continue;
            Report unheard;
            if (Read({numbers_[size_t(index)], index, true, step.field}, bitmap, unheard).empty()) return;
            FillBitmapKQ(bitmap, 0xFF000000);
        }
}

}   // namespace kqclip
