// Reading a stored file specification: where a project that has moved finds its files again, or asks for them.
//
// The stored text is tried first, then folders, then the user; each step works on one record of what is looked for.
// Paths are built in buffers on the stack, because the search calls others that use the shared ones.
#define KQ_MODULE "Source/FindSpec"
#include <cstring>

#include "Source/Alloc.h"
#include "Source/AskFile.h"
#include "Source/Path.h"
#include "Source/Text.h"
#include "kq/clip.h"
#include "kq/enumerate.h"
#include "kq/filespec.h"
#include "kq/sequence.h"
#include "kq/user.h"

namespace {

constexpr size_t kPathBytes = 4096;

// The most bytes of a name that a question shows: a message holds 1024, and the question stands behind the name.
constexpr size_t kShownName = 768;

kq::FileRequester replacementRequester = nullptr;

// What is looked for: the stored name, and what the tags say of it.
struct Quest {
    char text[kPathBytes];         // the stored path
    char name[kPathBytes];         // its bare name
    char wanted[kPathBytes + 8];   // the file that has to be there; room for the digits of a name without the form
    bool sequence;
    bool askReplace;
    bool searchTree;
    bool noCheck;
    i32* isSequence;
    i32* framesValid;
    i32* replaced;
    const i32* frames;
    i32 count;
    char** folders;
    char* found;   // the specification, once there is one
};

// Reads the record's text, and the position behind the record. False when its count cannot be read.
bool ReadRecord(KQFileInfo* file, char (&text)[kPathBytes], u64* end) {
    u32 length;
    if (!GetULongKQ(file, &length)) return false;
    u64 at = SeekFileKQ(file, 0, KQSEEK_Current);
    *end = at + length;
    i64 left = GetFileLengthKQ(file) - i64(at);
    i64 count = left < i64(length) ? left : i64(length);
    if (count > i64(kPathBytes - 1)) count = kPathBytes - 1;
    std::memset(text, 0, kPathBytes);
    if (count > 0 && !ReadFileKQ(file, text, size_t(count))) text[0] = 0;
    return true;
}

void Store(i32* target, i32 value) {
    if (target) *target = value;
}

void ReadTags(Quest& quest, TagItem* tags) {
    TagItem* cursor = tags;
    while (TagItem* item = NextTagItem(&cursor)) {
        i32* pointer = reinterpret_cast<i32*>(item->Data);
        switch (item->Tag) {
        case KQTAG_SpecAskReplace: quest.askReplace = true; break;
        case KQTAG_SpecIsSequence: Store(quest.isSequence = pointer, quest.sequence); break;
        case KQTAG_SpecFrames: quest.frames = pointer; break;
        case KQTAG_SpecFramesValid: quest.framesValid = pointer; break;
        case KQTAG_SpecFrameCount: quest.count = i32(item->Data); break;
        case KQTAG_SpecSearchDirs: quest.folders = reinterpret_cast<char**>(item->Data); break;
        case KQTAG_SpecReplaced: Store(quest.replaced = pointer, 0); break;
        case KQTAG_SpecSearchTree: quest.searchTree = true; break;
        case KQTAG_SpecNoCheck: quest.noCheck = true; break;
        }
    }
}

// The part behind the last separator, wherever that stands: of a file in the root it is the file's name alone.
const char* BareName(const char* path) {
    const char* last = kq::LastSeparator(path);
    return last ? last + 1 : path;
}

bool CountsFrames(const Quest& quest) { return quest.sequence && quest.count > 0; }

void Drop(Quest& quest) {
    FreeFileSpecKQ(quest.found);
    quest.found = nullptr;
}

// Drops a sequence of which no frame is there, and warns of one that has holes.
void CheckFrames(Quest& quest) {
    if (quest.found && CountsFrames(quest) && !Is_Sequence_Valid(quest.found, quest.frames, quest.count)) Drop(quest);
}

// The stored path itself.
void TryStored(Quest& quest) {
    quest.found = MakeFileSpecKQ(quest.text);
    if (!quest.found || quest.noCheck) return;
    if (!quest.sequence && !FileExistsKQ(quest.found)) Drop(quest);
    CheckFrames(quest);
}

// The file that a folder has to hold: of a sequence, the last frame that is needed. False when there can be none.
bool NameWantedFile(Quest& quest) {
    if (!quest.name[0]) return false;
    std::strcpy(quest.wanted, quest.name);
    if (!quest.sequence) return true;
    i32 last = quest.count > 0 ? quest.count - 1 : 0;
    i32 number = quest.count > 0 && quest.frames ? quest.frames[last] : last;
    return SequenceNumber_to_Name(quest.wanted, number, 0) != 0;
}

// Takes the stored name in the folder of `path`, whose first `length` bytes it is, where the wanted file is.
void TakeFolder(Quest& quest, char (&path)[kPathBytes], size_t length) {
    if (quest.sequence) {
        size_t size = std::strlen(quest.name) + 1;
        if (length + size > kPathBytes) return;
        std::memcpy(path + length, quest.name, size);
    }
    quest.found = MakeFileSpecKQ(path);
    if (quest.found && CountsFrames(quest) && !Is_SequenceData_Valid(quest.found, quest.frames, quest.count))
        Drop(quest);
}

int TryFile(const char* file, u32, uptr user) {
    Quest& quest = *reinterpret_cast<Quest*>(user);
    char path[kPathBytes];
    if (quest.found || std::strlen(file) >= kPathBytes) return 1;
    const char* name = BareName(file);
    if (kq::CompareFolded(name, quest.wanted) != 0) return 1;
    std::strcpy(path, file);
    TakeFolder(quest, path, size_t(name - file));
    return 1;
}

void TryFolder(Quest& quest, const char* folder) {
    char path[kPathBytes];
    if (std::strlen(folder) >= kPathBytes) return;
    GetPathKQ(folder, path);
    size_t length = std::strlen(path), size = std::strlen(quest.wanted) + 1;
    if (length + size > kPathBytes) return;
    std::memcpy(path + length, quest.wanted, size);
    if (FileExistsKQ(path)) TakeFolder(quest, path, length);
}

void SearchFolders(Quest& quest) {
    if (!quest.folders || !NameWantedFile(quest)) return;
    if (quest.searchTree)
        EnumFilesKQ(quest.folders, nullptr, TryFile, reinterpret_cast<uptr>(&quest), 1);
    else
        for (char** folder = quest.folders; *folder && !quest.found; ++folder) TryFolder(quest, *folder);
}

// The user's file; a frame of a sequence becomes the sequence's name.
char* AsSequence(char* chosen) {
    KQClip clip = {};
    clip.fileSpec = chosen;
    TagItem tags[] = {{KQTAG_CLIP_NOASK, 0}, {KQTAG_End, 0}};
    Sequence_Check(&clip, tags);
    KQ_FREE(clip.frameNumbers);
    return clip.fileSpec;
}

// The name as a question shows it: a long one is cut in front of a character, never inside one.
void ShortenName(const char* name, char (&shown)[kShownName + 4]) {
    size_t length = std::strlen(name);
    if (length <= kShownName) {
        std::memcpy(shown, name, length + 1);
        return;
    }
    size_t cut = kShownName;
    while (cut > 0 && (u8(name[cut]) & 0xC0) == 0x80) --cut;
    std::memcpy(shown, name, cut);
    std::strcpy(shown + cut, "...");
}

bool UserWantsReplacement(const Quest& quest) {
    char name[kShownName + 4];
    ShortenName(quest.name, name);
    return quest.sequence ? AskUserKQ("Image Sequence '%s' not found!\nWould you like to replace it?", name)
                          : AskUserKQ("%s not found!\nWould you like to replace it?", name);
}

void AskForReplacement(Quest& quest) {
    if (!UserWantsReplacement(quest)) return;
    char path[kPathBytes];
    const char* first = quest.folders ? quest.folders[0] : nullptr;
    bool usable = first && std::strlen(first) < kPathBytes;
    if (usable) GetPathKQ(first, path);
    char* chosen = kq::AskReplacementFile(quest.name, usable ? path : nullptr);
    if (!chosen) return;
    quest.found = AsSequence(chosen);
    quest.sequence = quest.found && Is_Sequence(quest.found);
    Store(quest.replaced, 1);
}

void StoreResults(const Quest& quest) {
    Store(quest.isSequence, quest.sequence);
    if (!quest.framesValid) return;   // to look for the frames costs a walk over the folder
    Store(quest.framesValid,
          quest.found && CountsFrames(quest) && Is_SequenceData_Valid(quest.found, quest.frames, quest.count));
}

}   // namespace

namespace kq {

char* AskReplacementFile(const char* name, const char* folder) {
    return replacementRequester ? replacementRequester(name, folder) : nullptr;
}

void SetReplacementRequester(FileRequester requester) { replacementRequester = requester; }

}   // namespace kq

char* ReadFileSpecKQ(KQFileInfo* file, TagItem* tags) {
    Quest quest;
    u64 end;
    std::memset(&quest, 0, sizeof quest);
    if (!ReadRecord(file, quest.text, &end)) return nullptr;
    quest.sequence = Is_Sequence(quest.text) != 0;
    ReadTags(quest, tags);
    std::strcpy(quest.name, BareName(quest.text));
    TryStored(quest);
    SeekFileKQ(file, i64(end), KQSEEK_Start);
    if (quest.noCheck) return quest.found;
    if (!quest.found) SearchFolders(quest);
    CheckFrames(quest);
    if (!quest.found && quest.askReplace) AskForReplacement(quest);
    StoreResults(quest);
    return quest.found;
}
