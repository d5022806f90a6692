// The processes of the stills module's helper, as the system lists them.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace kqtest {

// The living processes of the helper whose parent is `parent`.
inline std::vector<pid_t> HelpersBelow(pid_t parent) {
    std::vector<pid_t> children;
    for (auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        if (!std::getline(stat, line) || line.find("(kqstills)") == std::string::npos) continue;
        std::istringstream rest(line.substr(line.rfind(')') + 1));
        char state;
        pid_t above;
        rest >> state >> above;
        if (above == parent && state != 'Z') children.push_back(pid_t(std::stol(entry.path().filename())));
    }
    return children;
}

// Of this process: the keepers, and the workers below them.
inline std::vector<pid_t> Keepers() { return HelpersBelow(getpid()); }

inline std::vector<pid_t> Workers() {
    std::vector<pid_t> workers;
    for (pid_t keeper : Keepers())
        for (pid_t worker : HelpersBelow(keeper)) workers.push_back(worker);
    return workers;
}

}   // namespace kqtest
