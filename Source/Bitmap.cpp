// The portable image: allocation, single pixels and fills.
#define KQ_MODULE "Source/Bitmap"
#include "kq/bitmap.h"

#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/BitmapCopy.h"
#include "Source/ByteRows.h"
#include "Source/Channels.h"
#include "Source/SizeGate.h"
#include "kq/environment.h"
#include "pal/memory.h"

namespace {

// A record with every field but the pixels.
KQBitmap* NewRecord(i32 width, i32 height, i32 depth) {
    if ((depth != 32 && depth != 8) || !kq::SizeFits(width, height, depth)) return nullptr;
    KQBitmap* bitmap = KQ_NEW(KQBitmap);
    if (!bitmap) return nullptr;
    bitmap->width = width;
    bitmap->height = height;
    bitmap->depth = depth;
    bitmap->pixelBytes = depth / 8;
    bitmap->rowBytes = width * bitmap->pixelBytes;
    bitmap->dataSize = bitmap->rowBytes * height;
    bitmap->ByteToUnit = KQEnv->ByteToUnit;
    return bitmap;
}

u8* PixelAt(const KQBitmap* bitmap, i32 x, i32 y) {
    return bitmap->data + (i64(y) * bitmap->rowBytes + i64(x) * bitmap->pixelBytes);
}

}   // namespace

KQBitmap* AllocBitmapKQ(i32 width, i32 height, i32 depth) {
    KQBitmap* bitmap = NewRecord(width, height, depth);
    if (!bitmap) return nullptr;
    bitmap->data = static_cast<u8*>(KQ_ALLOC(size_t(bitmap->dataSize), 0));
    if (bitmap->data) return bitmap;
    KQ_FREE(bitmap);
    return nullptr;
}

KQBitmap* AllocSharedBitmapKQ(i32 width, i32 height, i32 depth, const char* name) {
    KQBitmap* bitmap = NewRecord(width, height, depth);
    if (!bitmap) return nullptr;
    void* view = nullptr;
    bitmap->sharedHandle = pal::SharedOpen(name, size_t(bitmap->dataSize), &view);
    bitmap->data = static_cast<u8*>(view);
    if (bitmap->sharedHandle) return bitmap;
    KQ_FREE(bitmap);
    return nullptr;
}

void FreeBitmapKQ(KQBitmap* bitmap) {
    if (!bitmap) return;
    if (bitmap->sharedHandle)
        pal::SharedClose(bitmap->sharedHandle);
    else
        KQ_FREE(bitmap->data);
    KQ_FREE(bitmap);
}

void ReadPixelKQ(const KQBitmap* bitmap, i32 x, i32 y, KQRGB* colour) {
    const u8* pixel = PixelAt(bitmap, x, y);
    if (bitmap->depth == 8) {
        colour->red = kq::Widen(pixel[0]);
        return;
    }
    *colour = {kq::Widen(pixel[1]), kq::Widen(pixel[2]), kq::Widen(pixel[3]), kq::Widen(pixel[0])};
}

void WritePixelKQ(KQBitmap* bitmap, i32 x, i32 y, const KQRGB* colour) {
    u8* pixel = PixelAt(bitmap, x, y);
    if (bitmap->depth == 8) {
        u8 word[4] = {u8(colour->red >> 8), 0, 0, 0};
        i64 room = bitmap->data + bitmap->dataSize - pixel;
        std::memcpy(pixel, word, size_t(std::clamp<i64>(room, 0, 4)));
        return;
    }
    pixel[0] = u8(colour->alpha >> 8);
    pixel[1] = u8(colour->red >> 8);
    pixel[2] = u8(colour->green >> 8);
    pixel[3] = u8(colour->blue >> 8);
}

void ReadFloatPixelKQ(const KQBitmap* bitmap, i32 x, i32 y, KQFloatRGB* colour) {
    const u8* pixel = PixelAt(bitmap, x, y);
    const f64* unit = bitmap->ByteToUnit;
    if (bitmap->depth == 8) {
        colour->red = unit[pixel[0]];
        return;
    }
    *colour = {unit[pixel[1]], unit[pixel[2]], unit[pixel[3]], unit[pixel[0]]};
}

void WriteFloatPixelKQ(KQBitmap* bitmap, i32 x, i32 y, const KQFloatRGB* colour) {
    u8* pixel = PixelAt(bitmap, x, y);
    pixel[0] = kq::UnitToByte(colour->alpha);
    if (bitmap->depth == 8) return;
    pixel[1] = kq::UnitToByte(colour->red);
    pixel[2] = kq::UnitToByte(colour->green);
    pixel[3] = kq::UnitToByte(colour->blue);
}

void FillBitmapKQ(KQBitmap* bitmap, u32 colour) {
    if (bitmap->depth == 8) {
        kq::FillBlock(bitmap->data, bitmap->dataSize, (colour & 255) * 0x01010101u);
        return;
    }
    kq::FillBlock(bitmap->data, bitmap->dataSize, __builtin_bswap32(colour));
}

void FillAlphaKQ(KQBitmap* bitmap, u32 alpha) {
    if (bitmap->depth != 32) return;
    kq::FillFirstBytes(bitmap->data, bitmap->dataSize / 4, u8(alpha));
}

void FillAlphaRectKQ(KQBitmap* bitmap, u32 value, const KQRectT<long>* rect) {
    kq::FillFirstBytes(kq::BlockOf(*bitmap), *rect, u8(value));
}
