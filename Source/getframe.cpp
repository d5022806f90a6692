// Frame retrieval: a time becomes pixels in the caller's bitmap.
//
// GetFrameKQ settles which frame and which field is wanted, and whether frames are blended; FetchFrame below it brings
// one frame from a scratch file or through the module, scales it, and does what every frame gets: row filter, alpha,
// margins.
#define KQ_MODULE "Source/getframe"
#include <algorithm>
#include <cstring>
#include <utility>

#include "Source/Alloc.h"
#include "Source/EditList.h"
#include "Source/Frames.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "kq/sequence.h"

namespace kq {

KQTimeValue TimeOr0(const KQClip* clip, const KQTimeValue* time) {
    return time ? *time : KQTimeValue{0.0, clip->frameRate};
}

i32 FrameAt(const KQClip* clip, const KQTimeValue* time) {
    f64 seconds = Seconds(TimeOr0(clip, time)) - Seconds(clip->startTime);
    return TruncateToI32(seconds * clip->frameRate + 1e-7);
}

bool Placement::IsWhole(const KQBitmap* bitmap, i32 clipWidth, i32 clipHeight) const {
    return x == 0 && y == 0 && width == clipWidth && height == clipHeight && bitmap->width == clipWidth &&
           bitmap->height == clipHeight;
}

Placement PlacementOf(const KQRectT<long>* rect, i32 width, i32 height) {
    if (!rect) return {0, 0, width, height};
    // Held to 32 bits, so that sums of a position and a size stay defined.
    auto hold = [](i64 value) { return std::clamp<i64>(value, -0x7FFFFFFF, 0x7FFFFFFF); };
    return {hold(rect->x), hold(rect->y), width, height};
}

Area CoveredArea(const Placement& place, i32 bitmapWidth, i32 bitmapHeight) {
    auto start = [](i64 at) { return i32(std::max<i64>(at, 0)); };
    return {start(-place.x), start(-place.y), i32(std::min<i64>(place.width - place.x, bitmapWidth)),
            i32(std::min<i64>(place.height - place.y, bitmapHeight))};
}

bool IsOnBitmap(const Placement& place, i32 bitmapWidth, i32 bitmapHeight) {
    return -place.x < bitmapWidth && -place.y < bitmapHeight && place.width - place.x > 0 && place.height - place.y > 0;
}

FrameFile::~FrameFile() {
    if (!file_) return;
    clip_->fileSpec = kept_;
    FreeFileSpecKQ(file_);
}

// A copy of the specification with room for the digits that a name without a number form takes.
char* FrameFile::RoomForName() const {
    if (!kept_) return nullptr;
    size_t size = std::strlen(kept_) + 1;
    char* name = static_cast<char*>(KQ_ALLOC(size + 8, KQMEM_Clear));
    if (name) std::memcpy(name, kept_, size);
    return name;
}

bool FrameFile::ForReading(i32 frame) {
    if (clip_->frameNumbers && (frame < 0 || frame >= clip_->sourceFrames)) return false;
    i32 number = clip_->frameNumbers ? clip_->frameNumbers[frame] : frame;
    file_ = RoomForName();
    if (!file_) return false;
    bool found = SequenceNumber_to_Name_Validate(file_, number);
    if (found) clip_->fileSpec = file_;
    return found;
}

bool FrameFile::ForWriting(i32 number) {
    file_ = RoomForName();
    if (!file_) return false;
    bool fits = SequenceNumber_to_Name(file_, number, 0);
    if (fits) clip_->fileSpec = file_;
    return fits;
}

namespace {

// A frame on its way into a bitmap.
struct Fetch {
    KQClip* clip;
    KQBitmap* bitmap;
    const KQRectT<long>* rect;
    Placement place;
    u32 flags;

