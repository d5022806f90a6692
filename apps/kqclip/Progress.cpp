#include "apps/kqclip/Progress.h"

#include <cstdio>

#include "apps/kqclip/Host.h"

namespace kqclip {

namespace {

// "42 s", "3:07" or "1:02:09".
std::string Clock(double seconds) {
    long whole = long(seconds + 0.5);
    char text[40];
    if (whole < 60)
        std::snprintf(text, sizeof text, "%ld s", whole);
    else if (whole < 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    return text;
}

}   // namespace

Progress::Progress(std::string work, int total, const std::string& mode)
    : work_(std::move(work)),
      total_(total),
      line_(OnTerminal(mode)),
      json_(mode == "json"),
      start_(std::chrono::steady_clock::now()),
      last_(start_) {}

bool Progress::OnTerminal(const std::string& mode) { return mode == "auto" && ErrorsGoToTerminal(); }

Progress::~Progress() {
    if (shown_ && line_) std::fprintf(stderr, "\r\033[K");
}

void Progress::Show(int done) {
    using namespace std::chrono;
    auto now = steady_clock::now();
    if ((!line_ && !json_) || total_ <= 0 || (done < total_ && now - last_ < milliseconds(100))) return;
    last_ = now;
    shown_ = true;
    double seconds = duration<double>(now - start_).count();
    double rate = seconds > 0 ? done / seconds : 0;
    double left = rate > 0 ? (total_ - done) / rate : 0;
    json_ ? ShowJson(done, rate, left) : ShowLine(done, rate, left);
    std::fflush(stderr);
}

void Progress::ShowLine(int done, double rate, double left) {
    std::fprintf(stderr, "\r%s: %d of %d, %d %%, %.1f a second, %s left\033[K", work_.c_str(), done, total_,
                 int(100LL * done / total_), rate, Clock(left).c_str());
}

void Progress::ShowJson(int done, double rate, double left) {
    std::fprintf(stderr,
                 "{\"progress\":{\"work\":\"%s\",\"done\":%d,\"total\":%d,\"percent\":%d,\"rate\":%.2f,"
                 "\"secondsLeft\":%.1f}}\n",
                 work_.c_str(), done, total_, int(100LL * done / total_), rate, left);
}

}   // namespace kqclip
