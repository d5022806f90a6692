// Files that the tool writes. What exists under a name stays whole until its replacement is complete: everything is
// written into a hidden folder of its own beside the target and moved into place at the end, each file by one rename.
//
// A run that fails or is interrupted removes its folder. What a killed run left is seen to by the next run that writes
// to the same place: files that were not complete are removed, and a complete set whose move was cut short is moved on.
// The latter is done before a clip is read, too, so that nobody sees half of an old sequence and half of a new one.
//
// Folders are told from those of runs that are still at work by the process in their name. Anybody may give a folder
// such a name: only a real folder that belongs to the user is touched, and only one of this machine is moved on. On a
// disk that machines share, an unfinished folder of another machine is left alone for a day, a complete one for good.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kqclip {

std::filesystem::path PathFrom(const std::string& utf8);
std::string TextOf(const std::filesystem::path& path);

// Looks at a name that shall be written before any work is done: whether a file is there, which may be replaced. Throws
// Failure when it is there and `overwrite` does not allow that, and always for what a rename must not take the place
// of: a folder, a link, a device or a pipe, and a file that is write-protected.
bool CheckReplaceable(const std::string& target, bool overwrite);

// Throws Failure when the only `extension` that `what` is written with is not that of `target`.
void RequireExtension(const std::string& target, const std::string& extension, const std::string& what);

class Staging {
public:
    // For files of the folder that holds `target`, which is made when it is not there; throws Failure when it cannot be
    // written.
    explicit Staging(const std::string& target);
    ~Staging();
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    // The path under which to write the file that shall be called `name`.
    std::string PathOf(const std::string& name) const;

    // Moves every file into place, replacing what is there, when `overwrite` allows that, and taking over its mode;
    // throws Failure when one cannot be moved, with all files as they were.
    void Commit(bool overwrite);

private:
    void MakeHome(const std::string& target);
    void MakeFolder(const std::string& target);
    void CheckPlaces(bool overwrite) const;
    void KeepModes() const;

    std::filesystem::path folder_, home_;
    std::vector<std::filesystem::path> made_;   // folders that were made for the target, the outermost first
    bool committed_ = false;
};

// Completes what killed runs had complete and did not get to move into the folder of `path`.
void FinishKilledMoves(const std::string& path);

// Writes one whole file, staged, replacing one when `overwrite` allows that; throws Failure.
void WriteWhole(const std::string& target, const std::string& bytes, bool overwrite);

}   // namespace kqclip
