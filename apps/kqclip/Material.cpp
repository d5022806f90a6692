#include "apps/kqclip/Material.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "apps/kqclip/FrameRange.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

fs::path PathFrom(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

// Some module's CheckFile takes files of this extension.
bool SomeModuleReads(const std::string& file) {
    u32 code = ExtensionCode(ShortExtension(ExtensionOf(file)));
    for (KQFormatDesc* module : Modules())
        if ((GetImportPropertiesKQ(module) & KQFORMAT_READS) &&
            module->CheckFile(module, file.c_str(), KQ_ANYCODE, KQ_ANYCODE, code))
            return true;
    return false;
}

// The position of the number in `numbers` that is nearest to `wanted`, the lower one of two.
size_t NearestPosition(const std::vector<int>& numbers, int wanted) {
    size_t after = size_t(std::lower_bound(numbers.begin(), numbers.end(), wanted) - numbers.begin());
    if (after == 0) return 0;
    if (after == numbers.size()) return after - 1;
    return (long long)(numbers[after]) - wanted < (long long)(wanted) - numbers[after - 1] ? after : after - 1;
}

// Each module that a scan finds takes the place of the one before on the terminal's line.
void ShowScanned(const char* text, void*) { std::fprintf(stderr, "\r%s\033[K", text); }

void ScanModules(const std::vector<std::string>& folders, bool shown) {
    KQScanDesc scan = {};
    if (shown) scan.progress = ShowScanned;
    for (std::string folder : folders) {
        char* list[] = {folder.data(), nullptr};
        EnumFilesKQ(list, nullptr, FormatModule_CheckFile, reinterpret_cast<uptr>(&scan), 0);
    }
    if (shown && !folders.empty()) std::fprintf(stderr, "\r\033[K");
}

}   // namespace

Library::Library(const std::vector<std::string>& folders, bool showScan) {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags))
        throw Failure("no-memory", "cannot start the library: out of memory");
    InitFormatModulesKQ(nullptr);
    ScanModules(folders, showScan);
}

Library::~Library() { CleanUpKQ(); }

std::vector<std::string> DefaultModuleFolders() {
    if (const char* named = std::getenv("KQCLIP_MODULES")) return {named};
    return {};
}

std::string ShortExtension(const std::string& extension) {
    if (extension == "tiff") return "tif";
    if (extension == "jpeg") return "jpg";
    return extension;
}

u32 ExtensionCode(const std::string& extension) {
    if (extension.size() > 4) return 0;
    u32 code = 0;
    for (size_t i = 0; i < 4; ++i) code = code << 8 | (i < extension.size() ? u8(extension[i]) : 0);
    return code;
}

std::vector<KQFormatDesc*> Modules() {
    std::vector<KQFormatDesc*> modules;
    for (Node* node = KQEnv->formatModules.Head; node->Succ; node = node->Succ)
        modules.push_back(reinterpret_cast<KQFormatDesc*>(node));
    return modules;
}

Bitmap MakeBitmap(i32 width, i32 height) {
    Bitmap bitmap(AllocBitmapKQ(width, height, 32));
    if (!bitmap)
        throw Failure("no-memory", "out of memory for a picture of " + std::to_string(width) + " x " +
                                       std::to_string(height) + " pixels");
    return bitmap;
}

Material::Material(const InputOptions& options) : options_(options) {
    OpenPath();
    Interpret();
    if (!BeginClipIOKQ(clip_, nullptr)) {
        u32 error = GetErrorKQ();
        CloseClipKQ(clip_);
        FreeClipKQ(clip_);
        throw LibraryFailure("read", options_.path, error);
    }
}

Material::~Material() {
    EndClipIOKQ(clip_, nullptr);
    CloseClipKQ(clip_);
    FreeClipKQ(clip_);
}

void Material::OpenPath() {
    std::error_code error;
    fs::path path = PathFrom(options_.path);
    if (fs::is_directory(path, error)) return OpenFolder((path / "").string());
    if (fs::exists(path, error)) return OpenFile(options_.path, options_.single);
    if (auto pattern = ParsePattern(options_.path)) return OpenPattern(*pattern);
    throw Failure("not-found", "cannot open '" + options_.path + "': there is no such file, folder or pattern");
}

