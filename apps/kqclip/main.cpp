// kqclip: looks at clips, converts and compares them, on the command line. The options are declared here once; --help,
// the manual page and the shell completions are made from this table.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>

#include "apps/kqclip/Commands.h"
#include "apps/kqclip/Entry.h"
#include "apps/kqclip/Manual.h"
#include "apps/kqclip/Progress.h"

namespace {

using namespace kqclip;

using Run = std::function<void(Report&)>;

// What the command line asks for.
struct Request {
    CommonOptions common;
    std::string command;
    Run run;
};

KQFloatRGB ParseMatte(const std::string& text) {
    unsigned r = 0, g = 0, b = 0;
    int end = 0;
    const char* from = text.c_str() + (text.rfind('#', 0) == 0);
    if (std::sscanf(from, "%2x%2x%2x%n", &r, &g, &b, &end) != 3 || from[end] != 0)
        throw CLI::ValidationError("--matte", "'" + text + "' is no colour; write RRGGBB in hexadecimal");
    return {r / 255.0, g / 255.0, b / 255.0, 1.0};
}

void AddCommon(CLI::App* command, Request& request) {
    command->add_flag("--json", request.common.json, "Print one JSON object in place of text, also for errors");
    command->add_option("--progress", request.common.progress, "Show progress on standard error: auto, json or none")
        ->check(CLI::IsMember({"auto", "json", "none"}))
        ->capture_default_str();
    command->add_option("--modules", request.common.modules, "Look for format modules in this folder too")
        ->type_name("DIR");
}

void AddInput(CLI::App* command, InputOptions& input, const std::string& name) {
    command->add_option(name, input.path, "A clip: a file, a folder, or a pattern such as shot.####.png")->required();
}

void AddFrames(CLI::App* command, InputOptions& input) {
    static const std::map<std::string, Missing> kPolicies = {{"error", Missing::Error}, {"hold", Missing::Hold},
                                                             {"nearest", Missing::Nearest}, {"black", Missing::Black},
                                                             {"skip", Missing::Skip}};
    command->add_option("--frames", input.frames, "Frame numbers: 1-100, 1-100x2, 1,5,9 or a mixture")->type_name("LIST");
    command
        ->add_option("--missing", input.missing, "Frames that are not there: error, hold, nearest, black or skip")
        ->transform(CLI::CheckedTransformer(kPolicies, CLI::ignore_case))
        ->type_name("WHAT")
        ->default_str("error");
}

void AddInterpretation(CLI::App* command, InputOptions& input) {
    command->add_flag("--single", input.single, "Take the file alone, not the sequence around it");
    command->add_option("--extension", input.extension, "Take the input for a file of this extension")->type_name("EXT");
    command->add_option("--rate", input.rate, "Frames a second")->check(CLI::Range(0.001, 100000.0));
    command->add_option("--alpha", input.alpha, "What the input's alpha is; guessed when not given")
        ->check(CLI::IsMember({"none", "grey", "straight", "premultiplied"}));
    command
        ->add_option_function<std::string>(
            "--matte", [&input](const std::string& text) { input.matte = ParseMatte(text); },
            "The colour that premultiplied input was matted against")
        ->type_name("RRGGBB");
    command->add_flag("--invert-alpha", input.invert, "The input's alpha is inverted");
    command->add_option("--fields", input.fields, "Field order: 0 none, 1 or 2")->check(CLI::Range(0, 2));
    command->add_option("--pulldown", input.pulldown, "Remove 3:2 pull-down of phase 1 to 5, or guess the phase")
        ->check(CLI::IsMember({"0", "1", "2", "3", "4", "5", "guess"}));
}

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& what, Request& request, Run run) {
    CLI::App* command = app.add_subcommand(name, what);
    AddCommon(command, request);
    command->callback([&request, name, run] {
        request.command = name;
        request.run = run;
    });
    return command;
}

