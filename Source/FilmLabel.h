// The strip under each picture of a film: a grey band with the frame's time code and number, for people who look at
// the file in an image editor.
#pragma once

#include "kq/bitmap.h"

namespace kq {

inline constexpr i32 kLabelRows = 16;

// Writes "HH:MM:SS:FF" and a zero byte to `text` (12 bytes). The rate is rounded to whole frames a second; at 29.97
// the count is drop-frame. The hours run modulo 60. A rate that rounds below 1 gives dashes.
void FormatTimeCode(i64 frame, f64 rate, char* text);

// Writes the last five decimal digits of `frame` and a zero byte to `text` (6 bytes).
void FormatFrameNumber(i64 frame, char* text);

// Draws digits, ':' and '-' with their top left corner at (x, y) as transparent black; pixels outside the bitmap are
// dropped, other characters take no room.
void DrawLabelText(KQBitmap* bitmap, i32 x, i32 y, const char* text);

// Fills a 32-bit bitmap of kLabelRows rows with the label of frame `frame` at `rate` frames a second.
void DrawLabel(KQBitmap* bitmap, i32 frame, f64 rate);

}   // namespace kq