void Material::OpenFile(const std::string& file, bool single) {
    std::string extension = ShortExtension(options_.extension.empty() ? ExtensionOf(file) : options_.extension);
    char code[4] = {};
    std::memcpy(code, extension.data(), std::min<size_t>(extension.size(), 4));
    double rate = options_.rate.value_or(30.0);
    TagItem tags[] = {{KQTAG_CLIP_NOASK, 0},
                      {single ? KQTAG_CLIP_SINGLE : KQTAG_Ignore, 0},
                      {extension.empty() || extension.size() > 4 ? KQTAG_Ignore : KQTAG_CLIP_EXTENSION, uptr(code)},
                      {KQTAG_CLIP_DEFAULT_RATE, uptr(&rate)},
                      {options_.alpha.empty() ? KQTAG_Ignore : KQTAG_CLIP_NOGUESS, 0},
                      {KQTAG_End, 0}};
    clip_ = OpenClipKQ(file.c_str(), tags);
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
                                       (pattern.folder.empty() ? "." : pattern.folder) + "'");
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
    std::map<std::pair<std::string, std::string>, Pattern> patterns;
    std::set<std::string> shown;
    std::string lone;
    for (const std::string& name : FilesOf(folder)) {
        if (!SomeModuleReads(folder + name)) continue;
        auto pattern = PatternOfFile(folder + name);
        if (!pattern) {
            lone = folder + name;
            shown.insert(name);
            continue;
        }
        auto [at, isNew] = patterns.emplace(std::pair(pattern->head, pattern->tail), *pattern);
        at->second.digits = std::min(at->second.digits, pattern->digits);
        if (isNew) shown.insert(NameOf(pattern->SequenceName(pattern->digits)));
    }
    if (shown.empty())
        throw Failure("no-frames", "cannot open the folder '" + folder + "': it holds no frames that a module reads; "
                                   "'kqclip formats' lists the extensions");
    if (shown.size() > 1) {
        std::string list;
        for (const std::string& name : shown) list += (list.empty() ? "" : ", ") + name;
        throw Failure("ambiguous", "cannot open the folder '" + folder + "': it holds more than one clip; name one of " +
                                       list.substr(0, 300) + (list.size() > 300 ? "..." : ""));
    }
    if (patterns.empty()) return OpenFile(lone, true);
    OpenPattern(patterns.begin()->second);
}

void Material::Interpret() {
    if (options_.alpha == "none") clip_->alphaMode = 0;
    if (options_.alpha == "grey") clip_->alphaMode = 1;
    if (options_.alpha == "straight" || options_.alpha == "premultiplied") {
        clip_->alphaMode = 2;
        clip_->alphaPremultiplied = options_.alpha == "premultiplied";
    }
    if (options_.invert) clip_->alphaInvert = 1;
    if (options_.matte) clip_->matteColor = *options_.matte;
    if (options_.rate) SetClipOptionsKQ(clip_, KQTAG_CLIP_RATE, &*options_.rate, 0);
    if (options_.fields) SetClipOptionsKQ(clip_, KQTAG_CLIP_FIELDS, *options_.fields, 0);
    if (options_.pulldown == "guess")
        GuessPullDownKQ(clip_);
    else if (!options_.pulldown.empty())
        SetClipOptionsKQ(clip_, KQTAG_CLIP_PULLDOWN, std::atoi(options_.pulldown.c_str()), 0);
    if (clip_->frameCount != i32(numbers_.size())) {   // pull-down removal presents fewer frames, without file numbers
        numbers_.resize(size_t(std::max(clip_->frameCount, 0)));
        for (int i = 0; i < int(numbers_.size()); ++i) numbers_[size_t(i)] = i;
    }
}

std::vector<int> Material::Gaps() const {
    std::vector<int> gaps;
    for (size_t i = 1; i < numbers_.size(); ++i)
        for (int n = numbers_[i - 1] + 1; n < numbers_[i] && gaps.size() < 1000000; ++n) gaps.push_back(n);
    return gaps;
}

