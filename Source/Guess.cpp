// Guesses at how a clip was made, from its pixels: 3:2 pull-down from how combed its frames are, and the kind of its
// alpha from what stands where the alpha is at its ends.
#define KQ_MODULE "Source/Guess"
#include <cmath>
#include <cstring>

#include "Source/AlphaSurvey.h"
#include "Source/RowFilter.h"
#include "kq/bitmap.h"
#include "kq/environment.h"
#include "kq/frames.h"

namespace {

constexpr i32 kWindow = 20;
constexpr int kCadences = 5;

// Which positions modulo 5 are combed, for each phase; of equals the first is taken.
constexpr u8 kCombed[kCadences] = {0x18, 0x0C, 0x06, 0x03, 0x11};

// Opens a closed clip and begins input for a guess, and ends what it began.
class GuessInput {
public:
    explicit GuessInput(KQClip* clip) : clip_(clip) {}
    ~GuessInput() { End(); }
    GuessInput(const GuessInput&) = delete;
    GuessInput& operator=(const GuessInput&) = delete;

    bool Open() {
        if (clip_->flags & KQCLIP_OPEN) return true;
        opened_ = OpenClipKQ(clip_, nullptr);
        return opened_;
    }

    bool Begin() {
        if (clip_->flags & KQCLIP_IO) return true;
        begun_ = BeginClipIOKQ(clip_, nullptr);
        return begun_;
    }

    // What a failed guess left in `Error` stays there.
    void End() {
        u32 error = KQEnv->Error;
        if (begun_) EndClipIOKQ(clip_, nullptr);
        if (opened_) CloseClipKQ(clip_);
        if (begun_ || opened_) KQEnv->Error = error;
        begun_ = opened_ = false;
    }

private:
    KQClip* clip_;
    bool opened_ = false, begun_ = false;
};

const u8* Row(const KQBitmap* bitmap, i32 y) { return bitmap->data + i64(y) * bitmap->rowBytes; }

// Source frame `frame` in full.
int FetchWhole(KQClip* clip, i32 frame, KQBitmap* bitmap) {
    KQTimeValue time = {f64(frame), clip->sourceRate}, duration = {1.0, clip->sourceRate};
    return GetFrameKQ(clip, bitmap, &time, &duration, nullptr);
}

// How much each even row differs from the odd row below it: high for a frame whose fields come from two film frames.
// The last row of an odd height has no partner.
f64 CombMeasure(const KQBitmap* bitmap) {
    u64 sum = 0;
    for (i32 y = 0; y + 1 < bitmap->height; y += 2)
        sum += kq::ColourDifference(Row(bitmap, y), Row(bitmap, y + 1), size_t(bitmap->width));
    return f64(sum) / (f64(bitmap->height) * bitmap->width * 3.0);
}

u64 FieldDifference(const KQBitmap* one, const KQBitmap* other, i32 firstRow) {
    u64 sum = 0;
    for (i32 y = firstRow; y < one->height; y += 2)
        sum += kq::ColourDifference(Row(one, y), Row(other, y), size_t(one->width));
    return sum;
}

// A stretch of frames that is examined for a cadence.
struct Window {
    KQClip* clip;
    KQBitmap* bitmap;
    i32 first, count;
    f64 measures[kWindow];

    bool Measure();
    bool HasSpread(f64 mean) const;
    i32 Agreement(u8 combed, f64 mean) const;
    i32 MostCombed(i32 candidate) const;
    void SettleDominance(i32 position) const;
    i32 Phase();
};

bool Window::Measure() {
    for (i32 i = 0; i < count; ++i) {
        if (!FetchWhole(clip, first + i, bitmap)) return false;
        measures[i] = CombMeasure(bitmap);
    }
    return true;
}

bool Window::HasSpread(f64 mean) const {
    f64 least = measures[0], greatest = measures[0];
    for (i32 i = 1; i < count; ++i) {
        least = std::fmin(least, measures[i]);
        greatest = std::fmax(greatest, measures[i]);
    }
    return std::fabs(mean - least) >= 0.5 && std::fabs(mean - greatest) >= 0.5;
}

i32 Window::Agreement(u8 combed, f64 mean) const {
    i32 agreeing = 0;
    for (i32 i = 0; i < count; ++i) {
        bool high = combed >> (i % kCadences) & 1;
        agreeing += high ? measures[i] > mean : measures[i] < mean;
    }
    return agreeing;
}

// Of the frames at `candidate` and every fifth behind it, but not the window's first, the most combed; 0 with none.
i32 Window::MostCombed(i32 candidate) const {
    i32 position = 0;
    for (i32 i = candidate; i < count; i += kCadences)
        if (i > 0 && (position == 0 || measures[i] > measures[position])) position = i;
    return position;
}

// Sets fieldOrder: the field that is repeated in a combed frame differs less from the frame before it.
void Window::SettleDominance(i32 position) const {
    clip->fieldOrder = 1;
    KQBitmap* before = AllocBitmapKQ(clip->width, clip->height, 32);
    if (!before) return;
    if (FetchWhole(clip, first + position, bitmap) && FetchWhole(clip, first + position - 1, before) &&
        FieldDifference(bitmap, before, 1) <= FieldDifference(bitmap, before, 0))
        clip->fieldOrder = 2;
    FreeBitmapKQ(before);
}

// The phase that the window shows, 1 to 5, with the dominance set; 0 for none.
i32 Window::Phase() {
    if (count <= 0 || !Measure()) return 0;
    f64 sum = 0.0;
    for (i32 i = 0; i < count; ++i) sum += measures[i];
    f64 mean = sum / count;
    if (!HasSpread(mean)) return 0;

    i32 best = 0, most = -1;
    for (i32 cadence = 0; cadence < kCadences; ++cadence) {
        i32 agreement = Agreement(kCombed[cadence], mean);
        if (agreement <= most) continue;
        most = agreement;
        best = cadence;
    }
    if (most <= count * 7 / 10) return 0;
    SettleDominance(MostCombed(best <= 3 ? 3 - best : 8 - best));
    i32 phase = best + 1 - first % kCadences;
    return phase < 1 ? phase + kCadences : phase;
}

// Examines up to three windows until one shows a phase.
i32 FindPhase(KQClip* clip, KQBitmap* bitmap) {
    i32 frames = clip->sourceFrames;
    auto phaseFrom = [&](i32 first, i32 count) {
        Window window = {clip, bitmap, first, count, {}};
        return window.Phase();
    };
    i32 phase = phaseFrom(0, frames < kWindow ? frames : kWindow);
    if (!phase && frames >= 2 * kWindow) phase = phaseFrom(frames / 2, kWindow);
    if (!phase && frames >= 3 * kWindow) phase = phaseFrom(frames - kWindow, kWindow);
    return phase;
}

// The clip with its frames as the source has them, and back. The two bits of its input are not this record's.
struct PlainPresentation {
    KQClip* clip;
    KQClip kept;

