#include "apps/kqclip/Writer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>
#include <utility>

#include "apps/kqclip/FrameRange.h"
#include "apps/kqclip/Library.h"
#include "apps/kqclip/Output.h"

namespace fs = std::filesystem;

namespace kqclip {

KQFormatDesc* WriterFor(const std::string& output, const std::string& extension) {
    std::string given = extension.empty() ? ExtensionOf(output) : extension, letters = ShortExtension(given);
    bool cut = given.size() > letters.size() && given.rfind(letters, 0) == 0 && letters.size() == 4;
    u32 code = cut ? 0 : ExtensionCode(letters);   // a longer word is not the extension that it begins with
    for (KQFormatDesc* module : Modules()) {
        std::vector<u32> written = WrittenBy(module);
        if (code && std::find(written.begin(), written.end(), code) != written.end()) return module;
    }
    std::string kind = letters.empty() ? "files without an extension" : "." + given + " files";
    throw Failure("unknown-format", "cannot write '" + output + "': no format module writes " + kind +
                                        "; 'kqclip formats' lists the extensions");
}

Target::Target(const std::string& output, bool single, const std::vector<Step>& steps, int start) : output_(output) {
    if (!single) pattern_ = ParsePattern(output);
    if (NameOf(output).empty())
        throw Failure("wrong-use", "cannot write '" + output + "': it names a folder; add a file name or a pattern",
                      kWrongUse);
    if (start >= 0 && !pattern_)
        throw Failure("wrong-use",
                      "--start: '" + output + "' is one file; only those of a pattern such as name.####." +
                          ExtensionOf(output) + " are numbered",
                      kWrongUse);
    if (single) {
        names_.push_back(NameOf(output));
        return;
    }
    if (!pattern_ && steps.size() > 1)
        throw Failure("wrong-use",
                      "cannot write " + Counted(steps.size(), "frame") + " as '" + output +
                          "': this format holds one frame a file; write a pattern such as name.####." +
                          ExtensionOf(output),
                      kWrongUse);
    for (size_t i = 0; i < steps.size(); ++i)
        names_.push_back(pattern_ ? NameFor(*pattern_, start < 0 ? steps[i].number : start + int(i)) : NameOf(output));
    RefuseTwins(steps);
}

void Target::RefuseTwins(const std::vector<Step>& steps) const {
    std::set<std::string> seen;
    for (size_t i = 0; i < steps.size(); ++i)
        if (!seen.insert(names_[i]).second)
            throw Failure("wrong-use",
                          "frame " + std::to_string(steps[i].number) + " would be written as '" + names_[i] +
                              "' more than once; --start numbers the files one after another",
                          kWrongUse);
}

std::string Target::NameFor(const Pattern& pattern, int number) const {
    auto path = pattern.PathOf(number);
    bool fits = path && (pattern.digits == 1 || std::to_string(number).size() <= size_t(pattern.digits));
    if (fits) return NameOf(*path);
    throw Failure("wrong-use",
                  "frame " + std::to_string(number) + " does not fit the " + std::to_string(pattern.digits) +
                      " digits of '" + output_ + "'; " +
                      (number < 0 ? "number the files from 0 or above with --start"
                                  : "write more places, or --start with a smaller number"),
                  kWrongUse);
}

std::vector<std::string> Target::Existing() const {
    std::vector<std::string> existing;
    for (const std::string& name : names_) {
        if (CheckReplaceable(FolderOf(output_) + name, true)) existing.push_back(name);
    }
    return existing;
}

std::string Target::Others() const {
    std::error_code error;
    if (!pattern_ || !fs::is_directory(PathFrom(pattern_->folder.empty() ? "." : pattern_->folder), error)) return "";
    std::set<std::string> ours(names_.begin(), names_.end());
    std::set<int> numbers;
    for (const std::string& name : FilesOf(pattern_->folder))
        if (auto number = pattern_->NumberOf(name); number && !ours.count(name)) numbers.insert(*number);
    return ShowFrames({numbers.begin(), numbers.end()});
}

Writer::Writer(KQFormatDesc* module, const KQClip* source, const Shape& shape, const std::string& output,
               const std::string& extension)
    : clip_(NewClipKQ()),
      shape_(shape),
      output_(output),
      extension_(extension.empty() ? ExtensionOf(output) : extension) {
    if (!clip_) throw Failure("no-memory", "out of memory for the output '" + output_ + "'");
    clip_->format = module;
    clip_->width = shape.size.width;
    clip_->height = shape.size.height;
    clip_->frameCount = 1;
    clip_->frameRate = clip_->sourceRate = clip_->nativeRate = shape.rate;
    clip_->pixelAspect = source->pixelAspect;
    clip_->fieldOrder = source->fieldOrder;
    SetAlpha(source, shape.writeAlpha);
    hasAlpha_ = clip_->alphaMode == 2;
    clip_->depth = clip_->alphaMode == 2 ? 32 : clip_->alphaMode == 1 ? 8 : 24;
}

Writer::~Writer() {
    if (begun_) EndClipIOKQ(clip_, nullptr);
    if (created_) CloseClipKQ(clip_);
    FreeClipKQ(clip_);
}

void Writer::SetAlpha(const KQClip* source, const std::string& wanted) {
    clip_->matteColor = source->matteColor;
    clip_->alphaInvert = 0;
    clip_->alphaPremultiplied = wanted == "premultiplied";
    if (wanted.empty())
        clip_->alphaMode = source->alphaMode == 0 ? 0 : 2;
    else
        clip_->alphaMode = wanted == "none" ? 0 : wanted == "grey" ? 1 : 2;
    clip_->flags |= KQCLIP_ALPHA_KNOWN;
}

void Writer::Fail(const std::string& what, u32 error) const {
    if (error == KQERR_NONE || error == KQERR_MODULE) error = KQERR_WRITE;
    throw LibraryFailure(what, output_, error);
}

// A module that goes by the name's extension gets a name that has it.
void Writer::Create(const std::string& staged) {
    ListenAnew();
    staged_ = staged;
    working_ = ExtensionOf(staged) == extension_ ? staged : staged + "." + extension_;
    FreeFileSpecKQ(clip_->fileSpec);
    clip_->fileSpec = MakeFileSpecKQ(working_.c_str());
    if (!clip_->fileSpec || !CreateClipKQ(clip_, 0)) Fail("create", GetErrorKQ());
    created_ = true;
    begun_ = BeginClipIOKQ(clip_, nullptr);
    if (!begun_) Fail("write", GetErrorKQ());
}

void Writer::Add(KQBitmap* bitmap, int index) {
    KQTimeValue time = {double(index), clip_->frameRate};
    if (!AddFrameKQ(clip_, bitmap, &time, nullptr, nullptr)) Fail("write", GetErrorKQ());
}

void Writer::Close() {
    KQEnv->Error = KQERR_NONE;
    bool ended = EndClipIOKQ(clip_, nullptr);
    u32 error = GetErrorKQ();
    begun_ = created_ = false;
    CloseClipKQ(clip_);
    if (error == KQERR_NONE) error = GetErrorKQ();
    if (!ended || error != KQERR_NONE) Fail("write", error);
    clip_->sourceFrames = 0;
}

// As the module reads it; the first still of a sequence alone.
ClipHandle Writer::ReadBack() const {
    char code[4] = {};
    std::string letters = ShortExtension(extension_);
    std::copy(letters.begin(), letters.end(), code);
    TagItem tags[] = {
        {KQTAG_CLIP_SINGLE, 0}, {KQTAG_CLIP_NOGUESS, 0}, {KQTAG_CLIP_EXTENSION, uptr(code)}, {KQTAG_End, 0}};
    ListenAnew();
    ClipHandle clip(OpenClipKQ(working_.c_str(), tags));
    if (!clip) throw LibraryFailure("read back", output_, GetErrorKQ());
    return clip;
}

void Writer::NoteLosses(const KQClip* found, Report& report) {
    if (std::exchange(noted_, true)) return;
    if (hasAlpha_ && found->depth != 32)
        report.Note("alpha-dropped", "'" + output_ + "' holds no alpha: its format has none");
    bool keepsRates = GetImportPropertiesKQ(clip_->format) & KQFORMAT_MULTIFRAME;   // stills have no rate to keep
    if (!keepsRates || std::fabs(found->sourceRate - shape_.rate) <= shape_.rate * 1e-4) return;
    char text[80];
    std::snprintf(text, sizeof text, "%.6g frames a second, not %.6g", found->sourceRate, shape_.rate);
    report.Note("rate-changed", "'" + output_ + "' plays " + text + ": its format does not hold that rate");
}

void Writer::Finish(size_t frames, Report& report) {
    Close();
    ClipHandle found = ReadBack();
    Size size = {found->width, found->height};
    if (size_t(found->sourceFrames) != frames || size.width != shape_.size.width || size.height != shape_.size.height)
        throw Failure("cannot-write", "cannot write '" + output_ + "': what was written reads back as " +
                                          Counted(size_t(found->sourceFrames), "frame") + " of " +
                                          std::to_string(size.width) + " x " + std::to_string(size.height) +
                                          " pixels; look at the disk");
    NoteLosses(found.get(), report);
    found.reset();
    if (working_ == staged_) return;
    std::error_code error;
    fs::rename(PathFrom(working_), PathFrom(staged_), error);
    if (error) throw Failure("cannot-write", "cannot write '" + output_ + "': " + error.message());
}

}   // namespace kqclip
