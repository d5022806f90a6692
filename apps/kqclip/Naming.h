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

    // The path of frame `number`; nothing for a number below 0.
    std::optional<std::string> PathOf(int number) const;

    // The name as the library writes it: "shot.[####].png", with the folder.
    std::string SequenceName(int places) const;

    // The digits in `name` when it is of this pattern; capitals count as small letters where the host's names do.
    std::optional<std::string> DigitsOf(const std::string& name) const;

    // The number in `name` when it is of this pattern and fits an int.
    std::optional<int> NumberOf(const std::string& name) const;
};

struct NumberedFile {
    int number;
    std::string path;
};

// The files of a pattern, and those that cannot be among them.
struct NumberedFiles {
    std::vector<NumberedFile> files;     // ascending, one for each number
    std::vector<std::string> doubles;    // names of files whose number another file has, written in other digits
    std::vector<std::string> tooLarge;   // names of files whose number does not fit an int
};

// Of several files of one number the one that is written in the pattern's digits is taken. Throws Failure when the
// folder cannot be read.
NumberedFiles FilesOf(const Pattern& pattern);

// Reads "shot[####].png", "shot.####.png", "shot.%04d.png", "shot.@@@@.png"; nothing when the path holds no such form.
// Of several runs the last counts.
std::optional<Pattern> ParsePattern(const std::string& path);

// The pattern of a file name with digits: its last run of digits before the extension. An extension that is digits
// alone is the number itself: "shot.0001".
std::optional<Pattern> PatternOfFile(const std::string& path);

// The part of a path up to and with its last separator, and the part behind it.
std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);

// The letters behind the last dot of the name, in lower case; empty when there is none.
std::string ExtensionOf(const std::string& path);

// The names of the files of a folder ("" is the current one), sorted; throws Failure when it cannot be read.
std::vector<std::string> FilesOf(const std::string& folder);

}   // namespace kqclip