    int Background(int result) const {
        FillBitmapKQ(bitmap, clip->backgroundColor);
        return result;
    }
    bool IsWhole() const { return place.IsWhole(bitmap, clip->width, clip->height); }
};

// Scales a frame of the clip's own size into its place.
void ScaleIntoPlace(const Fetch& fetch, const KQBitmap* frame) {
    if (fetch.place.width <= 0 || fetch.place.height <= 0) return;
    KQRectT<long> target = {long(-fetch.place.x), long(-fetch.place.y), fetch.place.width, fetch.place.height};
    ScaleBitmapKQ(frame, fetch.bitmap, nullptr, &target);
}

// 1 when the bitmap holds the scratch frame, or the background for want of memory; 0 when there is no such file.
int FetchScratch(const Fetch& fetch, i32 number) {
    if (fetch.IsWhole()) return ReadScratch(fetch.clip, number, fetch.bitmap);
    KQBitmap* frame = AllocBitmapKQ(fetch.clip->width, fetch.clip->height, 32);
    if (!frame) return fetch.Background(1);
    int found = ReadScratch(fetch.clip, number, frame);
    if (found) ScaleIntoPlace(fetch, frame);
    FreeBitmapKQ(frame);
    return found;
}

// The one call of the module; a null `rect` becomes the whole frame.
int CallModule(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect, i32 width, i32 height) {
    KQRectT<long> whole = {0, 0, width, height};
    int done = clip->format->GetFrame &&
               clip->format->GetFrame(clip, bitmap, frame, rect ? rect : &whole, width, height, clip->track);
    if (!done) KQEnv->Error = KQERR_MODULE;
    return done;
}

// Has the module fill a bitmap of the clip's own size, and scales that.
int FetchScaled(const Fetch& fetch, i32 frame) {
    KQClip* clip = fetch.clip;
    KQBitmap* whole = AllocBitmapKQ(clip->width, clip->height, 32);
    if (!whole) return 0;
    FillBitmapKQ(whole, clip->backgroundColor);   // what a cut file or a smaller picture leaves out
    int done = CallModule(clip, whole, frame, nullptr, clip->width, clip->height);
    if (done) ScaleIntoPlace(fetch, whole);
    FreeBitmapKQ(whole);
    return done;
}

int FetchSource(const Fetch& fetch, i32 frame) {
    KQClip* clip = fetch.clip;
    if (!clip->format) return 0;
    u32 properties = GetImportPropertiesKQ(clip->format);
    FrameFile file(clip);
    if (IsSequence(clip, properties)) {
        if (!file.ForReading(frame)) return 0;
        frame = 0;
    }
    if (!(properties & KQFORMAT_SCALES) && !fetch.IsWhole()) return FetchScaled(fetch, frame);
    return CallModule(clip, fetch.bitmap, frame, fetch.rect, fetch.place.width, fetch.place.height);
}

void ClearPixels(KQBitmap* bitmap, i32 y, i32 left, i32 right) {
    if (right > left) std::memset(bitmap->data + i64(y) * bitmap->rowBytes + left * 4, 0, size_t(right - left) * 4);
}

// Makes what the frame does not cover transparent black.
void ClearMargins(KQBitmap* bitmap, const Area& area) {
    bool empty = area.right <= area.left || area.bottom <= area.top;
    for (i32 y = 0; y < bitmap->height; ++y) {
        if (empty || y < area.top || y >= area.bottom) {
            ClearPixels(bitmap, y, 0, bitmap->width);
            continue;
        }
        ClearPixels(bitmap, y, 0, area.left);
        ClearPixels(bitmap, y, area.right, bitmap->width);
    }
}

// What every frame gets once its pixels are there.
void Finish(const Fetch& fetch) {
    if (fetch.flags & (kKeepEvenRows | kKeepOddRows | kSmooth)) FilterRows(fetch.bitmap, fetch.flags);
    Area area = CoveredArea(fetch.place, fetch.bitmap->width, fetch.bitmap->height);
    if (fetch.flags & kReadAlpha) ReadAlpha(fetch.clip, fetch.bitmap, area);
    ClearMargins(fetch.bitmap, area);
}

int FetchMapped(Fetch& fetch, i32 number) {
    if (number < 0) {
        fetch.flags &= ~kReadAlpha;
        if (!FetchScratch(fetch, number)) return fetch.Background(1);
    } else if (!FetchSource(fetch, number)) {
        return fetch.Background(0);
    }
    Finish(fetch);
    return 1;
}

// The source frame that presented frame `frame` of pull-down phase `phase` begins with, and its place in the cadence.
struct Cadence {
    i32 place;
    i32 source;

