// Look-ups in the parsed key table. What counts is the first match of a plain walk from the section's first entry to
// its first zero triple; two sorted arrays give the same answers in O(log n).
//
// The arrays are made from that very walk, so that a section whose entries are cut short, and whose walk therefore
// runs on into its neighbours, is answered alike. When there is no memory for them the walk itself answers.
#define KQ_MODULE "Source/KeyTable"
#include "Source/KeyTable.h"

#include <algorithm>
#include <tuple>

#include "Source/Alloc.h"
#include "kq/environment.h"

namespace {

// An entry as a section sees it; sorted by section, key and place.
struct KeyPlace {
    const u16* Section;   // where the section starts
    const u16* Entry;
    u16 Key;
};

// An entry as the whole chain sees it; sorted by command and order.
struct CommandPlace {
    u32 Order;   // place in a walk over all sections
    u16 Command;
    u16 Key;
};

// The header of the block that holds both arrays, `Count` places each.
struct KeyIndex {
    size_t Count;

    KeyPlace* Keys() { return reinterpret_cast<KeyPlace*>(this + 1); }

    CommandPlace* Commands() { return reinterpret_cast<CommandPlace*>(Keys() + Count); }
};

// Calls `see` with each entry of the section until it returns true; that entry, or null.
template <class See>
const u16* WalkSection(const KQKeySection* section, See see) {
    const u16* entry = section->Keys;
    if (!entry) return nullptr;
    for (; !kq::EndsSection(entry); entry += kq::kKeyEntryWords)
        if (see(entry)) return entry;
    return nullptr;
}

template <class See>
const u16* WalkSections(const KQKeySection* section, See see) {
    for (; section; section = section->Next)
        if (const u16* found = WalkSection(section, [&](const u16* entry) { return see(section, entry); }))
            return found;
    return nullptr;
}

bool KeyBefore(const KeyPlace& a, const KeyPlace& b) {
    return std::tie(a.Section, a.Key, a.Entry) < std::tie(b.Section, b.Key, b.Entry);
}

bool CommandBefore(const CommandPlace& a, const CommandPlace& b) {
    return std::tie(a.Command, a.Order) < std::tie(b.Command, b.Order);
}

KeyIndex* Index() { return static_cast<KeyIndex*>(KQEnv->KeyIndex); }

const u16* FindKey(const KQKeySection* section, u16 key) {
    KeyIndex* index = Index();
    if (!index) return WalkSection(section, [key](const u16* entry) { return entry[0] == key; });
    KeyPlace wanted = {section->Keys, nullptr, key};
    KeyPlace* end = index->Keys() + index->Count;
    KeyPlace* found = std::lower_bound(index->Keys(), end, wanted, KeyBefore);
    return found != end && found->Section == section->Keys && found->Key == key ? found->Entry : nullptr;
}

}   // namespace

namespace kq {

void IndexKeyTable(KQKeySection* sections) {
    size_t count = 0;
    WalkSections(sections, [&](const KQKeySection*, const u16*) { return ++count, false; });
    size_t size = sizeof(KeyIndex) + count * (sizeof(KeyPlace) + sizeof(CommandPlace));
    KeyIndex* index = static_cast<KeyIndex*>(KQ_ALLOC(size, 0));
    KQEnv->KeyIndex = index;
    if (!index) return;
    index->Count = count;
    u32 order = 0;
    WalkSections(sections, [&](const KQKeySection* section, const u16* entry) {
        index->Keys()[order] = {section->Keys, entry, entry[0]};
        index->Commands()[order] = {order, entry[1], entry[0]};
        return ++order, false;
    });
    std::sort(index->Keys(), index->Keys() + count, KeyBefore);
    std::sort(index->Commands(), index->Commands() + count, CommandBefore);
}

void FreeKeyIndex() {
    KQ_FREE(KQEnv->KeyIndex);
    KQEnv->KeyIndex = nullptr;
}

u16 FindKeyCommand(const KQKeySection* section, u32 code, u32 qualifier, i16* value) {
    if (!section || !section->Keys) return 0;
    u32 key = (qualifier & kKeyQualifiers) | code;
    const u16* entry = key <= 0xFFFF ? FindKey(section, u16(key)) : nullptr;
    if (!entry) return 0;
    if (value) *value = i16(entry[2]);
    return entry[1];
}

u16 FindCommandKey(u32 command) {
    KeyIndex* index = Index();
    if (!index) {
        const u16* entry =
            WalkSections(KQEnv->KeySections, [command](const KQKeySection*, const u16* e) { return e[1] == command; });
        return entry ? entry[0] : 0;
    }
    if (command > 0xFFFF) return 0;
    CommandPlace wanted = {0, u16(command), 0};
    CommandPlace* end = index->Commands() + index->Count;
    CommandPlace* found = std::lower_bound(index->Commands(), end, wanted, CommandBefore);
    return found != end && found->Command == command ? found->Key : 0;
}

KeyTarget keyTarget;

void TryKeyEquivalent(u32 code, u32 qualifier) {
    if (qualifier & kKeyRelease) return;
    KQPalette* active = KQEnv->ActivePalette;
    const KQKeySection* own = active && keyTarget.paletteKeys ? keyTarget.paletteKeys(active) : nullptr;
    u16 command = FindKeyCommand(own, code, qualifier, nullptr);
    bool modal = active && keyTarget.isModal && keyTarget.isModal(active);
    if (!command && !modal) command = FindKeyCommand(KQEnv->KeySections, code, qualifier, nullptr);
    if (command && keyTarget.sendCommand) keyTarget.sendCommand(command);
}

}   // namespace kq