std::vector<Step> Material::Plan(Report& report, bool toleratesGaps) const {
    if (numbers_.empty()) throw Failure("no-frames", "'" + options_.path + "' holds no frames");
    std::vector<int> wanted;
    bool asked = !options_.frames.empty();
    if (asked)
        wanted = ParseFrames(options_.frames);
    else if (toleratesGaps || (long long)(numbers_.back()) - numbers_.front() >= 10000000)
        wanted = numbers_;
    else
        for (int n = numbers_.front(); n <= numbers_.back(); ++n) wanted.push_back(n);
    std::vector<Step> steps;
    std::vector<int> absent;
    for (int number : wanted) {
        size_t at = size_t(std::lower_bound(numbers_.begin(), numbers_.end(), number) - numbers_.begin());
        if (at < numbers_.size() && numbers_[at] == number) {
            steps.push_back({number, int(at), false});
            continue;
        }
        absent.push_back(number);
        switch (options_.missing) {
        case Missing::Error:
        case Missing::Skip: break;
        case Missing::Hold: steps.push_back({number, at == 0 ? 0 : int(at) - 1, true}); break;
        case Missing::Nearest: steps.push_back({number, int(NearestPosition(numbers_, number)), true}); break;
        case Missing::Black: steps.push_back({number, -1, true}); break;
        }
    }
    if (absent.empty() && toleratesGaps && !asked) absent = Gaps();
    if (absent.empty()) return steps;
    std::string which = ShowFrames(absent);
    std::string text = "'" + options_.path + "' has no frame " + which.substr(0, 200) + (which.size() > 200 ? "..." : "") +
                       " (it has " + ShowFrames(numbers_).substr(0, 200) + ")";
    if (options_.missing == Missing::Error && !(toleratesGaps && !asked))
        throw Failure("missing-frames", text + "; --missing hold, nearest, black or skip goes on without");
    report.facts["missing"] = absent;
    report.Warn(text);
    return steps;
}

void Material::Fetch(const Step& step, KQBitmap* bitmap, Report& report) const {
    ThrowIfInterrupted();
    if (step.index < 0) return FillBitmapKQ(bitmap, 0xFF000000);
    KQTimeValue time = {double(step.index), clip_->frameRate};
    KQEnv->Error = KQERR_NONE;
    bool done = GetFrameKQ(clip_, bitmap, &time, nullptr, nullptr);
    u32 error = GetErrorKQ();
    std::string which = "frame " + std::to_string(step.number) + " of";
    if (!done) throw LibraryFailure("read " + which, options_.path, error);
    if (error == KQERR_NONE) return;
    report.facts["damaged"].push_back(step.number);
    report.Warn(which + " '" + options_.path + "' is damaged: the file ends before it, or holds no picture there");
}

std::string Material::AlphaSource() const {
    if (!options_.alpha.empty()) return "given";
    return clip_->depth == 32 ? "guessed" : "no alpha channel";
}

Json Material::Describe() const {
    static const char* const kAlphaNames[] = {"none", "grey", "straight"};
    const KQFloatRGB& matte = clip_->matteColor;
    bool premultiplied = clip_->alphaMode == 2 && clip_->alphaPremultiplied;
    Json alpha = {{"mode", premultiplied ? "premultiplied" : kAlphaNames[std::clamp(clip_->alphaMode, 0, 2)]},
                  {"inverted", clip_->alphaInvert != 0},
                  {"matte", Json::array({matte.red, matte.green, matte.blue})},
                  {"source", AlphaSource()}};
    Json described = {{"path", options_.path},
                      {"format", clip_->format->node.Name ? clip_->format->node.Name : ""},
                      {"width", clip_->width},
                      {"height", clip_->height},
                      {"depth", clip_->depth},
                      {"pixelAspect", clip_->pixelAspect},
                      {"frames", clip_->frameCount},
                      {"rate", clip_->frameRate},
                      {"seconds", Seconds()},
                      {"fields", clip_->fieldOrder},
                      {"pulldown", clip_->pullDown},
                      {"alpha", alpha},
                      {"sequence", sequence_}};
    if (sequence_) {
        described["name"] = clip_->fileSpec;
        described["numbers"] = {{"first", numbers_.front()},
                                {"last", numbers_.back()},
                                {"present", ShowFrames(numbers_)},
                                {"missing", ShowFrames(Gaps())}};
    }
    return described;
}

}   // namespace kqclip
