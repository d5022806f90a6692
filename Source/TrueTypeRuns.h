// A simple glyph taken apart: it is three runs of bytes, flags, x steps and y steps.
//
// FindRuns sees to it that all of them are there and counts what the contours come to; StepReader then
// walks the three side by side without a question.
#pragma once

#include "Source/TrueTypeTables.h"

namespace kq::truetype {

// Flags of a point.
enum : u8 { kOnCurve = 1, kShortX = 2, kShortY = 4, kRepeat = 8, kSameX = 16, kSameY = 32 };

struct Runs {
    const u8* ends;   // the last point of each contour, 16 bits
    const u8* flags;
    const u8* xs;
    const u8* ys;
    u32 contours;
    u32 points;
    size_t bytes;   // that the commands of all contours take
};

// Takes a simple glyph apart; false when it does not hold together.
bool FindRuns(const Table& glyph, Runs* runs);

// The steps of the points of a simple glyph.
class StepReader {
public:
    explicit StepReader(const Runs& runs) : flags_(runs.flags), xs_(runs.xs), ys_(runs.ys) {}

    // Adds the next point's step to (x, y), whose y runs downward; whether the point lies on the curve.
    bool Next(u32* x, u32* y) {
        if (repeat_ > 0) {
            --repeat_;
        } else {
            flag_ = *flags_++;
            if (flag_ & kRepeat) repeat_ = *flags_++;
        }
        *x += Step(&xs_, flag_ & kShortX, flag_ & kSameX);
        *y -= Step(&ys_, flag_ & kShortY, flag_ & kSameY);
        return flag_ & kOnCurve;
    }

private:
    static u32 Step(const u8** at, bool isShort, bool same) {
        if (isShort) {
            u32 step = *(*at)++;
            return same ? step : 0u - step;
        }
        if (same) return 0;
        i32 step = i16(Big16(*at));
        *at += 2;
        return u32(step);
    }

    const u8 *flags_, *xs_, *ys_;
    u32 flag_ = 0;
    u32 repeat_ = 0;
};

}   // namespace kq::truetype
