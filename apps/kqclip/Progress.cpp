#include "apps/kqclip/Progress.h"

#include <cstdio>

#if defined(_WIN32)
#include <io.h>
#define isatty _isatty
#define fileno _fileno
#else
#include <unistd.h>
#endif

namespace kqclip {

Progress::Progress(std::string work, int total, const std::string& mode)
    : work_(std::move(work)),
      total_(total),
      line_(OnTerminal(mode)),
      json_(mode == "json"),
      start_(std::chrono::steady_clock::now()),
      last_(start_) {}

bool Progress::OnTerminal(const std::string& mode) { return mode == "auto" && isatty(fileno(stderr)); }

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
    std::fprintf(stderr, "\r%s: %d of %d, %d %%, %.1f a second, %.0f s left\033[K", work_.c_str(), done, total_,
                 int(100LL * done / total_), rate, left);
}

void Progress::ShowJson(int done, double rate, double left) {
    std::fprintf(stderr, "{\"progress\":{\"work\":\"%s\",\"done\":%d,\"total\":%d,\"rate\":%.2f,\"secondsLeft\":%.1f}}\n",
                 work_.c_str(), done, total_, rate, left);
}

}   // namespace kqclip
