// Files that the tool writes. What exists under a name stays whole until its replacement is complete: everything is
// written into a folder of its own beside the target and moved into place at the end; a run that fails or is
// interrupted removes that folder, and a later run removes what a killed one left.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kqclip {

std::filesystem::path PathFrom(const std::string& utf8);
std::string TextOf(const std::filesystem::path& path);

class Staging {
public:
    // For files of the folder that holds `target`; throws Failure when that folder cannot be written.
    explicit Staging(const std::string& target);
    ~Staging();
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    // The path under which to write the file that shall be called `name`.
    std::string PathOf(const std::string& name) const;

    // Moves every file into place, replacing what is there; throws Failure when one cannot be.
    void Commit();

private:
    std::filesystem::path folder_, home_;
};

}   // namespace kqclip
