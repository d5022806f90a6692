// Alpha between a clip's source and the library's straight alpha: read on retrieval, written before a frame goes out.
//
// A matte colour may lie outside 0.0 to 1.0, because the field is public; such a picture takes the plain loop, every
// other one the fast ones of AlphaRows.
#define KQ_MODULE "Source/InterpretAlpha"
#include <algorithm>

#include "Source/AlphaRows.h"
#include "Source/Frames.h"
#include "Source/Parallel.h"
#include "kq/frames.h"
#include "kq/nativebitmap.h"

namespace kq {

namespace {

Matte MatteOf(const KQClip* clip) {
    const KQFloatRGB& colour = clip->matteColor;
    return {TruncateToI32(colour.red * 255.0), TruncateToI32(colour.green * 255.0), TruncateToI32(colour.blue * 255.0)};
}

bool IsOrdinary(const Matte& matte) {
    auto fits = [](i32 channel) { return channel >= 0 && channel <= 255; };
    return fits(matte.red) && fits(matte.green) && fits(matte.blue);
}

u32 Flip(const KQClip* clip) { return clip->alphaInvert > 0 ? 255 : 0; }

// UnmatteRow for any matte.
void UnmattePlain(u32* pixels, size_t count, u32 flip, const Matte& matte) {
    const i64 channels[] = {matte.red, matte.green, matte.blue};
    for (size_t i = 0; i < count; ++i) {
        pixels[i] ^= flip;
        i64 a = pixels[i] & 255;
        if (a == 0) continue;
        u32 result = u32(a);
        for (int k = 0; k < 3; ++k) {
            i64 c = pixels[i] >> (8 + 8 * k) & 255;
            result |= u32(std::clamp<i64>((c * 255 - (255 - a) * channels[k]) / a, 0, 255)) << (8 + 8 * k);
        }
        pixels[i] = result;
    }
}

// MatteRow for any matte; each channel keeps the low 8 bits.
void MattePlain(u32* target, const u32* source, size_t count, u32 keep, u32 flip, const Matte& matte) {
    const i64 channels[] = {matte.red, matte.green, matte.blue};
    for (size_t i = 0; i < count; ++i) {
        i64 s = source[i] & 255;
        u32 result = (u32(s) & keep) ^ flip;
        for (int k = 0; k < 3; ++k) {
            i64 c = source[i] >> (8 + 8 * k) & 255;
            result |= u32(u8(((255 - s) * channels[k] + c * s) / 255)) << (8 + 8 * k);
        }
        target[i] = result;
    }
}

u32* Row(KQBitmap* bitmap, i32 y) { return reinterpret_cast<u32*>(bitmap->data + i64(y) * bitmap->rowBytes); }

const u32* Row(const KQBitmap* bitmap, i32 y) {
    return reinterpret_cast<const u32*>(bitmap->data + i64(y) * bitmap->rowBytes);
}

// A packed colour's red, green and blue as they lie in a pixel.
u32 ColoursOf(u32 packed) { return __builtin_bswap32(packed) & ~u32(255); }

void ReadStoredAlpha(const KQClip* clip, u32* pixels, size_t count) {
    if (!clip->alphaPremultiplied) {
        if (clip->alphaInvert > 0) InvertRow(pixels, count);
        return;
    }
    Matte matte = MatteOf(clip);
    IsOrdinary(matte) ? UnmatteRow(pixels, count, Flip(clip), matte) : UnmattePlain(pixels, count, Flip(clip), matte);
}

void ReadAlphaRow(const KQClip* clip, u32* pixels, size_t count) {
    switch (clip->alphaMode) {
    case 0: return OpaqueRow(pixels, count);
    case 1: return GreyMatteRow(pixels, count, ColoursOf(clip->backgroundColor));
    case 2: return ReadStoredAlpha(clip, pixels, count);
    default: return;
    }
}

// What goes into the file for a row. Without an alpha channel the source's alpha counts as 0, complemented.
void WriteAlphaRow(const KQClip* clip, const u32* source, u32* target, size_t count) {
    u32 flip = Flip(clip);
    if (clip->alphaMode == 1) return GreyOutRow(target, source, count, flip);
    u32 keep = clip->alphaMode == 0 ? 0 : 255;
    if (clip->alphaMode == 0) flip ^= 255;
    if (!clip->alphaPremultiplied) return CopyAlphaRow(target, source, count, keep, flip);
    Matte matte = MatteOf(clip);
    IsOrdinary(matte) ? MatteRow(target, source, count, keep, flip, matte)
                      : MattePlain(target, source, count, keep, flip, matte);
}

// Pixels that the conversion to a display format works on at a time.
constexpr i32 kPiece = 256;

// A piece of a row in the display's format, straight from its pixels: 16 bits as 5-5-5, else blue, green, red.
void PutNative(const u32* pixels, i32 count, u8* at, i32 depth) {
    for (i32 i = 0; i < count; ++i) {
        u32 v = pixels[i];
        if (depth == 16) {
            u32 word = (v >> 11 & 31) << 10 | (v >> 19 & 31) << 5 | v >> 27;
            at[0] = u8(word);
            at[1] = u8(word >> 8);
            at += 2;
            continue;
        }
        at[0] = u8(v >> 24);
        at[1] = u8(v >> 16);
        at[2] = u8(v >> 8);
        at += depth / 8;
    }
}

}   // namespace

void ReadAlpha(const KQClip* clip, KQBitmap* bitmap, const Area& area) {
    if (area.right <= area.left || area.bottom <= area.top) return;
    struct Work {
        const KQClip* clip;
        KQBitmap* bitmap;
        const Area& area;
        size_t width;
    } all{clip, bitmap, area, size_t(area.right - area.left)};
    auto rows = [](i64 top, i64 bottom, const void* data) {
        auto& work = *static_cast<const Work*>(data);
        u32* first = Row(work.bitmap, i32(work.area.top + top)) + work.area.left;
        if (i64(work.width) * 4 == work.bitmap->rowBytes)
            return ReadAlphaRow(work.clip, first, work.width * size_t(bottom - top));
        for (i64 y = top; y < bottom; ++y)
            ReadAlphaRow(work.clip, Row(work.bitmap, i32(work.area.top + y)) + work.area.left, work.width);
    };
    ShareRows(rows, &all, area.bottom - area.top, i64(all.width) * (area.bottom - area.top) * 4);
}

}   // namespace kq

