// Names and numbers of sequences: pure functions on bytes.
#include <algorithm>
#include <cstring>

#include "Source/Path.h"
#include "Source/Sequence.h"
#include "Source/Text.h"
#include "kq/environment.h"
#include "kq/files.h"
#include "kq/sequence.h"

namespace {

// Digits that a name without the form gets.
constexpr int kPlainDigits = 5;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

const char* SkipPlaces(const char* text) {
    while (*text == '#') ++text;
    return text;
}

// A form in a name: the places between its brackets.
struct Form {
    char* open;      // the bracket
    size_t places;   // the places behind it
};

// The form that the first `[` of the name begins; false when that begins none.
bool FirstForm(char* name, Form* form) {
    char* open = std::strchr(name, '[');
    if (!open) return false;
    const char* close = SkipPlaces(open + 1);
    *form = {open, size_t(close - open - 1)};
    return *close == ']';
}

// The file name of a path, which may be a bare name.
char* BareName(char* path) {
    const char* last = kq::LastSeparator(path);
    return last ? path + (last + 1 - path) : path;
}

// Writes the last digits of `number` so that they end in front of `end`; what is left of the number.
u32 WriteDigits(char* end, size_t digits, u32 number) {
    for (; digits > 0; --digits, number /= 10) *--end = char('0' + number % 10);
    return number;
}

// Puts the number in front of the extension, which a dot among the last four characters begins.
void NumberPlainName(char* name, u32 number) {
    size_t length = std::strlen(name);
    size_t at = length;
    for (size_t i = length; i-- > 0 && length - i <= 4;)
        if (name[i] == '.') {
            at = i;
            break;
        }
    std::memmove(name + at + kPlainDigits, name + at, length - at + 1);
    WriteDigits(name + at + kPlainDigits, kPlainDigits, number);
}

}   // namespace

namespace kq {

DigitRun FindDigitRun(const char* name) {
    DigitRun best{0, 0};
    for (size_t i = 0; name[i];) {
        if (!IsDigit(name[i])) {
            ++i;
            continue;
        }
        size_t from = i;
        while (IsDigit(name[i])) ++i;
        if (i - from > best.length) best = {from, i - from};
    }
    return best;
}

bool SameSequence(const char* a, const char* b) {
    for (;; ++a, ++b) {
        if (FoldUpper(u8(*a)) != FoldUpper(u8(*b))) return false;
        if (*a == 0) return true;
        if (*a == '[') {
            a = SkipPlaces(a + 1) - 1;
            b = SkipPlaces(b + 1) - 1;
        }
    }
}

}   // namespace kq

int Is_Sequence(const char* name) {
    while ((name = std::strchr(name, '[')) != nullptr) {
        name = SkipPlaces(name + 1);
        if (*name == ']') return 1;
    }
    return 0;
}

i32 Sequence_Digits(const char* name) {
    i32 digits = 0;
    while ((name = std::strchr(name, '[')) != nullptr) {
        const char* behind = SkipPlaces(name + 1);
        digits += i32(behind - name - 1);
        if (*behind == ']') return digits;
        name = behind;
    }
    return 0;
}

int FileName_to_SequenceName(char* name) {
    kq::DigitRun run = kq::FindDigitRun(name);
    if (run.length == 0) return 0;
    char* from = name + run.at;
    char* behind = from + run.length;
    std::memmove(behind + 2, behind, std::strlen(behind) + 1);
    *from = '[';
    std::memset(from + 1, '#', run.length);
    from[run.length + 1] = ']';
    return 1;
}

i32 Name_to_SequenceNumber(const char* name) {
    kq::DigitRun run = kq::FindDigitRun(name);
    u32 number = 0;
    for (size_t i = 0; i < run.length; ++i) number = number * 10 + u32(name[run.at + i] - '0');
    return i32(number);
}

int SequenceNumber_to_Name(char* name, i32 number, i32 skip) {
    name = BareName(name);
    Form form;
    if (!FirstForm(name, &form)) {
        NumberPlainName(name, u32(number));
        return 1;
    }
    size_t skipped = size_t(std::clamp<i64>(skip, 0, i64(form.places)));
    size_t digits = form.places - skipped;
    char* places = form.open + 1;
    if (WriteDigits(places + digits, digits, u32(number)) > 0) return 0;
    const char* tail = places + form.places + 1;
    std::memmove(form.open, places, digits);
    std::memmove(form.open + digits, tail, std::strlen(tail) + 1);
    return 1;
}

int SequenceNumber_to_Name_Validate(char* name, i32 number) {
    i32 digits = Sequence_Digits(BareName(name));
    size_t size = std::strlen(name) + 1;
    char tried[kq::kSequencePathBytes];
    if (digits < 1 || size > sizeof tried) return 0;
    u32 error = KQEnv->Error;
    for (i32 skip = 0; skip < digits; ++skip) {
        std::memcpy(tried, name, size);
        if (!SequenceNumber_to_Name(tried, number, skip)) return 0;
        if (!FileExistsKQ(tried)) continue;
        KQEnv->Error = error;   // widths that do not exist are no failure
        std::memcpy(name, tried, std::strlen(tried) + 1);
        return 1;
    }
    return 0;
}
