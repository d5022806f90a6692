// The display without a screen: 1920 x 1080 pixels of 24 bits in memory, so that drawing can be done and read back
// where nobody looks. Memory for the screen comes with the first drawing.
//
// Drawing goes pixel by pixel: it is exact and simple, and nobody waits for it.
#include "pal/null/display.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "pal/display.h"

namespace pal {

namespace {

constexpr i32 kWidth = 1920, kHeight = 1080;

// Pixels with the bottom row first, at 16, 24 or 32 bits.
struct Surface {
    i32 width, height, depth;
    u8* pixels;
};

// A context; its surface is null while no bitmap is selected.
struct Context {
    Surface* surface;
};

Surface screen{kWidth, kHeight, 24, nullptr};
Context screenContext{&screen};
i32 handlesOut = 0;

i64 Stride(const Surface& surface) { return (i64(surface.width) * (surface.depth / 8) + 3) & ~i64(3); }

bool Has(const Surface& surface, i64 x, i64 y) {
    return surface.pixels && x >= 0 && y >= 0 && x < surface.width && y < surface.height;
}

u8* At(const Surface& surface, i64 x, i64 y) {
    return surface.pixels + (surface.height - 1 - y) * Stride(surface) + x * (surface.depth / 8);
}

u32 Spread5(u32 five) { return five << 3 | five >> 2; }

u32 Get(const Surface& surface, i64 x, i64 y) {
    const u8* pixel = At(surface, x, y);
    if (surface.depth != 16) return u32(pixel[2]) << 16 | u32(pixel[1]) << 8 | pixel[0];
    u32 word = u32(pixel[0]) | u32(pixel[1]) << 8;
    return Spread5(word >> 10 & 31) << 16 | Spread5(word >> 5 & 31) << 8 | Spread5(word & 31);
}

void Put(const Surface& surface, i64 x, i64 y, u32 colour) {
    u8* pixel = At(surface, x, y);
    if (surface.depth == 16) {
        u32 word = (colour >> 19 & 31) << 10 | (colour >> 11 & 31) << 5 | (colour >> 3 & 31);
        pixel[0] = u8(word);
        pixel[1] = u8(word >> 8);
        return;
    }
    pixel[0] = u8(colour);
    pixel[1] = u8(colour >> 8);
    pixel[2] = u8(colour >> 16);
}

void DrawStretched(const Surface& target, DrawPlace to, const Surface& source, DrawPlace from) {
    // Only what falls on the target is gone through: the place may be far larger.
    i64 bottom = std::min<i64>(to.height, i64(target.height) - to.y),
        right = std::min<i64>(to.width, i64(target.width) - to.x);
    for (i64 y = std::max<i64>(0, -i64(to.y)); y < bottom; ++y)
        for (i64 x = std::max<i64>(0, -i64(to.x)); x < right; ++x) {
            i64 sourceX = from.x + x * from.width / to.width, sourceY = from.y + y * from.height / to.height;
            if (Has(target, to.x + x, to.y + y) && Has(source, sourceX, sourceY))
                Put(target, to.x + x, to.y + y, Get(source, sourceX, sourceY));
        }
}

// The surface that a context draws on; the screen's gets its memory here.
Surface* SurfaceOf(void* context) {
    Surface* surface = static_cast<Context*>(context)->surface;
    if (surface == &screen && !screen.pixels)
        screen.pixels = static_cast<u8*>(std::calloc(size_t(Stride(screen)), size_t(screen.height)));
    return surface;
}

void Format(DisplayFormat* format) { *format = {kWidth, kHeight, 24, false, 0}; }

void* TakeScreen() {
    ++handlesOut;
    return &screenContext;
}

void ReleaseScreen(void*) { --handlesOut; }

i32 AskDib(void*, DibRequest* request) {
    constexpr u32 kToAndFromMemoryToScreenAndStretched = 15;
    u16 bits = request->header.bitCount;
    request->answer = bits == 16 || bits == 24 || bits == 32 ? kToAndFromMemoryToScreenAndStretched : 0;
    return 1;
}

void* MakeContext(void*) {
    Context* context = new (std::nothrow) Context{nullptr};
    if (context) ++handlesOut;
    return context;
}

void DeleteContext(void* context) {
    delete static_cast<Context*>(context);
    --handlesOut;
}

void* Select(void* context, void* bitmap) {
    Surface* before = static_cast<Context*>(context)->surface;
    static_cast<Context*>(context)->surface = static_cast<Surface*>(bitmap);
    return before;
}

void* CreateSection(void*, const DibHeader* header, void** pixels) {
    if (header->width <= 0 || header->height <= 0) return nullptr;
    Surface* surface = new (std::nothrow) Surface{header->width, header->height, header->bitCount, nullptr};
    if (!surface) return nullptr;
    surface->pixels = static_cast<u8*>(std::calloc(size_t(Stride(*surface)), size_t(surface->height)));
    if (!surface->pixels) {
        delete surface;
        return nullptr;
    }
    ++handlesOut;
    *pixels = surface->pixels;
    return surface;
}

void DeleteBitmap(void* bitmap) {
    std::free(static_cast<Surface*>(bitmap)->pixels);
    delete static_cast<Surface*>(bitmap);
    --handlesOut;
}

void Stretch(void* target, DrawPlace to, void* source, DrawPlace from) {
    Surface *drawn = SurfaceOf(target), *read = SurfaceOf(source);
    if (drawn && read) DrawStretched(*drawn, to, *read, from);
}

void Blit(void* target, DrawPlace to, void* source, i32 sourceX, i32 sourceY) {
    Stretch(target, to, source, {sourceX, sourceY, to.width, to.height});
}

bool DrawDib(void*, void* context, DrawPlace to, const DibHeader* header, const void* pixels, DrawPlace from) {
    if (header->bitCount != 16 && header->bitCount != 24 && header->bitCount != 32) return false;
    Surface* drawn = SurfaceOf(context);
    if (!drawn) return false;
    Surface source{header->width, header->height, header->bitCount, static_cast<u8*>(const_cast<void*>(pixels))};
    DrawStretched(*drawn, to, source, from);
    return true;
}

// Drawing needs no state of its own; the address stands for the service.
void* OpenDibDraw() { return &screen; }

void CloseDibDraw(void*) {}

}   // namespace

const DisplayTable nullDisplay = {
    .format = Format,
    .screenContext = TakeScreen,
    .releaseScreen = ReleaseScreen,
    .askDib = AskDib,
    .memoryContext = MakeContext,
    .deleteContext = DeleteContext,
    .selectBitmap = Select,
    .createSection = CreateSection,
    .deleteBitmap = DeleteBitmap,
    .blit = Blit,
    .stretch = Stretch,
    .openDibDraw = OpenDibDraw,
    .closeDibDraw = CloseDibDraw,
    .drawDib = DrawDib,
    .setDibPalette = nullptr,
    .systemPalette = nullptr,
    .createPalette = nullptr,
    .deletePalette = nullptr,
    .loadImage = nullptr,
};

u32 NullScreenPixel(i32 x, i32 y) { return Has(screen, x, y) ? Get(screen, x, y) : 0; }

void ClearNullScreen() {
    std::free(screen.pixels);
    screen.pixels = nullptr;
}

i32 NullHandlesOut() { return handlesOut; }

}   // namespace pal
