// See AlphaSurvey.h. The survey counts part by part, and counts a part again in which an end shows its first pixel.
#include "Source/AlphaSurvey.h"

#include <algorithm>

#include "Source/Simd.h"

namespace kq {

namespace {

// Pixels between two looks at what was found so far.
constexpr size_t kPart = 4096;

struct Counts {
    u32 zeros, ones, likeZero, likeOne;
};

}   // namespace

KQ_LOOP Counts CountPartLoop(const u32* pixels, size_t count, u32 zero, u32 one) {
    u32 zeros = 0, ones = 0, likeZero = 0, likeOne = 0;
    for (size_t i = 0; i < count; ++i) {
        u32 v = pixels[i];
        zeros += (v & 255) == 0;
        ones += (v & 255) == 255;
        likeZero += v == zero;
        likeOne += v == one;
    }
    return {zeros, ones, likeZero, likeOne};
}

static Counts CountPart(const u32* pixels, size_t count, u32 zero, u32 one);

KQ_VECTOR_FORMS(Counts, CountPart, (const u32* pixels, size_t count, u32 zero, u32 one), (pixels, count, zero, one))

// Nonzero when some pixel of the part does not fit. With t the part of the matte in the pixel, out of 255, a channel c
// fits from (m * t - 255) / 255 to (m * t + slack) / 255. Either end shows in a sign, and the signs are gathered.
KQ_LOOP u32 MisfitsLoop(const u32* pixels, size_t count, u32 matte, u32 inverted) {
    i32 red = i32(matte >> 8 & 255), green = i32(matte >> 16 & 255), blue = i32(matte >> 24);
    u32 flip = inverted ? 255 : 0;
    i32 signs = 0;
    for (size_t i = 0; i < count; ++i) {
        u32 v = pixels[i];
        i32 a = i32((v & 255) ^ flip), t = 255 - a, range = (a + 2) * 255;
        auto outside = [=](i32 c, i32 m) {
            i32 above = c * 255 - m * t + 255;
            return above | (range - above);
        };
        signs |= outside(i32(v >> 8 & 255), red) | outside(i32(v >> 16 & 255), green) | outside(i32(v >> 24), blue);
    }
    return u32(signs) >> 31;
}

static u32 Misfits(const u32* pixels, size_t count, u32 matte, u32 inverted);

KQ_VECTOR_FORMS(u32, Misfits, (const u32* pixels, size_t count, u32 matte, u32 inverted),
                (pixels, count, matte, inverted))

namespace {

// Notes the part's first pixel of an end that had none before; true when there is one.
bool Meet(AlphaEnd* end, u32 found, const u32* pixels, u32 alpha) {
    if (end->count > 0 || found == 0) return false;
    while ((*pixels & 255) != alpha) ++pixels;
    end->word = *pixels;
    return true;
}

void Add(AlphaEnd* end, u32 found, u32 alike) {
    end->count += found;
    if (end->count) end->identical += alike;
}

}   // namespace

AlphaSurvey SurveyAlpha(const u32* pixels, size_t count) {
    AlphaSurvey survey;
    for (size_t at = 0; at < count; at += kPart) {
        size_t part = std::min(kPart, count - at);
        Counts counts = CountPart(pixels + at, part, survey.zeros.word, survey.ones.word);
        bool zerosMet = Meet(&survey.zeros, counts.zeros, pixels + at, 0);
        bool onesMet = Meet(&survey.ones, counts.ones, pixels + at, 255);
        if (zerosMet || onesMet) counts = CountPart(pixels + at, part, survey.zeros.word, survey.ones.word);
        Add(&survey.zeros, counts.zeros, counts.likeZero);
        Add(&survey.ones, counts.ones, counts.likeOne);
    }
    // The first pixel itself is none of the later ones.
    if (survey.zeros.count) --survey.zeros.identical;
    if (survey.ones.count) --survey.ones.identical;
    return survey;
}

bool FitsMatte(const u32* pixels, size_t count, u32 matte, bool inverted) {
    for (size_t at = 0; at < count; at += kPart)
        if (Misfits(pixels + at, std::min(kPart, count - at), matte, inverted)) return false;
    return true;
}

}   // namespace kq
