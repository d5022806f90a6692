// What the library needs of a display: its format, contexts, bitmaps that can be drawn into, drawing of pixels from
// memory, the palette of an 8-bit screen, and image resources.
//
// The display is a table of operations that is chosen at run time. Until a desktop gives its own, the display without
// a screen of pal/null answers, 1920 x 1080 pixels of 24 bits; tests put in tables of theirs. The functions below the
// table are the only callers of its slots: they know which slot may be absent, and what then happens. All belong to
// the thread of the interface. Handles are opaque, and null is none.
#pragma once

#include "kq/types.h"

namespace pal {

struct DisplayFormat {
    i32 width, height;   // pixels of the screen
    i32 depth;           // bits a pixel
    bool hasPalette;     // the screen shows 256 colours of a palette
    i32 staticColours;   // entries of the system palette that are the system's own, half at each end
};

// An entry of a palette. `flags` holds kNoCollapse or 0.
struct PaletteEntry {
    u8 red, green, blue, flags;
};

inline constexpr u8 kNoCollapse = 4;   // the entry gets a place of its own though an equal colour has one

// The header of a device-independent bitmap, of the layout that displays take.
struct DibHeader {
    u32 size;                            // 40
    i32 width, height;                   // positive height: bottom row first
    u16 planes, bitCount;                // 1; bits a pixel
    u32 compression, imageSize;          // 0; bytes of the pixels
    i32 xPelsPerMeter, yPelsPerMeter;    // 0
    u32 coloursUsed, coloursImportant;   // 0
};

static_assert(sizeof(DibHeader) == 40);

// The request of a bitmap format, with room for the driver's answer behind it.
struct DibRequest {
    DibHeader header;
    u32 answer;
};

static_assert(sizeof(DibRequest) == 44);

// A place in a context or a bitmap.
struct DrawPlace {
    i32 x, y, width, height;

    bool operator==(const DrawPlace&) const = default;
};

struct DisplayTable {
    // Fills `format`. Required.
    void (*format)(DisplayFormat* format);

    // The context of the whole screen, to be given back with releaseScreen; null on failure. Required, both.
    void* (*screenContext)();
    void (*releaseScreen)(void* context);

    // Asks the driver whether it takes the request's bitmap format; above 0 means that `answer` is set. Optional:
    // without it the answer is 0.
    i32 (*askDib)(void* context, DibRequest* request);

    // A memory context compatible with `context`, to be given back with deleteContext; null on failure. Required, both.
    void* (*memoryContext)(void* context);
    void (*deleteContext)(void* context);

    // Makes `bitmap` the memory context's drawing target and returns the one before, null for none; a null `bitmap`
    // takes it out. Required.
    void* (*selectBitmap)(void* context, void* bitmap);

    // Makes a bitmap whose pixels, bottom row first as `header` says, lie at `*pixels` until it is deleted. Null on
    // failure. Required.
    void* (*createSection)(void* context, const DibHeader* header, void** pixels);

    // Deletes a bitmap of createSection or loadImage. Required.
    void (*deleteBitmap)(void* bitmap);

    // Copies pixels from the bitmap of one context to another, cut by both, of one size or stretched. Required, both.
    void (*blit)(void* target, DrawPlace to, void* source, i32 sourceX, i32 sourceY);
    void (*stretch)(void* target, DrawPlace to, void* source, DrawPlace from);

    // Opens and closes the service that draws pixels from memory. Optional, both: without them the handle is null.
    void* (*openDibDraw)();
    void (*closeDibDraw)(void* service);

    // Draws the part `from` of the pixels of `header`, stretched to `to`. False when nothing was drawn. Required.
    bool (*drawDib)(void* service, void* context, DrawPlace to, const DibHeader* header, const void* pixels,
                    DrawPlace from);

    // Gives the palette of a palette display to the drawing service. Optional: without it the answer is false.
    bool (*setDibPalette)(void* service, void* palette);

    // Sets the system palette back to its own static colours and copies its 256 entries. Optional: without it the
    // library makes no palette.
    void (*systemPalette)(void* context, PaletteEntry entries[256]);

    // Makes and deletes a palette of 256 entries. Optional, both: without them there is none.
    void* (*createPalette)(const PaletteEntry entries[256]);
    void (*deletePalette)(void* palette);

    // The image resource `id` of the library as a bitmap, with its size; null when there is none. Optional: without
    // it there is none.
    void* (*loadImage)(i32 id, i32* width, i32* height);
};

// Puts in the table that answers from now on; null is the display without a screen. The table must stay valid, and
// handles of one table must not reach another.
void SetDisplay(const DisplayTable* table);

// The table of the display without a screen, for tables that change some of its slots.
extern const DisplayTable nullDisplay;

// The operations, each as its slot says. Handles that are null are ignored, or give null.
DisplayFormat AskDisplayFormat();
void* TakeScreenContext();
void ReleaseScreenContext(void* context);
i32 AskDibSupport(void* context, DibRequest* request);
void* MakeMemoryContext(void* context);
void DeleteMemoryContext(void* context);
void* SelectBitmapInto(void* context, void* bitmap);
void* MakeSection(void* context, const DibHeader* header, void** pixels);
void DeleteDisplayBitmap(void* bitmap);
void BlitPixels(void* target, DrawPlace to, void* source, i32 sourceX, i32 sourceY);
void StretchPixels(void* target, DrawPlace to, void* source, DrawPlace from);
void* OpenDibDrawing();
void CloseDibDrawing(void* service);
bool DrawDibPixels(void* service, void* context, DrawPlace to, const DibHeader* header, const void* pixels,
                   DrawPlace from);
bool SetDibDrawingPalette(void* service, void* palette);
bool ReadSystemPalette(void* context, PaletteEntry entries[256]);
void* MakePalette(const PaletteEntry entries[256]);
void DeletePaletteHandle(void* palette);
void* LoadImageResource(i32 id, i32* width, i32* height);

}   // namespace pal
