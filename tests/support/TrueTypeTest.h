// Fonts built byte by byte. At 1000 points and 72 pixels an inch a unit of these fonts is a pixel, and their descender
// of -200 puts the base line 200 pixels below the origin: a point (x, y) of a glyph comes out as (x, 200 - y).
#pragma once

#include <cstdio>
#include <string>

#include "kq/font.h"
#include "support/Fixture.h"
#include "support/FontBuilder.h"

namespace kqtest {

// An outline as text: M, L and C with their values, Z for a close, E for the end.
inline std::string Spell(const KQOutlineCommand* command) {
    std::string text;
    for (;; command = KQNextOutline(command)) {
        text += "EMLCZ"[command->kind];
        for (u32 i = 0; i < KQOutlineCount(command->kind); ++i) {
            char value[40];
            std::snprintf(value, sizeof value, " %.10g", KQOutlineValues(command)[i]);
            text += value;
        }
        if (command->kind == KQOUTLINE_END) return text;
        text += " ";
    }
}

// Bytes from the block's start to behind its end mark.
inline size_t BytesOf(const KQOutlineCommand* block) {
    const KQOutlineCommand* end = block;
    while (end->kind != KQOUTLINE_END) end = KQNextOutline(end);
    return size_t(reinterpret_cast<const u8*>(end + 1) - reinterpret_cast<const u8*>(block));
}

inline const Contour kTriangle = {{0, 0, true}, {100, 0, true}, {0, 100, true}};
inline constexpr char kTriangleText[] = "M 0 200 L 100 200 L 0 100 L 0 200 Z E";

class TrueTypeTest : public KQTest {
protected:
    void TearDown() override {
        CloseFontKQ(&font);
        KQTest::TearDown();
    }

    // Opens a file; 1000 points at 72 pixels an inch.
    int OpenBytes(const std::string& bytes, i32 style = 0, i32 face = 0) {
        CloseFontKQ(&font);
        path_ = Folder() + "font.ttf";
        WriteWholeFile(path_, bytes);
        font.fontFile = path_.c_str();
        font.faceIndex = face;
        return OpenFontKQ(&font, style, 1000, 72, 72);
    }

    void Open(const FontBuilder& builder, i32 style = 0) { ASSERT_NE(OpenBytes(builder.Build(), style), 0); }

    std::string Outline(u8 character, f64 x = 0, f64 y = 0) {
        KQOutlineCommand* block = GetFontOutlineKQ(character, &font, x, y);
        if (!block) return "null";
        std::string text = Spell(block);
        EXPECT_LE(BytesOf(block), (reinterpret_cast<KQBlockHeader*>(block) - 1)->Size);
        FreeMemoryKQ(block);
        return text;
    }

    // The outline of a font with this glyph at 'A'.
    std::string OutlineOf(const std::string& glyph, i32 style = 0) {
        Open(FontBuilder().Add("").Add(glyph), style);
        return Outline('A');
    }

    f64 KernX(u8 left, u8 right) {
        f64 x = 77, y = 77;
        GetKernKQ(&font, left, right, &x, &y);
        EXPECT_EQ(y, 0.0);
        return x;
    }

    f64 Advance(u8 character) {
        f64 x = 77, y = 77;
        GetCursorAdvanceKQ(character, &font, &x, &y);
        EXPECT_EQ(y, 0.0);
        return x;
    }

    // Every call on a font that may be damaged.
    void UseAll() {
        for (int c = 0; c < 256; ++c) {
            FreeMemoryKQ(GetFontOutlineKQ(u8(c), &font, 0, 0));
            Advance(u8(c));
            KernX(u8(c), u8(255 - c));
        }
        GetLineAdvanceKQ(&font);
    }

    KQFont font = {};

private:
    std::string path_;
};

// Glyphs 0 (missing), 1 'A' a triangle, 2 'B' a square to the right.
inline FontBuilder Letters() {
    Contour square = {{200, 0, true}, {300, 0, true}, {300, 100, true}, {200, 100, true}};
    return FontBuilder().Add("").Add(SimpleGlyph({kTriangle}), 600).Add(SimpleGlyph({square}, 200), 700, 200);
}

}   // namespace kqtest
