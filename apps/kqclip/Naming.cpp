#include "apps/kqclip/Naming.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <map>

#include "apps/kqclip/Outcome.h"

namespace fs = std::filesystem;

namespace kqclip {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool kHostFoldsCase = fs::path::preferred_separator != '/';

// Whether `part` stands at `at` in the name.
bool StandsAt(const std::string& name, size_t at, const std::string& part) {
    auto fold = [](char c) { return kHostFoldsCase && c >= 'A' && c <= 'Z' ? char(c + 'a' - 'A') : c; };
    return std::equal(part.begin(), part.end(), name.begin() + std::ptrdiff_t(at),
                      [fold](char a, char b) { return fold(a) == fold(b); });
}

// A run of `mark` characters that ends last in the name.
std::optional<std::pair<size_t, size_t>> LastRun(const std::string& name, char mark) {
    size_t end = name.find_last_of(mark);
    if (end == std::string::npos) return std::nullopt;
    size_t begin = end;
    while (begin > 0 && name[begin - 1] == mark) --begin;
    return std::pair(begin, end + 1);
}

Pattern Split(const std::string& path, size_t begin, size_t end, int digits) {
    std::string name = NameOf(path);
    return {FolderOf(path), name.substr(0, begin), name.substr(end), digits};
}

// "%04d" or "%d" at `at`: its end and its digits.
std::optional<std::pair<size_t, int>> PrintfForm(const std::string& name, size_t at) {
    size_t i = at + 1;
    int width = 0;
    while (i < name.size() && IsDigit(name[i]) && width < 100) width = width * 10 + (name[i++] - '0');
    if (i >= name.size() || name[i] != 'd') return std::nullopt;
    return std::pair(i + 1, std::max(width, 1));
}

}   // namespace

std::string FolderOf(const std::string& path) {
    size_t at = path.find_last_of(fs::path::preferred_separator == '/' ? "/" : "/\\:");
    return at == std::string::npos ? "" : path.substr(0, at + 1);
}

std::string NameOf(const std::string& path) { return path.substr(FolderOf(path).size()); }

std::string ExtensionOf(const std::string& path) {
    std::string name = NameOf(path);
    size_t dot = name.find_last_of('.');
    if (dot == std::string::npos) return "";
    std::string extension = name.substr(dot + 1);
    for (char& c : extension) c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

std::optional<std::string> Pattern::PathOf(int number) const {
    if (number < 0) return std::nullopt;
    std::string text = std::to_string(number);
    if (int(text.size()) < digits) text.insert(0, size_t(digits) - text.size(), '0');
    return folder + head + text + tail;
}

std::string Pattern::SequenceName(int places) const {
    return folder + head + "[" + std::string(size_t(places), '#') + "]" + tail;
}

std::optional<std::string> Pattern::DigitsOf(const std::string& name) const {
    if (name.size() < head.size() + tail.size() + 1 || !StandsAt(name, 0, head) ||
        !StandsAt(name, name.size() - tail.size(), tail))
        return std::nullopt;
    std::string text = name.substr(head.size(), name.size() - head.size() - tail.size());
    if (!std::all_of(text.begin(), text.end(), IsDigit)) return std::nullopt;
    return text;
}

std::optional<int> Pattern::NumberOf(const std::string& name) const {
    auto text = DigitsOf(name);
    int number = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), number).ec != std::errc())
        return std::nullopt;
    return number;
}

std::optional<Pattern> ParsePattern(const std::string& path) {
    std::string name = NameOf(path);
    if (auto run = LastRun(name, '#')) {
        auto [begin, end] = *run;
        int digits = int(end - begin);
        if (begin > 0 && name[begin - 1] == '[' && end < name.size() && name[end] == ']') {
            --begin;
            ++end;
        }
        return Split(path, begin, end, digits);
    }
    if (auto run = LastRun(name, '@')) return Split(path, run->first, run->second, int(run->second - run->first));
    for (size_t at = name.rfind('%'); at != std::string::npos && at + 1 < name.size();
         at = at > 0 ? name.rfind('%', at - 1) : std::string::npos)
        if (auto form = PrintfForm(name, at)) return Split(path, at, form->first, form->second);
    return std::nullopt;
}

std::optional<Pattern> PatternOfFile(const std::string& path) {
    std::string name = NameOf(path);
    size_t dot = name.find_last_of('.');
    bool numbered = dot != std::string::npos && dot + 1 < name.size() &&
                    std::all_of(name.begin() + std::ptrdiff_t(dot) + 1, name.end(), IsDigit);
    size_t end = dot == std::string::npos || numbered ? name.size() : dot;
    while (end > 0 && !IsDigit(name[end - 1])) --end;
    if (end == 0) return std::nullopt;
    size_t begin = end;
    while (begin > 0 && IsDigit(name[begin - 1])) --begin;
    return Split(path, begin, end, int(end - begin));
}

NumberedFiles FilesOf(const Pattern& pattern) {
    NumberedFiles found;
    std::map<int, std::string> names;
    for (const std::string& name : FilesOf(pattern.folder)) {
        if (!pattern.DigitsOf(name)) continue;
        auto number = pattern.NumberOf(name);
        if (!number) {
            found.tooLarge.push_back(name);
            continue;
        }
        auto [at, isNew] = names.emplace(*number, name);
        if (isNew) continue;
        bool better = int(pattern.DigitsOf(name)->size()) == pattern.digits;
        found.doubles.push_back(better ? at->second : name);
        if (better) at->second = name;
    }
    for (const auto& [number, name] : names) found.files.push_back({number, pattern.folder + name});
    return found;
}

std::vector<std::string> FilesOf(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    fs::path path = folder.empty() ? fs::path(".") : fs::path(std::u8string(folder.begin(), folder.end()));
    for (fs::directory_iterator entry(path, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->is_directory(error)) continue;
        std::u8string name = entry->path().filename().u8string();
        names.emplace_back(name.begin(), name.end());
    }
    if (error) throw Failure("cannot-read", "cannot read the folder '" + folder + "': " + error.message());
    std::sort(names.begin(), names.end());
    return names;
}

}   // namespace kqclip
