// The wrappers of the display's table, one a slot, and the choice of the table.
#include "pal/display.h"

namespace pal {

namespace {

const DisplayTable* table = &nullDisplay;

}   // namespace

void SetDisplay(const DisplayTable* chosen) { table = chosen ? chosen : &nullDisplay; }

DisplayFormat AskDisplayFormat() {
    DisplayFormat format{};
    table->format(&format);
    return format;
}

void* TakeScreenContext() { return table->screenContext(); }

void ReleaseScreenContext(void* context) {
    if (context) table->releaseScreen(context);
}

i32 AskDibSupport(void* context, DibRequest* request) {
    return context && table->askDib ? table->askDib(context, request) : 0;
}

void* MakeMemoryContext(void* context) { return table->memoryContext(context); }

void DeleteMemoryContext(void* context) {
    if (context) table->deleteContext(context);
}

void* SelectBitmapInto(void* context, void* bitmap) { return context ? table->selectBitmap(context, bitmap) : nullptr; }

void* MakeSection(void* context, const DibHeader* header, void** pixels) {
    return table->createSection(context, header, pixels);
}

void DeleteDisplayBitmap(void* bitmap) {
    if (bitmap) table->deleteBitmap(bitmap);
}

void BlitPixels(void* target, DrawPlace to, void* source, i32 sourceX, i32 sourceY) {
    if (target && source) table->blit(target, to, source, sourceX, sourceY);
}

void StretchPixels(void* target, DrawPlace to, void* source, DrawPlace from) {
    if (target && source) table->stretch(target, to, source, from);
}

void* OpenDibDrawing() { return table->openDibDraw ? table->openDibDraw() : nullptr; }

void CloseDibDrawing(void* service) {
    if (service && table->closeDibDraw) table->closeDibDraw(service);
}

bool DrawDibPixels(void* service, void* context, DrawPlace to, const DibHeader* header, const void* pixels,
                   DrawPlace from) {
    return context && table->drawDib(service, context, to, header, pixels, from);
}

bool SetDibDrawingPalette(void* service, void* palette) {
    return service && palette && table->setDibPalette && table->setDibPalette(service, palette);
}

bool ReadSystemPalette(void* context, PaletteEntry entries[256]) {
    if (!context || !table->systemPalette) return false;
    table->systemPalette(context, entries);
    return true;
}

void* MakePalette(const PaletteEntry entries[256]) {
    return table->createPalette ? table->createPalette(entries) : nullptr;
}

void DeletePaletteHandle(void* palette) {
    if (palette && table->deletePalette) table->deletePalette(palette);
}

void* LoadImageResource(i32 id, i32* width, i32* height) {
    return table->loadImage ? table->loadImage(id, width, height) : nullptr;
}

}   // namespace pal
