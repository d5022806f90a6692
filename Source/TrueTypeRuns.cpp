// One pass over the flags of a simple glyph: where the steps begin, whether all are there, and what the contours come
// to.
#include "Source/TrueTypeRuns.h"

namespace kq::truetype {

namespace {

constexpr size_t kMoveBytes = 24, kLineBytes = 24, kCurveBytes = 56, kCloseBytes = 8;

size_t StepBytes(u32 flag, u32 isShort, u32 isSame) { return flag & isShort ? 1 : flag & isSame ? 0 : 2; }

// Walks the flags, and counts the bytes of the steps behind them.
class FlagWalk {
public:
    FlagWalk(const Table& glyph, size_t at) : glyph_(glyph), at_(at) {}

    // The next point's flag; false when the glyph ends before it.
    bool Next(u32* flag) {
        if (repeat_ > 0) {
            --repeat_;
        } else {
            if (at_ == glyph_.size) return false;
            flag_ = glyph_.data[at_++];
            if (flag_ & kRepeat) {
                if (at_ == glyph_.size) return false;
                repeat_ = glyph_.data[at_++];
            }
        }
        xBytes_ += StepBytes(flag_, kShortX, kSameX);
        yBytes_ += StepBytes(flag_, kShortY, kSameY);
        *flag = flag_;
        return true;
    }

    // Tells where the steps are; false when they are not, or a flag is repeated behind the last point.
    bool Finish(Runs* runs) const {
        if (repeat_ > 0 || !glyph_.Has(at_, xBytes_ + yBytes_)) return false;
        runs->xs = glyph_.data + at_;
        runs->ys = runs->xs + xBytes_;
        return true;
    }

private:
    const Table& glyph_;
    size_t at_;
    size_t xBytes_ = 0, yBytes_ = 0;
    u32 flag_ = 0;
    u32 repeat_ = 0;
};

// Adds what a contour of `count` points comes to. Two points on the curve in a row are joined by a line, the last and
// the first among them; every other point controls a curve, unless it is alone.
bool CountContour(FlagWalk& walk, u32 count, size_t* bytes) {
    u32 flag, lines = 0, on = 0, first = 0, previous = 0;
    for (u32 i = 0; i < count; ++i) {
        if (!walk.Next(&flag)) return false;
        u32 isOn = flag & kOnCurve;
        if (i == 0) first = isOn;
        lines += previous & isOn;
        on += isOn;
        previous = isOn;
    }
    lines += previous & first;
    if (count > 1 || on) *bytes += kMoveBytes + lines * kLineBytes + (count - on) * kCurveBytes + kCloseBytes;
    return true;
}

}   // namespace

bool FindRuns(const Table& glyph, Runs* runs) {
    if (!glyph.Has(0, kGlyphHead)) return false;
    *runs = {};
    runs->contours = glyph.U16(0);
    if (runs->contours == 0) return true;
    size_t at = kGlyphHead + runs->contours * size_t(2);
    if (!glyph.Has(at, 2)) return false;
    runs->ends = glyph.data + kGlyphHead;
    at += 2 + size_t(glyph.U16(at));
    if (at > glyph.size) return false;
    runs->flags = glyph.data + at;
    FlagWalk walk(glyph, at);
    for (u32 i = 0; i < runs->contours; ++i) {
        u32 past = Big16(runs->ends + i * 2) + 1u;
        if (past < runs->points) return false;
        if (past > runs->points && !CountContour(walk, past - runs->points, &runs->bytes)) return false;
        runs->points = past;
    }
    return walk.Finish(runs);
}

}   // namespace kq::truetype
