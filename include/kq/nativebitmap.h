// The image that the display can show: bottom row first, bytes blue, green, red, at 16, 24 or 32 bits.
#pragma once

#include "kq/bitmap.h"
#include "kq/types.h"

// The header that a device-independent bitmap carries, as the display's drawing calls take it.
struct KQBitmapHeader {
    u32 size;          // 40
    i32 width;
    i32 height;        // positive: bottom row first
    u16 planes;        // 1
    u16 bitCount;      // depth
    u32 compression;   // 0
    u32 imageSize;     // dataSize
    i32 xPelsPerMeter, yPelsPerMeter;   // 0
    u32 coloursUsed, coloursImportant;  // 0
};

static_assert(sizeof(KQBitmapHeader) == 40);

// The leading fields are those of KQBitmap, so that one address formula serves both: the pixel at (x, y) lies at
// data + firstRowOffset + y * rowBytes + x * pixelBytes.
struct KQNativeBitmap {
    i32 width, height;
    i32 depth;             // 16 (5 bits a channel, blue lowest), 24 or 32 (the fourth byte is unused)
    i32 rowBytes;          // minus the stride, which is the row's size rounded up to a multiple of four
    i32 pixelBytes;        // depth / 8
    u8* data;              // start of the block
    i32 firstRowOffset;    // dataSize - stride
    i32 dataSize;          // stride * height
    i32 nativeFlag;        // 1
    u16 ownership;         // bit 0x100: record and pixels are not the library's to free
    KQBitmapHeader header;
    void* sectionHandle;   // of a bitmap that is also a drawing target; null in plain memory
};
