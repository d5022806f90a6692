// How the imaging component lays out pixels, and their turning into bytes of alpha, red, green and blue.
//
// The forms that files mostly have are turned here, so that the result is exact: 16 bits become 8 by rounding, and
// premultiplied colours are divided by rounding. What is not in the table the component's own converter turns first.
#pragma once

#include "modules/stills/wic/Com.h"

namespace stills {

struct Layout {
    const GUID* format;
    int channelBytes;              // 1 or 2, low byte first
    int channels;                  // of a pixel
    int alpha, red, green, blue;   // which channel; alpha -1 for none
    bool premultiplied;
};

// The layout of `format`; null when it has to be converted, to kConverted.
const Layout* FindLayout(const GUID& format);
extern const Layout& kConverted;

// Turns `count` pixels of a row into `out`, 4 bytes each; pixel i is the row's pixel `columns[i]`.
void TurnRow(const Layout& layout, const std::uint8_t* row, const int* columns, int count, std::uint8_t* out);

}   // namespace stills
