#include "apps/kqclip/FrameRange.h"

#include <charconv>

#include "apps/kqclip/Outcome.h"

namespace kqclip {

namespace {

constexpr size_t kMostFrames = 10000000;

[[noreturn]] void Refuse(const std::string& option, const std::string& part, const char* why) {
    throw Failure("wrong-use", option + ": '" + part + "' " + why + "; write 1-100, 1-100x2 or 1,5,9", kWrongUse);
}

// Reads one part: N, N-M or N-MxS. A minus in front of a number is its sign.
class PartReader {
public:
    PartReader(const std::string& option, const std::string& part)
        : option_(option), part_(part), at_(part.data()), end_(part.data() + part.size()) {}

    int Number() {
        int value = 0;
        auto [next, error] = std::from_chars(at_, end_, value);
        if (error == std::errc::result_out_of_range) Refuse(option_, part_, "holds a number that is too large");
        if (error != std::errc()) Refuse(option_, part_, "is no frame number");
        at_ = next;
        return value;
    }

    bool Takes(char c) {
        if (at_ == end_ || *at_ != c) return false;
        ++at_;
        return true;
    }

    void ExpectEnd() const {
        if (at_ != end_) Refuse(option_, part_, "is no frame number or range");
    }

private:
    const std::string& option_;
    const std::string& part_;
    const char* at_;
    const char* end_;
};

void AddPart(std::vector<int>& numbers, const std::string& option, const std::string& part) {
    PartReader reader(option, part);
    long long first = reader.Number(), last = first, step = 1;
    if (reader.Takes('-')) {
        last = reader.Number();
        if (reader.Takes('x')) step = reader.Number();
        if (step < 1) Refuse(option, part, "has a step below 1");
    }
    reader.ExpectEnd();
    long long count = (first <= last ? last - first : first - last) / step + 1;
    if (numbers.size() + size_t(count) > kMostFrames) Refuse(option, part, "asks for more than ten million frames");
    for (long long i = 0; i < count; ++i) numbers.push_back(int(first <= last ? first + i * step : first - i * step));
}

std::string ShowRun(int first, int last, int step) {
    if (first == last) return std::to_string(first);
    std::string text = std::to_string(first) + "-" + std::to_string(last);
    return step == 1 ? text : text + "x" + std::to_string(step);
}

}   // namespace

std::vector<int> ParseFrames(const std::string& text, const std::string& option) {
    std::vector<int> numbers;
    size_t from = 0;
    for (;;) {
        size_t comma = text.find(',', from);
        AddPart(numbers, option, text.substr(from, comma - from));
        if (comma == std::string::npos) return numbers;
        from = comma + 1;
    }
}

std::string ShowFrames(const std::vector<int>& numbers) {
    std::string text;
    for (size_t i = 0; i < numbers.size();) {
        size_t last = i;
        long long step = i + 1 < numbers.size() ? (long long)(numbers[i + 1]) - numbers[i] : 0;
        while (step > 0 && last + 1 < numbers.size() && (long long)(numbers[last + 1]) - numbers[last] == step) ++last;
        if (last - i < 2 && step != 1) last = i;
        if (!text.empty()) text += ',';
        text += ShowRun(numbers[i], numbers[last], int(step));
        i = last + 1;
    }
    return text;
}

}   // namespace kqclip
