// Bands of a frame. The frame's record is copied and its data pointer moved along, so that each band of source rows is
// a bitmap like any other.
#define KQ_MODULE "Source/WriteBands"
#include "Source/WriteBands.h"

#include "Source/Alloc.h"
#include "kq/environment.h"
#include "kq/frames.h"

namespace kq {

namespace {

void SetRows(KQBitmap* bitmap, i32 rows) {
    bitmap->height = rows;
    bitmap->dataSize = bitmap->rowBytes * rows;
}

}   // namespace

bool BeginBands(WriteBands* bands, KQClip* clip, const KQBitmap* frame, i32 bytes) {
    *bands = {clip, *frame, *frame, 0};
    bands->band.data = nullptr;
    if (frame->depth != 32 || frame->nativeFlag) {
        KQEnv->Error = KQERR_BADDATA;
        return false;
    }
    i32 rows = frame->rowBytes > 0 ? bytes / frame->rowBytes : 1;
    if (rows > frame->height) rows = frame->height;
    if (rows < 1) rows = 1;
    while (!bands->band.data && rows > 0) {
        bands->mostRows = rows;
        bands->band.data = static_cast<u8*>(KQ_ALLOC(size_t(rows) * size_t(frame->rowBytes) + kBandSlack, 0));
        rows -= 1 + rows / 8;
    }
    return bands->band.data != nullptr;
}

bool NextBand(WriteBands* bands) {
    i32 left = bands->source.height;
    if (left <= 0) return false;
    i32 rows = left < bands->mostRows ? left : bands->mostRows;
    SetRows(&bands->source, rows);
    SetRows(&bands->band, rows);
    Interpret_Alpha(bands->clip, &bands->source, &bands->band, nullptr);
    bands->source.data += bands->source.dataSize;
    SetRows(&bands->source, left - rows);
    return true;
}

void EndBands(WriteBands* bands) {
    KQ_FREE(bands->band.data);
    bands->band.data = nullptr;
}

}   // namespace kq
