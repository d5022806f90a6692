// The image that the display can show: bottom row first, bytes blue, green, red, at 16, 24 or 32 bits.
//
// A native bitmap in plain memory is drawn through the display's service for device-independent bitmaps; one made by
// AllocDDBitmapKQ is also a drawing target. Nothing here is locked; drawing belongs to the thread of InitKQ. No pixel
// call tests pointers or bounds.
#pragma once

#include "kq/bitmap.h"
#include "kq/draw.h"
#include "kq/types.h"

// The header that a device-independent bitmap carries, as the display's drawing calls take it.
struct KQBitmapHeader {
    u32 size;   // 40
    i32 width;
    i32 height;                          // positive: bottom row first
    u16 planes;                          // 1
    u16 bitCount;                        // depth
    u32 compression;                     // 0
    u32 imageSize;                       // dataSize
    i32 xPelsPerMeter, yPelsPerMeter;    // 0
    u32 coloursUsed, coloursImportant;   // 0
};

static_assert(sizeof(KQBitmapHeader) == 40);

// The bit of KQNativeBitmap::ownership that marks a record and pixels that are not the library's to free.
inline constexpr u16 KQNB_NotOurs = 0x100;

// The leading fields are those of KQBitmap, so that one address formula serves both: the pixel at (x, y) lies at
// data + firstRowOffset + y * rowBytes + x * pixelBytes.
struct KQNativeBitmap {
    i32 width, height;
    i32 depth;            // 16 (5 bits a channel, blue lowest), 24 or 32 (the fourth byte is unused)
    i32 rowBytes;         // minus the stride, which is the row's size rounded up to a multiple of four
    i32 pixelBytes;       // depth / 8
    u8* data;             // start of the block
    i32 firstRowOffset;   // dataSize - stride
    i32 dataSize;         // stride * height
    i32 nativeFlag;       // 1
    u16 ownership;        // KQNB_NotOurs, or 0
    KQBitmapHeader header;
    void* sectionHandle;   // of a bitmap that is also a drawing target; null in plain memory
};

// A native bitmap in plain memory, pixels undefined. `depth` is 8, 16, 24 or 32; 33 gives an empty record, whatever
// the size, for the caller to fill. Null for another depth, for a size that is negative or does not fit the record, and
// when out of memory.
KQ_API KQNativeBitmap* AllocNativeBitmapKQ(i32 width, i32 height, i32 depth);

// A native bitmap that the display can also draw into, at the depth of SuggestedDepthKQ; the third argument is not
// used. Null when the size is 0, negative or too large, or when the display refuses.
KQ_API KQNativeBitmap* AllocDDBitmapKQ(i32 width, i32 height, i32 depth);

// Releases either kind. Null, and a record that carries KQNB_NotOurs, are ignored.
KQ_API void FreeBitmapKQ(KQNativeBitmap* bitmap);

// Non-zero when the bitmap is one of AllocDDBitmapKQ.
KQ_API i32 ConvertDDBitmapKQ(const KQNativeBitmap* bitmap);

// The screen's size in pixels and its bits a pixel; each pointer may be null. Also asks the display for its support of
// device-independent bitmaps, and reports a refusal to DebugMessage.
KQ_API void GetDisplayFormatKQ(i32* width, i32* height, i32* depth);

// The depth that native bitmaps should have: the screen's, or 24 on an 8-bit screen.
KQ_API i32 SuggestedDepthKQ();

// Draws the whole bitmap at (x, y) of the draw context, pixel for pixel.
KQ_API void DrawBitmapKQ(KQDrawInfo* draw, const KQNativeBitmap* bitmap, i32 x, i32 y);

// Draws a rectangle of the bitmap stretched to a rectangle of the draw context. For a bitmap in plain memory, negative
// positions move to 0 and shorten their size, and nothing is drawn when a size comes out 0 or below.
KQ_API void StretchBitmapKQ(KQDrawInfo* draw, const KQNativeBitmap* bitmap, i32 sourceX, i32 sourceY, i32 sourceWidth,
                            i32 sourceHeight, i32 x, i32 y, i32 width, i32 height);

// A native bitmap, as of AllocDDBitmapKQ, with the image resource `id` of the library. Null when there is none or
// memory is short. The caller frees it.
KQ_API KQNativeBitmap* GetImageKQ(i32 id);

