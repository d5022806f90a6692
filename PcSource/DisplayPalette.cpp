// What the library keeps of the display: the service that draws pixels from memory and, on a screen of 256 colours, a
// palette with the interface's colours and a cube that every other colour comes near to.
#include "PcSource/DisplayPalette.h"

#include <algorithm>

#include "Source/Parallel.h"
#include "Source/Startup.h"

namespace kq {

namespace {

constexpr i32 kCubeSteps = 6;
constexpr i32 kCubeStep = 51;

// `index` may be any place; those outside first to end are dropped.
struct EntryWriter {
    pal::PaletteEntry* entries;
    i32 next, end;

    void Add(i32 red, i32 green, i32 blue) {
        if (next < end) entries[next++] = {u8(red), u8(green), u8(blue), pal::kNoCollapse};
    }
};

void AddInterfaceColours(EntryWriter* writer, const KQGUIInfo& gui) {
    for (u32 colour : {gui.ColorHighlight, gui.ColorShadow, gui.ColorSelected, gui.ColorBackground, gui.ColorPanel,
                       gui.ColorText, gui.ColorTabStrip, gui.ColorWhite})
        writer->Add(i32(colour >> 16 & 255), i32(colour >> 8 & 255), i32(colour & 255));
}

void AddCube(EntryWriter* writer) {
    for (i32 red = 0; red < kCubeSteps; ++red)
        for (i32 green = 0; green < kCubeSteps; ++green)
            for (i32 blue = 0; blue < kCubeSteps; ++blue)
                writer->Add(red * kCubeStep, green * kCubeStep, blue * kCubeStep);
}

void* MakeDisplayPalette() {
    pal::DisplayFormat format = pal::AskDisplayFormat();
    if (!format.hasPalette) return nullptr;
    pal::PaletteEntry system[256] = {}, entries[256];
    void* context = pal::TakeScreenContext();
    bool known = pal::ReadSystemPalette(context, system);
    pal::ReleaseScreenContext(context);
    if (!known) return nullptr;
    BuildDisplayPalette(system, format.staticColours, *KQEnv->GUI, entries);
    return pal::MakePalette(entries);
}

}   // namespace

void BuildDisplayPalette(const pal::PaletteEntry system[256], i32 staticColours, const KQGUIInfo& colours,
                         pal::PaletteEntry entries[256]) {
    i32 kept = std::clamp(staticColours / 2, 0, 128);
    std::copy(system, system + 256, entries);
    EntryWriter writer{entries, kept, 256 - kept};
    AddInterfaceColours(&writer, colours);
    for (i32 index = writer.next; index < writer.end; ++index)
        entries[index] = {u8(256 - index), 0, 0, pal::kNoCollapse};
    AddCube(&writer);
}

void OpenDrawing() {
    NoteOwnThread(true);
    KQEnv->DrawDib = pal::OpenDibDrawing();
    KQEnv->DisplayPalette = MakeDisplayPalette();
}

void UseDisplayPalette() {
    if (KQEnv->DisplayPalette && !pal::SetDibDrawingPalette(KQEnv->DrawDib, KQEnv->DisplayPalette))
        DebugMessage("DrawDibSetPalette: Failed.");
}

void CloseDrawing() {
    NoteOwnThread(false);
    pal::CloseDibDrawing(KQEnv->DrawDib);
    KQEnv->DrawDib = nullptr;
}

void DeleteDisplayPalette() {
    pal::DeletePaletteHandle(KQEnv->DisplayPalette);
    KQEnv->DisplayPalette = nullptr;
}

}   // namespace kq
