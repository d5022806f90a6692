// The reader of resource directories.
//
// The directory stands at the front of its section in runs, one for each level, then one of leaves and one of texts,
// and a walk goes forward in all of them at once. So each run is read through a window of its own, and a module costs
// a few reads whatever its size. The work is bounded by the walk: folders are entered for three levels and no deeper,
// whatever their entries point at.
#define KQ_MODULE "Source/PEResources"
#include "Source/PEResources.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/FileAt.h"
#include "kq/environment.h"

namespace kq {

namespace {

constexpr i64 kWindowBytes = 4096;

// More sections than a loader of modules takes.
constexpr u32 kMostSections = 96;

// The most units of a text that is read as a key.
constexpr u32 kMostNameUnits = 1024;

// The runs that are read side by side.
enum Run { kTypeRun, kNameRun, kLanguageRun, kLeafRun, kTextRun, kHeadRun, kRuns };

struct Window {
    i64 at;
    i64 count;
    u8 bytes[kWindowBytes];
};

// A stretch of addresses and the place in the file that it is loaded from.
struct Section {
    u32 address;
    i64 at;
    i64 count;
};

}   // namespace

struct ResourceModule {
    KQFileInfo* file;
    i64 length;
    i64 directory;        // position of the directory, 0 when there is none
    i64 directoryBytes;   // from there to the end of its section
    u32 sectionCount;
    Section sections[kMostSections];
    Window windows[kRuns];
    i64 dataAt, dataCount;   // what ReadData read last
    const u8* data;
};

namespace {

u16 Word16(const u8* at) { return u16(at[0] | at[1] << 8); }

u32 Word32(const u8* at) { return u32(Word16(at)) | u32(Word16(at + 2)) << 16; }

u64 Word64(const u8* at) { return u64(Word32(at)) | u64(Word32(at + 4)) << 32; }

bool FileRange(const ResourceModule* module, i64 at, i64 count) {
    return at >= 0 && count >= 0 && at <= module->length && count <= module->length - at;
}

// Reads straight from the file.
bool ReadWhole(ResourceModule* module, i64 at, void* buffer, i64 count) {
    return ReadFileAt(module->file, at, buffer, size_t(count)) == count;
}

bool Shows(const Window& window, i64 at, i64 count) {
    return at >= window.at && at + count <= window.at + window.count;
}

// The byte at `at` in what was read already and shows `count` bytes from there on: in the run's own window by
// preference, then in the data, then in another window. Null when none does.
const u8* FindBytes(const ResourceModule* module, Run run, i64 at, i64 count) {
    const Window& own = module->windows[run];
    if (Shows(own, at, count)) return own.bytes + (at - own.at);
    if (at >= module->dataAt && at + count <= module->dataAt + module->dataCount)
        return module->data + (at - module->dataAt);
    for (const Window& window : module->windows)
        if (Shows(window, at, count)) return window.bytes + (at - window.at);
    return nullptr;
}

// Moves the run's window to `at`, where its bytes then stand; null when the file does not give them.
const u8* MoveWindow(ResourceModule* module, Run run, i64 at) {
    Window& window = module->windows[run];
    i64 left = module->length - at;
    i64 count = left < kWindowBytes ? left : kWindowBytes;
    window.at = at;
    window.count = ReadWhole(module, at, window.bytes, count) ? count : 0;
    return window.count ? window.bytes : nullptr;
}

// Reads a few bytes through the windows.
bool Peek(ResourceModule* module, Run run, i64 at, void* buffer, i64 count) {
    if (!FileRange(module, at, count)) return false;
    const u8* bytes = FindBytes(module, run, at, count);
    if (!bytes) bytes = MoveWindow(module, run, at);
    if (!bytes) return false;
    std::memcpy(buffer, bytes, size_t(count));
    return true;
}

// The same at an offset in the directory.
bool PeekDirectory(ResourceModule* module, Run run, i64 offset, void* buffer, i64 count) {
    if (offset > module->directoryBytes || count > module->directoryBytes - offset) return false;
    return Peek(module, run, module->directory + offset, buffer, count);
}

// Adds what of a section the file holds.
void AddSection(ResourceModule* module, u32 address, u64 at, u64 count) {
    if (module->sectionCount == kMostSections || at >= u64(module->length)) return;
    u64 left = u64(module->length) - at;
    module->sections[module->sectionCount++] = {address, i64(at), i64(count < left ? count : left)};
}

// The position in the file of an address, with the bytes from there to the section's end; false outside all sections.
bool FindAddress(const ResourceModule* module, u32 address, i64* at, i64* count) {
    for (u32 i = 0; i < module->sectionCount; ++i) {
        const Section& section = module->sections[i];
        if (address < section.address || address - section.address >= section.count) continue;
        i64 offset = address - section.address;
        *at = section.at + offset;
        *count = section.count - offset;
        return true;
    }
    return false;
}

void UseDirectory(ResourceModule* module, u32 address) {
    if (!FindAddress(module, address, &module->directory, &module->directoryBytes)) module->directory = 0;
}

// The address of the resource directory as the optional header at `at` tells it, 0 for none; false for no such header.
bool ReadDirectoryAddress(ResourceModule* module, i64 at, u32 size, u32* address) {
    u8 bytes[8];
    *address = 0;
    if (size < 2 || !Peek(module, kHeadRun, at, bytes, 2)) return false;
    u32 magic = Word16(bytes);
    if (magic != 0x10B && magic != 0x20B) return false;
    u32 countAt = magic == 0x10B ? 92 : 108;
    u32 entryAt = countAt + 4 + 2 * 8;
    if (entryAt + 8 > size || !Peek(module, kHeadRun, at + countAt, bytes, 4) || Word32(bytes) < 3) return true;
    if (Peek(module, kHeadRun, at + entryAt, bytes, 8)) *address = Word32(bytes);
    return true;
}

bool OpenPE(ResourceModule* module) {
    u8 bytes[40];
    if (!Peek(module, kHeadRun, 0x3C, bytes, 4)) return false;
    i64 head = Word32(bytes);
    if (!Peek(module, kHeadRun, head, bytes, 24) || std::memcmp(bytes, "PE\0\0", 4) != 0) return false;
    u32 sections = Word16(bytes + 6);
    u32 optionalSize = Word16(bytes + 20);
    u32 address;
    if (!ReadDirectoryAddress(module, head + 24, optionalSize, &address)) return false;
    if (address == 0) return true;
    if (sections > kMostSections) sections = kMostSections;
    for (u32 i = 0; i < sections; ++i) {
        if (!Peek(module, kHeadRun, head + 24 + optionalSize + i64(i) * 40, bytes, 40)) break;
        AddSection(module, Word32(bytes + 12), Word32(bytes + 20), Word32(bytes + 16));
    }
    UseDirectory(module, address);
    return true;
}

// One head of an ELF file's table of sections.
struct ElfSection {
    u32 name;
    u32 type;
    u64 at, count;
};

// The table of sections.
struct ElfTable {
    bool wide;   // 64-bit
    u64 at;
    u32 each, count, names;
};

bool ReadElfSection(ResourceModule* module, const ElfTable& table, u32 index, ElfSection* section) {
    u8 bytes[64];
    u32 size = table.wide ? 64 : 40;
    if (index >= table.count || table.each < size || table.at > u64(module->length)) return false;
    if (!Peek(module, kHeadRun, i64(table.at) + i64(index) * table.each, bytes, size)) return false;
    section->name = Word32(bytes);
    section->type = Word32(bytes + 4);
    section->at = table.wide ? Word64(bytes + 0x18) : Word32(bytes + 0x10);
    section->count = table.wide ? Word64(bytes + 0x20) : Word32(bytes + 0x14);
    return true;
}

bool IsResourceSection(ResourceModule* module, const ElfSection& names, const ElfSection& section) {
    constexpr char kName[] = ".kqrsrc";
    constexpr u32 kNoBits = 8;
    char name[sizeof kName];
    if (section.type == kNoBits || names.at > u64(module->length) || section.name > names.count) return false;
    return Peek(module, kTextRun, i64(names.at) + section.name, name, sizeof name) &&
           std::memcmp(name, kName, sizeof name) == 0;
}

bool OpenElf(ResourceModule* module) {
    u8 bytes[64];
    constexpr u8 kLittleEndian = 1;
    if (!Peek(module, kHeadRun, 0, bytes, 52) || bytes[5] != kLittleEndian) return false;
    bool wide = bytes[4] == 2;
    if (!wide && bytes[4] != 1) return false;
    if (wide && !Peek(module, kHeadRun, 0, bytes, 64)) return false;
    const u8* tail = bytes + (wide ? 0x3A : 0x2E);
    ElfTable table = {wide, wide ? Word64(bytes + 0x28) : Word32(bytes + 0x20), Word16(tail), Word16(tail + 2),
                      Word16(tail + 4)};
    ElfSection names, section;
    if (!ReadElfSection(module, table, table.names, &names)) return true;
    for (u32 i = 0; i < table.count; ++i) {
        if (!ReadElfSection(module, table, i, &section)) break;
        if (!IsResourceSection(module, names, section)) continue;
        AddSection(module, 0, section.at, section.count);
        UseDirectory(module, 0);
        break;
    }
    return true;
}

bool OpenModule(ResourceModule* module) {
    u8 magic[4];
    module->length = GetFileLengthKQ(module->file);
    if (!Peek(module, kHeadRun, 0, magic, 4)) return false;
    if (magic[0] == 'M' && magic[1] == 'Z') return OpenPE(module);
    return std::memcmp(magic,
                       "\x7F"
                       "ELF",
                       4) == 0 &&
           OpenElf(module);
}

constexpr i64 kEntryBytes = 8;

// Reads the head of the folder at `offset` of the directory, and counts no entry that lies behind the section.
bool ReadFolder(ResourceModule* module, ResourceLevel level, u32 offset, ResourceFolder* folder) {
    constexpr u32 kHeadBytes = 16;
    u8 head[kHeadBytes];
    if (!module->directory || !PeekDirectory(module, Run(level), offset, head, kHeadBytes)) return false;
    i64 entries = i64(offset) + kHeadBytes;
    i64 room = (module->directoryBytes - entries) / kEntryBytes;
    i64 count = i64(Word16(head + 12)) + Word16(head + 14);
    *folder = {level, entries, u32(count < room ? count : room)};
    return true;
}

// Appends a code point to UTF-8 text; false when it does not fit.
bool PutUtf8(u32 code, char*& at, const char* end) {
    int more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    if (end - at <= more) return false;
    constexpr u8 kLead[] = {0, 0xC0, 0xE0, 0xF0};
    *at++ = char(kLead[more] | code >> (6 * more));
    while (more-- > 0) *at++ = char(0x80 | (code >> (6 * more) & 0x3F));
    return true;
}

constexpr u32 kHighOffset = 0x80000000;

}   // namespace

ResourceModule* OpenResources(KQFileInfo* file) {
    ResourceModule* module = KQ_NEW(ResourceModule);
    if (!module) {
        CloseFileKQ(file);
        KQEnv->Error = KQERR_NOMEM;
        return nullptr;
    }
    module->file = file;
    if (OpenModule(module)) {
        KQEnv->Error = KQERR_NONE;
        return module;
    }
    CloseResources(module);
    KQEnv->Error = KQERR_BADFORMAT;
    return nullptr;
}

void CloseResources(ResourceModule* module) {
    if (!module) return;
    CloseFileKQ(module->file);
    KQ_FREE(module);
}

bool OpenTypes(ResourceModule* module, ResourceFolder* types) {
    return ReadFolder(module, ResourceLevel::Types, 0, types);
}

bool OpenFolder(ResourceModule* module, const ResourceEntry& entry, ResourceFolder* folder) {
    if (!entry.folder || entry.level == ResourceLevel::Languages) return false;
    ResourceLevel below = entry.level == ResourceLevel::Types ? ResourceLevel::Names : ResourceLevel::Languages;
    return ReadFolder(module, below, entry.target, folder);
}

bool ReadEntry(ResourceModule* module, const ResourceFolder& folder, u32 index, ResourceEntry* entry) {
    u8 bytes[kEntryBytes];
    i64 offset = folder.entries + i64(index) * kEntryBytes;
    if (!PeekDirectory(module, Run(folder.level), offset, bytes, kEntryBytes)) return false;
    u32 key = Word32(bytes), target = Word32(bytes + 4);
    *entry = {folder.level,       (key & kHighOffset) != 0,    key,
              key & ~kHighOffset, (target & kHighOffset) != 0, target & ~kHighOffset};
    return true;
}

bool LocateData(ResourceModule* module, const ResourceEntry& entry, ResourceSpan* span) {
    u8 leaf[16];
    if (entry.folder || !PeekDirectory(module, kLeafRun, entry.target, leaf, sizeof leaf)) return false;
    i64 count;
    span->size = Word32(leaf + 4);
    return FindAddress(module, Word32(leaf), &span->at, &count) && span->size <= count;
}

bool ReadData(ResourceModule* module, i64 at, i64 count, u8* buffer) {
    ForgetData(module);
    if (count > 0 && !ReadWhole(module, at, buffer, count)) return false;
    module->dataAt = at;
    module->dataCount = count;
    module->data = buffer;
    return true;
}

void ForgetData(ResourceModule* module) { module->dataCount = 0; }

i64 ModuleLength(const ResourceModule* module) { return module->length; }

bool ReadName(ResourceModule* module, const ResourceEntry& entry, char* name, size_t size) {
    u8 bytes[2];
    if (!entry.named || size == 0 || !PeekDirectory(module, kTextRun, entry.nameAt, bytes, 2)) return false;
    u32 units = Word16(bytes);
    if (units > kMostNameUnits) return false;
    char* at = name;
    const char* end = name + size - 1;
    u32 high = 0;
    for (u32 i = 0; i < units; ++i) {
        if (!PeekDirectory(module, kTextRun, i64(entry.nameAt) + 2 + i * 2, bytes, 2)) return false;
        u32 unit = Word16(bytes);
        if ((unit & 0xFC00) == 0xD800) {
            high = unit;
            continue;
        }
        if ((unit & 0xFC00) == 0xDC00 && high) unit = 0x10000 + ((high & 0x3FF) << 10 | (unit & 0x3FF));
        high = 0;
        if (!PutUtf8(unit, at, end)) return false;
    }
    *at = 0;
    return true;
}

}   // namespace kq
