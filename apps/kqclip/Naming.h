// Names of numbered files, as patterns on the command line and as the files of a folder.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kqclip {

// A name with a place for a number: "shot.####.png" has head "shot.", 4 digits, tail ".png".
struct Pattern {
    std::string folder;   // with its separator, or empty
    std::string head, tail;
    int digits = 0;   // least number of digits

    // The path of frame `number`; nothing for a number below 0 or one that has more digits than `widest` allows.
    std::optional<std::string> PathOf(int number) const;

    // The name as the library writes it: "shot.[####].png", with the folder.
    std::string SequenceName(int places) const;

    // The number in `name` when it is of this pattern.
    std::optional<int> NumberOf(const std::string& name) const;
};

// Reads "shot[####].png", "shot.####.png", "shot.%04d.png", "shot.@@@@.png"; nothing when the path holds no such form.
// Of several runs the last counts.
std::optional<Pattern> ParsePattern(const std::string& path);

// The pattern of a file name with digits: its last run of digits before the extension.
std::optional<Pattern> PatternOfFile(const std::string& path);

// The part of a path up to and with its last separator, and the part behind it.
std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);

// The letters behind the last dot of the name, in lower case; empty when there is none.
std::string ExtensionOf(const std::string& path);

// The names of the files of a folder ("" is the current one), sorted; throws Failure when it cannot be read.
std::vector<std::string> FilesOf(const std::string& folder);

}   // namespace kqclip
