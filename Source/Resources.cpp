// The resources of a module as a program asks for them: by type, with their bytes.
#define KQ_MODULE "Source/Resources"
#include "kq/enumerate.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/PEResources.h"
#include "Source/Text.h"

namespace {

using ResourceCallback = int (*)(KQResource* resource, uptr user);

// Resources of one type may share bytes, but not so many that a small file makes a long enumeration: one ends when it
// has read the module this many times over.
constexpr i64 kMostReadings = 4;

// What the tags ask for.
struct Wanted {
    bool stripHead = false;
    bool ranged = false;
    i32 first = INT32_MIN;
    i32 last = INT32_MAX;
};

Wanted ReadTags(TagItem* tags) {
    Wanted wanted;
    TagItem* cursor = tags;
    while (TagItem* item = NextTagItem(&cursor)) switch (item->Tag) {
        case KQTAG_ResourceStripHead: wanted.stripHead = true; break;
        case KQTAG_ResourceFirstID:
            wanted.first = i32(item->Data);
            wanted.ranged = true;
            break;
        case KQTAG_ResourceLastID:
            wanted.last = i32(item->Data);
            wanted.ranged = true;
            break;
        }
    return wanted;
}

// A block for the bytes of one resource after the other.
class DataBlock {
public:
    DataBlock() = default;
    ~DataBlock() { KQ_FREE(bytes_); }
    DataBlock(const DataBlock&) = delete;
    DataBlock& operator=(const DataBlock&) = delete;

    // At least `size` bytes, null when there is no memory.
    u8* Get(size_t size) {
        if (bytes_ && size <= size_) return bytes_;
        KQ_FREE(bytes_);
        bytes_ = static_cast<u8*>(KQ_ALLOC(size, 0));
        size_ = size;
        return bytes_;
    }

private:
    u8* bytes_ = nullptr;
    size_t size_ = 0;
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The number of a type that is asked for as `#` and decimal digits.
bool NumberOfType(const char* type, u32* number) {
    if (type[0] != '#' || !type[1]) return false;
    u32 value = 0;
    for (const char* c = type + 1; *c; ++c) {
        if (!IsDigit(*c) || value > 0xFFFF) return false;
        value = value * 10 + u32(*c - '0');
    }
    *number = value;
    return true;
}

// Whether an entry's name is that of the type: resource tools take no name that begins with a digit, so such a type
// is stored with an underscore in front.
bool NameIsType(const char* name, const char* type) {
    if (IsDigit(type[0])) {
        if (name[0] != '_') return false;
        ++name;
    }
    return kq::CompareFolded(name, type) == 0;
}

// The folder of the resources of a type, the first of that name; false when there is none.
bool FindType(kq::ResourceModule* module, const char* type, kq::ResourceFolder* names) {
    kq::ResourceFolder types;
    if (!module || !type || !kq::OpenTypes(module, &types)) return false;
    u32 number = 0;
    bool byNumber = NumberOfType(type, &number);
    char name[256];
    kq::ResourceEntry entry;
    for (u32 i = 0; i < types.count && kq::ReadEntry(module, types, i, &entry); ++i) {
        bool hit = byNumber ? !entry.named && entry.id == number
                            : kq::ReadName(module, entry, name, sizeof name) && NameIsType(name, type);
        if (hit) return kq::OpenFolder(module, entry, names);
    }
    return false;
}

// The first language's data of a resource.
bool FirstLanguage(kq::ResourceModule* module, const kq::ResourceEntry& resource, kq::ResourceSpan* span) {
    kq::ResourceFolder languages;
    kq::ResourceEntry entry;
    return kq::OpenFolder(module, resource, &languages) && languages.count > 0 &&
           kq::ReadEntry(module, languages, 0, &entry) && kq::LocateData(module, entry, span);
}

// Moves the data behind the head. A head is a little-endian word: 1, or 3 and a zero-ended name.
void StripHead(KQResource* resource) {
    if (resource->Size < 2 || resource->Data[1] != 0) return;
    u8 kind = resource->Data[0];
    const u8* name = resource->Data + 2;
    if (kind == 1) resource->Data = name;
    if (kind != 3) return;
    const void* end = std::memchr(name, 0, resource->Size - 2);
    if (!end) return;
    resource->Name = reinterpret_cast<const char*>(name);
    resource->Data = static_cast<const u8*>(end) + 1;
}

// Gives the resource to the callback.
void Report(const kq::ResourceEntry& entry, const u8* bytes, u32 size, const Wanted& wanted,
            ResourceCallback callback, uptr user) {
    KQResource resource = {bytes, nullptr, entry.named ? 0 : i32(entry.id), size};
    if (wanted.stripHead) StripHead(&resource);
    callback(&resource, user);
}

bool InRange(const kq::ResourceEntry& entry, const Wanted& wanted) {
    if (!wanted.ranged) return true;
    return !entry.named && i32(entry.id) >= wanted.first && i32(entry.id) <= wanted.last;
}

}   // namespace

void* BeginResourceAccessKQ(const char* file) {
    KQFileInfo* opened = OpenFileKQ(file, KQFILE_Read);
    return opened ? kq::OpenResources(opened) : nullptr;
}

void EndResourceAccessKQ(void* module) { kq::CloseResources(static_cast<kq::ResourceModule*>(module)); }

int EnumResourceIDKQ(void* handle, const char* type, ResourceCallback callback, uptr user, TagItem* tags) {
    auto* module = static_cast<kq::ResourceModule*>(handle);
    kq::ResourceFolder names;
    if (!callback || !FindType(module, type, &names)) return 1;
    Wanted wanted = ReadTags(tags);
    DataBlock block;
    kq::ResourceEntry entry;
    i64 left = kMostReadings * kq::ModuleLength(module);
    for (u32 i = 0; i < names.count && kq::ReadEntry(module, names, i, &entry); ++i) {
        kq::ResourceSpan span;
        if (!InRange(entry, wanted) || !FirstLanguage(module, entry, &span)) continue;
        left -= span.size;
        if (left < 0) break;
        u8* bytes = block.Get(span.size);
        if (bytes && kq::ReadData(module, span, bytes))
            Report(entry, bytes, span.size, wanted, callback, user);
    }
    return 1;
}

int NumResourceIDKQ(void* module, const char* type) {
    kq::ResourceFolder names;
    if (!FindType(static_cast<kq::ResourceModule*>(module), type, &names)) return 0;
    return int(names.count);
}
