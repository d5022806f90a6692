// Native bitmaps: allocation in plain memory, release, single pixels and fills.
#define KQ_MODULE "PcSource/Pcbitmap"
#include "kq/nativebitmap.h"

#include <cstring>

#include "PcSource/NativeRecord.h"
#include "Source/Alloc.h"
#include "Source/ByteRows.h"
#include "Source/Channels.h"
#include "Source/Pixels.h"
#include "Source/SizeGate.h"
#include "pal/display.h"

namespace {

constexpr i32 kEmptyRecord = 33;
constexpr f64 kByteToUnit = 0.00392156862745098;

u8* PixelAt(const KQNativeBitmap* bitmap, i32 x, i32 y) {
    return bitmap->data + (bitmap->firstRowOffset + i64(y) * bitmap->rowBytes + i64(x) * bitmap->pixelBytes);
}

// The bytes of a pixel as the readers see them. Green of 16 bits keeps three bits of blue in its low end.
kq::Bytes3 ColourAt(const KQNativeBitmap* bitmap, const u8* pixel) {
    if (bitmap->depth != 16) return {pixel[2], pixel[1], pixel[0]};
    u32 word = u32(pixel[0]) | u32(pixel[1]) << 8;
    return {kq::Red555(word), u8(word >> 2), kq::Blue555(word)};
}

void StoreColour(const KQNativeBitmap* bitmap, u8* pixel, kq::Bytes3 colour) {
    if (bitmap->depth == 8) {
        pixel[0] = colour.red;
    } else if (bitmap->depth == 16) {
        u16 word = kq::Pack555(colour.red, colour.green, colour.blue);
        std::memcpy(pixel, &word, 2);
    } else {
        pixel[0] = colour.blue;
        pixel[1] = colour.green;
        pixel[2] = colour.red;
    }
}

}   // namespace

namespace kq {

void SetNativeFormat(KQNativeBitmap* bitmap, i32 width, i32 height, i32 depth) {
    bitmap->width = width;
    bitmap->height = height;
    bitmap->depth = depth;
    bitmap->pixelBytes = depth / 8;
    i32 stride = i32((i64(width) * depth / 8 + 3) & ~i64(3));
    bitmap->rowBytes = -stride;
    bitmap->dataSize = stride * height;
    bitmap->firstRowOffset = bitmap->dataSize - stride;
    bitmap->nativeFlag = 1;
    bitmap->header = {sizeof(KQBitmapHeader), width, height, 1, u16(depth), 0, u32(bitmap->dataSize), 0, 0, 0, 0};
}

}   // namespace kq

KQNativeBitmap* AllocNativeBitmapKQ(i32 width, i32 height, i32 depth) {
    if (depth == kEmptyRecord) return KQ_NEW(KQNativeBitmap);
    bool known = depth == 8 || depth == 16 || depth == 24 || depth == 32;
    if (!known || !kq::SizeFits(width, height, depth)) return nullptr;
    KQNativeBitmap* bitmap = KQ_NEW(KQNativeBitmap);
    if (!bitmap) return nullptr;
    kq::SetNativeFormat(bitmap, width, height, depth);
    bitmap->data = static_cast<u8*>(KQ_ALLOC(size_t(bitmap->dataSize), 0));
    if (bitmap->data) return bitmap;
    KQ_FREE(bitmap);
    return nullptr;
}

void FreeBitmapKQ(KQNativeBitmap* bitmap) {
    if (!bitmap || (bitmap->ownership & KQNB_NotOurs)) return;
    if (bitmap->sectionHandle)
        pal::DeleteDisplayBitmap(bitmap->sectionHandle);
    else
        KQ_FREE(bitmap->data);
    KQ_FREE(bitmap);
}

void ReadPixelKQ(const KQNativeBitmap* bitmap, i32 x, i32 y, KQRGB* colour) {
    const u8* pixel = PixelAt(bitmap, x, y);
    if (bitmap->depth == 8) {
        colour->red = kq::Widen(pixel[0]);
        return;
    }
    kq::Bytes3 bytes = ColourAt(bitmap, pixel);
    *colour = {kq::Widen(bytes.red), kq::Widen(bytes.green), kq::Widen(bytes.blue), 0xFFFF};
}

void WritePixelKQ(KQNativeBitmap* bitmap, i32 x, i32 y, const KQRGB* colour) {
    StoreColour(bitmap, PixelAt(bitmap, x, y), {u8(colour->red >> 8), u8(colour->green >> 8), u8(colour->blue >> 8)});
}

void ReadFloatPixelKQ(const KQNativeBitmap* bitmap, i32 x, i32 y, KQFloatRGB* colour) {
    const u8* pixel = PixelAt(bitmap, x, y);
    if (bitmap->depth == 8) {
        colour->red = pixel[0] * kByteToUnit;
        return;
    }
    kq::Bytes3 bytes = ColourAt(bitmap, pixel);
    *colour = {bytes.red * kByteToUnit, bytes.green * kByteToUnit, bytes.blue * kByteToUnit, 1.0};
}

void WriteFloatPixelKQ(KQNativeBitmap* bitmap, i32 x, i32 y, const KQFloatRGB* colour) {
    StoreColour(bitmap, PixelAt(bitmap, x, y),
                {kq::UnitToByte(colour->red), kq::UnitToByte(colour->green), kq::UnitToByte(colour->blue)});
}

void FillBitmapKQ(KQNativeBitmap* bitmap, u32 colour) {
    // An empty bitmap has no top row to start from.
    if (bitmap->width <= 0 || bitmap->height <= 0) return;
    u8 red = u8(colour >> 16), green = u8(colour >> 8), blue = u8(colour);
    if (bitmap->depth == 8) {
        std::memset(bitmap->data, red, size_t(bitmap->dataSize));
        return;
    }
    // Red and blue trade places at 16 bits.
    u16 word = kq::Pack555(blue, green, red);
    u8 bytes[4] = {blue, green, red, 0};
    const void* pixel = bitmap->depth == 16 ? static_cast<const void*>(&word) : bytes;
    kq::FillPixelRows(PixelAt(bitmap, 0, 0), bitmap->rowBytes, i64(bitmap->width) * bitmap->pixelBytes, bitmap->height,
                      static_cast<const u8*>(pixel), bitmap->pixelBytes);
}
