// Detection of a sequence around one of its files, and the check whether its frames are there.
//
// A folder is read once for either: each name that belongs leaves its number in a table, which is sorted, so that the
// folder's order does not matter and the work is that of sorting the numbers that were found. A table never grows by
// what somebody claims, only by files that exist.
#define KQ_MODULE "Source/Sequence"
#include "Source/Sequence.h"

#include <algorithm>
#include <cstring>

#include "Source/Alloc.h"
#include "Source/Path.h"
#include "kq/enumerate.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "kq/sequence.h"
#include "kq/user.h"

namespace {

using kq::SequenceScan;

// A path taken apart into its folder, separator included, and its bare name.
class SplitPath {
public:
    explicit SplitPath(const char* path) {
        const char* last = kq::LastSeparator(path);
        folderLength_ = last ? size_t(last + 1 - path) : 0;
        name_ = path + folderLength_;
        folder_ = static_cast<char*>(KQ_ALLOC(folderLength_ + 2, 0));
        if (!folder_) return;
        std::memcpy(folder_, path, folderLength_);
        // A bare name lies in the present folder.
        std::strcpy(folder_ + folderLength_, last ? "" : ".");
    }

    ~SplitPath() { KQ_FREE(folder_); }

    SplitPath(const SplitPath&) = delete;
    SplitPath& operator=(const SplitPath&) = delete;

    explicit operator bool() const { return folder_ != nullptr; }

    const char* Name() const { return name_; }

    const char* Folder() const { return folder_; }

    // A new specification of `name` in this folder; null when out of memory.
    char* Spec(const char* name) const {
        size_t size = std::strlen(name) + 1;
        char* spec = static_cast<char*>(KQ_ALLOC(folderLength_ + size, 0));
        if (!spec) return nullptr;
        std::memcpy(spec, folder_, folderLength_);
        std::memcpy(spec + folderLength_, name, size);
        return spec;
    }

private:
    const char* name_;
    char* folder_;
    size_t folderLength_;
};

int AddFile(const char* path, u32, uptr user) {
    const char* last = kq::LastSeparator(path);
    reinterpret_cast<SequenceScan*>(user)->Add(last ? last + 1 : path);
    return 1;
}

void ReadFolder(const char* folder, SequenceScan& scan, void*) {
    char* folders[] = {const_cast<char*>(folder), nullptr};
    // The walk is silent about a folder that it cannot read, but leaves the code of a lack of memory.
    u32 error = KQEnv->Error;
    KQEnv->Error = KQERR_NONE;
    EnumFilesKQ(folders, nullptr, AddFile, reinterpret_cast<uptr>(&scan), 0);
    if (KQEnv->Error == KQERR_NOMEM)
        scan.Fail();
    else if (KQEnv->Error == KQERR_NONE)
        KQEnv->Error = error;
}

int MakeSingle(KQClip* clip) {
    KQ_FREE(clip->frameNumbers);
    clip->frameNumbers = nullptr;
    clip->sourceFrames = 1;
    return 1;
}

bool CountsFromZero(const i32* numbers, i32 count) {
    for (i32 i = 0; i < count; ++i)
        if (numbers[i] != i) return false;
    return true;
}

// The sequence name of a bare file name; false when it has no digit, or is longer than names are.
bool SequenceNameOf(const char* name, char (&sequence)[kq::kSequenceNameBytes]) {
    size_t size = std::strlen(name) + 1;
    if (size + 2 > sizeof sequence) return false;
    std::memcpy(sequence, name, size);
    return FileName_to_SequenceName(sequence) != 0;
}

// Widens the run of places that stands where the number `run` stood.
void Widen(char (&sequence)[kq::kSequenceNameBytes], kq::DigitRun run, size_t widest) {
    size_t more = widest - run.length, length = std::strlen(sequence);
    if (widest <= run.length || length + more >= sizeof sequence) return;
    char* close = sequence + run.at + run.length + 1;
    std::memmove(close + more, close, length + 1 - size_t(close - sequence));
    std::memset(close, '#', more);
}

// Makes the clip the sequence that the scan found.
int TakeSequence(KQClip* clip, SequenceScan& scan) {
    scan.Sort();
    KQ_FREE(clip->frameNumbers);
    clip->sourceFrames = scan.Count();
    clip->frameNumbers = scan.Take();
    if (!CountsFromZero(clip->frameNumbers, clip->sourceFrames)) return 1;
    KQ_FREE(clip->frameNumbers);
    clip->frameNumbers = nullptr;
    return 1;
}

// How many of the `count` wanted numbers, ascending, are in the scan's; a number that is wanted twice takes two files.
// A wanted -1 counts as found.
i32 CountFound(const i32* wanted, i32 count, const SequenceScan& scan) {
    i32 found = 0, at = 0;
    for (i32 i = 0; i < count; ++i) {
        if (wanted[i] == -1) {
            ++found;
            continue;
        }
        while (at < scan.Count() && scan.Numbers()[at] < wanted[i]) ++at;
        if (at == scan.Count() || scan.Numbers()[at] != wanted[i]) continue;
        ++found;
        ++at;
    }
    return found;
}

// How many of the numbers 0 to count - 1 are in the scan's.
i32 CountFoundInRun(i32 count, const SequenceScan& scan) {
    i32 found = 0;
    for (i32 i = 0; i < scan.Count(); ++i) {
        i32 number = scan.Numbers()[i];
        if (number >= 0 && number < count && (i == 0 || scan.Numbers()[i - 1] != number)) ++found;
    }
    return found;
}

// The frames of `count` above 0 that are in the folder of `spec`; -1 when out of memory.
i32 CountPresent(const char* spec, const i32* frames, i32 count) {
    SplitPath path(spec);
    if (!path) return -1;
    SequenceScan scan(path.Name());
    ReadFolder(path.Folder(), scan, nullptr);
    if (!scan.Complete()) return -1;
    scan.Sort();
    if (!frames) return CountFoundInRun(count, scan);
    i32* wanted = static_cast<i32*>(KQ_ALLOC(size_t(count) * sizeof(i32), 0));
    if (!wanted) return -1;
    std::memcpy(wanted, frames, size_t(count) * sizeof(i32));
    std::sort(wanted, wanted + count);
    i32 found = CountFound(wanted, count, scan);
    KQ_FREE(wanted);
    return found;
}

}   // namespace

