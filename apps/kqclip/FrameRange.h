// Lists of frame numbers as written on the command line: "1-100", "1-100x2", "1,5,9", "-10--5", and their mixtures.
#pragma once

#include <string>
#include <vector>

namespace kqclip {

// The numbers in the order written; a range may run down ("9-1"). Throws Failure "wrong-use" that shows the part that
// makes no sense, also when more than ten million numbers are asked for, and names `option`.
std::vector<int> ParseFrames(const std::string& text, const std::string& option = "--frames");

// The numbers in the short form that ParseFrames reads: runs of one step become ranges.
std::string ShowFrames(const std::vector<int>& numbers);

}   // namespace kqclip
