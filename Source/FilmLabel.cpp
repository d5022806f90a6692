// The label strip: time code arithmetic and a font of ten digits and two marks.
#include "Source/FilmLabel.h"

#include <cmath>
#include <cstring>

namespace kq {

namespace {

constexpr u32 kLabelGrey = 0xFF808080;

// Eight rows a digit; the leftmost of seven columns has the value 64.
constexpr u8 kDigits[10][8] = {
    {0x1C, 0x22, 0x22, 0x22, 0x22, 0x22, 0x22, 0x1C}, {0x08, 0x18, 0x28, 0x08, 0x08, 0x08, 0x08, 0x3E},
    {0x1C, 0x22, 0x02, 0x04, 0x08, 0x10, 0x20, 0x3E}, {0x1C, 0x22, 0x02, 0x0C, 0x02, 0x02, 0x22, 0x1C},
    {0x04, 0x0C, 0x14, 0x24, 0x3E, 0x04, 0x04, 0x0E}, {0x3E, 0x20, 0x20, 0x3C, 0x02, 0x02, 0x22, 0x1C},
    {0x0C, 0x10, 0x20, 0x3C, 0x22, 0x22, 0x22, 0x1C}, {0x3E, 0x22, 0x02, 0x04, 0x04, 0x08, 0x08, 0x08},
    {0x1C, 0x22, 0x22, 0x1C, 0x22, 0x22, 0x22, 0x1C}, {0x1C, 0x22, 0x22, 0x22, 0x1E, 0x02, 0x04, 0x18},
};

void Dot(KQBitmap* bitmap, i32 x, i32 y) {
    if (x < 0 || y < 0 || x >= bitmap->width || y >= bitmap->height) return;
    std::memset(bitmap->data + size_t(y) * size_t(bitmap->rowBytes) + size_t(x) * 4, 0, 4);
}

void DrawDigit(KQBitmap* bitmap, i32 x, i32 y, int digit) {
    for (i32 row = 0; row < 8; ++row)
        for (i32 column = 0; column < 7; ++column)
            if (kDigits[digit][row] & (64 >> column)) Dot(bitmap, x + column, y + row);
}

// The rate in whole frames, halves away from zero, held to what fits.
i64 WholeRate(f64 rate) {
    f64 rounded = rate < 0 ? rate - 0.5 : rate + 0.5;
    if (!(rounded >= 1)) return 0;
    return rounded < 2147483647.0 ? i64(rounded) : 2147483647;
}

// Drop-frame counting leaves two numbers out at every minute but each tenth: the count that stands for `frame`. The
// numbers left out count towards the next minute too.
i64 DropFrameCount(i64 frame) {
    i64 count = frame, left = frame;
    for (int minute = 1; left >= 1800; ++minute) {
        left -= 1800;
        if (minute % 10 != 0) {
            left += 2;
            count += 2;
        }
    }
    return count;
}

// The last `count` decimal digits.
void PutDigits(char* text, i64 value, int count) {
    for (; count > 0; value /= 10) text[--count] = char('0' + value % 10);
}

}   // namespace

void FormatTimeCode(i64 frame, f64 rate, char* text) {
    i64 r = WholeRate(rate);
    if (r < 1) {
        std::memcpy(text, "--:--:--:--", 12);
        return;
    }
    i64 n = frame < 0 ? 0 : frame;
    if (r == 30 && std::fabs(rate - 29.97) < 0.0001) n = DropFrameCount(n);
    std::memcpy(text, "00:00:00:00", 12);
    PutDigits(text, n / (r * 3600) % 60, 2);
    PutDigits(text + 3, n / (r * 60) % 60, 2);
    PutDigits(text + 6, n / r % 60, 2);
    PutDigits(text + 9, n % r, 2);
}

void FormatFrameNumber(i64 frame, char* text) {
    PutDigits(text, frame < 0 ? 0 : frame, 5);
    text[5] = 0;
}

void DrawLabelText(KQBitmap* bitmap, i32 x, i32 y, const char* text) {
    for (; *text; ++text)
        if (*text == ':') {
            Dot(bitmap, x + 1, y + 1);
            Dot(bitmap, x + 1, y + 6);
            x += 3;
        } else if (*text == '-') {
            for (i32 i = 1; i <= 5; ++i) Dot(bitmap, x + i, y + 4);
            x += 7;
        } else if (*text >= '0' && *text <= '9') {
            DrawDigit(bitmap, x, y, *text - '0');
            x += 7;
        }
}

void DrawLabel(KQBitmap* bitmap, i32 frame, f64 rate) {
    char text[12];
    FillBitmapKQ(bitmap, kLabelGrey);
    FormatTimeCode(frame, rate, text);
    DrawLabelText(bitmap, 10, 4, text);
    FormatFrameNumber(frame, text);
    DrawLabelText(bitmap, bitmap->width - 45, 4, text);
}

}   // namespace kq
