#include "modules/stills/Following.h"

#include <cstdio>

namespace stills {

namespace {

constexpr size_t kMostDigits = 9;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// A run of digits of a path: [begin, end).
struct Run {
    size_t begin = 0, end = 0;

    explicit operator bool() const { return end > begin; }

    long long NumberIn(const std::string& path) const { return std::stoll(path.substr(begin, end - begin)); }
};

// The last run that ends at or before `end`, of a length that can be counted with.
Run RunBefore(const std::string& path, size_t end) {
    while (end > 0) {
        while (end > 0 && !IsDigit(path[end - 1])) --end;
        size_t begin = end;
        while (begin > 0 && IsDigit(path[begin - 1])) --begin;
        if (end > begin && end - begin <= kMostDigits) return {begin, end};
        end = begin;
    }
    return {};
}

size_t NameStart(const std::string& path) {
    size_t at = path.find_last_of("/\\");
    return at == std::string::npos ? 0 : at + 1;
}

// The run of digits in `path`, within the name, that alone tells it from `other`; none when they differ elsewhere. The
// numbers may differ in length.
Run DifferingRun(const std::string& path, const std::string& other) {
    for (Run run = RunBefore(path, path.size()); run && run.begin >= NameStart(path);
         run = RunBefore(path, run.begin)) {
        size_t tail = path.size() - run.end;
        if (other.size() <= run.begin + tail || path.compare(0, run.begin, other, 0, run.begin) != 0) continue;
        size_t otherEnd = other.size() - tail;
        if (path.compare(run.end, tail, other, otherEnd, tail) != 0) continue;
        if (otherEnd - run.begin > kMostDigits) continue;
        bool digits = true;
        for (size_t i = run.begin; i < otherEnd; ++i) digits = digits && IsDigit(other[i]);
        if (digits) return run;
    }
    return {};
}

// The run that counts when nothing is known yet: the last one in front of the extension.
Run LikelyRun(const std::string& path) {
    size_t start = NameStart(path), dot = path.find_last_of('.');
    Run run = RunBefore(path, dot == std::string::npos || dot < start ? path.size() : dot);
    return run && run.begin >= start ? run : Run{};
}

}   // namespace

std::vector<std::string> Following::After(const std::string& path, int count) {
    Run run = path == last_ ? Run{} : DifferingRun(path, last_);
    if (run) {
        Run other = {run.begin, last_.size() - (path.size() - run.end)};
        step_ = run.NumberIn(path) - other.NumberIn(last_);
        if (step_ == 0) step_ = 1;
    } else {
        run = LikelyRun(path);
    }
    last_ = path;
    std::vector<std::string> next;
    if (!run) return next;
    long long number = run.NumberIn(path);
    for (int i = 1; i <= count && number + i * step_ >= 0; ++i) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%0*lld", int(run.end - run.begin), number + i * step_);
        next.push_back(path.substr(0, run.begin) + digits + path.substr(run.end));
    }
    return next;
}

}   // namespace stills
