// The palette of 8-bit displays, and what the library keeps of the display between start-up and clean-up.
#pragma once

#include "kq/environment.h"
#include "pal/display.h"

namespace kq {

// Makes the 256 entries that the library asks an 8-bit display for, from the system's palette and the number of its
// static colours: the first half of the static ones, eight interface colours, a cube of 6 x 6 x 6 colours, and the
// other half of the static ones. Places that the cube does not reach hold a colour of their own.
void BuildDisplayPalette(const pal::PaletteEntry system[256], i32 staticColours, const KQGUIInfo& colours,
                         pal::PaletteEntry entries[256]);

}   // namespace kq
