// kqclip convert: the frames of one clip written as another, through the format module of the output's extension.
#include <cctype>
#include <charconv>
#include <climits>
#include <cstdio>
#include <utility>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Output.h"
#include "apps/kqclip/Progress.h"
#include "apps/kqclip/Writer.h"

namespace kqclip {

namespace {

// Two steps for each, a field each, numbered so that the fields of frame n are 2 n and 2 n + 1.
std::vector<Step> SplitFields(const std::vector<Step>& steps) {
    std::vector<Step> fields;
    for (const Step& step : steps)
        if (step.number > INT_MAX / 2 || step.number < INT_MIN / 2)
            throw Failure("wrong-use",
                          "--split-fields: the fields of frame " + std::to_string(step.number) +
                              " would have numbers beyond " + std::to_string(INT_MAX) +
                              "; leave it out with --frames, or number the input's files lower",
                          kWrongUse);
    for (const Step& step : steps)
        for (int field : {0, 1}) fields.push_back({step.number * 2 + field, step.index, step.missing, field});
    return fields;
}

// What will be written, once the options are checked against the input.
struct Plan {
    KQFormatDesc* module;
    bool single;   // one file for all frames
    Shape shape;
    std::vector<Step> steps;
    Target target;
};

Plan MakePlan(const Material& material, const ConvertOptions& options, Report& report) {
    KQFormatDesc* module = WriterFor(options.output, options.extension);
    bool single = GetImportPropertiesKQ(module) & KQFORMAT_MULTIFRAME;
    const KQClip* clip = material.Clip();
    Shape shape = {{clip->width, clip->height}, clip->frameRate, options.writeAlpha};
    if (!options.size.empty()) shape.size = ParseSize(options.size, "--size");
    std::vector<Step> steps = material.Plan(report, false);
    if (steps.empty()) throw Failure("no-frames", "no frame of '" + material.Path() + "' is left to write");
    if (options.splitFields) {
        if (clip->fieldOrder == 0)
            throw Failure(
                "wrong-use",
                "--split-fields: '" + material.Path() + "' is not known to hold fields; say --fields 1 or --fields 2",
                kWrongUse);
        steps = SplitFields(steps);
        shape.rate *= 2;
    }
    Target target(options.output, single, steps, options.start);
    return {module, single, shape, std::move(steps), std::move(target)};
}

// "TIF" and ".tif" are "tif".
std::string PlainExtension(std::string extension) {
    if (extension.rfind('.', 0) == 0) extension.erase(0, 1);
    for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

void CheckExisting(const std::vector<std::string>& existing, const ConvertOptions& options) {
    if (existing.empty() || options.overwrite) return;
    std::string more = existing.size() > 1 ? " and " + std::to_string(existing.size() - 1) + " more" : "";
    throw Failure("exists",
                  "cannot write '" + options.output + "': " + existing.front() + more +
                      (more.empty() ? " exists; --overwrite replaces it" : " exist; --overwrite replaces them"));
}

// Which files are written, and which of the same pattern are not.
void TellFiles(const Target& target, size_t replaced, Json& output) {
    output["files"] = target.Names().size();
    output["firstFile"] = target.Names().front();
    output["lastFile"] = target.Names().back();
    output["replaced"] = replaced;
    output["others"] = target.Others();
}

// Writes all steps into the staging folder; a step that is left out loses its name.
size_t WriteFrames(const Material& material, Plan& plan, const ConvertOptions& options, const Staging& staging,
                   const std::string& progressMode, Report& report) {
    Writer writer(plan.module, material.Clip(), plan.shape, options.output, options.extension);
    Size size = plan.shape.size;
    Bitmap bitmap = MakeBitmap(size.width, size.height);
    Progress progress("convert", int(plan.steps.size()), progressMode);
    const std::vector<std::string>& names = plan.target.Names();
    std::vector<std::string> kept;
    size_t written = 0;
    for (size_t i = 0; i < plan.steps.size(); ++i) {
        if (material.Fetch(plan.steps[i], bitmap.get(), report)) {
            std::string staged = staging.PathOf(names[plan.single ? 0 : i]);
            if (written == 0 || !plan.single) writer.Create(staged);
            writer.Add(bitmap.get(), plan.single ? int(written) : 0);
            if (!plan.single) writer.Finish(1, report);
            if (!plan.single) kept.push_back(names[i]);
            ++written;
        }
        progress.Show(int(i + 1));
    }
    ThrowIfInterrupted();
    if (written == 0) throw Failure("no-frames", "no frame of '" + material.Path() + "' is left to write");
    if (plan.single) writer.Finish(written, report);
    if (!plan.single) plan.target.KeepOnly(std::move(kept));
    return written;
}

void Print(const Json& output) {
    std::string files = output["files"] == 1 ? "" : ", " + Counted(output["files"], "file");
    std::printf("%s %s of %d x %d as %s%s: %s\n", output["dryRun"] ? "would write" : "wrote",
                Counted(output["frames"], "frame").c_str(), output["width"].get<int>(), output["height"].get<int>(),
                output["format"].get<std::string>().c_str(), files.c_str(), output["path"].get<std::string>().c_str());
    if (output["others"] != "")
        std::printf("files of the same pattern that are not of this clip stay: %s\n",
                    output["others"].get<std::string>().c_str());
}

}   // namespace

Size ParseSize(const std::string& text, const std::string& option) {
    int width = 0, height = 0;
    const char* end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, width);
    bool read = error == std::errc() && at != end && *at == 'x';
    if (read) {
        auto [last, wrong] = std::from_chars(at + 1, end, height);
        read = wrong == std::errc() && last == end;
    }
    if (!read || width < 1 || height < 1 || width > 32767 || height > 32767)
        throw Failure("wrong-use", option + ": '" + text + "' is no WxH with both between 1 and 32767", kWrongUse);
    return {width, height};
}

void Convert(const CommonOptions& common, const InputOptions& input, const ConvertOptions& given, Report& report) {
    ConvertOptions options = given;
    options.extension = PlainExtension(given.extension);
    auto material = std::make_unique<Material>(input);
    report.facts["input"] = material->Describe();
    Plan plan = MakePlan(*material, options, report);
    std::vector<std::string> existing = plan.target.Existing();
    CheckExisting(existing, options);
    Json output = {{"path", options.output},         {"format", plan.module->node.Name},
                   {"width", plan.shape.size.width}, {"height", plan.shape.size.height},
                   {"rate", plan.shape.rate},        {"frames", plan.steps.size()},
                   {"dryRun", options.dryRun}};
    TellFiles(plan.target, existing.size(), output);
    if (!options.dryRun) {
        Staging staging(options.output);
        size_t written = WriteFrames(*material, plan, options, staging, common.progress, report);
        output["frames"] = written;
        TellFiles(plan.target, plan.target.Existing().size(), output);
        material.reset();   // the output may be the input, which must not be open when it is replaced
        staging.Commit(options.overwrite);
    }
    report.facts["output"] = output;
    if (const Json& found = report.facts["input"]["pulldown"]; !common.json && found["source"] == "guessed")
        found["phase"] == 0 ? std::printf("no pull-down was found, and none removed\n")
                            : std::printf("removed the pull-down of phase %d\n", found["phase"].get<int>());
    if (!common.json) Print(output);
}

}   // namespace kqclip
