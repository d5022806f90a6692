#include "apps/kqclip/Options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <map>
#include <memory>

namespace kqclip {

namespace {

using Words = std::vector<std::string>;

// The option takes one of these words; help and completions show them.
CLI::Option* OneOf(CLI::Option* option, const Words& words) {
    std::string shown;
    for (const std::string& word : words) shown += (shown.empty() ? "" : "|") + word;
    return option->check(CLI::IsMember(words).description(""))->type_name(shown);
}

CLI::Option* Between(CLI::Option* option, double least, double most) {
    return option->check(CLI::Range(least, most).description(""))->type_name("N");
}

KQFloatRGB ParseMatte(const std::string& text) {
    std::string digits = text.substr(text.rfind('#', 0) == 0);
    if (digits.size() != 6 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw CLI::ValidationError("--matte", "'" + text + "' is no colour; write RRGGBB in hexadecimal");
    unsigned colour = unsigned(std::stoul(digits, nullptr, 16));
    return {(colour >> 16) / 255.0, (colour >> 8 & 255) / 255.0, (colour & 255) / 255.0, 1.0};
}

// "24", "23.976" or "24000/1001".
double ParseRate(const std::string& text) {
    double number = 0, divisor = 1;
    const char* end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, number);
    if (error == std::errc() && at != end && *at == '/') {
        auto below = std::from_chars(at + 1, end, divisor);
        at = below.ptr;
        error = below.ec;
    }
    double rate = number / divisor;
    if (error == std::errc() && at == end && rate >= 0.001 && rate <= 100000.0) return rate;
    throw CLI::ValidationError("--rate",
                               "'" + text + "' is no rate from 0.001 to 100000; write 24, 23.976 or 24000/1001");
}

Missing ParseMissing(const std::string& word) {
    static const std::map<std::string, Missing> kPolicies = {{"error", Missing::Error},
                                                             {"hold", Missing::Hold},
                                                             {"nearest", Missing::Nearest},
                                                             {"black", Missing::Black},
                                                             {"skip", Missing::Skip}};
    return kPolicies.at(word);
}

void AddCommon(CLI::App* command, Request& request) {
    command->add_flag("--json", request.common.json, "Print one JSON object in place of text, also for errors");
    OneOf(command->add_option("--progress", request.common.progress,
                              "Progress on standard error: auto is a line on a terminal and nothing elsewhere, json an "
                              "object a line"),
          {"auto", "json", "none"})
        ->capture_default_str();
    command->add_option("--modules", request.common.modules, "Look for format modules in this folder too")
        ->type_name("DIR")
        ->expected(1)
        ->take_all();
}

void AddInput(CLI::App* command, InputOptions& input, const std::string& name) {
    command->add_option(name, input.path, "A clip: a file, a folder, or a pattern such as shot.####.png")
        ->type_name("")
        ->required();
}

void AddMissing(CLI::App* command, InputOptions& input) {
    OneOf(command->add_option_function<std::string>(
              "--missing", [&input](const std::string& word) { input.missing = ParseMissing(word); },
              "In place of frames that are not there or cannot be read: error stops, hold repeats the one before, "
              "nearest "
              "takes the nearest, black is black, skip leaves them out"),
          {"error", "hold", "nearest", "black", "skip"})
        ->default_str("error");
}

void AddFrames(CLI::App* command, InputOptions& input) {
    command->add_option("--frames", input.frames, "Frame numbers: 1-100, 1-100x2, 1,5,9, -10--5 or a mixture")
        ->type_name("LIST");
    AddMissing(command, input);
}

// How a clip is taken. With a suffix the options are those of the second clip, which else is taken as the first.
void AddInterpretation(CLI::App* command, InputOptions& input, const std::string& suffix = "") {
    std::string whose = suffix.empty() ? "" : " (of B, where it is another)";
    auto add = [&](const char* name, auto& to, const char* what) {
        return command->add_option(name + suffix, to, what + whose);
    };
    auto read = [&](const char* name, std::function<void(const std::string&)> take, const char* what) {
        return command->add_option_function<std::string>(name + suffix, take, what + whose);
    };
    add("--extension", input.extension, "Take the input for a file of this extension")->type_name("EXT");
    read(
        "--rate", [&input](const std::string& text) { input.rate = ParseRate(text); },
        "Take the input for so many frames a second; 24000/1001 is understood")
        ->type_name("N");
    OneOf(add("--alpha", input.alpha, "What the input's alpha is; guessed when not given"),
          {"none", "grey", "straight", "premultiplied"});
    read(
        "--matte", [&input](const std::string& text) { input.matte = ParseMatte(text); },
        "The colour that the input is premultiplied with")
        ->type_name("RRGGBB");
    command->add_flag("--invert-alpha" + suffix, input.invert, "The input's alpha is inverted" + whose);
    add("--fields", input.fields, "Fields of an input frame: 0 none, 1 even rows come first, 2 odd rows come first")
        ->check(CLI::IsMember({0, 1, 2}).description(""))
        ->type_name("0|1|2");
    OneOf(add("--pulldown", input.pulldown, "Remove 3:2 pull-down of this phase, or guess the phase"),
          {"0", "1", "2", "3", "4", "5", "guess"});
}

void AddSingle(CLI::App* command, InputOptions& input) {
    command->add_flag("--single", input.single, "Take the file alone, not the sequence around it");
}

// What is not said of the second clip is as it is with the first.
void TakeOver(InputOptions& right, const InputOptions& left) {
    right.missing = left.missing;
    right.single = left.single;
    if (right.frames.empty())
        right.frames = left.frames;
    else
        right.framesOption = "--frames-b";
    if (!right.frames.empty())
        right.missingHint =
            "; --frames-b names B's frames where they have other numbers, and --missing hold, nearest, "
            "black or skip goes on without";
    if (right.extension.empty()) right.extension = left.extension;
    if (!right.rate) right.rate = left.rate;
    if (right.alpha.empty() && !right.matte) {
        right.alpha = left.alpha;
        right.matte = left.matte;
    }
    right.invert |= left.invert;
    if (!right.fields) right.fields = left.fields;
    if (right.pulldown.empty()) right.pulldown = left.pulldown;
}

CLI::App* AddCommand(CLI::App& app, const std::string& name, const std::string& what, Request& request,
                     std::function<void(Report&)> run) {
    CLI::App* command = app.add_subcommand(name, what);
    AddCommon(command, request);
    command->callback([&request, name, run] {
        request.command = name;
        request.run = run;
    });
    return command;
}

void AddOverwrite(CLI::App* command, bool& overwrite) {
    command->add_flag("--overwrite", overwrite, "Replace what exists, once the output is complete");
}

void AddFormats(CLI::App& app, Request& request) {
    AddCommand(app, "formats", "List the formats that can be read and written", request,
               [&request](Report& report) { Formats(request.common, report); });
}

void AddInfo(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    CLI::App* command = AddCommand(app, "info", "Print what is in a clip", request,
                                   [&request, input](Report& report) { Info(request.common, *input, report); });
    AddInput(command, *input, "CLIP");
    AddFrames(command, *input);
    AddSingle(command, *input);
    AddInterpretation(command, *input);
}

void AddSheet(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    auto options = std::make_shared<SheetOptions>();
    CLI::App* command =
        AddCommand(app, "sheet", "Write a contact sheet as PNG", request,
                   [&request, input, options](Report& report) { Sheet(request.common, *input, *options, report); });
    AddInput(command, *input, "IN");
    command->add_option("OUT", options->output, "The PNG file to write")->type_name("")->required();
    Between(command->add_option("--columns", options->columns, "Pictures in a row"), 1, 1000);
    Between(command->add_option("--most", options->most, "Show at most so many frames, evenly chosen"), 1, 10000)
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
    AddOverwrite(command, options->overwrite);
    AddFrames(command, *input);
    AddSingle(command, *input);
    AddInterpretation(command, *input);
}

void AddFrame(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    auto options = std::make_shared<FrameOptions>();
    CLI::App* command =
        AddCommand(app, "frame", "Write one frame as PNG", request,
                   [&request, input, options](Report& report) { Frame(request.common, *input, *options, report); });
    AddInput(command, *input, "IN");
    command->add_option("NUMBER", options->number, "The frame's number")->type_name("")->required();
    command->add_option("OUT", options->output, "The PNG file to write")->type_name("")->required();
    command->add_option("--size", options->size, "Scale to this size")->type_name("WxH");
    AddOverwrite(command, options->overwrite);
    AddMissing(command, *input);
    AddSingle(command, *input);
    AddInterpretation(command, *input);
}

void AddConvert(CLI::App& app, Request& request) {
    auto input = std::make_shared<InputOptions>();
    auto options = std::make_shared<ConvertOptions>();
    CLI::App* command =
        AddCommand(app, "convert", "Write a clip in another format", request,
                   [&request, input, options](Report& report) { Convert(request.common, *input, *options, report); });
    AddInput(command, *input, "IN");
    command->add_option("OUT", options->output, "The file to write, or a pattern for a file a frame")
        ->type_name("")
        ->required();
    command->add_option("--size", options->size, "Scale to this size")->type_name("WxH");
    OneOf(command->add_option("--write-alpha", options->writeAlpha,
                              "How alpha is written; straight where the input has any"),
          {"none", "grey", "straight", "premultiplied"});
    command->add_option("--write-extension", options->extension, "Write the format of this extension")
        ->type_name("EXT");
    Between(command->add_option("--start", options->start, "Number the output's files from here"), 0, 2000000000);
    command->add_flag("--split-fields", options->splitFields, "Write each field as a frame, at twice the rate");
    AddOverwrite(command, options->overwrite);
    command->add_flag("--dry-run", options->dryRun, "Only tell what would be written");
    AddFrames(command, *input);
    AddSingle(command, *input);
    AddInterpretation(command, *input);
}

void AddCompare(CLI::App& app, Request& request) {
    auto left = std::make_shared<InputOptions>();
    auto right = std::make_shared<InputOptions>();
    auto tolerance = std::make_shared<int>(0);
    CLI::App* command = AddCommand(app, "compare", "Compare two clips frame by frame", request,
                                   [&request, left, right, tolerance](Report& report) {
                                       TakeOver(*right, *left);
                                       Compare(request.common, *left, *right, *tolerance, report);
                                   });
    AddInput(command, *left, "A");
    AddInput(command, *right, "B");
    Between(command->add_option("--tolerance", *tolerance, "Differences up to this, of 255, count as equal"), 0, 255)
        ->capture_default_str();
    AddFrames(command, *left);
    command->add_option("--frames-b", right->frames, "The frames of B, where they have other numbers than those of A")
        ->type_name("LIST");
    command->add_flag("--single", left->single, "Take a named file alone, not the sequence around it");
    AddInterpretation(command, *left);
    AddInterpretation(command, *right, "-b");
}

void AddFonts(CLI::App& app, Request& request) {
    AddCommand(app, "fonts", "List the TrueType fonts that there are", request,
               [&request](Report& report) { Fonts(request.common, report); });
}

void AddText(CLI::App& app, Request& request) {
    auto options = std::make_shared<TextOptions>();
    CLI::App* command = AddCommand(app, "text", "Write a line of text as SVG paths", request,
                                   [&request, options](Report& report) { Text(request.common, *options, report); });
    command->add_option("TEXT", options->text, "The line of text")->type_name("")->required();
    command->add_option("OUT", options->output, "The SVG file to write")->type_name("")->required();
    command->add_option("--font", options->font, "The font's full name, as 'fonts' lists it")->type_name("NAME");
    Between(command->add_option("--size", options->size, "Size in points"), 1, 2000)->capture_default_str();
    Between(command->add_option("--dpi", options->dpi, "Pixels an inch"), 1, 2400)->capture_default_str();
    AddOverwrite(command, options->overwrite);
}

std::string Footer() {
    std::string text = "Exit codes:";
    for (const ExitMeaning& meaning : kExitMeanings)
        text += "\n  " + std::to_string(meaning.code) + std::string(6 - std::to_string(meaning.code).size(), ' ') +
                meaning.text;
    return text;
}

}   // namespace

void Declare(CLI::App& app, Request& request) {
    app.set_version_flag("--version", "kqclip " KQCLIP_VERSION);
    app.require_subcommand(1);
    app.footer(Footer());
    AddFormats(app, request);
    AddInfo(app, request);
    AddSheet(app, request);
    AddFrame(app, request);
    AddConvert(app, request);
    AddCompare(app, request);
    AddFonts(app, request);
    AddText(app, request);
}

}   // namespace kqclip
