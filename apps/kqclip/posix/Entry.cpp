// Arguments are bytes and terminals take them: there is nothing to turn.
#include "apps/kqclip/Entry.h"

namespace kqclip {

std::vector<std::string> Arguments(int argc, char** argv) { return {argv + (argc > 0), argv + argc}; }

Terminal::Terminal() = default;

Terminal::~Terminal() = default;

}   // namespace kqclip