    Cadence(i32 frame, i32 phase) {
        i64 u = i64(frame) + phase - 1;
        place = i32(u & 3);
        i64 from = (u & 3) + (u >> 2) * 5 - phase + 1;
        source = i32(std::clamp<i64>(from, -0x7FFFFFFF, 0x7FFFFFFE));
    }
};

// Copies every second row from `first` on, half the height of them.
void WeaveRows(const KQBitmap* from, KQBitmap* to, i32 first) {
    for (i32 pair = 0; pair < to->height / 2; ++pair) {
        i64 offset = i64(first + 2 * pair) * to->rowBytes;
        std::memcpy(to->data + offset, from->data + offset, size_t(to->rowBytes));
    }
}

int FetchWoven(const FrameRequest& request, i32 source, KQBitmap* bitmap, u32 flags) {
    KQBitmap* other = AllocBitmapKQ(bitmap->width, bitmap->height, 32);
    if (!other) {
        FillBitmapKQ(bitmap, request.clip->backgroundColor);
        return 0;
    }
    u32 before = std::exchange(KQEnv->Error, KQERR_NONE);
    FetchFrame(request.clip, source, other, flags, request.rect, request.width, request.height);
    u32 error = std::exchange(KQEnv->Error, before);
    FetchFrame(request.clip, source + 1, bitmap, flags, request.rect, request.width, request.height);
    if (error) KQEnv->Error = error;   // a good second half hides no damage of the first
    WeaveRows(other, bitmap, request.clip->fieldOrder == 1 ? 1 : 0);
    FreeBitmapKQ(other);
    return 1;
}

// The row flag of the field that is wanted, or 0 for the whole frame: a request of clearly more than one field gets it.
u32 FieldFlag(const FrameRequest& request) {
    const KQClip* clip = request.clip;
    if (!clip->fieldOrder) return 0;
    f64 half = 1.0 / (2.0 * clip->frameRate);
    if (half != 0.0 && request.duration / half >= 1.02) return 0;
    i32 field = TruncateToI32(2 * (request.time - request.origin) * clip->frameRate + 1e-7);
    bool evenRows = (field & 1) ? clip->fieldOrder == 2 : clip->fieldOrder == 1;
    return evenRows ? kKeepEvenRows : kKeepOddRows;
}

FrameRequest ReadRequest(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration,
                         TagItem* tags) {
    FrameRequest request = {clip, bitmap, nullptr, bitmap->width, bitmap->height, 0.0, 0.0, 0.0};
    if (TagItem* tag = FindTagItem(KQTAG_FRAME_RECT, tags))
        request.rect = reinterpret_cast<const KQRectT<long>*>(tag->Data);
    if (TagItem* tag = FindTagItem(KQTAG_FRAME_WIDTH, tags)) request.width = i32(tag->Data);
    if (TagItem* tag = FindTagItem(KQTAG_FRAME_HEIGHT, tags)) request.height = i32(tag->Data);
    request.time = Seconds(TimeOr0(clip, time));
    request.origin = Seconds(clip->startTime);
    request.duration = Seconds(duration ? *duration : KQTimeValue{1.0, clip->frameRate});
    return request;
}

}   // namespace

int FetchFrame(KQClip* clip, i32 frame, KQBitmap* bitmap, u32 flags, const KQRectT<long>* rect, i32 width, i32 height) {
    if (!clip || !(clip->flags & KQCLIP_IO)) return 0;
    Fetch fetch = {clip, bitmap, rect, PlacementOf(rect, width, height), flags};
    if (!IsOnBitmap(fetch.place, bitmap->width, bitmap->height)) return fetch.Background(1);
    if (frame < 0 || frame >= clip->sourceFrames) return fetch.Background(1);
    i32 number;
    if (!MapFrame(clip, frame, &number)) return fetch.Background(1);
    return FetchMapped(fetch, number);
}

int FetchPresented(const FrameRequest& request, i32 frame, KQBitmap* bitmap, u32 flags) {
    KQClip* clip = request.clip;
    if (!clip->pullDown) return FetchFrame(clip, frame, bitmap, flags, request.rect, request.width, request.height);
    Cadence cadence(frame, clip->pullDown);
    if (cadence.place == 3) return FetchWoven(request, cadence.source, bitmap, flags);
    return FetchFrame(clip, cadence.source, bitmap, flags, request.rect, request.width, request.height);
}

}   // namespace kq

int GetFrameKQ(KQClip* clip, KQBitmap* bitmap, const KQTimeValue* time, const KQTimeValue* duration, TagItem* tags) {
    if (!clip || !(clip->flags & KQCLIP_IO) || !bitmap || bitmap->depth != 32) return 0;
    kq::FrameRequest request = kq::ReadRequest(clip, bitmap, time, duration, tags);
    if (clip->flags & KQCLIP_BLEND)
        return clip->fieldOrder && !clip->pullDown ? kq::BlendByFields(request) : kq::BlendByFrames(request);
    i32 frame = kq::FrameAt(clip, time);
    if (clip->pullDown) return kq::FetchPresented(request, frame, bitmap, kq::kReadAlpha);
    return kq::FetchFrame(clip, frame, bitmap, kq::kReadAlpha | kq::FieldFlag(request), request.rect, request.width,
                          request.height);
}
