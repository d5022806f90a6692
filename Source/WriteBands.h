// The rows of a frame on their way to a file, in bands that stay in the cache, with the alpha that the file shall hold.
// Where that is the frame's own, a format reads the frame itself; it writes over the band's memory alone.
#pragma once

#include "kq/bitmap.h"
#include "kq/clip.h"

namespace kq {

// Bytes of a band that may be read behind its pixels.
inline constexpr i32 kBandSlack = 512;

struct WriteBands {
    KQClip* clip;
    KQBitmap source;   // a view of the frame's rows that are still to come
    KQBitmap band;     // as large as the present rows; its memory is owned
    const u8* rows;    // the present rows, band.rowBytes apart: the band's memory or the frame's
    u8* out;           // room for what the format makes of a band, in the band's block
    i32 mostRows;
    bool alphaIsUsed;
};

// What a walk needs of memory.
struct BandNeeds {
    i32 bytes;                         // of a band, about; whole rows and at least `leastRows`
    i32 leastRows = 1;                 // or all rows of a lower frame
    bool alphaIsUsed = true;           // false: the format takes the colours alone
    size_t outFixed = 0, outRow = 0;   // of `out`: in any case, and a row of the band
};

// Prepares the walk over `frame`; when memory is short, with bands of fewer rows, whose room for output shrinks with
// them. False with `Error` set when the frame is no 32-bit bitmap or there is no memory for the least rows.
bool BeginBands(WriteBands* bands, KQClip* clip, const KQBitmap* frame, const BandNeeds& needs);

// Goes to the next rows; false at the end. kBandSlack bytes behind them may be read.
bool NextBand(WriteBands* bands);

// Frees the band; harmless after a BeginBands that failed.
void EndBands(WriteBands* bands);

}   // namespace kq
