// Fonts as geometry: the curves of characters, kerning and advances, read from TrueType tables without hinting.
//
// A font is found in the list that GetAvailableFontsKQ makes, opened at a size and a resolution, asked for outlines
// and metrics in pixels, and closed. KQLIB_FONT_DIR in the environment names a folder of TrueType files that are listed
// beside the system's fonts without being installed.
//
// A font is used by one thread at a time: the open state is in its record. What a damaged font file claims is checked
// when it is first looked at; it yields no outline and zero metrics.
// The whole file is read when the font is opened, so that it may change or go while the font is used.
#pragma once

#include <cstring>

#include "kq/lists.h"
#include "kq/types.h"

// A face as the system describes it; the layout is the system's record of the same purpose, 60 bytes.
struct KQLogFont {
    i32 height, width;   // 0: not asked for
    i32 escapement, orientation;
    i32 weight;   // 400 regular, 700 bold
    u8 italic, underline, strikeOut;
    u8 charSet;   // 1: the default
    u8 outPrecision, clipPrecision, quality, pitchAndFamily;
    char faceName[32];   // the family, zero-ended
};

static_assert(sizeof(KQLogFont) == 60);

// Bytes of a font's tables, from each table's start to its end or the file's end, whichever comes first.
struct KQFontSizes {
    u32 cmap, glyf, loca, head, hhea, hmtx, kern;
};

// Bit of KQFont::style: characters are slanted by 0.175 of their height.
inline constexpr i32 KQFONT_Oblique = 2;

// What is read of a font. A glyph beyond these limits has no outline, and a file of more bytes is not opened.
inline constexpr u32 KQFONT_MostComponents = 1024;      // of a compound glyph
inline constexpr u32 KQFONT_MostPoints = 1 << 18;       // of the components of a compound together
inline constexpr u64 KQFONT_MostBytes = u64(1) << 31;   // of a font file

// Bit of KQFont::state: the font is open.
inline constexpr u32 KQFONT_Open = 0x8000;

// One face: a node of the list that GetAvailableFontsKQ makes. Made and freed by the library; its fields are read only.
struct KQFont {
    Node node;                      // the name is the font's full name, owned; see KQFontOfNode
    List styles;                    // empty; for the caller's use
    i32 style;                      // KQFONT_ bits given to OpenFontKQ
    i32 pointSize;                  // points
    u32 state;                      // KQFONT_Open
    i32 resolutionX, resolutionY;   // pixels per inch
    f64 scaleX, scaleY;             // font units to pixels
    u8* fontData;                   // the whole font file, owned while open
    u8* cmapTable;                  // pointers into fontData
    u8* cmapRecord;                 // the encoding record in use
    u8* glyfTable;
    u8* locaTable;
    u8* headTable;
    u8* hheaTable;
    u8* hmtxTable;
    u8* kernTable;          // may be null
    void* fontHandle;       // the platform's font while open; null for a font that is listed by file
    void* oldFont;          // the one that it replaced
    KQLogFont logFont;      // as the enumeration gave it
    void* deviceContext;    // a context of the platform with the font selected, while open
    const char* fontFile;   // path of the font file, or null: the platform hands its bytes over
    i32 faceIndex;          // face of a collection, from 0
    KQFontSizes sizes;      // of the tables while open
    void* index;            // what was learnt of the 8-bit characters; made at its first use while open
    u64 fontBytes;          // bytes at fontData
};

// The font of a node in a list of fonts: the node's third word, its ID widened to a whole word, points at the font.
inline KQFont* KQFontOfNode(const Node* node) {
    static_assert(offsetof(Node, Name) - offsetof(Node, ID) >= sizeof(KQFont*) || sizeof(KQFont*) == sizeof(u32));
    KQFont* font;
    std::memcpy(&font, reinterpret_cast<const u8*>(node) + offsetof(Node, ID), sizeof font);
    return font;
}

// Kinds of outline commands. Coordinates are pixels, y downward.
enum : u32 {
    KQOUTLINE_END = 0,     // end of the block; no values
    KQOUTLINE_MOVE = 1,    // x, y: begins a contour
    KQOUTLINE_LINE = 2,    // x, y: line to the point
    KQOUTLINE_CURVE = 3,   // x, y, dx0, dy0, dx1, dy1: curve to the point, tangents at its start and its end (Hermite)
    KQOUTLINE_CLOSE = 4,   // end of a contour; no values
};

// The head of one command; its values (f64) stand behind it, and behind them the next command.
struct KQOutlineCommand {
    u32 kind;   // KQOUTLINE_
    u32 zero;
};

// How many values a command of this kind has.
constexpr u32 KQOutlineCount(u32 kind) {
    return kind == KQOUTLINE_CURVE ? 6 : kind == KQOUTLINE_MOVE || kind == KQOUTLINE_LINE ? 2 : 0;
}

// The values of a command.
inline const f64* KQOutlineValues(const KQOutlineCommand* command) { return reinterpret_cast<const f64*>(command + 1); }

// The command behind one that is not KQOUTLINE_END.
inline const KQOutlineCommand* KQNextOutline(const KQOutlineCommand* command) {
    return reinterpret_cast<const KQOutlineCommand*>(KQOutlineValues(command) + KQOutlineCount(command->kind));
}

// Appends a KQFont for each TrueType face that the platform or the folder KQLIB_FONT_DIR has to `list`, and sorts the
// list by name. A list that is all zero is made first. When memory runs out the list ends with what it has. The caller
// frees the list with FreeFontListKQ.
KQ_API void GetAvailableFontsKQ(List* list);

// Closes and frees all fonts of a list of GetAvailableFontsKQ; the list stays valid and empty. Null is ignored.
KQ_API void FreeFontListKQ(List* list);

// Opens `font` at `pointSize` points and a resolution in pixels per inch; `style` holds KQFONT_ bits. Non-zero on
// success; 0 with `Error` set when the font file cannot be had or lacks a table that is needed. A font that is open is
// closed first. The caller closes it with CloseFontKQ.
KQ_API int OpenFontKQ(KQFont* font, i32 style, i32 pointSize, i32 resolutionX, i32 resolutionY);

// Closes a font; one that is closed, and null, are left alone.
KQ_API void CloseFontKQ(KQFont* font);

// The outline of an 8-bit character (Unicode's first 256, or the characters of a symbol font) with its origin at (x, y)
// as one block of commands, freed by the caller with FreeMemoryKQ. Null for a closed font, a character without a glyph,
// data that make no sense, a glyph beyond the limits above, and with `Error` 1 when out of memory. A character that
// shows nothing gives KQOUTLINE_END alone. When memory runs out half-way, commands that do not fit are left out and
// `Error` is 1.
KQ_API KQOutlineCommand* GetFontOutlineKQ(u8 character, KQFont* font, f64 x, f64 y);

// The kerning between two 8-bit characters, in pixels to be added to the advance; 0 for a pair without one, a font
// without a `kern` table and a closed font. `*y` is always 0. Either output may be null.
KQ_API void GetKernKQ(KQFont* font, u8 left, u8 right, f64* x, f64* y);

// The way from a character's origin to the next one's, in pixels; 0 for a closed font. `*y` is always 0. Either output
// may be null.
KQ_API void GetCursorAdvanceKQ(u8 character, KQFont* font, f64* x, f64* y);

// The distance of two lines' origins in pixels; 0.0 for a closed font.
KQ_API f64 GetLineAdvanceKQ(KQFont* font);
