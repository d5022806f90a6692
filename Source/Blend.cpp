// Frames resampled in time: the request's interval as a weighted sum of the frames, or of the fields, that it meets.
//
// Weights are worked out as doubles in a fixed order and cut to 16 bits once a frame; products are cut, sums wrap in 8
// bits, and alpha is blended like the colours.
#define KQ_MODULE "Source/Blend"
#include <algorithm>

#include "Source/Frames.h"
#include "Source/Parallel.h"
#include "Source/RowFilter.h"
#include "kq/environment.h"

namespace kq {

namespace {

// An interval of presented time in frames.
struct Interval {
    f64 start, end, span, scale;
    i32 first, last;

    // The request's, at least `least` seconds long.
    Interval(const FrameRequest& request, f64 least);

    // Also when a rate or time is no number.
    bool IsTooShort() const { return !(span >= 0.05); }
};

Interval::Interval(const FrameRequest& request, f64 least) {
    f64 rate = request.clip->frameRate;
    f64 length = std::max(request.duration, least);
    start = std::max((request.time - request.origin) * rate, 0.0);
    end = std::min((request.time + length - request.origin) * rate, f64(request.clip->frameCount));
    first = TruncateToI32(start + 1e-7);
    last = TruncateToI32(end + 1e-7);
    span = end - start;
    scale = 1.0 / span;
}

// The weight in 16 bits. What a rate or time that makes no sense gives is held to 0 to one.
Weight Cut(f64 weight) { return Weight(std::clamp(TruncateToI32(weight * 65536.0), 0, 65536)); }

// BlendRows over a whole bitmap, on all processors where it is large. The sources lie in bitmaps of the same size.
void BlendShared(const KQBitmap& target, const u8* const* sources, const Weight* weights, int count) {
    struct Work {
        const KQBitmap& target;
        const u8* const* sources;
        const Weight* weights;
        int count;
    } all{target, sources, weights, count};
    auto rows = [](i64 top, i64 bottom, const void* data) {
        auto& work = *static_cast<const Work*>(data);
        i64 start = top * work.target.rowBytes;
        const u8* parts[kMostBlended];
        for (int k = 0; k < work.count; ++k) parts[k] = work.sources[k] + start;
        BlendRows(work.target.data + start, parts, work.weights, work.count,
                  size_t((bottom - top) * work.target.rowBytes));
    };
    ShareRows(rows, &all, target.height, i64(target.width) * target.height * 4);
}

// The target of a blend by frames with the frames that wait to be added to it. Frames are summed several at a time,
// since a pass over memory costs as much as the frames that it reads.
class FrameSum {
public:
    explicit FrameSum(const FrameRequest& request) : request_(request), target_(request.bitmap) {}
    ~FrameSum();

    // Makes the one work bitmap that is needed; more are taken as they come.
    bool Begin() { return NextBitmap() != nullptr; }

    // The first frame, which goes into the target.
    void Set(i32 frame, f64 weight);
    void Add(i32 frame, f64 weight);
    void Finish();

private:
    KQBitmap* NextBitmap();

