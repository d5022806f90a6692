// How a run of the tool ends: exit codes, failures with a stable code, interruption, and what goes to JSON.
#pragma once

#include <nlohmann/json.hpp>

#include <stdexcept>
#include <string>
#include <vector>

#include <KQLib.h>

namespace kqclip {

using Json = nlohmann::ordered_json;

// Exit codes, part of the tool's interface.
enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kWrongUse = 2,
    kDamaged = 3,     // done, but something in the input was damaged or missing
    kDifferent = 4,   // compared, and different
    kInterrupted = 130,
};

// A failure that ends the subcommand. `code` is a stable word for programs; the text is one line that says what, which
// file, why and, where there is something to do, what.
class Failure : public std::runtime_error {
public:
    Failure(std::string code, const std::string& text, int exitCode = kFailed)
        : std::runtime_error(text), code_(std::move(code)), exitCode_(exitCode) {}

    const std::string& Code() const { return code_; }

    int ExitCode() const { return exitCode_; }

private:
    std::string code_;
    int exitCode_;
};

// Control-C was pressed.
class Interrupted : public std::exception {};

// A failure of the library: "cannot WHAT 'FILE': WHY", with the stable code of the library's error.
Failure LibraryFailure(const std::string& what, const std::string& file, u32 error);

// Makes Control-C set a flag; ThrowIfInterrupted turns it into Interrupted at a safe place.
void CatchInterrupts();
void ThrowIfInterrupted();

// What a subcommand has to tell beside its plain text.
struct Report {
    Json facts = Json::object();
    std::vector<std::string> warnings;
    int exitCode = kDone;

    // Notes something damaged or missing in the input: the run is done, but not with exit code 0.
    void Warn(const std::string& text) {
        warnings.push_back(text);
        if (exitCode == kDone) exitCode = kDamaged;
    }
};

}   // namespace kqclip
