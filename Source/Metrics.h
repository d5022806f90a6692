// Interface metrics from the display's width: font heights, the grid of gadget widths, and the frame's first place.
// Pure arithmetic, so that it needs no screen.
#pragma once

#include "kq/environment.h"

namespace kq {

// Heights in pixels that the interface fonts are asked for, negative as for a font without its leading.
struct FontHeights {
    i32 main, small;
};

// By the width of the display in pixels.
FontHeights InterfaceFontHeights(i32 displayWidth);

// Widths of gadgets that take a third, a half, two other thirds, a quarter and a sixth of a row, in `available` pixels
// of `cells` cells with `spacing` between gadgets.
void ComputeGridWidths(i16 widths[5], i32 available, i16 cells, i16 spacing);

// The row height of an interface font whose cells are `textHeight` pixels high.
i16 ComputeRowHeight(i32 textHeight);

// Where the main frame is created.
struct FramePlace {
    i32 x, y, width, height;
    bool maximised;
};

// From the saved place in the environment. Without a saved size the frame is maximised over 640 x 480, and one that was
// maximised when it was saved has 640 x 400 at 0, 0.
FramePlace SavedFramePlace(const KQEnvironment& environment);

// The same for the one window of single-window mode, which has no nominal size: a saved size counts whatever the saved
// state was, and without one the window is maximised over 640 x 480.
FramePlace SavedMainWindowPlace(const KQEnvironment& environment);

// Fills GridWidths for gadgets that share `width` pixels, less the inset on both sides, and RowHeight for the fonts of
// a display of `displayWidth` pixels.
void ComputeMetrics(KQGUIInfo* gui, i32 width, i32 displayWidth);

}   // namespace kq
