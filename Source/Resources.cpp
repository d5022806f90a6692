// The resources of a module as a program asks for them: by type, with their bytes.
#include "kq/enumerate.h"

#include <cstring>

#include "Source/PEResources.h"
#include "Source/Text.h"
#include "kq/memory.h"

namespace {

using ResourceCallback = int (*)(KQResource* resource, uptr user);

// The bytes that one enumeration reads are at most this many times the module's: resources may share bytes, but not so
// many that a small file makes a long work.
constexpr i64 kMostReadings = 4;

// The most bytes that are read ahead of a resource.
constexpr i64 kMostAhead = 64 * 1024;

// Reads begin at multiples of this and go to addresses that are multiples of it, which copies fastest.
constexpr i64 kAlignment = 64;

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

// The bytes of one resource after the other. Where they follow each other in the file, what was read twice over is
// read ahead at once, so that many small resources cost few reads and scattered ones nothing extra.
class DataReader {
public:
    explicit DataReader(kq::ResourceModule* module)
        : module_(module), length_(kq::ModuleLength(module)), left_(kMostReadings * length_) {}

    ~DataReader() {
        kq::ForgetData(module_);
        FreeMemoryKQ(block_);
    }

    DataReader(const DataReader&) = delete;
    DataReader& operator=(const DataReader&) = delete;

    // The resource's bytes, valid until the next call; null when they cannot be had.
    const u8* Get(const kq::ResourceSpan& span) {
        bool held = bytes_ && span.at >= at_ && span.at + span.size <= at_ + count_;
        i64 before = span.at % kAlignment;
        if (!held && !Read(span.at - before, before + Wanted(span))) return nullptr;
        return bytes_ + (span.at - at_);
    }

    // Whether the enumeration has read all that it may.
    bool Spent() const { return left_ < 0; }

private:
    // How much to read for a resource.
    i64 Wanted(const kq::ResourceSpan& span) const {
        bool follows = count_ > 0 && span.at >= at_ && span.at <= at_ + count_ + count_ / 4;
        i64 ahead = !follows ? 0 : 2 * count_ < kMostAhead ? 2 * count_ : kMostAhead;
        i64 wanted = i64(span.size) + ahead;
        return wanted < length_ - span.at ? wanted : length_ - span.at;
    }

    bool Read(i64 at, i64 count) {
        at_ = at;
        count_ = 0;
        left_ -= count;
        if (left_ < 0 || !Reserve(size_t(count)) || !kq::ReadData(module_, at, count, bytes_)) return false;
        count_ = count;
        return true;
    }

    // Bare, because to fill a large block with the pattern of fresh memory would take longer than to read it.
    bool Reserve(size_t size) {
        if (bytes_ && size <= room_) return true;
        kq::ForgetData(module_);
        FreeMemoryKQ(block_);
        room_ = size + kMostAhead;
        block_ = static_cast<u8*>(AllocMemoryKQ(room_ + kAlignment, 0));
        uptr address = reinterpret_cast<uptr>(block_);
        bytes_ = block_ ? block_ + (kAlignment - address % kAlignment) % kAlignment : nullptr;
        return bytes_ != nullptr;
    }

    kq::ResourceModule* module_;
    i64 length_;
    i64 left_;   // bytes that may still be read
    u8* block_ = nullptr;
    u8* bytes_ = nullptr;   // the first aligned byte of the block
    size_t room_ = 0;       // bytes from there on
    i64 at_ = 0;            // what of the file the block holds
    i64 count_ = 0;
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
void Report(const kq::ResourceEntry& entry, const u8* bytes, u32 size, const Wanted& wanted, ResourceCallback callback,
            uptr user) {
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
    DataReader data(module);
    kq::ResourceEntry entry;
    for (u32 i = 0; i < names.count && !data.Spent() && kq::ReadEntry(module, names, i, &entry); ++i) {
        kq::ResourceSpan span;
        if (!InRange(entry, wanted) || !FirstLanguage(module, entry, &span)) continue;
        if (const u8* bytes = data.Get(span)) Report(entry, bytes, span.size, wanted, callback, user);
    }
    return 1;
}

int NumResourceIDKQ(void* module, const char* type) {
    kq::ResourceFolder names;
    if (!FindType(static_cast<kq::ResourceModule*>(module), type, &names)) return 0;
    return int(names.count);
}
