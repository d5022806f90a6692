// kqclip convert: the frames of one clip written as another, through the format module of the output's extension.
#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Output.h"
#include "apps/kqclip/Progress.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

KQFormatDesc* WriterFor(const std::string& output, const std::string& extension) {
    std::string letters = ShortExtension(extension.empty() ? ExtensionOf(output) : extension);
    u32 code = ExtensionCode(letters);
    for (KQFormatDesc* module : Modules())
        for (i32 i = 0; i < module->importExtCount; ++i)
            if (module->importExts[i] == code && (GetImportPropertiesKQ(module) & KQFORMAT_WRITES)) return module;
    throw Failure("unknown-format", "cannot write '" + output + "': no format module writes ." + letters +
                                        " files; 'kqclip formats' lists the extensions");
}

// Where each frame goes: one file for all, or a file a frame.
class Target {
public:
    Target(const std::string& output, bool single, const std::vector<Step>& steps, int start) : output_(output) {
        if (single) {
            names_.push_back(NameOf(output));
            return;
        }
        auto pattern = ParsePattern(output);
        if (!pattern && steps.size() > 1)
            throw Failure("wrong-use", "cannot write " + std::to_string(steps.size()) + " frames as '" + output +
                                           "': this format holds one frame a file; write a pattern such as "
                                           "name.####." + ExtensionOf(output), kWrongUse);
        for (size_t i = 0; i < steps.size(); ++i)
            names_.push_back(pattern ? NameFor(*pattern, start < 0 ? steps[i].number : start + int(i)) : NameOf(output));
    }

    const std::vector<std::string>& Names() const { return names_; }

    // The names that exist already.
    std::vector<std::string> Existing() const {
        std::vector<std::string> existing;
        for (const std::string& name : names_)
            if (fs::exists(PathFrom(FolderOf(output_) + name))) existing.push_back(name);
        return existing;
    }

private:
    std::string NameFor(const Pattern& pattern, int number) const {
        auto path = pattern.PathOf(number);
        bool fits = path && (pattern.digits == 1 || std::to_string(number).size() <= size_t(pattern.digits));
        if (!fits)
            throw Failure("wrong-use", "frame " + std::to_string(number) + " does not fit the " +
                                           std::to_string(pattern.digits) + " digits of '" + output_ +
                                           "'; write more places, or --start with a smaller number", kWrongUse);
        return NameOf(*path);
    }

    std::string output_;
    std::vector<std::string> names_;
};

// The clip that is written; closed and freed whatever happens.
class Writer {
public:
    Writer(KQFormatDesc* module, const Material& material, Size size, const ConvertOptions& options)
        : clip_(NewClipKQ()), path_(options.output) {
        if (!clip_) throw Failure("no-memory", "out of memory for the output '" + path_ + "'");
        const KQClip* source = material.Clip();
        clip_->format = module;
        clip_->width = size.width;
        clip_->height = size.height;
        clip_->frameCount = 1;
        clip_->frameRate = clip_->sourceRate = clip_->nativeRate = source->frameRate;
        clip_->pixelAspect = source->pixelAspect;
        clip_->fieldOrder = source->fieldOrder;
        SetAlpha(source, options.writeAlpha);
        clip_->depth = clip_->alphaMode == 2 ? 32 : clip_->alphaMode == 1 ? 8 : 24;
    }

    ~Writer() {
        if (begun_) EndClipIOKQ(clip_, nullptr);
        if (created_) CloseClipKQ(clip_);
        FreeClipKQ(clip_);
    }

    // Begins the file `staged`.
    void Create(const std::string& staged) {
        FreeFileSpecKQ(clip_->fileSpec);
        clip_->fileSpec = MakeFileSpecKQ(staged.c_str());
        if (!clip_->fileSpec || !CreateClipKQ(clip_, 0)) throw LibraryFailure("create", path_, GetErrorKQ());
        created_ = true;
        begun_ = BeginClipIOKQ(clip_, nullptr);
        if (!begun_) throw LibraryFailure("write", path_, GetErrorKQ());
    }

    void Add(KQBitmap* bitmap, int index) {
        KQTimeValue time = {double(index), clip_->frameRate};
        if (!AddFrameKQ(clip_, bitmap, &time, nullptr, nullptr)) {
            u32 error = GetErrorKQ();
            throw LibraryFailure("write", path_, error == KQERR_NONE ? u32(KQERR_WRITE) : error);
        }
    }