// Reads a pixel; alpha is 0xFFFF. At 16 bits each channel's 5 bits are the top of its byte; the low bits of green hold
// the top 3 bits of blue. At 8 bits only `red` is written.
KQ_API void ReadPixelKQ(const KQNativeBitmap* bitmap, i32 x, i32 y, KQRGB* colour);

// Writes a pixel from the top bytes, at 16 bits from the top 5 bits of each channel, at 8 bits from red. Alpha and a
// fourth byte are left alone.
KQ_API void WritePixelKQ(KQNativeBitmap* bitmap, i32 x, i32 y, const KQRGB* colour);

// Reads a pixel as channels of 0.0 to 1.0 from the same bytes as ReadPixelKQ; alpha is 1.0. At 8 bits only `red` is
// written.
KQ_API void ReadFloatPixelKQ(const KQNativeBitmap* bitmap, i32 x, i32 y, KQFloatRGB* colour);

// Writes truncate(0.5 + value * 255) of each channel, of which the low 8 bits are kept, into the same places as
// WritePixelKQ.
KQ_API void WriteFloatPixelKQ(KQNativeBitmap* bitmap, i32 x, i32 y, const KQFloatRGB* colour);

// Fills with the packed colour 0xAARRGGBB, without its alpha. At 8 bits every byte becomes the red one. At 32 bits the
// fourth byte becomes 0. At 16 bits, and there alone, red and blue trade places. Row padding is left alone, except at
// 8 bits.
KQ_API void FillBitmapKQ(KQNativeBitmap* bitmap, u32 colour);

// Copies from a 32-bit portable bitmap, clipped as between portable ones; another source does nothing. At 16 bits each
// channel's top 5 bits are kept; at 32 bits the fourth byte is left alone. A target of 8 bits stays as it is.
KQ_API void CopyBitmapKQ(const KQBitmap* source, KQNativeBitmap* target, i32 sourceX, i32 sourceY, i32 width,
                         i32 height, i32 targetX, i32 targetY);

// Copies to a 32-bit portable bitmap, clipped likewise; another target, or a source of 8 bits, does nothing. Alpha
// becomes 255. From 16 bits the low 3 bits of each channel are 0.
KQ_API void CopyBitmapKQ(const KQNativeBitmap* source, KQBitmap* target, i32 sourceX, i32 sourceY, i32 width,
                         i32 height, i32 targetX, i32 targetY);

// Copies width x height pixels between native bitmaps, as they are between equal depths, else through bytes (16 bits
// widen with low bits 0; a fourth byte is left alone). A negative width or height means the source's. The rectangles
// are not clipped: the caller keeps both inside, and rows are only cut at the end of either bitmap's memory. Here and in
// every other copy and scaling, the padding of a source's rows is never read: what would come from it leaves the target
// alone.
KQ_API void CopyBitmapKQ(const KQNativeBitmap* source, KQNativeBitmap* target, i32 x, i32 y, i32 width, i32 height,
                         i32 targetX, i32 targetY);

// The same, limited to the pixels whose place in the source lies in `rect`; null is the whole source.
KQ_API void CopyBitmapKQ(const KQNativeBitmap* source, KQNativeBitmap* target, const KQRectT<long>* rect, i32 x, i32 y,
                         i32 width, i32 height, i32 targetX, i32 targetY);

// Scales between native bitmaps of 16, 24 or 32 bits, as ScaleBitmapKQ does between portable ones; a fourth byte is
// left alone, bit 15 of a 16-bit pixel becomes 0.
KQ_API void ScaleBitmapKQ(const KQNativeBitmap* source, KQNativeBitmap* target, const KQRectT<long>* sourceRect,
                          const KQRectT<long>* targetRect);

// Scales a 32-bit portable bitmap into a native one of 16, 24 or 32 bits; another target does nothing. Alpha is
// dropped, a fourth byte is left alone.
KQ_API void ScaleBitmapKQ(const KQBitmap* source, KQNativeBitmap* target, const KQRectT<long>* sourceRect,
                          const KQRectT<long>* targetRect);

// Scales a native bitmap of 24 or 32 bits into a 32-bit portable one, alpha 255; another target does nothing. A 16-bit
// source gives wrong colours, since three bytes are read at every pixel: convert it with CopyBitmapKQ first.
KQ_API void ScaleBitmapKQ(const KQNativeBitmap* source, KQBitmap* target, const KQRectT<long>* sourceRect,
                          const KQRectT<long>* targetRect);
