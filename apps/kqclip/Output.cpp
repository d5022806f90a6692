#include "apps/kqclip/Output.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <fstream>
#include <optional>

#include "apps/kqclip/Host.h"
#include "apps/kqclip/Naming.h"
#include "apps/kqclip/Outcome.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

// ".kqclip-work-MACHINE-PROCESS-COUNT" while it is filled, ".kqclip-done-..." once all files in it are complete.
constexpr const char* kWork = ".kqclip-work-";
constexpr const char* kComplete = ".kqclip-done-";

bool StartsWith(const std::string& text, const std::string& start) { return text.rfind(start, 0) == 0; }

// The process that made a folder of this name, when it was one of this machine.
std::optional<long> MakerOf(const std::string& name) {
    std::string start = MachineName() + "-";
    size_t at = std::string(kWork).size();   // both marks are of one length
    if (name.compare(at, start.size(), start) != 0) return std::nullopt;
    long number = 0;
    const char *from = name.data() + at + start.size(), *to = name.data() + name.size();
    auto [end, error] = std::from_chars(from, to, number);
    if (error != std::errc() || end == from || end == to || *end != '-') return std::nullopt;
    return number;
}

bool IsLeftBehind(const fs::directory_entry& entry, const std::string& name) {
    if (auto maker = MakerOf(name)) return *maker != ProcessNumber() && !ProcessRuns(*maker);
    std::error_code error;
    auto newest = entry.last_write_time(error);
    for (fs::directory_iterator file(entry.path(), error), end; !error && file != end; file.increment(error))
        newest = std::max(newest, file->last_write_time(error));
    return fs::file_time_type::clock::now() - newest > std::chrono::hours(24);
}

void MoveAll(const fs::path& from, const fs::path& to) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(from)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) fs::rename(file, to / file.filename());
}

void FinishLeftMove(const fs::path& folder, const fs::path& home) {
    try {
        MoveAll(folder, home);
        fs::remove_all(folder);
    } catch (const fs::filesystem_error&) {
        return;   // its files stay in the folder, for a run that may write here
    }
}

// The folders whose names begin with `start` and that killed runs left.
std::vector<fs::path> LeftBehind(const fs::path& home, const char* start) {
    std::error_code error;
    std::vector<fs::path> left;
    for (fs::directory_iterator entry(home, error), end; !error && entry != end; entry.increment(error)) {
        std::string name = TextOf(entry->path().filename());
        if (StartsWith(name, start) && IsLeftBehind(*entry, name)) left.push_back(entry->path());
    }
    return left;
}

// What killed runs left: a complete set is moved into place, an incomplete one is removed.
void CleanUpAfterKilledRuns(const fs::path& home) {
    std::error_code ignored;
    for (const fs::path& folder : LeftBehind(home, kComplete)) FinishLeftMove(folder, home);
    for (const fs::path& folder : LeftBehind(home, kWork)) fs::remove_all(folder, ignored);
}

// A failed call of the system, as a failure of the tool.
Failure SystemFailure(const std::string& what, const std::error_code& error) {
    bool full = error == std::errc::no_space_on_device || error == std::errc::file_too_large;
    const char* code = full ? "disk-full" : error == std::errc::permission_denied ? "access-denied" : "cannot-write";
    return Failure(code, what + ": " + (full ? std::string(ReasonOf(KQERR_DISKFULL).why) : error.message()));
}

}   // namespace

fs::path PathFrom(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

std::string TextOf(const fs::path& path) {
    std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

bool CheckReplaceable(const std::string& target, bool overwrite) {
    std::error_code error;
    fs::file_status status = fs::symlink_status(PathFrom(target), error);
    if (!fs::exists(status)) return false;
    std::string refusal = "cannot write '" + target + "': it is ";
    if (fs::is_directory(status)) throw Failure("exists", refusal + "a folder; choose another name");
    if (fs::is_symlink(status)) throw Failure("exists", refusal + "a link; name the file that it leads to");
    if (!fs::is_regular_file(status)) throw Failure("exists", refusal + "no regular file; choose another name");
    if (!overwrite) throw Failure("exists", "cannot write '" + target + "': it exists; --overwrite replaces it");
    return true;
}

void RequireExtension(const std::string& target, const std::string& extension, const std::string& what) {
    if (ExtensionOf(target) == extension) return;
    throw Failure("wrong-use",
                  "cannot write '" + target + "': " + what + " is written as ." + extension + " only; choose such a name",
                  kWrongUse);
}

void FinishKilledMoves(const std::string& path) {
    fs::path home = PathFrom(FolderOf(path));
    if (home.empty()) home = ".";
    for (const fs::path& folder : LeftBehind(home, kComplete)) FinishLeftMove(folder, home);
}

Staging::Staging(const std::string& target) {
    home_ = PathFrom(target).parent_path();
    if (home_.empty()) home_ = ".";
    MakeHome(target);
    CleanUpAfterKilledRuns(home_);
    MakeFolder(target);
}

void Staging::MakeHome(const std::string& target) {
    std::error_code error;
    for (fs::path at = home_; !at.empty() && !fs::exists(at, error); at = at.parent_path()) made_.push_back(at);
    std::reverse(made_.begin(), made_.end());
    if (!made_.empty() && !fs::create_directories(home_, error) && error)
        throw SystemFailure("cannot make the folder of '" + target + "'", error);
}

void Staging::MakeFolder(const std::string& target) {
    std::error_code error;
    std::string name = kWork + MachineName() + "-" + std::to_string(ProcessNumber()) + "-";
    for (int count = 0; count < 1000; ++count) {
        folder_ = home_ / PathFrom(name + std::to_string(count));
        if (fs::create_directory(folder_, error)) return;
        if (error) break;
    }
    folder_.clear();
    throw SystemFailure("cannot write '" + target + "'", error ? error : std::make_error_code(std::errc::file_exists));
}

Staging::~Staging() {
    std::error_code ignored;
    if (!folder_.empty()) fs::remove_all(folder_, ignored);
    if (committed_) return;
    for (auto made = made_.rbegin(); made != made_.rend(); ++made) fs::remove(*made, ignored);   // only while empty
}

std::string Staging::PathOf(const std::string& name) const { return TextOf(folder_ / PathFrom(name)); }

void Staging::Commit() {
    std::error_code error;
    std::string name = TextOf(folder_.filename());
    fs::path complete = home_ / PathFrom(kComplete + name.substr(std::string(kWork).size()));
    fs::rename(folder_, complete, error);
    if (error) throw SystemFailure("cannot finish in '" + TextOf(home_) + "'", error);
    folder_ = complete;
    try {
        MoveAll(complete, home_);
    } catch (const fs::filesystem_error& failure) {
        throw SystemFailure("cannot replace '" + TextOf(failure.path2()) + "'", failure.code());
    }
    committed_ = true;
}

void WriteWhole(const std::string& target, const std::string& bytes) {
    Staging staging(target);
    errno = 0;
    std::ofstream stream(PathFrom(staging.PathOf(NameOf(target))), std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), std::streamsize(bytes.size()));
    stream.close();
    if (!stream)
        throw SystemFailure("cannot write '" + target + "'",
                            std::error_code(errno ? errno : EIO, std::generic_category()));
    staging.Commit();
}

}   // namespace kqclip
