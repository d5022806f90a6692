// TrueType files on disk: their bytes, the faces that a file holds with their names, and the files of a folder.
#pragma once

#include "Source/TrueTypeTables.h"
#include "pal/fonts.h"

namespace kq {

// Gets a face's description; false when it wants no more.
using FaceFunction = bool (*)(const pal::FontFace& face, void* user);

// Calls `face` for each TrueType face of each file below `folder`, until it returns false. What is no TrueType file,
// and a face without a name or without outlines, is passed over.
void EnumerateFontFolder(const char* folder, FaceFunction face, void* user);

// Calls `face` for each TrueType face of one file's bytes, which are told to come from `path`. False when `face` wants
// no more. A file that makes this too much work has its remaining faces left out.
bool EnumerateFontFaces(const truetype::Table& file, const char* path, FaceFunction face, void* user);

// Whether the file begins as a TrueType file or a collection does. `Error` is left alone.
bool IsFontFile(const char* path);

// The bytes of a font file.
struct FontBytes {
    u8* data;   // not to be written when they are mapped; null: none
    u64 length;
    bool mapped;   // a view of the file, not a block
};

// All bytes of the file, seen where they lie when the host can show them, else read into a block. Without data on
// failure, with `Error` set. The caller gives them back with FreeFontBytes.
FontBytes OpenFontBytes(const char* path);

void FreeFontBytes(const FontBytes& bytes);

}   // namespace kq
