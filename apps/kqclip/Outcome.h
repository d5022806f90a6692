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

// What --help and the manual page say about them.
struct ExitMeaning {
    int code;
    const char* text;
};

inline constexpr ExitMeaning kExitMeanings[] = {
    {kDone, "done"},
    {kFailed, "failed; one line on standard error says what, where, why and what to do"},
    {kWrongUse, "wrong use: the command line makes no sense; nothing was done"},
    {kDamaged, "done, but something in the input was damaged or missing"},
    {kDifferent, "compared, and different"},
    {kInterrupted, "stopped by Control-C or by the system; no unfinished output is left"},
};

// A failure that ends the subcommand. `code` is a stable word for programs, of those that docs/kqclip.schema.json
// lists; the text is one line that says what, which file, why and, where there is something to do, what.
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

// The stable word and the reason of an error code of the library.
struct Reason {
    const char* code;
    const char* why;
};

Reason ReasonOf(u32 error);

// A failure of the library: "cannot WHAT 'FILE': WHY", with what the module said since the last call of ListenAnew.
Failure LibraryFailure(const std::string& what, const std::string& file, u32 error);

// The text in one line that a terminal shows: without control characters, which names of files may hold.
std::string OneLine(std::string text);

// Notes what the library and its modules say, to the user and as diagnostics, from the start of the library on.
void ListenToModules();

// Everything that was said so far, line by line.
std::vector<std::string> AllSaid();

// Forgets what belongs to earlier work; Said is "" or "; the module says: TEXT" of what came since.
void ListenAnew();
std::string Said();

// Makes Control-C set a flag; ThrowIfInterrupted turns it into Interrupted at a safe place.
void CatchInterrupts();
void ThrowIfInterrupted();

struct Warning {
    std::string code;   // a stable word
    std::string text;
};

// What a subcommand has to tell beside its plain text.
struct Report {
    Json facts = Json::object();
    std::vector<Warning> warnings;
    std::vector<Warning> notes;   // what the output does not hold of the input, because its format cannot
    long framesRead = 0;
    std::string missing;          // asked for and not there, as --frames takes them
    std::vector<int> damaged;     // not readable, or only in part
    std::vector<int> otherSize;   // of another size than the clip
    int exitCode = kDone;

    // Notes something damaged or missing in the input: the run is done, but not with exit code 0.
    void Warn(const std::string& code, const std::string& text) {
        warnings.push_back({code, OneLine(text)});
        if (exitCode == kDone) exitCode = kDamaged;
    }

    // Notes something that is worth to know and no damage.
    void Note(const std::string& code, const std::string& text) { notes.push_back({code, text}); }
};

}   // namespace kqclip
