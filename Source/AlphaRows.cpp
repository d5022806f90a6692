// See AlphaRows.h. The divisions are exact: by alpha as a product in single precision whose error is bounded below,
// by 255 as a shift and add.
#include "Source/AlphaRows.h"

#include "Source/Simd.h"

namespace kq {

KQ_LOOP void OpaqueRowLoop(u32* pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) pixels[i] |= 255;
}

KQ_VECTOR_FORMS(void, OpaqueRow, (u32 * pixels, size_t count), (pixels, count))

KQ_LOOP void InvertRowLoop(u32* pixels, size_t count) {
    for (size_t i = 0; i < count; ++i) pixels[i] ^= 255;
}

KQ_VECTOR_FORMS(void, InvertRow, (u32 * pixels, size_t count), (pixels, count))

KQ_LOOP void GreyMatteRowLoop(u32* pixels, size_t count, u32 colour) {
    for (size_t i = 0; i < count; ++i) {
        u32 v = pixels[i];
        u32 sum = (v >> 8 & 255) + (v >> 16 & 255) + (v >> 24);
        pixels[i] = colour | (sum * 21846 >> 16);   // exact for sums up to 765
    }
}

KQ_VECTOR_FORMS(void, GreyMatteRow, (u32 * pixels, size_t count, u32 colour), (pixels, count, colour))

// The quotient of a numerator of at most 65025 by an alpha, whose reciprocal is `reciprocal` and a little more than
// exact: by less than 2^-20 of it, so that with the product's rounding the error stays below 65025 / alpha * 2^-19,
// which is less than the 1 / alpha that would reach the next whole number, and never falls below a whole one.
__attribute__((always_inline)) static inline u32 Unmatted(i32 numerator, float reciprocal) {
    i32 whole = i32(float(numerator > 0 ? numerator : 0) * reciprocal);
    return u32(whole < 255 ? whole : 255);
}

KQ_LOOP void UnmatteRowLoop(u32* pixels, size_t count, u32 flip, const Matte& matte) {
    i32 red = matte.red, green = matte.green, blue = matte.blue;
    for (size_t i = 0; i < count; ++i) {
        u32 v = pixels[i] ^ flip;
        i32 a = i32(v & 255), rest = 255 - a;
        float reciprocal = 1.0f / float(a > 1 ? a : 1) * (1.0f + 0x1p-21f);
        u32 r = Unmatted(i32(v >> 8 & 255) * 255 - rest * red, reciprocal);
        u32 g = Unmatted(i32(v >> 16 & 255) * 255 - rest * green, reciprocal);
        u32 b = Unmatted(i32(v >> 24) * 255 - rest * blue, reciprocal);
        // All ones over the colours where a is 0, without a branch.
        u32 stay = (u32(a - 1) >> 31) * ~u32(255);
        pixels[i] = ((r << 8 | g << 16 | b << 24) & ~stay) | (v & (stay | 255));
    }
}

KQ_VECTOR_FORMS(void, UnmatteRow, (u32 * pixels, size_t count, u32 flip, const Matte& matte),
                (pixels, count, flip, matte))

KQ_LOOP void CopyAlphaRowLoop(u32* target, const u32* source, size_t count, u32 keep, u32 flip) {
    keep |= ~u32(255);
#pragma GCC ivdep
    for (size_t i = 0; i < count; ++i) target[i] = (source[i] & keep) ^ flip;
}

KQ_VECTOR_FORMS(void, CopyAlphaRow, (u32 * target, const u32* source, size_t count, u32 keep, u32 flip),
                (target, source, count, keep, flip))

KQ_LOOP void GreyOutRowLoop(u32* target, const u32* source, size_t count, u32 flip) {
#pragma GCC ivdep
    for (size_t i = 0; i < count; ++i) target[i] = ((source[i] & 255) ^ flip) * 0x01010100u | 255;
}

KQ_VECTOR_FORMS(void, GreyOutRow, (u32 * target, const u32* source, size_t count, u32 flip),
                (target, source, count, flip))

KQ_LOOP void MatteRowLoop(u32* target, const u32* source, size_t count, u32 keep, u32 flip, const Matte& matte) {
    u32 red = u32(matte.red), green = u32(matte.green), blue = u32(matte.blue);
    // x / 255 for x up to 65025.
    auto by255 = [](u32 x) { return (x + 1 + (x >> 8)) >> 8; };
#pragma GCC ivdep
    for (size_t i = 0; i < count; ++i) {
        u32 v = source[i], s = v & 255, rest = 255 - s;
        u32 r = by255(rest * red + (v >> 8 & 255) * s);
        u32 g = by255(rest * green + (v >> 16 & 255) * s);
        u32 b = by255(rest * blue + (v >> 24) * s);
        target[i] = ((s & keep) ^ flip) | r << 8 | g << 16 | b << 24;
    }
}

KQ_VECTOR_FORMS(void, MatteRow, (u32 * target, const u32* source, size_t count, u32 keep, u32 flip, const Matte& matte),
                (target, source, count, keep, flip, matte))

}   // namespace kq
