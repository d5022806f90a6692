// Which files of a numbered sequence will be asked for next, guessed from the names of those that were.
//
// A frame is asked for by its path alone, so the run of digits that changes, and by how much, is learned from two paths
// in a row. A wrong guess costs a little work and nothing else.
#pragma once

#include <string>
#include <vector>

namespace stills {

class Following {
public:
    // Notes that `path` is asked for now, and returns the `count` paths that should come next, nearest first; fewer or
    // none when its name tells nothing. Before the second path the last run of digits of the name is taken to count up
    // by one.
    std::vector<std::string> After(const std::string& path, int count);

private:
    std::string last_;
    long long step_ = 1;
};

}   // namespace stills