void AddFormats(CLI::App& app, Request& request) {
    AddCommand(app, "formats", "List the formats that can be read and written", request,
               [&request](Report& report) { Formats(request.common, report); });
}

void AddInfo(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    CLI::App* command = AddCommand(app, "info", "Print what is in a clip", request, [&request, input](Report& report) {
        Info(request.common, *input, report);
    });
    AddInput(command, *input, "CLIP");
    AddFrames(command, *input);
    AddInterpretation(command, *input);
}

void AddSheet(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    auto options = std::make_shared<SheetOptions>();
    CLI::App* command = AddCommand(app, "sheet", "Write a contact sheet as PNG", request,
                                   [&request, input, options](Report& report) {
                                       Sheet(request.common, *input, *options, report);
                                   });
    AddInput(command, *input, "IN");
    command->add_option("OUT", options->output, "The PNG file to write")->required();
    command->add_option("--columns", options->columns, "Pictures in a row")->check(CLI::Range(1, 1000));
    command->add_option("--most", options->most, "Show at most so many frames, evenly chosen")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    command
        ->add_option_function<std::string>(
            "--cell",
            [options](const std::string& text) {
                Size size = ParseSize(text, "--cell");
                options->cellWidth = size.width;
                options->cellHeight = size.height;
            },
            "The box that each picture is fitted into, in pixels")
        ->type_name("WxH")
        ->default_str("192x144");
    AddFrames(command, *input);
    AddInterpretation(command, *input);
}

void AddFrame(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    auto options = std::make_shared<FrameOptions>();
    CLI::App* command = AddCommand(app, "frame", "Write one frame as PNG", request,
                                   [&request, input, options](Report& report) {
                                       Frame(request.common, *input, *options, report);
                                   });
    AddInput(command, *input, "IN");
    command->add_option("NUMBER", options->number, "The frame's number")->required();
    command->add_option("OUT", options->output, "The PNG file to write")->required();
    command->add_option("--size", options->size, "Scale to this size")->type_name("WxH");
    AddFrames(command, *input);
    AddInterpretation(command, *input);
}

void AddConvert(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* command = AddCommand(app, "convert", "Write a clip in another format", request,
                                   [&request, input, options](Report& report) {
                                       Convert(request.common, *input, *options, report);
                                   });
    AddInput(command, *input, "IN");
    command->add_option("OUT", options->output, "The file to write, or a pattern for a file a frame")->required();
    command->add_option("--size", options->size, "Scale to this size")->type_name("WxH");
    command->add_option("--write-alpha", options->writeAlpha, "How alpha is written; straight where the input has any")
        ->check(CLI::IsMember({"none", "grey", "straight", "premultiplied"}));
    command->add_option("--write-extension", options->extension, "Write the format of this extension")->type_name("EXT");
    command->add_option("--start", options->start, "Number the output's files from here")
        ->check(CLI::Range(0, 2000000000));
    command->add_flag("--overwrite", options->overwrite, "Replace what exists, once the output is complete");
    command->add_flag("--dry-run", options->dryRun, "Only tell what would be written");
    AddFrames(command, *input);
    AddInterpretation(command, *input);
}

void AddCompare(CLI::App& app, Request& request) {
    auto left = std::make_shared<InputOptions>();
    auto right = std::make_shared<InputOptions>();
    auto tolerance = std::make_shared<int>(0);
    CLI::App* command = AddCommand(app, "compare", "Compare two clips frame by frame", request,
                                   [&request, left, right, tolerance](Report& report) {
                                       right->frames = left->frames;
                                       right->missing = left->missing;
                                       Compare(request.common, *left, *right, *tolerance, report);
                                   });
    AddInput(command, *left, "A");
    AddInput(command, *right, "B");
    command->add_option("--tolerance", *tolerance, "Differences up to this count as equal")->check(CLI::Range(0, 255));
    AddFrames(command, *left);
}

