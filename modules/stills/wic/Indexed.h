// Writing of pictures with a palette.
#pragma once

#include <vector>

#include "modules/stills/wic/Com.h"

namespace stills {

// Gives the frame its pixel format, palette and pixels. Up to 256 colours are kept exactly; of more, the imaging
// component picks 256. Alpha below 128 is transparent, when the picture has alpha, and all else opaque. Returns the
// palette's transparent entry, or -1.
int WriteIndexed(IWICImagingFactory* factory, IWICBitmapFrameEncode* frame, const Head& head,
                 const std::uint8_t* pixels);

// Makes an entry of a GIF's palette transparent. Not every encoder takes that from the palette.
void MarkTransparent(std::vector<std::uint8_t>& gif, int entry);

}   // namespace stills
