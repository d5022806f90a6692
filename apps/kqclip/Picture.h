// A picture that the tool composes and writes as PNG: four bytes a pixel, red, green, blue, alpha (straight).
#pragma once

#include <KQLib.h>

#include <string>
#include <vector>

namespace kqclip {

struct Colour {
    u8 red, green, blue;
};

class Picture {
public:
    Picture(int width, int height, Colour background);

    int Width() const { return width_; }

    int Height() const { return height_; }

    void FillRect(int x, int y, int width, int height, Colour colour);

    // Draws `bitmap` (32 bits, straight alpha) into the rectangle, averaging over the area that each pixel covers, and
    // laid over what is there.
    void DrawScaled(const KQBitmap* bitmap, int x, int y, int width, int height);

    // Takes the pixels of a bitmap of the picture's size as they are, alpha included.
    void TakePixels(const KQBitmap* bitmap);

    // Lays `share`, 0 to 1, of a colour over the pixel; one beside the picture is left alone.
    void Blend(int x, int y, Colour colour, double share);

    // Draws text with its top left at (x, y), `scale` pixels a dot; TextWidth tells its width.
    void DrawText(int x, int y, int scale, const std::string& text, Colour colour);
    static int TextWidth(int scale, const std::string& text);

    // Writes a PNG, whole or not at all; throws Failure.
    void WritePNG(const std::string& file, bool overwrite) const;

private:
    u8* At(int x, int y) { return &pixels_[(size_t(y) * size_t(width_) + size_t(x)) * 4]; }

    int width_, height_;
    std::vector<u8> pixels_;
};

}   // namespace kqclip
