// The portable image.
#define KQ_MODULE "Source/Bitmap"
#include "kq/bitmap.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/SizeGate.h"
#include "kq/environment.h"

KQBitmap* AllocBitmapKQ(i32 width, i32 height, i32 depth) {
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
    bitmap->data = static_cast<u8*>(KQ_ALLOC(size_t(bitmap->dataSize), 0));
    if (bitmap->data) return bitmap;
    KQ_FREE(bitmap);
    return nullptr;
}

void FreeBitmapKQ(KQBitmap* bitmap) {
    if (!bitmap) return;
    KQ_FREE(bitmap->data);
    KQ_FREE(bitmap);
}

void FillBitmapKQ(KQBitmap* bitmap, u32 colour) {
    if (bitmap->depth == 8) {
        std::memset(bitmap->data, int(colour & 255), size_t(bitmap->dataSize));
        return;
    }
    u32 word = __builtin_bswap32(colour);
    for (i32 i = 0; i < bitmap->dataSize / 4; ++i) std::memcpy(bitmap->data + i * 4, &word, 4);
}
