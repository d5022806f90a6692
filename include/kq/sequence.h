// Image sequences: numbered files of one folder as the frames of one clip.
//
// A sequence name is a file name in which the digits of the number are replaced by `[`, one `#` a digit, and `]`:
// `shot0010.tga` becomes `shot[####].tga`. The number is the longest run of digits of the whole name, extension
// included, and of equal runs the first. Where a path is passed, its folders are left alone.
//
// Two sequence names belong together when they are equal without regard to the case of ASCII letters, whatever the
// number of `#`: frames 8, 9 and 10 fall into one sequence.
//
// All calls are for the library's own thread.
#pragma once

#include "kq/tags.h"
#include "kq/types.h"

struct KQClip;

// Looks at the neighbours of the clip's file and makes the clip a sequence when there are any: `fileSpec` becomes the
// sequence name with the widest number that the folder holds, `sourceFrames` the count of the files and `frameNumbers`
// their numbers, ascending, or null when they are 0, 1, 2 and so on. Non-zero when the clip is fit to use, whether it
// became a sequence or not; 0 with `Error` 1 when out of memory, and then the clip is to be freed. With
// KQTAG_CLIP_SINGLE the clip stays one picture and the folder is not read.
KQ_API int Sequence_Check(KQClip* clip, TagItem* tags);

// Non-zero when the name, or the path, holds a `[`, any `#` (also none) and a `]` in a row.
KQ_API int Is_Sequence(const char* name);

// The `#` of the name's first complete form; 0 when there is none. The `#` behind each `[` of failed attempts in front
// of it count as well: `a[##b[###].tga` gives 5.
KQ_API i32 Sequence_Digits(const char* name);

// Rewrites a bare file name in place to its sequence name; 0, with the name left alone, when it has no digit. The
// buffer needs two bytes more than the name.
KQ_API int FileName_to_SequenceName(char* name);

// The number of a bare file name, in 32 bits that wrap; 0 when it has no digit.
KQ_API i32 Name_to_SequenceNumber(const char* name);

// Resolves a sequence name in place for `number`, taken as an unsigned word, in as many digits as there are `#`, less
// `skip`. Returns 0 when the number does not fit, with the name partly overwritten. A name whose first `[` does not
// begin a form, or without any, gets the number's last five digits in front of its extension, and 1 is returned: the
// buffer needs five bytes more than the name.
KQ_API int SequenceNumber_to_Name(char* name, i32 number, i32 skip);

// Resolves a sequence path in place with the width that exists on disk, the widest first; 0, with the path left alone,
// when no file is found. The buffer needs five bytes more than the path.
KQ_API int SequenceNumber_to_Name_Validate(char* name, i32 number);

// Looks for the frames of the sequence `spec` whose numbers are the `count` entries of `frames`, or 0 to count - 1 for
// a null `frames`. Returns 1 when all or, with a warning to the user, when some are there; 0 when there is none, when
// `count` is below 1, and when out of memory.
KQ_API int Is_Sequence_Valid(const char* spec, const i32* frames, i32 count);

// The same without a word: 1 only when all are there. A `count` of 0 gives 1, one below 0 gives 0.
KQ_API int Is_SequenceData_Valid(const char* spec, const i32* frames, i32 count);