    explicit PlainPresentation(KQClip* given) : clip(given), kept(*given) {
        clip->flags &= ~u32(KQCLIP_BLEND);
        clip->pullDown = 0;
    }
    void RestoreFlags() {
        constexpr u32 input = KQCLIP_OPEN | KQCLIP_IO;
        clip->flags = (clip->flags & input) | (kept.flags & ~input);
    }
};

int GuessPhase(KQClip* clip, KQBitmap* bitmap) {
    GuessInput input(clip);
    if (!input.Open()) return 0;
    PlainPresentation plain(clip);
    clip->frameRate = clip->sourceRate = clip->nativeRate;
    clip->fieldOrder = 0;
    i32 phase = input.Begin() ? FindPhase(clip, bitmap) : 0;
    input.End();
    plain.RestoreFlags();
    clip->frameRate = plain.kept.frameRate;
    clip->sourceRate = plain.kept.sourceRate;
    clip->pullDown = plain.kept.pullDown;
    if (!phase) clip->fieldOrder = plain.kept.fieldOrder;
    return phase;
}

// Fetches the first frame with its alpha as it is stored.
int FetchStored(KQClip* clip, KQBitmap* bitmap) {
    GuessInput input(clip);
    if (!input.Open() || !input.Begin()) return 0;
    PlainPresentation plain(clip);
    clip->alphaMode = 2;
    clip->alphaInvert = clip->alphaPremultiplied = 0;
    int done = FetchWhole(clip, 0, bitmap);
    plain.RestoreFlags();
    clip->alphaMode = plain.kept.alphaMode;
    clip->alphaInvert = plain.kept.alphaInvert;
    clip->alphaPremultiplied = plain.kept.alphaPremultiplied;
    clip->pullDown = plain.kept.pullDown;
    return done;
}

void SetAlpha(KQClip* clip, i32 mode, i32 invert, i32 premultiplied) {
    clip->alphaMode = mode;
    clip->alphaInvert = invert;
    clip->alphaPremultiplied = premultiplied;
}

// Takes the colour shared by most pixels at one end of the alpha for the matte, when all pixels fit it.
void JudgeMatte(KQClip* clip, const u32* pixels, size_t count, u32 colour, i32 invert) {
    bool fits = kq::FitsMatte(pixels, count, colour, invert != 0);
    SetAlpha(clip, 2, invert, fits);
    if (!fits) return;
    constexpr f64 unit = 0.00392156862745098;
    clip->matteColor.red = (colour >> 8 & 255) * unit;
    clip->matteColor.green = (colour >> 16 & 255) * unit;
    clip->matteColor.blue = (colour >> 24) * unit;
}

void JudgeAlpha(KQClip* clip, const KQBitmap* bitmap) {
    auto pixels = reinterpret_cast<const u32*>(bitmap->data);
    size_t count = size_t(bitmap->dataSize) / 4;
    kq::AlphaSurvey survey = kq::SurveyAlpha(pixels, count);
    if (survey.zeros.count == count || survey.ones.count == count) return SetAlpha(clip, 0, 0, 0);
    if (survey.zeros.Shared()) return JudgeMatte(clip, pixels, count, survey.zeros.word, 0);
    if (!survey.ones.Shared()) return SetAlpha(clip, 2, 0, 0);
    JudgeMatte(clip, pixels, count, survey.ones.word, 1);
}

}   // namespace

int GuessPullDownKQ(KQClip* clip) {
    if (!clip) return 0;
    KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
    if (!bitmap) return 0;
    i32 phase = GuessPhase(clip, bitmap);
    FreeBitmapKQ(bitmap);
    if (!phase) return 0;
    SetClipOptionsKQ(clip, KQTAG_CLIP_PULLDOWN, phase, 0);
    return 1;
}

int GuessAlphaKQ(KQClip* clip) {
    if (!clip) return 0;
    if (clip->depth != 32) {
        SetAlpha(clip, 0, 0, 0);
        return 1;
    }
    KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
    if (!bitmap) return 0;
    int done = FetchStored(clip, bitmap);
    if (done) JudgeAlpha(clip, bitmap);
    FreeBitmapKQ(bitmap);
    return done;
}
