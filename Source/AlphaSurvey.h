// What the alpha guess asks of a picture's pixels: how they stand at the ends of the alpha, and whether all of them fit
// a matte.
#pragma once

#include "kq/types.h"

namespace kq {

// The pixels of one alpha value, 0 or 255.
struct AlphaEnd {
    size_t count = 0;
    u32 word = 0;           // the first of them, whole
    size_t identical = 0;   // later ones that are the same

    // Whether more than half of them share the first one's colour.
    bool Shared() const { return identical > count / 2; }
};

struct AlphaSurvey {
    AlphaEnd zeros, ones;
};

// Counts the pixels of both ends.
AlphaSurvey SurveyAlpha(const u32* pixels, size_t count);

// Whether every pixel lies within rounding of a picture that was matted against the colours of the pixel `matte`; with
// `inverted` the alpha stands upside down.
bool FitsMatte(const u32* pixels, size_t count, u32 matte, bool inverted);

}   // namespace kq
