// The arithmetic of the sequence dialog. The choice and the rate of the last dialog are remembered for the next.
#define KQ_MODULE "Source/SequenceDialog"
#include "Source/SequenceDialog.h"

#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "kq/filespec.h"
#include "kq/sequence.h"

namespace {

bool loadSequence = true;
f64 lastRate = 0.0;

constexpr f64 kRates[] = {10.0, 15.0, 24.0, 25.0, 29.97, 30.0, 60.0};

// Modifiers that turn a key into something else than an answer.
constexpr u32 kModifierMask = 0x6000;

void TakeSelectedAlone(KQClip* clip, char** selected) {
    loadSequence = false;
    clip->sourceFrames = 1;
    KQ_FREE(clip->frameNumbers);
    clip->frameNumbers = nullptr;
    FreeFileSpecKQ(clip->fileSpec);
    clip->fileSpec = *selected;
    *selected = nullptr;
}

// Cuts the clip down to `count` frames from `first` on. Without memory for their numbers one frame is left.
void CutFrames(KQClip* clip, i32 first, i32 count) {
    if (clip->frameNumbers) {
        std::memmove(clip->frameNumbers, clip->frameNumbers + first, size_t(count) * sizeof(i32));
    } else {
        clip->frameNumbers = static_cast<i32*>(KQ_ALLOC(size_t(count) * sizeof(i32), 0));
        if (clip->frameNumbers)
            for (i32 i = 0; i < count; ++i) clip->frameNumbers[i] = first + i;
        else
            count = 1;
    }
    clip->sourceFrames = count;
}

// A single frame goes by its own name.
void ResolveSingle(KQClip* clip, i32 number) {
    size_t length = std::strlen(clip->fileSpec);
    char* spec = static_cast<char*>(KQ_ALLOC(length + 8, 0));
    if (!spec) return;
    std::memcpy(spec, clip->fileSpec, length + 1);
    SequenceNumber_to_Name_Validate(spec, number);
    FreeFileSpecKQ(clip->fileSpec);
    clip->fileSpec = spec;
}

}   // namespace

namespace kq {

i32 RateEntry(f64 rate) {
    for (i32 i = 0; i < kCustomRate - 1; ++i)
        if (rate == kRates[i]) return i + 1;
    return kCustomRate;
}

SequenceFields OpenSequenceFields(const KQClip* clip) {
    lastRate = clip->sourceRate;
    i32 count = clip->sourceFrames;
    return {loadSequence, 0, count - 1, count, lastRate, RateEntry(lastRate), count};
}

void CommitFirstFrame(SequenceFields* fields, i32 value) {
    fields->first = std::max(std::min(value, fields->count - 1), 0);
    fields->duration = fields->last - fields->first + 1;
}

void CommitLastFrame(SequenceFields* fields, i32 value) {
    fields->last = std::max(std::min(value, fields->count - 1), 0);
    fields->duration = fields->last - fields->first + 1;
}

void CommitDuration(SequenceFields* fields, i32 value) {
    value = std::max(value, 1);
    if (i64(fields->first) + value > fields->count) value = fields->count - fields->first;
    fields->duration = value;
    fields->last = value + fields->first - 1;
}

void PickRate(SequenceFields* fields, i32 entry) {
    fields->rateEntry = entry;
    if (entry >= 1 && entry < kCustomRate) fields->rate = kRates[entry - 1];
}

void CommitRate(SequenceFields* fields, f64 rate) {
    fields->rate = rate;
    fields->rateEntry = RateEntry(rate);
}

DialogKey SequenceDialogKey(u32 key, u32 qualifier) {
    if (qualifier & kModifierMask) return DialogKey::None;
    switch (key) {
    case 310:   // Return
    case 317:   // Enter
    case 'o': return DialogKey::OK;
    case 316:   // Escape
    case 'c': return DialogKey::Cancel;
    default: return DialogKey::None;
    }
}

void AcceptSequence(KQClip* clip, const SequenceFields& fields, char** selected) {
    lastRate = fields.rate;
    if (!fields.wholeSequence) return TakeSelectedAlone(clip, selected);
    loadSequence = true;
    clip->sourceRate = lastRate;
    // Fields may be read while they hold what was typed last and not yet committed.
    i32 most = clip->sourceFrames - 1;
    i32 first = std::clamp(fields.first, 0, most);
    i32 last = std::clamp(fields.last, first, most);
    if (first > 0 || last < most) CutFrames(clip, first, last - first + 1);
    if (clip->sourceFrames != 1) return;
    ResolveSingle(clip, clip->frameNumbers ? clip->frameNumbers[0] : first);
    KQ_FREE(clip->frameNumbers);
    clip->frameNumbers = nullptr;
}

}   // namespace kq