    // Completes the file; throws when its last bytes could not be written.
    void Close() {
        KQEnv->Error = KQERR_NONE;
        bool ended = EndClipIOKQ(clip_, nullptr);
        u32 error = GetErrorKQ();
        begun_ = created_ = false;
        CloseClipKQ(clip_);
        if (error == KQERR_NONE) error = GetErrorKQ();
        if (!ended || error != KQERR_NONE) throw LibraryFailure("write", path_, error ? error : u32(KQERR_WRITE));
        clip_->sourceFrames = 0;
    }

private:
    void SetAlpha(const KQClip* source, const std::string& wanted) {
        clip_->matteColor = source->matteColor;
        clip_->alphaInvert = 0;
        clip_->alphaPremultiplied = wanted == "premultiplied";
        if (wanted.empty())
            clip_->alphaMode = source->alphaMode == 0 ? 0 : 2;
        else
            clip_->alphaMode = wanted == "none" ? 0 : wanted == "grey" ? 1 : 2;
        clip_->flags |= KQCLIP_ALPHA_KNOWN;
    }

    KQClip* clip_;
    std::string path_;
    bool created_ = false, begun_ = false;
};

// Opens the finished file and looks that it holds what was written.
void Verify(const std::string& staged, const std::string& output, size_t frames) {
    KQClip* clip = OpenClipKQ(staged.c_str(), KQTAG_CLIP_SINGLE, 0, KQTAG_CLIP_NOGUESS, 0, 0);
    size_t found = clip ? size_t(clip->sourceFrames) : 0;
    u32 error = GetErrorKQ();
    CloseClipKQ(clip);
    FreeClipKQ(clip);
    if (found != frames) throw LibraryFailure("read back", output, error);
}

}   // namespace

Size ParseSize(const std::string& text, const std::string& option) {
    int width = 0, height = 0, end = 0;
    bool read = std::sscanf(text.c_str(), "%dx%d%n", &width, &height, &end) == 2 && size_t(end) == text.size();
    if (!read || width < 1 || height < 1 || width > 32767 || height > 32767)
        throw Failure("wrong-use", option + ": '" + text + "' is no WxH with both between 1 and 32767", kWrongUse);
    return {width, height};
}

void Convert(const CommonOptions& common, const InputOptions& input, const ConvertOptions& options, Report& report) {
    Material material(input);
    report.facts["input"] = material.Describe();
    KQFormatDesc* module = WriterFor(options.output, options.extension);
    bool single = GetImportPropertiesKQ(module) & KQFORMAT_MULTIFRAME;
    Size size = options.size.empty() ? Size{material.Clip()->width, material.Clip()->height}
                                     : ParseSize(options.size, "--size");
    std::vector<Step> steps = material.Plan(report, false);
    if (steps.empty()) throw Failure("no-frames", "no frame of '" + input.path + "' is left to write");
    Target target(options.output, single, steps, options.start);
    std::vector<std::string> existing = target.Existing();
    if (!existing.empty() && !options.overwrite)
        throw Failure("exists", "cannot write '" + options.output + "': " + existing.front() + " exists" +
                                    (existing.size() > 1 ? " and " + std::to_string(existing.size() - 1) + " more" : "") +
                                    "; --overwrite replaces it");
    report.facts["output"] = {{"path", options.output}, {"format", module->node.Name}, {"width", size.width},
                              {"height", size.height},  {"frames", steps.size()},      {"files", target.Names().size()},
                              {"replaced", existing.size()}, {"dryRun", options.dryRun}};
    if (options.dryRun) {
        if (!common.json)
            std::printf("would write %zu frames of %d x %d as %s: %zu files, %s%s\n", steps.size(), size.width,
                        size.height, module->node.Name, target.Names().size(), target.Names().front().c_str(),
                        target.Names().size() > 1 ? (" to " + target.Names().back()).c_str() : "");
        return;
    }
    Staging staging(options.output);
    Writer writer(module, material, size, options);
    Bitmap bitmap = MakeBitmap(size.width, size.height);
    Progress progress("convert", int(steps.size()), common.progress);
    for (size_t i = 0; i < steps.size(); ++i) {
        material.Fetch(steps[i], bitmap.get(), report);
        if (i == 0 || !single) writer.Create(staging.PathOf(target.Names()[i]));
        writer.Add(bitmap.get(), single ? int(i) : 0);
        if (!single) writer.Close();
        progress.Show(int(i + 1));
    }
    if (single) writer.Close();
    ThrowIfInterrupted();
    Verify(staging.PathOf(target.Names().front()), options.output, single ? steps.size() : 1);
    staging.Commit();
}

}   // namespace kqclip
