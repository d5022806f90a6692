// The manual page and the shell completions, made from the table of options that --help shows.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kqclip {

// Prints "man", "bash", "zsh" or "fish" to standard output; false for another word.
bool Generate(const CLI::App& app, const std::string& what);

}   // namespace kqclip
