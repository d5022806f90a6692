// Writing of pictures with a palette.
#pragma once

#include "modules/stills/wic/Com.h"

namespace stills {

// Gives the frame its pixel format, palette and pixels. Up to 256 colours are kept exactly; of more, the imaging
// component picks 256. Alpha below 128 is transparent, when the picture has alpha, and all else opaque.
void WriteIndexed(IWICImagingFactory* factory, IWICBitmapFrameEncode* frame, const Head& head,
                  const std::uint8_t* pixels);

}   // namespace stills
