// Bands of a frame. The frame's record is copied and its data pointer moved along, so that each band of source rows is
// a bitmap like any other.
#define KQ_MODULE "Source/WriteBands"
#include "Source/WriteBands.h"

#include <algorithm>

#include "Source/Alloc.h"
#include "kq/environment.h"
#include "kq/frames.h"

namespace kq {

namespace {

void SetRows(KQBitmap* bitmap, i32 rows) {
    bitmap->height = rows;
    bitmap->dataSize = bitmap->rowBytes * rows;
}

// Whether a file holds the frame's pixels unchanged, as far as the format looks at them.
bool IsStoredAsItIs(const WriteBands* bands) {
    const KQClip* clip = bands->clip;
    if (clip->alphaPremultiplied) return false;
    if (clip->alphaMode == 0) return !bands->alphaIsUsed;
    return clip->alphaMode == 2 && (clip->alphaInvert <= 0 || !bands->alphaIsUsed);
}

}   // namespace

bool BeginBands(WriteBands* bands, KQClip* clip, const KQBitmap* frame, const BandNeeds& needs) {
    *bands = {clip, *frame, *frame, nullptr, nullptr, 0, needs.alphaIsUsed};
    bands->band.data = nullptr;
    if (frame->depth != 32 || frame->nativeFlag) {
        KQEnv->Error = KQERR_BADDATA;
        return false;
    }
    i32 least = std::max(1, std::min(needs.leastRows, frame->height));
    i32 rows = frame->rowBytes > 0 ? needs.bytes / frame->rowBytes : 1;
    rows = std::max(least, std::min(rows, frame->height));
    for (; !bands->band.data && rows >= least; rows -= 1 + rows / 64) {
        bands->mostRows = rows;
        size_t band = size_t(rows) * size_t(frame->rowBytes) + kBandSlack;
        size_t block = band + needs.outFixed + size_t(rows) * needs.outRow;
        bands->band.data = static_cast<u8*>(KQ_ALLOC(block, 0));
        bands->out = bands->band.data + band;
    }
    return bands->band.data != nullptr;
}

bool NextBand(WriteBands* bands) {
    i32 left = bands->source.height;
    if (left <= 0) return false;
    i32 rows = left < bands->mostRows ? left : bands->mostRows;
    SetRows(&bands->source, rows);
    SetRows(&bands->band, rows);
    bands->rows = bands->source.data;
    i64 behind = i64(left - rows) * bands->source.rowBytes;
    if (behind < kBandSlack || !IsStoredAsItIs(bands)) {
        Interpret_Alpha(bands->clip, &bands->source, &bands->band, nullptr);
        bands->rows = bands->band.data;
    }
    bands->source.data += bands->source.dataSize;
    SetRows(&bands->source, left - rows);
    return true;
}

void EndBands(WriteBands* bands) {
    KQ_FREE(bands->band.data);
    bands->band.data = nullptr;
}

}   // namespace kq
