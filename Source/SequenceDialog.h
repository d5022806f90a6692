// The dialog "Image Sequence Detected" without its palette: what its fields hold, what they do to each other, which
// keys end it, and what OK does to the clip. The palette only shows these fields and calls these functions.
#pragma once

#include "kq/clip.h"

namespace kq {

// Entries of the pop-up of rates: 1 to 7 stand for 10, 15, 24, 25, 29.97, 30 and 60 frames a second, 8 for any other.
inline constexpr i32 kCustomRate = 8;

// The fields. Frames are indices into the sequence that was found.
struct SequenceFields {
    bool wholeSequence;   // "Load Image Sequence", against "Load Selected Image Only"
    i32 first, last;
    i32 duration;
    f64 rate;
    i32 rateEntry;
    i32 count;   // frames of the sequence

    // The sequence's own fields follow the choice above them.
    bool OptionsEnabled() const { return wholeSequence; }
};

// What the dialog opens with: the choice of the last time, the clip's rate and all its frames.
SequenceFields OpenSequenceFields(const KQClip* clip);

// A committed field takes effect on the others.
void CommitFirstFrame(SequenceFields* fields, i32 value);
void CommitLastFrame(SequenceFields* fields, i32 value);
void CommitDuration(SequenceFields* fields, i32 value);

// The pop-up sets the rate, "Custom" leaves it; and a typed rate sets the pop-up.
void PickRate(SequenceFields* fields, i32 entry);
void CommitRate(SequenceFields* fields, f64 rate);

// The entry whose rate this is exactly, or kCustomRate.
i32 RateEntry(f64 rate);

enum class DialogKey { None, OK, Cancel };

// What a key does to the dialog; with a modifier held down it does nothing.
DialogKey SequenceDialogKey(u32 key, u32 qualifier);

// OK: the fields become the clip's. `*selected` is the specification of the file that was opened; when the clip gets it
// back it is null afterwards, otherwise it stays the caller's.
void AcceptSequence(KQClip* clip, const SequenceFields& fields, char** selected);

}   // namespace kq
