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

// Reads the whole file into a new block, freed by the caller, and tells its length. Null on failure, with `Error` set.
u8* ReadFontFile(const char* path, u64* length);

}   // namespace kq
