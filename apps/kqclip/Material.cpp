// Opening: what the command line names becomes a clip with its numbers, taken as the options say.
#include "apps/kqclip/Material.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "apps/kqclip/FrameRange.h"
#include "apps/kqclip/Library.h"
#include "apps/kqclip/Output.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

// Some module's CheckFile takes files of this extension.
bool SomeModuleReads(const std::string& file) {
    u32 code = ExtensionCode(ShortExtension(ExtensionOf(file)));
    for (KQFormatDesc* module : Modules())
        if ((GetImportPropertiesKQ(module) & KQFORMAT_READS) &&
            module->CheckFile(module, file.c_str(), KQ_ANYCODE, KQ_ANYCODE, code))
            return true;
    return false;
}

// The clips that a folder holds, by the names of their files.
struct FolderClips {
    std::map<std::pair<std::string, std::string>, Pattern> patterns;   // by what stands around the number
    std::set<std::string> shown;                                       // as a user would name them
    std::string lone;                                                  // a file without a number

    explicit FolderClips(const std::string& folder) {
        for (const std::string& name : FilesOf(folder))
            if (SomeModuleReads(folder + name)) Add(folder, name);
    }

    void Add(const std::string& folder, const std::string& name) {
        auto pattern = PatternOfFile(folder + name);
        if (!pattern) {
            lone = folder + name;
            shown.insert(name);
            return;
        }
        auto [at, isNew] = patterns.emplace(std::pair(pattern->head, pattern->tail), *pattern);
        at->second.digits = std::min(at->second.digits, pattern->digits);
        if (isNew) shown.insert(NameOf(pattern->SequenceName(pattern->digits)));
    }

    std::string List() const {
        std::string list;
        for (const std::string& name : shown) list += (list.empty() ? "" : ", ") + name;
        return list.size() > 300 ? list.substr(0, 300) + "..." : list;
    }
};

}   // namespace

std::string ShortExtension(const std::string& extension) {
    static const std::map<std::string, std::string> kShort = {
        {"jpeg", "jpg"}, {"jpe", "jpg"}, {"jfif", "jpg"}, {"tiff", "tif"}, {"targa", "tga"}};
    auto known = kShort.find(extension);
    return known == kShort.end() ? extension.substr(0, 4) : known->second;
}

Bitmap MakeBitmap(i32 width, i32 height) {
    Bitmap bitmap(AllocBitmapKQ(width, height, 32));
    if (!bitmap)
        throw Failure("no-memory", "out of memory for a picture of " + std::to_string(width) + " x " +
                                       std::to_string(height) + " pixels; choose a smaller --size");
    return bitmap;
}

Material::Material(const InputOptions& options) : options_(options) {
    if (options_.matte && options_.alpha.empty()) options_.alpha = "premultiplied";
    if (options_.matte && options_.alpha != "premultiplied")
        throw Failure("wrong-use", "--matte goes with --alpha premultiplied", kWrongUse);
    OpenPath();
    Interpret();
    if (!BeginClipIOKQ(clip_.get(), nullptr)) throw LibraryFailure("read", options_.path, GetErrorKQ());
}

void Material::OpenPath() {
    std::error_code error;
    fs::path path = PathFrom(options_.path);
    bool isFolder = fs::is_directory(path, error);
    FinishKilledMoves(isFolder ? TextOf(path / "") : options_.path);
    if (isFolder) return OpenFolder(TextOf(path / ""));
    if (fs::exists(path, error)) return OpenFile(options_.path, options_.single);
    if (auto pattern = ParsePattern(options_.path)) return OpenPattern(*pattern);
    throw Failure("not-found",
                  "cannot open '" + options_.path + "': there is no such file, folder or pattern; look at the name");
}

void Material::OpenFile(const std::string& file, bool single) {
    std::string extension = ShortExtension(options_.extension.empty() ? ExtensionOf(file) : options_.extension);
    char code[4] = {};
    std::memcpy(code, extension.data(), extension.size());
    double rate = options_.rate.value_or(30.0);
    TagItem tags[] = {{KQTAG_CLIP_NOASK, 0},
                      {single ? KQTAG_CLIP_SINGLE : KQTAG_Ignore, 0},
                      {extension.empty() ? KQTAG_Ignore : KQTAG_CLIP_EXTENSION, uptr(code)},
                      {KQTAG_CLIP_DEFAULT_RATE, uptr(&rate)},
                      {options_.alpha.empty() ? KQTAG_Ignore : KQTAG_CLIP_NOGUESS, 0},
                      {KQTAG_End, 0}};
    ListenAnew();
    clip_.reset(OpenClipKQ(file.c_str(), tags));
    if (!clip_) throw LibraryFailure("open", file, GetErrorKQ());
    bool multiframe = GetImportPropertiesKQ(clip_->format) & KQFORMAT_MULTIFRAME;
    sequence_ = !multiframe && clip_->sourceFrames >= 2;
    numbers_.resize(size_t(std::max(clip_->frameCount, 0)));
    for (int i = 0; i < int(numbers_.size()); ++i)
        numbers_[size_t(i)] = sequence_ && clip_->frameNumbers ? clip_->frameNumbers[i] : i;
}

