// Words on a picture: a common TrueType font of the machine, smooth, or a plain font of dots where there is none.
#pragma once

#include <memory>
#include <string>

#include "apps/kqclip/Picture.h"

namespace kqclip {

class Lettering {
public:
    Lettering();
    ~Lettering();
    Lettering(const Lettering&) = delete;
    Lettering& operator=(const Lettering&) = delete;

    // Draws a line of text `pixels` high, descenders included, that ends at `y` below, and returns where it ends on the
    // right. Letters beyond Latin-1 are left out.
    int Draw(Picture& picture, int x, int y, int pixels, const std::string& utf8, Colour colour);

    // The width of the same.
    int Width(int pixels, const std::string& utf8);

private:
    double DrawSmooth(Picture* picture, double x, int y, int pixels, const std::string& utf8, Colour colour);

    List fonts_ = {};
    KQFont* font_ = nullptr;   // of fonts_; null: dots
};

}   // namespace kqclip
