// The curves of one character.
#pragma once

#include "Source/TrueTypeIndex.h"

namespace kq::truetype {

// The outline of `character` of an open font with its origin at (x, y), as GetFontOutlineKQ gives it.
KQOutlineCommand* OutlineOf(KQFont* font, u8 character, f64 x, f64 y);

}   // namespace kq::truetype
