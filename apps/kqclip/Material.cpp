// Opening: what the command line names becomes a clip with its numbers, taken as the options say.
#include "apps/kqclip/Material.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>

#include "apps/kqclip/Library.h"
#include "apps/kqclip/Output.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

// Clips that do not tell their rate are taken for video.
constexpr double kUsualRate = 30.0;

// What the library is given to start from: a module that finds a rate in the file, be it the usual one, changes it.
constexpr double kAssumedRate = kUsualRate + 1.0 / (1 << 30);

constexpr const char* kLargestNumber = "2147483647";
constexpr size_t kMostNamed = 5;

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
    std::string letters = extension.substr(extension.rfind('.', 0) == 0 ? 1 : 0);
    for (char& c : letters) c = char(std::tolower(static_cast<unsigned char>(c)));
    auto known = kShort.find(letters);
    return known == kShort.end() ? letters.substr(0, 4) : known->second;
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
    if (fs::exists(path, error)) return OpenNamed(options_.path);
    if (auto pattern = ParsePattern(options_.path)) return OpenPattern(*pattern);
    throw Failure("not-found",
                  "cannot open '" + options_.path + "': there is no such file, folder or pattern; look at the name");
}

// The file alone; BecomeSequence adds the others. The files of a sequence are listed here and not by the library, which
// would take the longest run of digits of a name for its number.
void Material::OpenFile(const std::string& file) {
    std::string extension = ShortExtension(options_.extension.empty() ? ExtensionOf(file) : options_.extension);
    char code[4] = {};
    std::memcpy(code, extension.data(), extension.size());
    double rate = options_.rate.value_or(kAssumedRate);
    TagItem tags[] = {{KQTAG_CLIP_NOASK, 0},
                      {KQTAG_CLIP_SINGLE, 0},
                      {extension.empty() ? KQTAG_Ignore : KQTAG_CLIP_EXTENSION, uptr(code)},
                      {KQTAG_CLIP_DEFAULT_RATE, uptr(&rate)},
                      {options_.alpha.empty() ? KQTAG_Ignore : KQTAG_CLIP_NOGUESS, 0},
                      {KQTAG_End, 0}};
    ListenAnew();
    ClipHandle clip(OpenClipKQ(file.c_str(), tags));
    if (!clip) throw LibraryFailure("open", file, GetErrorKQ());
    clip_ = std::move(clip);   // not before: what ends the one before clears the error
    opened_ = file;
    SettleRate();
    numbers_.resize(size_t(std::max(clip_->frameCount, 0)));
    std::iota(numbers_.begin(), numbers_.end(), 0);
    last_ = int(numbers_.size()) - 1;
}

void Material::SettleRate() {
    KQClip* clip = clip_.get();
    rateSource_ = options_.rate ? "given" : "the file";
    if (options_.rate || clip->sourceRate != kAssumedRate) return;
    rateSource_ = "assumed";
    clip->frameRate = clip->sourceRate = clip->nativeRate = kUsualRate;
}

// What a clip is like is told by its first file: where frames may be damaged, by the first that can be opened.
void Material::OpenFirst(const std::vector<NumberedFile>& files) {
    for (const NumberedFile& file : files) {
        try {
            return OpenFile(file.path);
        } catch (const Failure&) {
            if (options_.missing == Missing::Error || &file == &files.back()) throw;
        }
    }
}

// One file of a sequence stands for all of it.
void Material::OpenNamed(const std::string& file) {
    OpenFile(file);
    auto pattern = PatternOfFile(file);
    if (options_.single || !pattern || IsFilm()) return;
    NumberedFiles found = FilesOf(*pattern);
    NoteLeftOut(found, NameOf(file));
    auto isNamed = [&](const NumberedFile& other) { return NameOf(other.path) == NameOf(file); };
    if (found.files.size() < 2 || !pattern->NumberOf(NameOf(file))) return;
    if (!isNamed(found.files.front())) OpenFirst(found.files);   // alpha is guessed from the first
    BecomeSequence(*pattern, found);
}

void Material::OpenPattern(const Pattern& pattern) {
    NumberedFiles found = FilesOf(pattern);
    std::string cannot = "cannot open '" + options_.path + "': ",
                folder = pattern.folder.empty() ? "." : pattern.folder;
    if (found.files.empty() && found.tooLarge.size() == 1) return OpenFile(pattern.folder + found.tooLarge.front());
    if (found.files.empty() && !found.tooLarge.empty())
        throw Failure("not-found", cannot + "the numbers of its files are above " + kLargestNumber +
                                       "; rename them, or name one, with --single");
    if (found.files.empty())
        throw Failure("not-found",
                      cannot + "the pattern matches no file in '" + folder + "'; look at the name and at the folder");
    OpenFirst(found.files);
    if (IsFilm() && found.files.size() > 1)
        throw Failure("ambiguous", cannot + "it names " + std::to_string(found.files.size()) +
                                       " films, each a clip of its own; name one of them, such as " +
                                       NameOf(found.files.front().path));
    NoteLeftOut(found, "");
    if (IsFilm()) return;
    if (found.files.size() > 1) return BecomeSequence(pattern, found);
    numbers_ = {found.files.front().number};
    first_ = last_ = numbers_.front();
}

// Files that look like those of the clip and are not read.
void Material::NoteLeftOut(const NumberedFiles& found, const std::string& taken) {
    auto note = [&](const std::vector<std::string>& names, const std::string& why) {
        std::string list;
        size_t count = 0;
        for (const std::string& name : names)
            if (name != taken && ++count <= kMostNamed) list += (list.empty() ? "" : ", ") + name;
        if (count > kMostNamed) list += " and " + std::to_string(count - kMostNamed) + " more";
        if (count > 0) leftOut_.push_back("'" + options_.path + "' is read without " + list + ": " + why);
    };
    note(found.doubles, "another file has the same number");
    note(found.tooLarge, std::string("frame numbers end at ") + kLargestNumber);
}

void Material::BecomeSequence(const Pattern& pattern, const NumberedFiles& found) {
    size_t places = size_t(pattern.digits), around = pattern.folder.size() + pattern.head.size() + pattern.tail.size();
    for (const NumberedFile& file : found.files) {
        places = std::max(places, file.path.size() - around);
        files_.push_back({file.number, file.path, file.number});
    }
    char* spec = MakeFileSpecKQ(pattern.SequenceName(int(places)).c_str());
    if (!spec) throw Failure("no-memory", "out of memory for the name of '" + options_.path + "'");
    FreeFileSpecKQ(clip_->fileSpec);
    clip_->fileSpec = spec;
    sequence_ = true;
    PresentFiles();
}

// Each file is a frame.
void Material::PresentFiles() {
    numbers_.clear();
    sources_.clear();
    for (const File& file : files_) {
        sources_.push_back({int(numbers_.size()), -1});
        numbers_.push_back(file.number);
    }
    first_ = numbers_.front();
    last_ = numbers_.back();
    clip_->sourceFrames = clip_->frameCount = i32(files_.size());
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
    if (clips.patterns.empty()) return OpenFile(clips.lone);
    OpenPattern(clips.patterns.begin()->second);
}

bool Material::Reads(const std::string& file) const {
    std::error_code error;
    fs::path wanted = fs::weakly_canonical(PathFrom(file), error);
    if (!sequence_) return fs::equivalent(wanted, PathFrom(clip_->fileSpec), error);
    return std::any_of(files_.begin(), files_.end(), [&](const File& own) {
        return NameOf(file) == NameOf(own.path) && fs::equivalent(wanted, PathFrom(own.path), error);
    });
}

}   // namespace kqclip
