// The reader of font files that are not installed. It looks at what a file says in its first bytes, not at its
// extension, and at the few tables that name a face. Files are read whole, not mapped: reading a view of a file that
// somebody cuts meanwhile would end the program.
#define KQ_MODULE "Source/FontFiles"
#include "Source/FontFiles.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/FileAt.h"
#include "kq/enumerate.h"
#include "kq/environment.h"
#include "kq/files.h"

namespace kq {

namespace {

using truetype::FindDirectory;
using truetype::FindTable;
using truetype::Table;

// The most faces of a collection, and the most entries of directories and name tables that are looked at for them.
constexpr u32 kMostFaces = 4096;
constexpr u64 kMostCost = 1 << 18;

enum : u16 { kFamilyName = 1, kFullName = 4 };

constexpr u16 kEnglish = 0x409;

constexpr size_t kNameBytes = 512;

// Writes a code point of the basic plane as UTF-8; 0 when it does not fit `room` bytes.
size_t PutUtf8(char* at, size_t room, u32 code) {
    size_t count = code < 0x80 ? 1 : code < 0x800 ? 2 : 3;
    if (count > room) return 0;
    if (count == 1) {
        at[0] = char(code);
    } else if (count == 2) {
        at[0] = char(0xC0 | code >> 6);
        at[1] = char(0x80 | (code & 63));
    } else {
        at[0] = char(0xE0 | code >> 12);
        at[1] = char(0x80 | (code >> 6 & 63));
        at[2] = char(0x80 | (code & 63));
    }
    return count;
}

// Decodes a text of 1 or 2 bytes a character. Control characters and halves of pairs become question marks.
void DecodeName(const Table& text, size_t width, char (&name)[kNameBytes]) {
    size_t used = 0;
    for (size_t at = 0; text.Has(at, width); at += width) {
        u32 code = width == 2 ? text.U16(at) : text.data[at];
        bool odd = code < 32 || (code >= 0xD800 && code < 0xE000) || (width == 1 && code > 126);
        size_t count = PutUtf8(name + used, kNameBytes - 1 - used, odd ? '?' : code);
        if (count == 0) break;
        used += count;
    }
    name[used] = 0;
}

// How welcome a name's record is: English before others of Windows and Unicode, then the old single-byte names.
int RankOf(u16 platform, u16 language) {
    if (platform == 3) return language == kEnglish ? 4 : 2;
    if (platform == 0) return 3;
    return platform == 1 ? 1 : 0;
}

// Copies the best name `id` of the table; false when there is none.
bool ReadName(const Table& table, u16 id, char (&name)[kNameBytes]) {
    name[0] = 0;
    if (!table.Has(0, 6)) return false;
    Table texts = table.From(table.U16(4));
    int best = 0;
    for (u32 i = 0; i < table.U16(2); ++i) {
        size_t at = 6 + i * size_t(12);
        if (!table.Has(at, 12)) break;
        u16 platform = table.U16(at), length = table.U16(at + 8);
        int rank = RankOf(platform, table.U16(at + 4));
        if (table.U16(at + 6) != id || rank <= best || !texts.Has(table.U16(at + 10), length)) continue;
        best = rank;
        DecodeName({texts.data + table.U16(at + 10), length}, platform == 1 ? 1 : 2, name);
    }
    return name[0] != 0;
}

// Describes the face whose directory begins at `directory`; false when it has no TrueType outlines or no name.
bool DescribeFace(const Table& file, size_t directory, char (&name)[kNameBytes], pal::LogicalFont* logical) {
    if (!FindTable(file, directory, KQCode4("glyf")).data) return false;
    Table names = FindTable(file, directory, KQCode4("name"));
    Table head = FindTable(file, directory, KQCode4("head"));
    Table os2 = FindTable(file, directory, KQCode4("OS/2"));
    char family[kNameBytes] = {};
    bool hasFamily = ReadName(names, kFamilyName, family);
    if (!ReadName(names, kFullName, name)) {
        if (!hasFamily) return false;
        std::memcpy(name, family, kNameBytes);
    }
    *logical = {};
    logical->weight = os2.Has(0, 6) ? os2.U16(4) : 400;
    logical->italic = head.Has(0, 46) && (head.U16(44) & 2);
    logical->charSet = 1;
    std::memcpy(logical->faceName, family, sizeof logical->faceName - 1);
    return true;
}

// How much there is to look at in the face whose directory begins at `directory`: entries of it and of its names.
u64 CostOf(const Table& file, size_t directory) {
    Table names = FindTable(file, directory, KQCode4("name"));
    return (file.Has(directory, 6) ? file.U16(directory + 4) : 0) + u64(names.Has(0, 4) ? names.U16(2) : 0);
}

// What the walk over a folder carries.
struct FolderWalk {
    FaceFunction face;
    void* user;
    bool more;
};

bool LooksLikeFont(KQFileInfo* file) {
    u8 tag[4];
    if (ReadFileAt(file, 0, tag, 4) != 4) return false;
    u32 word = Big32(tag);
    return word == 0x00010000 || word == KQCode4("true") || word == KQCode4("ttcf");
}

// Reads all of an open file into a block; null on failure.
u8* ReadAll(KQFileInfo* file, u64* length) {
    i64 bytes = GetFileLengthKQ(file);
    if (bytes <= 0 || u64(bytes) > KQFONT_MostBytes) {
        KQEnv->Error = KQERR_BADDATA;
        return nullptr;
    }
    // The bare form: the guarded one would fill what the read is about to, twice.
    u8* data = static_cast<u8*>(AllocMemoryKQ(size_t(bytes), 0));
    if (!data) return nullptr;
    *length = u64(bytes);
    if (ReadFileAt(file, 0, data, size_t(bytes)) == bytes) return data;
    KQ_FREE(data);
    KQEnv->Error = KQERR_READ;
    return nullptr;
}

int OnFile(const char* path, u32, uptr user) {
    auto& walk = *reinterpret_cast<FolderWalk*>(user);
    if (!walk.more) return 0;
    KQFileInfo* opened = OpenFileKQ(path, KQFILE_Read);
    u64 length = 0;
    u8* data = opened && LooksLikeFont(opened) ? ReadAll(opened, &length) : nullptr;
    CloseFileKQ(opened);
    if (data) walk.more = EnumerateFontFaces({data, size_t(length)}, path, walk.face, walk.user);
    KQ_FREE(data);
    return 0;
}

}   // namespace

bool EnumerateFontFaces(const Table& file, const char* path, FaceFunction face, void* user) {
    bool collection = file.Has(0, 12) && file.U32(0) == KQCode4("ttcf");
    u32 count = collection ? file.U32(8) : 1;
    u64 cost = 0;
    for (u32 i = 0; i < count && i < kMostFaces; ++i) {
        size_t directory;
        if (!FindDirectory(file, i, &directory)) continue;
        cost += CostOf(file, directory);
        if (cost > kMostCost) break;
        char name[kNameBytes];
        pal::FontFace described = {name, path, i32(i), {}};
        if (DescribeFace(file, directory, name, &described.logical) && !face(described, user)) return false;
    }
    return true;
}

void EnumerateFontFolder(const char* folder, FaceFunction face, void* user) {
    FolderWalk walk = {face, user, true};
    char* folders[] = {const_cast<char*>(folder), nullptr};
    u32 error = KQEnv->Error;
    EnumFilesKQ(folders, nullptr, OnFile, reinterpret_cast<uptr>(&walk), 1);
    if (walk.more) KQEnv->Error = error;
}

bool IsFontFile(const char* path) {
    u32 error = KQEnv->Error;
    KQFileInfo* file = OpenFileKQ(path, KQFILE_Read);
    bool looks = file && LooksLikeFont(file);
    CloseFileKQ(file);
    KQEnv->Error = error;
    return looks;
}

u8* ReadFontFile(const char* path, u64* length) {
    KQFileInfo* file = OpenFileKQ(path, KQFILE_Read);
    if (!file) return nullptr;
    u8* data = ReadAll(file, length);
    CloseFileKQ(file);
    return data;
}

}   // namespace kq
