// Modules from untrusted bytes: every type that the directory names is counted and enumerated, in both forms.
#include "Source/PEResources.h"
#include "fuzz/Files.h"
#include "kq/enumerate.h"

namespace {

// Reads each byte that the callback may read.
int ReadAll(KQResource* resource, uptr user) {
    u32& sum = *reinterpret_cast<u32*>(user);
    const u8* from = resource->Data;
    if (resource->Name)
        for (const char* c = resource->Name; *c; ++c) sum += u8(*c);
    u32 head = resource->Name ? u32(from - reinterpret_cast<const u8*>(resource->Name)) + 2 : 0;
    for (u32 i = head; i + 2 < resource->Size; ++i) sum += from[i - head];
    return 0;
}

void Enumerate(void* module, const char* type) {
    u32 sum = 0;
    uptr user = reinterpret_cast<uptr>(&sum);
    NumResourceIDKQ(module, type);
    EnumResourceIDKQ(module, type, ReadAll, user, nullptr);
    EnumResourceIDKQ(module, type, ReadAll, user, KQTAG_ResourceStripHead, 0, KQTAG_ResourceFirstID, 2, 0);
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    fuzz::StartLibrary();
    kq::ResourceModule* module = kq::OpenResources(OpenFileinMemoryKQ(const_cast<u8*>(data), i64(size), KQFILE_Read));
    if (!module) return 0;
    Enumerate(module, "PiPL");
    Enumerate(module, "8BIF");
    Enumerate(module, "#16");
    kq::ResourceFolder types;
    kq::ResourceEntry entry;
    constexpr u32 kMostTypes = 16;
    if (kq::OpenTypes(module, &types))
        for (u32 i = 0; i < types.count && i < kMostTypes && kq::ReadEntry(module, types, i, &entry); ++i) {
            char name[64];
            if (kq::ReadName(module, entry, name, sizeof name)) Enumerate(module, name);
        }
    EndResourceAccessKQ(module);
    fuzz::CheckLeaks();
    return 0;
}
