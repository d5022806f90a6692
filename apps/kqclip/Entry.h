// How the tool begins on its host: its arguments and its terminal in UTF-8. posix/Entry.cpp and win32/Entry.cpp answer.
#pragma once

#include <string>
#include <vector>

namespace kqclip {

// The arguments as UTF-8, without the program's name.
std::vector<std::string> Arguments(int argc, char** argv);

// The terminal for the time of the program: it takes UTF-8 and the sequences that rewrite a line. It is put back as it
// was found.
class Terminal {
public:
    Terminal();
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

private:
    unsigned page_ = 0;   // what the terminal had; 0 where nothing was changed
};

}   // namespace kqclip
