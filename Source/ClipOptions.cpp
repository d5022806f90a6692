// What can be set on a clip: interpretation, size and rates by tags, the option block by the module's dialog, and the
// name that a new file of the clip gets.
#define KQ_MODULE "Source/Clip"
#include <cmath>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Formats.h"
#include "kq/clip.h"
#include "kq/environment.h"

namespace {

struct Size {
    i32 width, height;
};

// `n` as scaleMode reduces it, for both sides; the plain value where a side would vanish.
Size Reduced(const KQClip* clip, i32 n) {
    Size size = {n, n};
    if (clip->scaleMode >= 1 && clip->scaleMode <= 3) size.width = size.height = n / (1 << clip->scaleMode);
    if (clip->scaleMode == 4) size = {clip->nativeWidth, clip->nativeHeight};
    return size.width == 0 || size.height == 0 ? Size{n, n} : size;
}

void SetWidth(KQClip* clip, i32 n) {
    Size size = Reduced(clip, n);
    clip->width = size.width;
    if (clip->nativeWidth == 0) clip->nativeWidth = size.width;
}

// An unset nativeHeight takes the width's side, which is another only in scaleMode 4.
void SetHeight(KQClip* clip, i32 n) {
    Size size = Reduced(clip, n);
    clip->height = size.height;
    if (clip->nativeHeight == 0) clip->nativeHeight = size.width;
}

template <class T>
void TakeValue(T* field, uptr data) {
    if (data) *field = *reinterpret_cast<const T*>(data);
}

void SetOption(KQClip* clip, const TagItem& item) {
    switch (item.Tag) {
    case KQTAG_CLIP_RATE: TakeValue(&clip->frameRate, item.Data); break;
    case KQTAG_CLIP_FIELDS: clip->fieldOrder = i32(item.Data); break;
    case KQTAG_CLIP_PULLDOWN: clip->pullDown = i32(item.Data); break;
    case KQTAG_CLIP_ALPHA: clip->alphaMode = i32(item.Data); break;
    case KQTAG_CLIP_ALPHA_INVERT: clip->alphaInvert = i32(item.Data); break;
    case KQTAG_CLIP_PREMULTIPLIED: clip->alphaPremultiplied = i32(item.Data); break;
    case KQTAG_CLIP_MATTE: TakeValue(&clip->matteColor, item.Data); break;
    case KQTAG_CLIP_ASPECT: TakeValue(&clip->pixelAspect, item.Data); break;
    case KQTAG_CLIP_WIDTH: SetWidth(clip, i32(item.Data)); break;
    case KQTAG_CLIP_HEIGHT: SetHeight(clip, i32(item.Data)); break;
    }
}

constexpr f64 kSameRate = 0.0001;

// Frames left of the last, incomplete group of five source frames in the given phase.
i32 RestOfPhase(i32 phase, i32 rest) {
    bool loses = (phase == 1 && rest > 3) || (phase == 2 && rest > 2) || (phase == 3 && rest >= 2);
    return loses ? rest - 1 : rest;
}

void RemovePullDown(KQClip* clip, bool rateGiven) {
    if (std::fabs(clip->frameRate / clip->sourceRate - 0.8) <= kSameRate) return;
    if (rateGiven)
        clip->sourceRate = clip->frameRate * 1.25;
    else {
        clip->sourceRate = clip->nativeRate;
        clip->frameRate = clip->nativeRate * 0.8;
    }
    clip->frameCount = clip->sourceFrames / 5 * 4 + RestOfPhase(clip->pullDown, clip->sourceFrames % 5);
}

void KeepPullDown(KQClip* clip, bool rateGiven) {
    if (std::fabs(clip->sourceRate - clip->frameRate) <= kSameRate) return;
    if (rateGiven)
        clip->sourceRate = clip->frameRate;
    else
        clip->frameRate = clip->sourceRate = clip->nativeRate;
    clip->frameCount = clip->sourceFrames;
}

// Appends the letters of an extension code; returns the new end.
char* AppendExtension(char* at, u32 code) {
    *at++ = '.';
    for (int shift = 24; shift >= 0 && u8(code >> shift); shift -= 8) *at++ = char(code >> shift);
    *at = 0;
    return at;
}

}   // namespace

void SetClipOptionsKQ(KQClip* clip, TagItem* tags) {
    if (!clip) return;
    TagItem* cursor = tags;
    while (TagItem* item = NextTagItem(&cursor)) SetOption(clip, *item);
    if (!FindTagItem(KQTAG_CLIP_PULLDOWN, tags)) return;
    bool rateGiven = FindTagItem(KQTAG_CLIP_RATE, tags) != nullptr;
    if (clip->pullDown != 0)
        RemovePullDown(clip, rateGiven);
    else
        KeepPullDown(clip, rateGiven);
}

void ClipOptionsKQ(KQClip* clip) {
    if (!clip || !clip->format || !clip->format->ClipOptions) return;
    KQFormatDesc* module = clip->format;
    if (!clip->options && module->defaultOptions) {
        clip->options = kq::CopyOptions(module->defaultOptions);
        if (!clip->options) return;
    }
    module->ClipOptions(clip);
    KQClipOptions* chosen = kq::CopyOptions(clip->options);
    if (!chosen) return;
    KQ_FREE(module->defaultOptions);
    module->defaultOptions = chosen;
}

void MakeDefaultClipNameKQ(KQClip* clip, const char* baseName, char* result) {
    *result = 0;
    if (!clip || !clip->format) return;
    if (baseName) std::strcpy(result, baseName);
    if (clip->frameCount >= 2 && !(GetExportPropertiesKQ(clip) & KQFORMAT_MULTIFRAME)) std::strcat(result, "[#####]");
    if (clip->format->importExtCount >= 1) AppendExtension(result + std::strlen(result), clip->format->importExts[0]);
}
