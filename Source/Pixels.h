// The pixel forms, how one pixel moves from a form to another, and the block of memory that a bitmap's pixels lie in.
//
// Every copy, conversion and scaling is one of these moves applied over a rectangle. The moves here are the plain
// reference; the fast kernels have to give the same bytes.
#pragma once

#include <cstring>

#include "kq/nativebitmap.h"

namespace kq {

// What a pixel's bytes mean.
enum class Form : u8 {
    Byte,     // one plain byte
    Argb,     // alpha, red, green, blue: the portable 32-bit pixel
    Rgb555,   // a little-endian word, blue in the low 5 bits, then green, then red; bit 15 is 0
    Bgr,      // blue, green, red
    Bgrx,     // blue, green, red and a byte that conversions leave alone
};

constexpr i32 PixelBytes(Form form) {
    return form == Form::Byte ? 1 : form == Form::Rgb555 ? 2 : form == Form::Bgr ? 3 : 4;
}

// The form of a native bitmap's pixels, by depth; false for a depth that conversions do not know.
inline bool NativeForm(i32 depth, Form* form) {
    if (depth != 16 && depth != 24 && depth != 32) return false;
    *form = depth == 16 ? Form::Rgb555 : depth == 24 ? Form::Bgr : Form::Bgrx;
    return true;
}

// Where the pixels of a bitmap of either kind lie. The row arithmetic is the same for both.
struct Block {
    u8* data;
    i64 size;       // bytes from data that may be touched
    i64 first;      // bytes from data to the top row
    i64 rowBytes;   // from a row to the next; negative when the bottom row comes first
    i32 pixelBytes;
    i32 width, height;

    i64 Offset(i64 x, i64 y) const { return first + y * rowBytes + x * pixelBytes; }

    // Whether rows end in bytes that are no pixels, which nobody reads.
    bool Padded() const { return rowBytes != i64(width) * pixelBytes && -rowBytes != i64(width) * pixelBytes; }
};

template <class Bitmap>
Block BlockOf(const Bitmap& bitmap) {
    return {bitmap.data,       bitmap.dataSize, bitmap.firstRowOffset, bitmap.rowBytes,
            bitmap.pixelBytes, bitmap.width,    bitmap.height};
}

// Whether two blocks share memory, so that the order of the moves shows.
inline bool Overlap(const Block& a, const Block& b) { return a.data < b.data + b.size && b.data < a.data + a.size; }

// Blue, green and red of a 16-bit pixel as bytes whose low 3 bits are 0, and back from their top 5 bits.
constexpr u8 Blue555(u32 word) { return u8((word & 31) << 3); }
constexpr u8 Green555(u32 word) { return u8((word >> 5 & 31) << 3); }
constexpr u8 Red555(u32 word) { return u8((word >> 10 & 31) << 3); }
constexpr u16 Pack555(u32 red, u32 green, u32 blue) { return u16((red >> 3) << 10 | (green >> 3) << 5 | blue >> 3); }

struct Bytes3 {
    u8 red, green, blue;
};

template <Form form>
Bytes3 LoadColour(const u8* from) {
    if constexpr (form == Form::Argb) return {from[1], from[2], from[3]};
    if constexpr (form == Form::Rgb555) {
        u32 word = u32(from[0]) | u32(from[1]) << 8;
        return {Red555(word), Green555(word), Blue555(word)};
    }
    return {from[2], from[1], from[0]};
}

// Moves one pixel. A pixel that stays a portable one or a byte moves whole; what comes from another form gets alpha
// 255.
template <Form source, Form target>
void MovePixel(const u8* from, u8* to) {
    if constexpr (source == target && (source == Form::Byte || source == Form::Argb)) {
        std::memcpy(to, from, size_t(PixelBytes(source)));
    } else {
        Bytes3 colour = LoadColour<source>(from);
        if constexpr (target == Form::Argb) {
            to[0] = 255;
            to[1] = colour.red;
            to[2] = colour.green;
            to[3] = colour.blue;
        } else if constexpr (target == Form::Rgb555) {
            u16 word = Pack555(colour.red, colour.green, colour.blue);
            to[0] = u8(word);
            to[1] = u8(word >> 8);
        } else {
            to[0] = colour.blue;
            to[1] = colour.green;
            to[2] = colour.red;
        }
    }
}

using PixelMove = void (*)(const u8* from, u8* to);

// The reference move of a pair of forms; null for a pair that has none.
PixelMove PlainMove(Form source, Form target);

}   // namespace kq