// The files that the pattern names are listed here and not by the library, which would take the longest run of digits
// of a name for its number.
void Material::OpenPattern(const Pattern& pattern) {
    std::map<int, std::string> files;
    size_t places = size_t(pattern.digits);
    for (const std::string& name : FilesOf(pattern.folder))
        if (auto number = pattern.NumberOf(name)) {
            places = std::max(places, name.size() - pattern.head.size() - pattern.tail.size());
            files.emplace(*number, pattern.folder + name);
        }
    if (files.empty())
        throw Failure("not-found", "cannot open '" + options_.path + "': the pattern matches no file in '" +
                                       (pattern.folder.empty() ? "." : pattern.folder) +
                                       "'; look at the name and at the folder");
    OpenFile(files.begin()->second, true);
    numbers_.clear();
    for (const auto& [number, file] : files) numbers_.push_back(number);
    if (files.size() == 1) return;
    sequence_ = true;
    i32* table = static_cast<i32*>(AllocMemoryKQ(files.size() * sizeof(i32), 0));
    char* spec = MakeFileSpecKQ(pattern.SequenceName(int(places)).c_str());
    if (!table || !spec) {
        FreeMemoryKQ(table);
        FreeFileSpecKQ(spec);
        throw Failure("no-memory", "out of memory for the frame numbers of '" + options_.path + "'");
    }
    std::copy(numbers_.begin(), numbers_.end(), table);
    FreeFileSpecKQ(clip_->fileSpec);
    clip_->fileSpec = spec;
    clip_->frameNumbers = table;
    clip_->sourceFrames = clip_->frameCount = i32(files.size());
}

void Material::OpenFolder(const std::string& folder) {
    FolderClips clips(folder);
    if (clips.shown.empty())
        throw Failure("no-frames", "cannot open the folder '" + folder +
                                       "': it holds no frames that a module reads; "
                                       "'kqclip formats' lists the extensions");
    if (clips.shown.size() > 1)
        throw Failure("ambiguous", "cannot open the folder '" + folder +
                                       "': it holds more than one clip; name one of " + clips.List());
    if (clips.patterns.empty()) return OpenFile(clips.lone, true);
    OpenPattern(clips.patterns.begin()->second);
}

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
    if (options_.rate) SetClipOptionsKQ(clip, KQTAG_CLIP_RATE, &*options_.rate, 0);
    if (options_.fields) SetClipOptionsKQ(clip, KQTAG_CLIP_FIELDS, *options_.fields, 0);
    if (options_.pulldown == "guess")
        GuessPullDownKQ(clip);
    else if (!options_.pulldown.empty())
        SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, std::atoi(options_.pulldown.c_str()), 0);
    if (clip->frameCount == i32(numbers_.size())) return;
    // Pull-down removal presents fewer frames, without file numbers.
    numbers_.resize(size_t(std::max(clip->frameCount, 0)));
    for (int i = 0; i < int(numbers_.size()); ++i) numbers_[size_t(i)] = i;
}

bool Material::HasGaps() const {
    return !numbers_.empty() && (long long)(numbers_.back()) - numbers_.front() >= (long long)(numbers_.size());
}

// The numbers between the first and the last that are not there, as ParseFrames reads them.
std::string Material::GapText() const {
    std::string text;
    for (size_t i = 1; i < numbers_.size() && HasGaps(); ++i) {
        int from = numbers_[i - 1] + 1, to = numbers_[i] - 1;
        if (from > to) continue;
        text += (text.empty() ? "" : ",") + std::to_string(from);
        if (to > from) text += "-" + std::to_string(to);
    }
    return text;
}

bool Material::Reads(const std::string& file) const {
    std::error_code error;
    fs::path wanted = fs::weakly_canonical(PathFrom(file), error);
    if (sequence_) {
        for (int i = 0; i < int(numbers_.size()); ++i)
            if (NameOf(file) == NameOf(FileOf(i)) && fs::equivalent(wanted, PathFrom(FileOf(i)), error)) return true;
        return false;
    }
    return fs::equivalent(wanted, PathFrom(clip_->fileSpec), error);
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
    probe->fileSpec = MakeFileSpecKQ(FileOf(0).c_str());
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
