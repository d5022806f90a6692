// File specifications: the library's only way of naming a file or folder, in its own block of memory.
//
// A specification is the native path as a zero-ended string. `\` and `:` separate; on Linux a path that holds a `/` is
// a native path, and `/` alone separates it. A path that GetPathKQ gives keeps its separator, so that a file name is
// appended as it is. Comparisons fold ASCII letters on every platform, also where file names do not.
//
// Inside a file a specification is a record: a big-endian 32-bit count of the bytes that follow, always even, then the
// text, its zero, and one byte more when the text's length is even. The text may be a sequence name with its form
// (kq/sequence.h), which is not resolved. A reader relies on the count alone: it reads up to the zero, and the next
// field begins where the count ends.
//
// All calls are for the library's own thread.
#pragma once

#include "kq/files.h"
#include "kq/tags.h"
#include "kq/types.h"

// A copy of `text` in its own block, freed with FreeFileSpecKQ. Null for a null text (with `Error` untouched) and,
// with `Error` 1, when out of memory.
KQ_API char* MakeFileSpecKQ(const char* text);

// The same under the name that says what it is for.
KQ_API char* CopyFileSpecKQ(const char* spec);

// Frees a specification; null is allowed.
KQ_API void FreeFileSpecKQ(char* spec);

// Copies the text, which is the platform's own form, to `dest`; that is as large as the text and its zero.
KQ_API void FileSpecToDosKQ(char* dest, const char* spec);

// Turns the platform's form into the library's; they are the same here, and nothing is done.
KQ_API void ConvertDOStoPathKQ(char* path);

// The other way round, likewise.
KQ_API void ConvertPathtoDOSKQ(char* path);

// A new specification with the extension replaced: `spec`, cut at the last `.` among its last five characters if there
// is one, and "." and `extension`, which may be longer than what it replaces. Null when either is null or, with `Error`
// 1, when out of memory. Freed by the caller.
KQ_API char* MakeNewFileSpecKQ(const char* spec, const char* extension);

// Writes the part behind the last separator to `name`; empty when the path ends in one, all of it when there is none.
// The first character is not looked at, so a name whose only separator is its first character comes back whole. `name`
// is as large as `spec` and may be it.
KQ_API void GetFileNameKQ(const char* spec, char* name);

// Writes the part up to and including the last separator to `path`; a spec without any separator is copied whole, so
// that a bare name serves as its own path. `path` is as large as `spec` and may be it. Returns 1.
KQ_API int GetPathKQ(const char* spec, char* path);

// Cuts `name` at its last `.`, wherever that stands but at the first character: a dot in a folder's name cuts the path
// when the file name has none.
KQ_API void TruncExtensionKQ(char* name);

// Non-zero when the two are equal without regard to the case of ASCII letters. A null equals nothing.
KQ_API int FileSpecCompareKQ(const char* a, const char* b);

// Writes the record of `spec` at the file's position; non-zero on success, else 0 with the `Error` of the failed write.
// Null file or spec: 0, with `Error` left alone.
KQ_API int WriteFileSpecKQ(KQFileInfo* file, const char* spec);

// Tags of ReadFileSpecKQ.
inline constexpr u32 KQTAG_SpecAskReplace = 2816;    // presence: ask the user for a replacement when all else fails
inline constexpr u32 KQTAG_SpecIsSequence = 2817;    // i32*, out: non-zero when the name holds the sequence form
inline constexpr u32 KQTAG_SpecFrames = 2818;        // i32*: the clip's frame numbers; null, the default: 0, 1, 2, ...
inline constexpr u32 KQTAG_SpecFramesValid = 2819;   // i32*, out: non-zero when all frames of the sequence are there
inline constexpr u32 KQTAG_SpecFrameCount = 2820;    // i32: how many frames are needed; default 0, none are checked
inline constexpr u32 KQTAG_SpecSearchDirs = 2821;    // char**: null-terminated list of folders to search; the first is
                                                     // also where the user begins to look for a replacement
inline constexpr u32 KQTAG_SpecReplaced = 2822;      // i32*, out: 1 when the user chose the file, else 0
inline constexpr u32 KQTAG_SpecSearchTree = 2823;    // presence: search the folders with all their subfolders
inline constexpr u32 KQTAG_SpecNoCheck = 2824;       // presence: return what is stored; nothing is checked or asked

// Reads the record at the file's position and finds the file that it names: where it is stored, else in the folders of
// KQTAG_SpecSearchDirs, else, with KQTAG_SpecAskReplace, where the user says. Returns a new specification, freed by
// the caller, or null. The file's position is then behind the record in every case but one: a record whose count
// cannot be read. A text ends at its zero; of one above 4095 bytes the rest is not read. `Error` is that of the last
// call inside, a failed look for a file among them: the result alone tells.
//
// Where it is stored a plain file must exist, a sequence with a frame count must have one of its frames, and a sequence
// without one passes unchecked; a frame number of -1 counts as there. One whose frames are there in part is accepted,
// and the user is warned, once for each of the two checks that it passes.
//
// A folder of the list that does not end in a separator names the files of its parent, as GetPathKQ has it; with
// KQTAG_SpecSearchTree the folder itself is walked. A plain file is looked for by its bare name; a text that ends in a
// separator has none and is not looked for. A sequence is found by its last frame that is needed, without a count by
// frame 0, and with a count only where all of its frames are.
//
// When the user chooses a frame of a sequence, the sequence is returned. The out values are written as far as the call
// gets: KQTAG_SpecIsSequence for the stored text first and for what was chosen at the end, KQTAG_SpecFramesValid not
// with KQTAG_SpecNoCheck. With KQTAG_SpecNoCheck no file but the record's is touched and nothing is asked, whatever
// else is tagged.
KQ_API char* ReadFileSpecKQ(KQFileInfo* file, TagItem* tags);

// The twin with trailing tag pairs.
template <kq::TagNumber Tag, class... Rest>
char* ReadFileSpecKQ(KQFileInfo* file, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return ReadFileSpecKQ(file, tags.data());
}
