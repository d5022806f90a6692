// Fuzzes the key file's parser: the input is the file. The first byte chooses which sections have which commands.
// Every answer of the index must be that of the plain walk.
#include <cstdlib>

#include "Source/KeyTable.h"
#include "Source/Keyfile.h"
#include "Source/Startup.h"
#include "fuzz/Files.h"
#include "kq/catalogue.h"
#include "kq/environment.h"

namespace {

constexpr KQKeyCommand kCommands[] = {{"Cut", 1}, {"Copy", 2}, {"Paste", 0}, {nullptr, 0}};
constexpr KQKeyCommandString kStrings[] = {{1, 4}, {2, 5}, {0, 0}};

u32 ids[] = {1, 2};
u32 offsets[] = {0, 6};
char text[] = "Open\0\0Close\0";
KQStringTable strings = {2, ids, offsets, text};

// What all look-ups answer.
u64 Answers(const KQKeySection* sections) {
    u64 sum = 0;
    for (const KQKeySection* section = sections; section; section = section->Next)
        for (u32 key = 0; key < 0x1000; ++key) {
            i16 value = 0;
            sum = sum * 31 + kq::FindKeyCommand(section, key & 0x1FF, key & ~0x1FFu, &value);
            sum = sum * 31 + u16(value);
        }
    for (u32 command = 0; command < 8; ++command) sum = sum * 31 + kq::FindCommandKey(command);
    return sum;
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, size_t size) {
    fuzz::StartLibrary();
    u8 choice = size > 0 ? data[0] : 0;
    KQKeySection last = {nullptr, nullptr, 2, nullptr, kStrings, nullptr};
    KQKeySection other = {&last,  "Other", 0, choice & 1 ? nullptr : kCommands, choice & 2 ? kStrings : nullptr,
                          nullptr};
    KQKeySection first = {&other, "Main", 0, kCommands, nullptr, nullptr};
    KQEnv->Strings = &strings;
    KQEnv->KeySections = &first;
    kq::ParseKeyFile(fuzz::WriteInput("keys", data, size).c_str(), &first);
    if (KQEnv->KeyTable) {
        u64 indexed = Answers(&first);
        kq::FreeKeyIndex();
        if (indexed != Answers(&first)) std::abort();
    }
    kq::FreeKeyTable();
    KQEnv->KeySections = nullptr;
    KQEnv->Strings = nullptr;
    fuzz::CheckLeaks();
    return 0;
}
