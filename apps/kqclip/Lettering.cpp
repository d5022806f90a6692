#include "apps/kqclip/Lettering.h"

#include <algorithm>
#include <cmath>

namespace kqclip {

namespace {

// Coverage of an outline, by the area to the right of each of its edges: an edge adds its share to the cells that it
// crosses, and the sum along a row is what the outline covers.
class Coverage {
public:
    Coverage(int width, int height) : width_(width), height_(height), area_(size_t(width + 2) * size_t(height)) {}

    void Line(double x0, double y0, double x1, double y1) {
        if (y0 == y1) return;
        double direction = y0 < y1 ? 1.0 : -1.0;
        if (y0 > y1) {
            std::swap(x0, x1);
            std::swap(y0, y1);
        }
        double slope = (x1 - x0) / (y1 - y0);
        for (int row = std::max(int(std::floor(y0)), 0); row < std::min(int(std::ceil(y1)), height_); ++row) {
            double top = std::max(double(row), y0), bottom = std::min(row + 1.0, y1);
            if (bottom <= top) continue;
            Part(row, x0 + (top - y0) * slope, x0 + (bottom - y0) * slope, direction * (bottom - top));
        }
    }

    void Curve(const double (&p)[8]) {
        double x = p[0], y = p[1];
        constexpr int kParts = 8;
        for (int i = 1; i <= kParts; ++i) {
            double t = double(i) / kParts, u = 1 - t;
            double a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
            double nextX = a * p[0] + b * p[2] + c * p[4] + d * p[6], nextY = a * p[1] + b * p[3] + c * p[5] + d * p[7];
            Line(x, y, nextX, nextY);
            x = nextX;
            y = nextY;
        }
    }

    // `tell` gets x, y and the coverage, 0 to 1, of each pixel that is covered.
    template <class Tell>
    void Each(Tell tell) const {
        for (int y = 0; y < height_; ++y) {
            double sum = 0;
            for (int x = 0; x < width_; ++x) {
                sum += area_[size_t(y) * size_t(width_ + 2) + size_t(x)];
                if (double share = std::min(std::fabs(sum), 1.0); share > 0.002) tell(x, y, share);
            }
        }
    }

private:
    // A piece within one row: cells left of it get nothing, cells right of it all, those that it crosses their share.
    void Part(int row, double x0, double x1, double height) {
        double from = std::clamp(std::min(x0, x1), 0.0, double(width_)),
               to = std::clamp(std::max(x0, x1), 0.0, double(width_));
        double* cells = &area_[size_t(row) * size_t(width_ + 2)];
        int first = int(from), last = std::max(int(std::ceil(to)) - 1, first);
        double before = 0;
        for (int cell = first; cell <= last; ++cell) {
            double now = Covered(cell, from, to) * height;
            cells[cell] += now - before;
            before = now;
        }
        cells[last + 1] += height - before;
    }

    // The mean share of `cell` that lies right of an edge from `from` to `to`.
    static double Covered(int cell, double from, double to) {
        if (to - from < 1e-9) return cell + 1 - from;
        // The edge's position is even between from and to; the share is 1 left of the cell, 0 right of it.
        double lo = std::clamp(cell + 0.0, from, to), hi = std::clamp(cell + 1.0, from, to);
        double left = lo - from, inside = hi - lo, mean = cell + 1 - (lo + hi) / 2;
        return (left + inside * mean) / (to - from);
    }

    int width_, height_;
    std::vector<double> area_;
};

void AddOutline(Coverage& coverage, const KQOutlineCommand* command) {
    double x = 0, y = 0, startX = 0, startY = 0;
    for (; command && command->kind != KQOUTLINE_END; command = KQNextOutline(command)) {
        const f64* v = KQOutlineValues(command);
        switch (command->kind) {
        case KQOUTLINE_MOVE:
            startX = v[0];
            startY = v[1];
            break;
        case KQOUTLINE_LINE: coverage.Line(x, y, v[0], v[1]); break;
        // A tangent is three times the way to the control point of the same cubic.
        case KQOUTLINE_CURVE:
            coverage.Curve({x, y, x + v[2] / 3, y + v[3] / 3, v[0] - v[4] / 3, v[1] - v[5] / 3, v[0], v[1]});
            break;
        case KQOUTLINE_CLOSE:
            coverage.Line(x, y, startX, startY);
            x = startX;
            y = startY;
            continue;
        default: continue;
        }
        x = v[0];
        y = v[1];
    }
}

// The next Latin-1 character of UTF-8 text, or 0 for another one; moves on.
u8 NextCharacter(const std::string& text, size_t& at) {
    u8 byte = u8(text[at++]);
    if (byte < 0x80) return byte;
    bool two = (byte == 0xC2 || byte == 0xC3) && at < text.size();
    if (two) return u8((byte & 3) << 6 | (u8(text[at++]) & 63));
    while (at < text.size() && (u8(text[at]) & 0xC0) == 0x80) ++at;
    return 0;
}

// What the font of dots has of a text: others become question marks.
std::string Plain(const std::string& utf8) {
    std::string plain;
    for (size_t at = 0; at < utf8.size();) {
        u8 character = NextCharacter(utf8, at);
        plain += character >= ' ' && character <= '~' ? char(character) : '?';
    }
    return plain;
}

constexpr int kDotHeight = 8;   // pixels of the font of dots

}   // namespace

Lettering::Lettering() {
    GetAvailableFontsKQ(&fonts_);
    for (const char* name : {"DejaVu Sans", "Liberation Sans", "Arial"})
        if (Node* node = font_ || List_Empty(&fonts_) ? nullptr : Find_Name(&fonts_, name)) font_ = KQFontOfNode(node);
}

Lettering::~Lettering() { FreeFontListKQ(&fonts_); }

double Lettering::DrawSmooth(Picture* picture, double x, int y, int pixels, const std::string& utf8, Colour colour) {
    if (!OpenFontKQ(font_, 0, pixels, 72, 72)) return x;
    u8 before = 0;
    for (size_t at = 0; at < utf8.size();) {
        u8 character = NextCharacter(utf8, at);
        if (!character) continue;
        f64 across = 0, down = 0;
        if (before) GetKernKQ(font_, before, character, &across, &down);
        x += across;
        int left = int(std::floor(x)) - pixels, top = y - 2 * pixels;   // room for what leans out of its place
        KQOutlineCommand* block = picture ? GetFontOutlineKQ(character, font_, x - left, 2.0 * pixels) : nullptr;
        if (block) {
            Coverage coverage(3 * pixels, 3 * pixels);
            AddOutline(coverage, block);
            coverage.Each([&](int px, int py, double share) { picture->Blend(left + px, top + py, colour, share); });
        }
        FreeMemoryKQ(block);
        GetCursorAdvanceKQ(character, font_, &across, &down);
        x += across;
        before = character;
    }
    CloseFontKQ(font_);
    return x;
}

int Lettering::Draw(Picture& picture, int x, int y, int pixels, const std::string& utf8, Colour colour) {
    if (font_) return int(std::ceil(DrawSmooth(&picture, x, y, pixels, utf8, colour)));
    int scale = std::max(pixels / 10, 1);
    picture.DrawText(x, y - kDotHeight * scale, scale, Plain(utf8), colour);
    return x + Picture::TextWidth(scale, Plain(utf8));
}

int Lettering::Width(int pixels, const std::string& utf8) {
    if (font_) return int(std::ceil(DrawSmooth(nullptr, 0, 0, pixels, utf8, {})));
    return Picture::TextWidth(std::max(pixels / 10, 1), Plain(utf8));
}

}   // namespace kqclip
