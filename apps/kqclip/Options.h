// The table of options: every subcommand with its arguments, declared once. --help, the manual page and the shell
// completions are made from it.
#pragma once

#include <functional>
#include <string>

#include "apps/kqclip/Commands.h"

namespace CLI {
class App;
}

namespace kqclip {

// What the command line asks for.
struct Request {
    CommonOptions common;
    std::string command;
    std::function<void(Report&)> run;
};

// Fills `app` with the subcommands; parsing a command line then fills `request`.
void Declare(CLI::App& app, Request& request);

}   // namespace kqclip
