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

// A real folder that the user's own process made: what others put under such a name is not touched.
bool IsOurs(const fs::path& folder) {
    std::error_code error;
    return fs::symlink_status(folder, error).type() == fs::file_type::directory && BelongsToUser(folder);
}

// Nobody works in it any more: this process looks before it makes a folder of its own, so one that bears its number is
// an earlier process's. Nothing is known of another machine's folder, which is left alone for a day.
bool IsAbandoned(const fs::path& folder, const std::string& name) {
    if (auto maker = MakerOf(name)) return *maker == ProcessNumber() || !ProcessRuns(*maker);
    std::error_code error;
    auto newest = fs::last_write_time(folder, error);
    for (fs::directory_iterator file(folder, error), end; !error && file != end; file.increment(error))
        newest = std::max(newest, file->last_write_time(error));
    return fs::file_time_type::clock::now() - newest > std::chrono::hours(24);
}

std::vector<fs::path> FilesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

bool IsPlainFile(const fs::path& file) {
    std::error_code error;
    return fs::symlink_status(file, error).type() == fs::file_type::regular;
}

// Whether this name may be given to a file: nothing is there, or a file that may be replaced.
bool IsFree(const fs::path& target) {
    std::error_code error;
    return !fs::exists(fs::symlink_status(target, error)) || IsPlainFile(target);
}

// What lies there was complete before its run was killed. Whatever does not look like that is left as it is.
void FinishLeftMove(const fs::path& folder, const fs::path& home) {
    try {
        std::vector<fs::path> files = FilesIn(folder);
        for (const fs::path& file : files)
            if (!IsPlainFile(file) || !BelongsToUser(file) || !IsFree(home / file.filename())) return;
        for (const fs::path& file : files) fs::rename(file, home / file.filename());
        fs::remove(folder);
    } catch (const fs::filesystem_error&) {
        return;   // its files stay in the folder, for a run that may write here
    }
}

// The user's folders whose names begin with `start` and that no run works in.
std::vector<fs::path> LeftBehind(const fs::path& home, const char* start) {
    std::error_code error;
    std::vector<fs::path> left;
    for (fs::directory_iterator entry(home, error), end; !error && entry != end; entry.increment(error)) {
        std::string name = TextOf(entry->path().filename());
        if (StartsWith(name, start) && IsOurs(entry->path()) && IsAbandoned(entry->path(), name))
            left.push_back(entry->path());
    }
    return left;
}

// Only this machine knows that the process of its folder is gone, so it alone moves the files.
void FinishLeftMoves(const fs::path& home) {
    for (const fs::path& folder : LeftBehind(home, kComplete))
        if (MakerOf(TextOf(folder.filename()))) FinishLeftMove(folder, home);
}

// What killed runs left: a complete set is moved into place, an incomplete one is removed.
void CleanUpAfterKilledRuns(const fs::path& home) {
    std::error_code ignored;
    FinishLeftMoves(home);
    for (const fs::path& folder : LeftBehind(home, kWork)) fs::remove_all(folder, ignored);
}

// Puts every file of a folder into its place. The file that was there is kept aside until all are moved, so that a move
// that fails can be undone. One file alone needs none of that: its rename is done or not.
class Move {
public:
    Move(const fs::path& from, const fs::path& home, const fs::path& aside) : from_(from), home_(home), aside_(aside) {}

    ~Move() {
        std::error_code ignored;
        if (whole_) fs::remove_all(aside_, ignored);
    }

    Move(const Move&) = delete;
    Move& operator=(const Move&) = delete;

    void All() {
        std::vector<fs::path> files = FilesIn(from_);
        if (files.size() > 1) fs::create_directories(aside_);
        for (const fs::path& file : files) {
            fs::path name = file.filename();
            if (!IsFree(home_ / name))
                throw fs::filesystem_error("", file, home_ / name, std::make_error_code(std::errc::file_exists));
            if (files.size() > 1 && IsPlainFile(home_ / name)) KeepAside(name);
            fs::rename(file, home_ / name);
            moved_.push_back(name);
        }
    }