int Interpret_Alpha(const KQClip* clip, const KQBitmap* source, KQBitmap* target, const KQRectT<long>*) {
    if (!clip || !source || !target || source->depth != 32 || target->depth != 32) return 0;
    struct Work {
        const KQClip* clip;
        const KQBitmap* source;
        KQBitmap* target;
        i32 width;
    } all{clip, source, target, std::min(source->width, target->width)};
    auto rows = [](i64 top, i64 bottom, const void* data) {
        auto& work = *static_cast<const Work*>(data);
        auto write = [&work](i64 y, size_t count) {
            kq::WriteAlphaRow(work.clip, kq::Row(work.source, i32(y)), kq::Row(work.target, i32(y)), count);
        };
        if (work.width * 4 == work.source->rowBytes && work.width * 4 == work.target->rowBytes)
            return write(top, size_t(work.width) * size_t(bottom - top));
        for (i64 y = top; y < bottom; ++y) write(y, size_t(work.width));
    };
    i32 height = std::min(source->height, target->height);
    kq::ShareRows(rows, &all, height, i64(all.width) * height * 4);
    return 1;
}

int Interpret_Alpha(const KQClip* clip, const KQBitmap* source, KQNativeBitmap* target, const KQRectT<long>*) {
    if (!clip || !source || !target || source->depth != 32) return 0;
    if (target->depth != 16 && target->depth != 24 && target->depth != 32) return 0;
    if (clip->alphaMode != 1 && !clip->alphaPremultiplied) {
        CopyBitmapKQ(source, target, 0, 0, -1, -1, 0, 0);
        return 1;
    }
    i32 width = std::min(source->width, target->width), height = std::min(source->height, target->height);
    u32 piece[kq::kPiece];
    for (i32 y = 0; y < height; ++y) {
        u8* row = target->data + target->firstRowOffset + i64(y) * target->rowBytes;
        for (i32 x = 0; x < width; x += kq::kPiece) {
            i32 count = std::min(kq::kPiece, width - x);
            kq::WriteAlphaRow(clip, kq::Row(source, y) + x, piece, size_t(count));
            kq::PutNative(piece, count, row + i64(x) * target->pixelBytes, target->depth);
        }
    }
    return 1;
}
