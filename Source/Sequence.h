// The detection of sequences from inside: what is gathered from the names of a folder, whatever their order.
#pragma once

#include "kq/clip.h"
#include "kq/tags.h"

namespace kq {

// Room for the name of one file in sequence form; longer names than hosts allow are passed over.
inline constexpr size_t kSequenceNameBytes = 1024;

// Room for the path of a frame while its file is looked for; with longer paths no host finds any.
inline constexpr size_t kSequencePathBytes = 8192;

// The digits that stand for the number in a bare file name.
struct DigitRun {
    size_t at, length;   // length 0: the name has no digit
};

DigitRun FindDigitRun(const char* name);

// Whether two sequence names belong together.
bool SameSequence(const char* a, const char* b);

// Collects the numbers of the files of one sequence while a folder's names go by.
class SequenceScan {
public:
    // `sequence` is a bare sequence name, and must stay valid.
    explicit SequenceScan(const char* sequence);
    ~SequenceScan();
    SequenceScan(const SequenceScan&) = delete;
    SequenceScan& operator=(const SequenceScan&) = delete;

    // Looks at the bare name of one file.
    void Add(const char* name);

    // Notes that names are missing for lack of memory.
    void Fail() { complete_ = false; }

    // False when memory ran out on the way; the numbers are incomplete then.
    bool Complete() const { return complete_; }

    i32 Count() const { return count_; }

    // Most digits that the number has in any file.
    i32 Widest() const { return widest_; }

    // The numbers, ascending once sorted; equal ones stand as often as there are files.
    void Sort();
    const i32* Numbers() const { return numbers_; }

    // Hands the block of numbers to the caller, who frees it; null when there are none.
    i32* Take();

private:
    bool Grow();

    const char* sequence_;
    i32* numbers_ = nullptr;
    i32 count_ = 0;
    i32 room_ = 0;
    i32 widest_ = 0;
    bool complete_ = true;
};

// Shows the names of all files of `folder` to the scan.
using FolderNames = void (*)(const char* folder, SequenceScan& scan, void* user);

// Sequence_Check with the folder's names from `names`.
int CheckSequence(KQClip* clip, TagItem* tags, FolderNames names, void* user);

}   // namespace kq
