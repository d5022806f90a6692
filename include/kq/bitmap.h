// The portable image: pixel access, fills, copies and point scaling.
//
// A 32-bit pixel is four bytes in memory, alpha, red, green, blue; alpha is straight, 255 opaque. An 8-bit bitmap
// holds one plain byte a pixel. Rows follow each other without padding, the top row first. No call tests pointers or
// bounds unless it says so; a bitmap has no lock.
#pragma once

#include "kq/rect.h"
#include "kq/types.h"

struct KQNativeBitmap;

// Four 16-bit channels. An 8-bit channel widens by repeating its byte and narrows by taking the top byte.
struct KQRGB {
    u16 red, green, blue, alpha;
};

// Four channels, nominally 0.0 to 1.0.
struct KQFloatRGB {
    f64 red, green, blue, alpha;
};

struct KQBitmap {
    i32 width;            // pixels a row
    i32 height;           // rows
    i32 depth;            // bits a pixel: 32 or 8
    i32 rowBytes;         // bytes from a row to the next: width * pixelBytes
    i32 pixelBytes;       // depth / 8
    u8* data;             // the pixels; owned, or a view of shared memory
    i32 firstRowOffset;   // bytes from data to the top row: 0 here
    i32 dataSize;         // rowBytes * height
    i32 nativeFlag;       // 0 here, 1 in a KQNativeBitmap
    f64* ByteToUnit;      // the environment's table of i / 255
    void* sharedHandle;   // the mapping of a shared bitmap, else null
};

// A bitmap of `width` x `height` pixels, `depth` 32 or 8, with undefined pixels. Null for another depth, for a size
// that is negative or does not fit the record, and when out of memory; no error code is set for a wrong depth. A size
// of zero is legal.
KQ_API KQBitmap* AllocBitmapKQ(i32 width, i32 height, i32 depth);

// The same in memory that other processes map by `name`; a name that exists already gives the same memory, which must
// be large enough.
KQ_API KQBitmap* AllocSharedBitmapKQ(i32 width, i32 height, i32 depth, const char* name);

// Releases either kind; null is ignored.
KQ_API void FreeBitmapKQ(KQBitmap* bitmap);

// Reads a pixel. At 8 bits only `red` is written.
KQ_API void ReadPixelKQ(const KQBitmap* bitmap, i32 x, i32 y, KQRGB* colour);

// Writes a pixel from the top bytes. At 8 bits the top byte of `red` is stored as a 32-bit word, so that the three
// bytes behind it become 0 (cut at the end of the block): such a plane is written left to right, top to bottom.
KQ_API void WritePixelKQ(KQBitmap* bitmap, i32 x, i32 y, const KQRGB* colour);

// Reads a pixel as channels of 0.0 to 1.0. At 8 bits only `red` is written.
KQ_API void ReadFloatPixelKQ(const KQBitmap* bitmap, i32 x, i32 y, KQFloatRGB* colour);

// Writes truncate(0.5 + value * 255) of each channel, of which the low 8 bits are kept: a value above 1.0 wraps. At 8
// bits the byte comes from `alpha`.
KQ_API void WriteFloatPixelKQ(KQBitmap* bitmap, i32 x, i32 y, const KQFloatRGB* colour);

// Fills with the packed colour 0xAARRGGBB; an 8-bit bitmap with its lowest byte.
KQ_API void FillBitmapKQ(KQBitmap* bitmap, u32 colour);

// Sets the alpha of every pixel of a 32-bit bitmap to the low byte of `alpha`; other depths are left alone.
KQ_API void FillAlphaKQ(KQBitmap* bitmap, u32 alpha);

// Sets the first byte of every pixel of `rect` to the low byte of `value`, at either depth. The rectangle must lie in
// the bitmap; an empty one does nothing.
KQ_API void FillAlphaRectKQ(KQBitmap* bitmap, u32 value, const KQRectT<long>* rect);

// Copies width x height pixels from (sourceX, sourceY) to (targetX, targetY). A negative width or height means the
// source's whole. A negative target position moves to 0 and is added to the source position and also to the size. The
// size is then cut at the target's right and bottom edge; the caller keeps the rectangle in the source's columns, and
// rows and blocks are cut at the end of the source's memory. Bitmaps of equal size copied whole take a block copy
// without regard to depth; otherwise unlike depths, and depths other than 32 and 8, copy nothing.
KQ_API void CopyBitmapKQ(const KQBitmap* source, KQBitmap* target, i32 sourceX, i32 sourceY, i32 width, i32 height,
                         i32 targetX, i32 targetY);

// Resamples `sourceRect` into `targetRect` by point sampling in 16.16 fixed point, without filter or rounding. Null
// rectangles mean the whole bitmap. `targetRect` is clipped by the target; `sourceRect` must lie in the source. Both
// bitmaps have 32 or both 8 bits, else nothing happens; a target size of 0 or below does nothing.
KQ_API void ScaleBitmapKQ(const KQBitmap* source, KQBitmap* target, const KQRectT<long>* sourceRect,
                          const KQRectT<long>* targetRect);
