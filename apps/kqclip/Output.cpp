#include "apps/kqclip/Output.h"

#include <algorithm>
#include <chrono>
#include <random>

#include "apps/kqclip/Outcome.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

constexpr const char* kPrefix = ".kqclip-";

// A folder of this age was left by a run that was killed.
constexpr auto kLeftBehind = std::chrono::hours(24);

void MoveAll(const fs::path& from, const fs::path& to) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(from)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) fs::rename(file, to / file.filename());
}

// What killed runs left: a complete set is moved into place, an old incomplete one is removed.
void CleanUpAfterKilledRuns(const fs::path& home) {
    std::error_code error;
    for (fs::directory_iterator entry(home, error), end; !error && entry != end; entry.increment(error)) {
        std::string name = TextOf(entry->path().filename());
        if (name.rfind(std::string(kPrefix) + "complete-", 0) == 0) {
            try {
                MoveAll(entry->path(), home);
                fs::remove_all(entry->path());
            } catch (const fs::filesystem_error&) {
                continue;   // another run is at it
            }
        } else if (name.rfind(kPrefix, 0) == 0 &&
                   fs::file_time_type::clock::now() - entry->last_write_time(error) > kLeftBehind) {
            std::error_code ignored;
            fs::remove_all(entry->path(), ignored);
        }
    }
}

}   // namespace

fs::path PathFrom(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

std::string TextOf(const fs::path& path) {
    std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

Staging::Staging(const std::string& target) {
    home_ = PathFrom(target).parent_path();
    if (home_.empty()) home_ = ".";
    CleanUpAfterKilledRuns(home_);
    std::random_device random;
    std::error_code error;
    for (int tries = 0; tries < 100; ++tries) {
        folder_ = home_ / (kPrefix + std::to_string(random()));
        if (fs::create_directory(folder_, error)) return;
        if (error) break;
    }
    folder_.clear();
    throw Failure("cannot-create", "cannot write '" + target + "': " +
                                       (error ? error.message() : "no temporary folder can be made beside it"));
}

Staging::~Staging() {
    std::error_code ignored;
    if (!folder_.empty()) fs::remove_all(folder_, ignored);
}

std::string Staging::PathOf(const std::string& name) const { return TextOf(folder_ / PathFrom(name)); }

void Staging::Commit() {
    std::error_code error;
    fs::path complete = home_ / (std::string(kPrefix) + "complete-" + TextOf(folder_.filename()).substr(8));
    fs::rename(folder_, complete, error);
    if (error) throw Failure("cannot-write", "cannot finish in '" + TextOf(home_) + "': " + error.message());
    folder_ = complete;
    try {
        MoveAll(complete, home_);
    } catch (const fs::filesystem_error& failure) {
        throw Failure("cannot-write", "cannot replace '" + TextOf(failure.path2()) + "': " + failure.code().message());
    }
}

}   // namespace kqclip
