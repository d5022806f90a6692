// kqclip: looks at clips, converts and compares them, on the command line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "apps/kqclip/Entry.h"
#include "apps/kqclip/FrameRange.h"
#include "apps/kqclip/Host.h"
#include "apps/kqclip/Library.h"
#include "apps/kqclip/Manual.h"
#include "apps/kqclip/Options.h"
#include "apps/kqclip/Progress.h"

namespace {

using namespace kqclip;

// Lists of warnings are for a person: the first tell enough.
constexpr size_t kMostWarnings = 20;

Json Listed(const std::vector<Warning>& warnings) {
    Json list = Json::array();
    for (const Warning& warning : warnings) list.push_back({{"code", warning.code}, {"message", warning.text}});
    return list;
}

void PrintJson(const Request& request, const Report& report, const Json& error) {
    Json all = {{"kqclip", KQCLIP_VERSION},
                {"schema", 1},
                {"command", request.command.empty() ? Json(nullptr) : Json(request.command)},
                {"ok", error.is_null() && report.exitCode == kDone},
                {"exitCode", report.exitCode}};
    all.update(report.facts);
    all["framesRead"] = report.framesRead;
    all["missing"] = report.missing;
    all["damaged"] = ShowFrames(report.damaged);
    all["otherSize"] = ShowFrames(report.otherSize);
    all["said"] = AllSaid();
    all["warnings"] = Listed(report.warnings);
    all["notes"] = Listed(report.notes);
    if (!error.is_null()) all["error"] = error;
    std::printf("%s\n", all.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

void PrintLines(const Report& report, const Json& error) {
    std::fflush(stdout);
    size_t shown = std::min(report.warnings.size(), kMostWarnings);
    for (size_t i = 0; i < shown; ++i) std::fprintf(stderr, "kqclip: %s\n", report.warnings[i].text.c_str());
    if (shown < report.warnings.size())
        std::fprintf(stderr, "kqclip: and %zu more like these; --json lists them all\n",
                     report.warnings.size() - shown);
    for (const Warning& note : report.notes) std::fprintf(stderr, "kqclip: note: %s\n", note.text.c_str());
    if (!error.is_null()) std::fprintf(stderr, "kqclip: %s\n", error["message"].get<std::string>().c_str());
}

// Tells how the run ended, and returns its exit code. An answer that could not be written is a failure; a reader that
// goes away early has seen what it wanted.
int Finish(const Request& request, Report& report, Json error) {
    if (!error.is_null()) error["message"] = OneLine(error["message"].get<std::string>());
    request.common.json ? PrintJson(request, report, error) : PrintLines(report, error);
    if (std::fflush(stdout) == 0 && !std::ferror(stdout)) return report.exitCode;
    if (OutputIsPipe()) return report.exitCode;
    std::fprintf(stderr, "kqclip: cannot write to standard output: is the disk full?\n");
    return report.exitCode == kDone ? kFailed : report.exitCode;
}

// Runs the subcommand within the library's life.
int Perform(const Request& request) {
    Report report;
    Json error = nullptr;
    try {
        Library library(request.common.modules, Progress::OnTerminal(request.common.progress));
        request.run(report);
    } catch (const Failure& failure) {
        report.exitCode = failure.ExitCode();
        error = {{"code", failure.Code()}, {"message", failure.what()}};
    } catch (const Interrupted&) {
        report.exitCode = kInterrupted;
        error = {{"code", "interrupted"}, {"message", "stopped; no unfinished output is left"}};
    } catch (const std::bad_alloc&) {
        report.exitCode = kFailed;
        error = {{"code", "no-memory"}, {"message", "out of memory; choose a smaller size, or fewer frames"}};
    } catch (const std::exception& failure) {
        report.exitCode = kFailed;
        error = {{"code", "failed"}, {"message", failure.what()}};
    }
    return Finish(request, report, error);
}

// What is wrong with a command line that names no subcommand: `first` is its first argument, or empty.
std::string NoCommand(const CLI::App& app, const std::string& first) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        names += (names.empty() ? "" : ", ") + command->get_name();
    std::string text = first.empty() ? "no command is given" : "there is no command '" + first + "'";
    if (first.rfind("--", 0) == 0) text = "a command comes before '" + first + "'";
    return text + "; the commands are " + names;
}

// A command line that makes no sense, in one line, or --help and --version.
int AnswerParse(const CLI::App& app, const CLI::ParseError& parse, Request& request, const std::string& first,
                bool json) {
    if (parse.get_exit_code() == 0) return app.exit(parse) == 0 ? kDone : kFailed;
    auto used = app.get_subcommands();
    if (!used.empty()) request.command = used.front()->get_name();
    std::string help = used.empty() ? "kqclip --help" : "kqclip " + request.command + " --help";
    std::string text = used.empty() ? NoCommand(app, first) : parse.what();
    Report report;
    report.exitCode = kWrongUse;
    request.common.json = json;
    return Finish(request, report, {{"code", "wrong-use"}, {"message", text + "; '" + help + "' tells more"}});
}

int RunTool(std::vector<std::string> arguments) {
    CatchInterrupts();
    Request request;
    CLI::App app("Looks at clips, converts and compares them: film files, image sequences and stills.", "kqclip");
    Declare(app, request);
    if (arguments.size() == 2 && arguments[0] == "--generate") return Generate(app, arguments[1]) ? kDone : kWrongUse;
    bool json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    std::string first = arguments.empty() ? "" : arguments.front();
    std::reverse(arguments.begin(), arguments.end());   // the parser takes them from the back
    try {
        app.parse(std::move(arguments));
    } catch (const CLI::ParseError& parse) {
        return AnswerParse(app, parse, request, first, json);
    } catch (const Failure& failure) {
        Report report;
        report.exitCode = failure.ExitCode();
        request.common.json = json;
        return Finish(request, report, {{"code", failure.Code()}, {"message", failure.what()}});
    }
    if (request.common.json && request.common.progress == "auto") request.common.progress = "none";
    return Perform(request);
}

}   // namespace

int main(int argc, char** argv) {
    kqclip::Terminal terminal;
    return RunTool(kqclip::Arguments(argc, argv));
}
