// Image sequences: numbered files of one folder as the frames of one clip.
//
// A sequence name is a file name in which the digits of the number are replaced by `[`, one `#` a digit, and `]`.
#pragma once

#include "kq/tags.h"
#include "kq/types.h"

struct KQClip;

// Looks at the neighbours of the clip's file and makes the clip a sequence when there are any. Non-zero when the clip
// is fit to use, whether it became a sequence or not. Reads KQTAG_CLIP_NOASK and KQTAG_CLIP_SINGLE.
KQ_API int Sequence_Check(KQClip* clip, TagItem* tags);

// Resolves a sequence name in place for `number`, leaving the last `skip` places out; 0 when the number does not fit.
// A name without the form gets five digits in front of its extension.
KQ_API int SequenceNumber_to_Name(char* name, i32 number, i32 skip);

// Resolves a sequence path in place with the width that exists on disk; 0 when no file is found.
KQ_API int SequenceNumber_to_Name_Validate(char* name, i32 number);

// Non-zero when `name` (a name or a path) holds the sequence form.
KQ_API int Is_Sequence(const char* name);

// Whether frames of a sequence are there, with a warning to the user when some are missing.
KQ_API int Is_Sequence_Valid(const char* spec, const i32* frames, i32 count);

// Whether all frames of a sequence are there.
KQ_API int Is_SequenceData_Valid(const char* spec, const i32* frames, i32 count);