namespace kq {

SequenceScan::SequenceScan(const char* sequence) : sequence_(sequence) {}

SequenceScan::~SequenceScan() { KQ_FREE(numbers_); }

void SequenceScan::Add(const char* name) {
    // Most strangers differ in their first letter already, which no number replaces.
    bool digit = name[0] >= '0' && name[0] <= '9';
    if (!digit && ((name[0] ^ sequence_[0]) & ~0x20)) return;
    char sequence[kSequenceNameBytes];
    if (!complete_ || !SequenceNameOf(name, sequence) || !SameSequence(sequence, sequence_)) return;
    if (count_ == room_ && !Grow()) {
        complete_ = false;
        return;
    }
    numbers_[count_++] = Name_to_SequenceNumber(name);
    widest_ = std::max(widest_, i32(FindDigitRun(name).length));
}

bool SequenceScan::Grow() {
    constexpr i32 kMost = 1 << 30;
    if (room_ >= kMost) return false;
    i32 room = room_ ? room_ * 2 : 64;
    i32* larger = static_cast<i32*>(KQ_ALLOC(size_t(room) * sizeof(i32), 0));
    if (!larger) return false;
    if (numbers_) std::memcpy(larger, numbers_, size_t(count_) * sizeof(i32));
    KQ_FREE(numbers_);
    numbers_ = larger;
    room_ = room;
    return true;
}

void SequenceScan::Sort() { std::sort(numbers_, numbers_ + count_); }

i32* SequenceScan::Take() {
    i32* numbers = numbers_;
    numbers_ = nullptr;
    count_ = room_ = 0;
    return numbers;
}

int CheckSequence(KQClip* clip, TagItem* tags, FolderNames names, void* user) {
    if (FindTagItem(KQTAG_CLIP_SINGLE, tags)) return MakeSingle(clip);
    SplitPath path(clip->fileSpec);
    if (!path) return 0;
    char sequence[kSequenceNameBytes];
    if (!SequenceNameOf(path.Name(), sequence)) return 1;
    clip->firstNumber = 0;
    clip->numberStep = 1;
    SequenceScan scan(sequence);
    names(path.Folder(), scan, user);
    if (!scan.Complete()) return 0;
    // One file alone is none, and a file that its folder does not show is not taken from the user.
    if (scan.Count() < 2) return MakeSingle(clip);
    Widen(sequence, FindDigitRun(path.Name()), size_t(scan.Widest()));
    char* spec = path.Spec(sequence);
    if (!spec) return 0;
    FreeFileSpecKQ(clip->fileSpec);
    clip->fileSpec = spec;
    return TakeSequence(clip, scan);
}

}   // namespace kq

int Sequence_Check(KQClip* clip, TagItem* tags) { return kq::CheckSequence(clip, tags, ReadFolder, nullptr); }

int Is_Sequence_Valid(const char* spec, const i32* frames, i32 count) {
    if (!spec || count < 1) return 0;
    i32 found = CountPresent(spec, frames, count);
    if (found < 1) return 0;
    if (found < count) {
        const char* last = kq::LastSeparator(spec);
        UserMessageKQ("Warning: Some images in image sequence %s cannot be found!", last ? last + 1 : spec);
    }
    return 1;
}

int Is_SequenceData_Valid(const char* spec, const i32* frames, i32 count) {
    if (count < 1) return count == 0;
    return spec && CountPresent(spec, frames, count) == count;
}
