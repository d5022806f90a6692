// The edit list: which source or scratch frame each presented frame is.
//
// The list is an array of runs in presented order, public in the clip's record. Nothing here looks at files or pixels.
// A list of up to 256 runs is walked; a longer one is found through an index of the frames before every 16th run, which
// hangs on the clip and is made again when the list has changed. A call that changes the list returns 0 with the list
// unchanged when memory runs out or no run holds the frame.
#pragma once

#include "kq/clip.h"
#include "kq/types.h"

namespace kq {

// Where a presented frame lies in the list.
struct EditPlace {
    i32 run;
    i32 offset;   // frames from the start of the run
};

// Finds the run that holds `frame`, whatever the source's length; false when there is none or no list.
bool FindRun(KQClip* clip, i32 frame, EditPlace* place);

// The source frame (0 or above) or scratch frame (below 0) that presented frame `frame` is; itself without a list, and
// at or past the source's end. False when no run holds it, or it is negative.
bool MapFrame(KQClip* clip, i32 frame, i32* number);

// Whether SetFrame can give `frame` a number.
bool HoldsFrame(KQClip* clip, i32 frame);

// Makes presented frame `frame` the frame `number`, splitting its run, and compacts.
int SetFrame(KQClip* clip, i32 frame, i32 number);

// Takes presented frame `frame` out.
int RemoveFrame(KQClip* clip, i32 frame);

// Put a new frame `number` behind, or before, presented frame `frame`. Behind the first frame of a run other than the
// first run, the new frame lands behind that whole run.
int InsertBehind(KQClip* clip, i32 frame, i32 number);
int InsertBefore(KQClip* clip, i32 frame, i32 number);

// The number of the frame `steps` behind `start` in a run: scratch frames count downward.
constexpr i32 Advance(i32 start, i32 steps) {
    return start >= 0 ? i32(u32(start) + u32(steps)) : i32(u32(start) - u32(steps));
}

}   // namespace kq
