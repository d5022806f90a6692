// What tests may read of the display without a screen.
#pragma once

#include "kq/types.h"

namespace pal {

// The colour 0x00RRGGBB that was drawn last at a place of the screen; 0 where nothing was drawn and outside.
u32 NullScreenPixel(i32 x, i32 y);

// Makes the screen black again.
void ClearNullScreen();

// Contexts and bitmaps that were made and not given back.
i32 NullHandlesOut();

}   // namespace pal
