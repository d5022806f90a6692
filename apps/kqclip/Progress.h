// Progress on standard error: a line that rewrites itself on a terminal, or one JSON object a line for programs.
#pragma once

#include <chrono>
#include <string>

namespace kqclip {

class Progress {
public:
    // `total` steps of `work`; `mode` is auto (a terminal only), json or none.
    Progress(std::string work, int total, const std::string& mode);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Whether `mode` shows a line that rewrites itself: auto, and standard error is a terminal.
    static bool OnTerminal(const std::string& mode);

    // Tells that `done` steps are done, at most ten times a second and for the last.
    void Show(int done);

private:
    void ShowLine(int done, double rate, double left);
    void ShowJson(int done, double rate, double left);

    std::string work_;
    int total_;
    bool line_, json_;
    bool shown_ = false;
    std::chrono::steady_clock::time_point start_, last_;
};

}   // namespace kqclip
