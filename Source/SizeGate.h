// The one gate for sizes: what a caller or a file claims passes here before anything is allocated for it.
#pragma once

#include "kq/types.h"

namespace kq {

// Most pixels of a frame that a file may claim.
inline constexpr i64 kMostFramePixels = i64(1) << 28;

// Whether width x height pixels of `depth` bits, rows rounded up to 4 bytes, fit the 32-bit words of a bitmap record.
// Negative sizes do not; 0 does.
constexpr bool SizeFits(i64 width, i64 height, i64 depth) {
    if (width < 0 || height < 0 || width > 0x7FFFFFFF || height > 0x7FFFFFFF) return false;
    i64 row = (width * depth / 8 + 3) & ~i64(3);
    return row <= 0x7FFFFFFF && (height == 0 || row <= 0x7FFFFFFF / height);
}

// Frames up to this size are taken at a file's word even where the file is cut short; larger ones only when the file is
// long enough to hold one.
inline constexpr i64 kTrustedFramePixels = i64(1) << 24;

// Whether a file of `fileLength` bytes can justify `frames` frames of width x height pixels that take at least
// `frameBytes` bytes each in the file (0: unknown, the frames' size alone is looked at).
constexpr bool FileClaimIsSane(i64 width, i64 height, i64 frames, i64 frameBytes, i64 fileLength) {
    if (width <= 0 || height <= 0 || frames < 0 || frameBytes < 0) return false;
    if (width > 32767 || height > 32767 || width * height > kMostFramePixels) return false;
    return frameBytes == 0 || frames <= fileLength / frameBytes;
}

// Whether a file of `fileLength` bytes may claim frames of width x height pixels, one of which takes at least
// `leastBytes` bytes when it is whole.
constexpr bool FrameClaimIsSane(i64 width, i64 height, i64 leastBytes, i64 fileLength) {
    if (!FileClaimIsSane(width, height, 1, 0, fileLength)) return false;
    return width * height <= kTrustedFramePixels || leastBytes <= fileLength;
}

// Whether a frame of this size may be written: what a reader's gate would refuse later is refused before it is lost.
constexpr bool FrameMayBeWritten(i64 width, i64 height) {
    return width <= 32767 && height <= 32767 && width * height <= kMostFramePixels;
}

}   // namespace kq
