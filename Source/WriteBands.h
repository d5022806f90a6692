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
    u8* out;           // room for what the format makes of a band, in the band's block
    i32 mostRows;
};

// What a walk needs of memory.
struct BandNeeds {
    i32 bytes;                         // of a band, about; whole rows and at least `leastRows`
    i32 leastRows = 1;                 // or all rows of a lower frame
    size_t outFixed = 0, outRow = 0;   // of `out`: in any case, and a row of the band
};

// Prepares the walk over `frame`; when memory is short, with bands of fewer rows, whose room for output shrinks with
// them. False with `Error` set when the frame is no 32-bit bitmap or there is no memory for the least rows.
bool BeginBands(WriteBands* bands, KQClip* clip, const KQBitmap* frame, const BandNeeds& needs);

// Fills bands->band with the next rows; false at the end.
bool NextBand(WriteBands* bands);

// Frees the band; harmless after a BeginBands that failed.
void EndBands(WriteBands* bands);

}   // namespace kq
