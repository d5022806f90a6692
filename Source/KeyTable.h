// The parsed table of the key file: 16-bit triples of key, command and value in one array, sections one behind the
// other, each ended by three zero words.
#pragma once

#include "kq/environment.h"
#include "kq/keys.h"

namespace kq {

inline constexpr int kKeyEntryWords = 3;

// The bits of a qualifier that take part in a look-up.
inline constexpr u32 kKeyQualifiers = 0x1E00;

inline bool EndsSection(const u16* entry) { return entry[0] == 0 && entry[1] == 0 && entry[2] == 0; }

// Sorts the table of KQEnv for the look-ups. Without memory they walk the table instead.
void IndexKeyTable(KQKeySection* sections);

// Gives the memory of IndexKeyTable back.
void FreeKeyIndex();

// The command that `section` binds to the key, 0 for none; stores the value of the binding (`value` may be null). A
// null section, or one without keys, has none.
u16 FindKeyCommand(const KQKeySection* section, u32 code, u32 qualifier, i16* value);

// The key word that is bound to `command` first in the chain of sections given to InitKQ; 0 for none.
u16 FindCommandKey(u32 command);

// What palettes and the pump put in where keys become commands. Until they land nobody sends, and no palette has keys.
struct KeyTarget {
    const KQKeySection* (*paletteKeys)(KQPalette* palette) = nullptr;   // a palette's own section, null for none
    bool (*isModal)(KQPalette* palette) = nullptr;                      // whether the palette is a modal dialog
    void (*sendCommand)(u16 command) = nullptr;                         // sends the command event
};

extern KeyTarget keyTarget;

// The bit of a qualifier that tells a key release.
inline constexpr u32 kKeyRelease = 0x4000;

// For a key event that nobody consumed: sends the command that the active palette's own section, or else the first
// section of the application, binds to the key. A release matches nothing; a modal palette keeps the application's
// section out.
void TryKeyEquivalent(u32 code, u32 qualifier);

}   // namespace kq
