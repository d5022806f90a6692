// TrueType files on disk: the faces that a file holds with their names, and the files of a folder.
#pragma once

#include "pal/fonts.h"

namespace kq {

// Calls `face` for each TrueType face of each file below `folder`, until it returns false. What is no TrueType file,
// and a face without a name or without outlines, is passed over.
void EnumerateFontFolder(const char* folder, bool (*face)(const pal::FontFace& face, void* user), void* user);

// Reads the whole file into a new block, freed by the caller, and tells its length. Null on failure, with `Error` set.
u8* ReadFontFile(const char* path, u64* length);

}   // namespace kq
