// The fonts of the host: which TrueType faces there are, and the bytes of their files.
//
// A host lists a face with the path of its file, or with a record by which it selects the font and hands the bytes
// over; it offers the second way only when it lists faces without a path.
#pragma once

#include "kq/types.h"

namespace pal {

// A face in the host's record for font requests, 60 bytes: the layout of KQLogFont.
struct LogicalFont {
    i32 height, width, escapement, orientation, weight;
    u8 italic, underline, strikeOut, charSet, outPrecision, clipPrecision, quality, pitchAndFamily;
    char faceName[32];
};

// One face; the texts are valid during the call that gets it.
struct FontFace {
    const char* name;   // the full name
    const char* file;   // path of its file, or null
    i32 index;          // face of a collection
    LogicalFont logical;
};

// Calls `face` for each TrueType face that the host has, in the host's order, until it returns false. Faces without
// outlines in TrueType form are passed over. Whether the file of a face is one as it stands, or holds one in a wrapper,
// is for the caller to see.
void EnumerateFonts(bool (*face)(const FontFace& face, void* user), void* user);

// A font that is selected for its bytes.
struct FontSelection {
    void* font;       // the created font
    void* replaced;   // what it took the place of
    void* context;
};

// Creates the font and selects it into a context of its own; false, with nothing left behind, on failure and on a host
// that lists its faces by path.
bool SelectFont(const LogicalFont& logical, FontSelection* selection);

// Puts the replaced font back and deletes context and font.
void DeselectFont(const FontSelection& selection);

// Bytes of the selected font's file, or -1.
i64 FontFileLength(const FontSelection& selection);

// Reads all `length` bytes of the file; `*directory` is where the face's table directory begins in them. False on
// failure.
bool ReadFontFile(const FontSelection& selection, void* bytes, size_t length, size_t* directory);

}   // namespace pal
