// The string catalogue: the user-visible text of an application in a file of its own, reached by number.
//
// The catalogue is a text file of lines
//
//     #include "header"
//     #define SYMBOL "text"
//
// and the header that it names gives each symbol its number in lines of the form `#define SYMBOL 123`. Anything else
// in both files is passed over. In a text `\n` becomes a line feed; `\"` does not end the text and stays as it is. A
// relative header name is relative to the current folder. InitKQ reads both files once, or takes a table that was made
// ready by KQTAG_InitStrings.
#pragma once

#include "kq/types.h"

// The strings with their numbers. A table that the application makes must not change while the library uses it.
struct KQStringTable {
    i32 Count;      // strings
    u32* IDs;       // their numbers, in the order of the file
    u32* Offsets;   // where each starts in Text
    char* Text;     // all strings, each ended by a zero and padded to an even length
};

// The text with this number, the first one of several. Null when there is no table, or no such number; `Error` stays
// as it is. Owned by the table. O(1).
KQ_API char* GetStringKQ(u32 id);

// Reads the catalogue `fileName`, a path as the platform takes it, and the header that it names. Null for a null name
// and on failure, with `Error` 7 when the files make no sense and the reason of the failed call otherwise; freed by
// FreeStringTable. Nothing is kept of a catalogue that is wrong in one place; DebugMessage tells which.
KQ_API KQStringTable* LoadStringTable(const char* fileName);

// Frees a table of LoadStringTable. Null is ignored.
KQ_API void FreeStringTable(KQStringTable* table);