    // Puts back what was there; false when that fails too. The new files are kept until then: should they have to be
    // moved on after all, none is lost.
    bool Undo() {
        std::error_code error;
        for (; !moved_.empty() && !error; moved_.pop_back())
            fs::rename(home_ / moved_.back(), from_ / moved_.back(), error);
        for (const fs::path& old : kept_)
            if (std::error_code failed; !fs::exists(home_ / old.filename(), failed)) {
                fs::rename(old, home_ / old.filename(), failed);
                if (failed) error = failed;
            }
        return whole_ = !error;
    }

    // What a failure says about the files.
    std::string Left() const {
        if (whole_) return "; all files are as they were";
        return "; some files are replaced, the others lie in '" + TextOf(from_) +
               "' and the next kqclip that writes there moves them";
    }

private:
    // A second name for the old file; where the disk knows no such thing it gives up its first one for a moment.
    void KeepAside(const fs::path& name) {
        std::error_code error;
        fs::create_hard_link(home_ / name, aside_ / name, error);
        if (error) fs::rename(home_ / name, aside_ / name, error);
        if (error) throw fs::filesystem_error("", aside_ / name, home_ / name, error);
        kept_.push_back(aside_ / name);
    }

    fs::path from_, home_, aside_;
    std::vector<fs::path> moved_, kept_;   // names that are new; old files, where they are kept
    bool whole_ = true;
};

// A failed call of the system, as a failure of the tool.
Failure SystemFailure(const std::string& what, const std::error_code& error, const std::string& more = "") {
    bool full = error == std::errc::no_space_on_device || error == std::errc::file_too_large;
    const char* code = full ? "disk-full" : error == std::errc::permission_denied ? "access-denied" : "cannot-write";
    return Failure(code, what + ": " + (full ? std::string(ReasonOf(KQERR_DISKFULL).why) : error.message()) + more);
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
    if ((status.permissions() & fs::perms::owner_write) == fs::perms::none)
        throw Failure("write-protected", refusal + "write-protected; lift that, or choose another name");
    return true;
}

void RequireExtension(const std::string& target, const std::string& extension, const std::string& what) {
    if (ExtensionOf(target) == extension) return;
    throw Failure(
        "wrong-use",
        "cannot write '" + target + "': " + what + " is written as ." + extension + " only; choose such a name",
        kWrongUse);
}

void FinishKilledMoves(const std::string& path) {
    fs::path home = PathFrom(FolderOf(path));
    if (home.empty()) home = ".";
    FinishLeftMoves(home);
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

// The new files get the modes of those whose place they take.
void Staging::KeepModes() const {
    for (const fs::path& file : FilesIn(folder_)) {
        std::error_code ignored;
        fs::file_status old = fs::symlink_status(home_ / file.filename(), ignored);
        if (old.type() == fs::file_type::regular) fs::permissions(file, old.permissions() & fs::perms::all, ignored);
    }
}

// What was not there at the start may have come since.
void Staging::CheckPlaces(bool overwrite) const {
    for (const fs::path& file : FilesIn(folder_)) CheckReplaceable(TextOf(home_ / file.filename()), overwrite);
}

void Staging::Commit(bool overwrite) {
    std::error_code error;
    fs::path work = folder_;
    fs::path complete = home_ / PathFrom(kComplete + TextOf(work.filename()).substr(std::string(kWork).size()));
    CheckPlaces(overwrite);
    KeepModes();
    fs::rename(work, complete, error);
    if (error) throw SystemFailure("cannot finish in '" + TextOf(home_) + "'", error);
    folder_ = complete;
    Move move(complete, home_, work);
    try {
        move.All();
    } catch (const fs::filesystem_error& failure) {
        if (!move.Undo()) folder_.clear();   // it holds what the next run moves on
        throw SystemFailure("cannot replace '" + TextOf(failure.path2()) + "'", failure.code(), move.Left());
    }
    committed_ = true;
}

void WriteWhole(const std::string& target, const std::string& bytes, bool overwrite) {
    Staging staging(target);
    errno = 0;
    std::ofstream stream(PathFrom(staging.PathOf(NameOf(target))), std::ios::binary | std::ios::trunc);
    stream.write(bytes.data(), std::streamsize(bytes.size()));
    stream.close();
    if (!stream)
        throw SystemFailure("cannot write '" + target + "'",
                            std::error_code(errno ? errno : EIO, std::generic_category()));
    staging.Commit(overwrite);
}

}   // namespace kqclip
