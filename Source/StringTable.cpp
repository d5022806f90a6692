// Strings by number: a plain walk over a table, and for the table of KQEnv a hash that gives the same answers.
//
// The hash is an array of places with open addressing, at most half full, which holds numbers and offsets: a look-up
// touches one place and nothing of the table. Of several strings with one number only the first goes in.
#define KQ_MODULE "Source/StringTable"
#include "Source/Alloc.h"
#include "Source/Startup.h"
#include "kq/catalogue.h"
#include "kq/environment.h"

namespace {

struct Place {
    u32 ID;
    u32 Next;   // offset + 1; 0: the place is empty
};

// The header of the block that holds the places. It serves the table only as it was when it was made.
struct StringIndex {
    KQStringTable Table;
    KQStringTable* Owner;
    u32 Shift;   // the hash's upper 32 - Shift bits are the first place to look at
    u32 Mask;

    Place* Places() { return reinterpret_cast<Place*>(this + 1); }

    u32 FirstPlace(u32 id) const { return (id * 2654435769u) >> Shift; }

    bool Serves(const KQStringTable* table) const {
        return table == Owner && table->IDs == Table.IDs && table->Count == Table.Count && table->Text == Table.Text;
    }
};

// The place of the number, or the empty one where it belongs.
Place* FindPlace(StringIndex* index, u32 id) {
    for (u32 at = index->FirstPlace(id);; at = (at + 1) & index->Mask) {
        Place* place = &index->Places()[at];
        if (place->Next == 0 || place->ID == id) return place;
    }
}

char* WalkTable(const KQStringTable* table, u32 id) {
    for (i32 i = 0; i < table->Count; ++i)
        if (table->IDs[i] == id) return table->Text + table->Offsets[i];
    return nullptr;
}

void FillIndex(StringIndex* index, const KQStringTable* table) {
    for (i32 i = 0; i < table->Count; ++i) {
        Place* place = FindPlace(index, table->IDs[i]);
        if (place->Next == 0) *place = {table->IDs[i], table->Offsets[i] + 1};
    }
}

}   // namespace

char* GetStringKQ(u32 id) {
    const KQStringTable* table = KQEnv->Strings;
    if (!table || table->Count <= 0) return nullptr;
    StringIndex* index = static_cast<StringIndex*>(KQEnv->StringIndex);
    if (!index || !index->Serves(table)) return WalkTable(table, id);
    Place* place = FindPlace(index, id);
    return place->Next ? table->Text + (place->Next - 1) : nullptr;
}

namespace kq {

// Without memory, or for a table that is too large to hash, look-ups walk the table.
void IndexStrings() {
    KQStringTable* table = KQEnv->Strings;
    if (!table || table->Count <= 0 || table->Count > (1 << 28)) return;
    u32 bits = 1;
    while ((i64(1) << bits) < 2 * i64(table->Count)) ++bits;
    size_t size = sizeof(StringIndex) + (size_t(1) << bits) * sizeof(Place);
    u32 error = KQEnv->Error;
    StringIndex* index = static_cast<StringIndex*>(KQ_ALLOC(size, KQMEM_Clear));
    KQEnv->Error = error;
    KQEnv->StringIndex = index;
    if (!index) return;
    index->Table = *table;
    index->Owner = table;
    index->Shift = 32 - bits;
    index->Mask = (u32(1) << bits) - 1;
    FillIndex(index, table);
}

}   // namespace kq