void AddFonts(CLI::App& app, Request& request) {
    AddCommand(app, "fonts", "List the TrueType fonts that there are", request,
               [&request](Report& report) { Fonts(request.common, report); });
}

void AddText(CLI::App& app, Request& request) {
    auto options = std::make_shared<TextOptions>();
    CLI::App* command = AddCommand(app, "text", "Write a line of text as SVG paths", request,
                                   [&request, options](Report& report) { Text(request.common, *options, report); });
    command->add_option("TEXT", options->text, "The line of text")->required();
    command->add_option("OUT", options->output, "The SVG file to write")->required();
    command->add_option("--font", options->font, "The font's full name, as 'fonts' lists it")->type_name("NAME");
    command->add_option("--size", options->size, "Size in points")->check(CLI::Range(1, 2000))->capture_default_str();
    command->add_option("--dpi", options->dpi, "Pixels an inch")->check(CLI::Range(1, 2400))->capture_default_str();
}

void PrintJson(const Request& request, const Report& report, const Json& error) {
    Json all = {{"kqclip", KQCLIP_VERSION},
                {"command", request.command},
                {"ok", error.is_null() && report.exitCode == kDone},
                {"exitCode", report.exitCode}};
    all.update(report.facts);
    all["warnings"] = report.warnings;
    if (!error.is_null()) all["error"] = error;
    std::printf("%s\n", all.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

// Runs the subcommand within the library's life; tells failures on standard error, or in the JSON.
int Perform(const Request& request) {
    Report report;
    Json error = nullptr;
    try {
        std::vector<std::string> folders = request.common.modules;
        for (const std::string& folder : DefaultModuleFolders()) folders.push_back(folder);
        Library library(folders, Progress::OnTerminal(request.common.progress));
        request.run(report);
    } catch (const Failure& failure) {
        report.exitCode = failure.ExitCode();
        error = {{"code", failure.Code()}, {"message", failure.what()}};
    } catch (const Interrupted&) {
        report.exitCode = kInterrupted;
        error = {{"code", "interrupted"}, {"message", "stopped; no unfinished output is left"}};
    } catch (const std::exception& failure) {
        report.exitCode = kFailed;
        error = {{"code", "failed"}, {"message", failure.what()}};
    }
    if (request.common.json) {
        PrintJson(request, report, error);
        return report.exitCode;
    }
    std::fflush(stdout);
    for (const std::string& warning : report.warnings) std::fprintf(stderr, "kqclip: %s\n", warning.c_str());
    if (!error.is_null()) std::fprintf(stderr, "kqclip: %s\n", error["message"].get<std::string>().c_str());
    return report.exitCode;
}

void Declare(CLI::App& app, Request& request) {
    app.set_version_flag("--version", "kqclip " KQCLIP_VERSION);
    app.require_subcommand(1);
    app.footer("Exit codes: 0 done; 1 failed; 2 wrong use; 3 done, but something in the input was damaged or missing;\n"
               "4 compared and different; 130 stopped by Control-C.");
    AddFormats(app, request);
    AddInfo(app, request);
    AddSheet(app, request);
    AddFrame(app, request);
    AddConvert(app, request);
    AddCompare(app, request);
    AddFonts(app, request);
    AddText(app, request);
}

}   // namespace

int main(int argc, char** argv) {
    Terminal terminal;
    const std::vector<std::string> arguments = Arguments(argc, argv);
    CatchInterrupts();
    Request request;
    CLI::App app("Looks at clips, converts and compares them: film files, image sequences and stills.", "kqclip");
    Declare(app, request);
    if (arguments.size() == 2 && arguments[0] == "--generate")
        return Generate(app, arguments[1]) ? kDone : kWrongUse;
    try {
        // The parser takes the arguments from behind.
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kWrongUse;
    } catch (const Failure& failure) {
        std::fprintf(stderr, "kqclip: %s\n", failure.what());
        return failure.ExitCode();
    }
    return Perform(request);
}
