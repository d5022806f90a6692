// The arithmetic of the interface's sizes. Words of 16 bits wrap as the records that hold them do.
#include "Source/Metrics.h"

#include <algorithm>

namespace kq {

namespace {

constexpr i32 kWidestGrid = 1024;
constexpr i16 kGridCells = 14;

// Height of a text cell of the main font, as its metrics tell on a screen, by the height it was asked for.
i32 TextHeight(i32 fontHeight) { return fontHeight == -11 ? 14 : 12; }

}   // namespace

FontHeights InterfaceFontHeights(i32 displayWidth) {
    return displayWidth >= 1000 ? FontHeights{-11, -9} : FontHeights{-9, -7};
}

void ComputeGridWidths(i16 widths[5], i32 available, i16 cells, i16 spacing) {
    i32 s = spacing;
    i32 g = i16((std::min(available, kWidestGrid) / cells - s) * 3) / 4;
    g &= ~3;
    // Thirds and sixths divide when the cell does by 6, quarters when it does with both its gaps by 4.
    for (int tries = 0; tries < 10 && !(g % 6 == 0 && (2 * s + g) % 4 == 0); ++tries) g -= 4;
    i32 u = i16(s + g + 4 * s);
    widths[0] = i16((2 * u - s) / 3);
    widths[1] = i16((u - s) / 2);
    widths[2] = i16((u - 2 * s) / 3);
    widths[3] = i16((u - 3 * s) / 4);
    widths[4] = i16((u - 5 * s) / 6);
}

i16 ComputeRowHeight(i32 textHeight) { return i16(textHeight * 7 / 4 - 4); }

FramePlace SavedFramePlace(const KQEnvironment& environment) {
    if (environment.AppWindowMaximised) return {0, 0, 640, 400, true};
    return SavedMainWindowPlace(environment);
}

FramePlace SavedMainWindowPlace(const KQEnvironment& environment) {
    FramePlace place{environment.AppWindowX, environment.AppWindowY, environment.AppWindowW, environment.AppWindowH,
                     environment.AppWindowMaximised != 0};
    if (place.width >= 1 && place.height >= 1) return place;
    return {place.x, place.y, 640, 480, true};
}

void ComputeMetrics(KQGUIInfo* gui, i32 width, i32 displayWidth) {
    ComputeGridWidths(gui->GridWidths, width - 2 * gui->PaletteInset, kGridCells, gui->GroupSpacingY);
    gui->RowHeight = ComputeRowHeight(TextHeight(InterfaceFontHeights(displayWidth).main));
}

}   // namespace kq
