// The rows of a frame on their way to a file, in bands that stay in the cache: each band is a bitmap of its own with
// the alpha that the file shall hold, which the format may change in place.
#pragma once

#include "kq/bitmap.h"
#include "kq/clip.h"

namespace kq {

// Bytes of a band that may be read behind its pixels.
inline constexpr i32 kBandSlack = 512;

struct WriteBands {
    KQClip* clip;
    KQBitmap source;   // a view of the frame's rows that are still to come
    KQBitmap band;     // the present rows; owned
    i32 mostRows;
};

// Prepares the walk over `frame` with bands of about `bytes` bytes, whole rows and at least one; when memory is short,
// of fewer rows. False with `Error` set when the frame is no 32-bit bitmap or there is no memory for a row.
bool BeginBands(WriteBands* bands, KQClip* clip, const KQBitmap* frame, i32 bytes);

// Fills bands->band with the next rows; false at the end.
bool NextBand(WriteBands* bands);

// Frees the band; harmless after a BeginBands that failed.
void EndBands(WriteBands* bands);

}   // namespace kq