    const FrameRequest& request_;
    KQBitmap* target_;
    KQBitmap* work_[kMostBlended - 1] = {};
    Weight weights_[kMostBlended] = {};
    int waiting_ = 0;   // work bitmaps that hold a frame
};

FrameSum::~FrameSum() {
    for (KQBitmap* bitmap : work_) FreeBitmapKQ(bitmap);
}

// The bitmap for the next frame; null when all are taken or memory is short, which is no failure but for the first.
KQBitmap* FrameSum::NextBitmap() {
    if (waiting_ == kMostBlended - 1) return nullptr;
    KQBitmap*& bitmap = work_[waiting_];
    u32 error = KQEnv->Error;
    if (!bitmap) bitmap = AllocBitmapKQ(target_->width, target_->height, 32);
    if (!bitmap && waiting_ > 0) KQEnv->Error = error;
    return bitmap;
}

void FrameSum::Set(i32 frame, f64 weight) {
    FetchPresented(request_, frame, target_, kReadAlpha);
    weights_[0] = Cut(weight);
}

void FrameSum::Add(i32 frame, f64 weight) {
    KQBitmap* bitmap = NextBitmap();
    if (!bitmap) {
        Finish();
        bitmap = NextBitmap();
    }
    FetchPresented(request_, frame, bitmap, kReadAlpha);
    weights_[++waiting_] = Cut(weight);
}

void FrameSum::Finish() {
    const u8* sources[kMostBlended] = {target_->data};
    for (int i = 0; i < waiting_; ++i) sources[i + 1] = work_[i]->data;
    if (waiting_ > 0 || weights_[0] != 65536) BlendShared(*target_, sources, weights_, waiting_ + 1);
    weights_[0] = 65536;
    waiting_ = 0;
}

int TooShort(const FrameRequest& request) {
    FillBitmapKQ(request.bitmap, request.clip->backgroundColor);
    return 0;
}

// The weights of a frame's two fields, the first shown one first.
struct FieldWeights {
    f64 first, second;
};

FieldWeights FirstFrameWeights(const Interval& interval) {
    f64 fraction = interval.start - interval.first;
    f64 whole = interval.first != interval.last ? 1.0 : interval.end - interval.last;
    FieldWeights weights;
    if (fraction >= 0.5) {
        weights = {0.0, whole - fraction};
    } else {
        weights = {0.5 - fraction, whole - 0.5};
        if (whole < 0.5) weights.first -= 0.5 - whole;
    }
    return {std::max(weights.first, 0.0) * interval.scale, std::max(weights.second, 0.0) * interval.scale};
}

FieldWeights LastFrameWeights(f64 tail, f64 scale) {
    if (tail >= 0.5) return {0.5 * scale, (tail - 0.5) * scale};
    return {tail * scale, 0.0};
}

using FieldRowLoop = void (*)(u8* target, const FieldRow& from, size_t bytes);

// Mixes each row of `work` with the interpolation of its neighbours, which belong to the other field.
void MixFields(const FrameRequest& request, const KQBitmap* work, const FieldWeights& fields, FieldRowLoop loop) {
    Weight even = Cut(fields.first), odd = Cut(fields.second);
    if (request.clip->fieldOrder == 2) std::swap(even, odd);
    KQBitmap* target = request.bitmap;
    i32 last = work->height - 1;
    for (i32 y = 0; y <= last; ++y) {
        auto row = [work](i32 at) { return work->data + i64(at) * work->rowBytes; };
        const u8* above = row(y > 0 ? y - 1 : std::min(y + 1, last));
        const u8* below = row(y < last ? y + 1 : std::max(y - 1, 0));
        FieldRow from = {above, row(y), below, y & 1 ? odd : even, y & 1 ? even : odd};
        loop(target->data + i64(y) * target->rowBytes, from, size_t(target->rowBytes));
    }
}

void BlendFields(const FrameRequest& request, const Interval& interval, KQBitmap* work) {
    auto fetch = [&](i32 frame) { FetchPresented(request, frame, work, kReadAlpha); };
    fetch(interval.first);
    MixFields(request, work, FirstFrameWeights(interval), SetFieldRow);
    for (i32 frame = interval.first + 1; frame < interval.last; ++frame) {
        fetch(frame);
        MixFields(request, work, {interval.scale * 0.5, interval.scale * 0.5}, AddFieldRow);
    }
    f64 tail = interval.end - interval.last;
    if (interval.first == interval.last || !(tail * interval.scale > 0.01)) return;
    fetch(interval.last);
    MixFields(request, work, LastFrameWeights(tail, interval.scale), AddFieldRow);
}

}   // namespace

int BlendByFrames(const FrameRequest& request) {
    FrameSum sum(request);
    if (!sum.Begin()) return 0;
    Interval interval(request, 1.0 / request.clip->frameRate);
    if (interval.IsTooShort()) return TooShort(request);
    f64 share = interval.first == interval.last ? interval.span : 1.0 - (interval.start - interval.first);
    sum.Set(interval.first, share * interval.scale);
    for (i32 frame = interval.first + 1; frame < interval.last; ++frame) sum.Add(frame, interval.scale);
    f64 tail = (interval.end - interval.last) * interval.scale;
    if (interval.first != interval.last && tail > 0.01) sum.Add(interval.last, tail);
    sum.Finish();
    return 1;
}

int BlendByFields(const FrameRequest& request) {
    KQBitmap* work = AllocBitmapKQ(request.bitmap->width, request.bitmap->height, 32);
    if (!work) return 0;
    Interval interval(request, 1.0 / (2.0 * request.clip->frameRate));
    bool tooShort = interval.IsTooShort();
    if (!tooShort) BlendFields(request, interval, work);
    FreeBitmapKQ(work);
    return tooShort ? TooShort(request) : 1;
}

}   // namespace kq
