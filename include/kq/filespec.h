// File specifications: the library's only way of naming a file or folder, in its own block of memory.
//
// A specification is the native path as a zero-ended string. `\` and `:` separate; on Linux a path that holds a `/` is
// a native path, and `/` alone separates it.
#pragma once

#include "kq/tags.h"
#include "kq/types.h"

// A copy of `text` in its own block, freed with FreeFileSpecKQ. Null for a null text (with `Error` untouched) and,
// with `Error` 1, when out of memory.
KQ_API char* MakeFileSpecKQ(const char* text);

// The same under the name that says what it is for.
KQ_API char* CopyFileSpecKQ(const char* spec);

// Frees a specification; null is allowed.
KQ_API void FreeFileSpecKQ(char* spec);

// Writes the part behind the last separator to `name`. The first character is not looked at as a separator.
KQ_API void GetFileNameKQ(const char* spec, char* name);

// Writes the part up to and including the last separator to `path`; a spec without any separator is copied whole.
// Returns 1.
KQ_API int GetPathKQ(const char* spec, char* path);
