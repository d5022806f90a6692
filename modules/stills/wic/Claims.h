// What the head of a file claims, looked at before a decoder makes room for it.
#pragma once

#include "modules/stills/wic/Com.h"

namespace stills {

// Throws when a picture of this size is not read.
void CheckSize(UINT width, UINT height);

// Throws when the file claims what its decoder would work on without end: some decoders make room for everything before
// they can be asked for the size. A file that cannot be read passes, and the decoder says why.
void CheckClaims(const wchar_t* path);

}   // namespace stills
