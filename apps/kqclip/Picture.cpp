#include "apps/kqclip/Picture.h"

#include <algorithm>
#include <cmath>

#include "apps/kqclip/Outcome.h"
#include "apps/kqclip/Output.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wall"
#pragma GCC diagnostic ignored "-Wextra"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wunused-function"
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_easy_font.h>
#include <stb/stb_image_write.h>
#pragma GCC diagnostic pop

namespace kqclip {

namespace {

// What of a source row or column a target pixel covers.
struct Span {
    int first, last;     // source indices, both included
    double head, tail;   // shares of the first and the last
};

std::vector<Span> Spans(int source, int target) {
    std::vector<Span> spans;
    for (int i = 0; i < target; ++i) {
        double from = double(i) * source / target, to = double(i + 1) * source / target;
        int first = std::min(int(from), source - 1), last = std::min(int(std::ceil(to)) - 1, source - 1);
        last = std::max(last, first);
        spans.push_back({first, last, std::min(to, first + 1.0) - from, to - last});
    }
    return spans;
}

double ShareOf(const Span& span, int index) {
    if (index == span.first) return span.head;
    return index == span.last ? span.tail : 1.0;
}

// The mean of the area's pixels, colours weighted by alpha: red, green, blue premultiplied, and alpha, 0 to 255.
void Average(const KQBitmap* bitmap, const Span& columns, const Span& rows, double mean[4]) {
    double sum[4] = {}, area = 0;
    for (int y = rows.first; y <= rows.last; ++y)
        for (int x = columns.first; x <= columns.last; ++x) {
            const u8* pixel = bitmap->data + size_t(y) * size_t(bitmap->rowBytes) + size_t(x) * 4;
            double share = ShareOf(columns, x) * ShareOf(rows, y);
            double alpha = share * pixel[0];
            area += share;
            sum[3] += alpha;
            for (int c = 0; c < 3; ++c) sum[c] += alpha * pixel[c + 1] / 255.0;
        }
    for (int c = 0; c < 4; ++c) mean[c] = sum[c] / area;
}

}   // namespace

Picture::Picture(int width, int height, Colour background)
    : width_(width), height_(height), pixels_(size_t(width) * size_t(height) * 4) {
    FillRect(0, 0, width, height, background);
}

void Picture::FillRect(int x, int y, int width, int height, Colour colour) {
    int right = std::min(x + width, width_), bottom = std::min(y + height, height_);
    for (int row = std::max(y, 0); row < bottom; ++row)
        for (int column = std::max(x, 0); column < right; ++column) {
            u8* pixel = At(column, row);
            pixel[0] = colour.red;
            pixel[1] = colour.green;
            pixel[2] = colour.blue;
            pixel[3] = 255;
        }
}

void Picture::DrawScaled(const KQBitmap* bitmap, int x, int y, int width, int height) {
    std::vector<Span> columns = Spans(bitmap->width, width), rows = Spans(bitmap->height, height);
    for (int row = 0; row < height; ++row)
        for (int column = 0; column < width; ++column) {
            double mean[4];
            Average(bitmap, columns[size_t(column)], rows[size_t(row)], mean);
            u8* pixel = At(x + column, y + row);
            for (int c = 0; c < 3; ++c)
                pixel[c] = u8(std::clamp(std::lround(mean[c] + pixel[c] * (1 - mean[3] / 255.0)), 0L, 255L));
        }
}

void Picture::TakePixels(const KQBitmap* bitmap) {
    for (size_t i = 0; i < pixels_.size(); i += 4) {
        const u8* from = bitmap->data + i;
        pixels_[i] = from[1];
        pixels_[i + 1] = from[2];
        pixels_[i + 2] = from[3];
        pixels_[i + 3] = from[0];
    }
}

void Picture::Blend(int x, int y, Colour colour, double share) {
    if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
    u8* pixel = At(x, y);
    const u8 over[3] = {colour.red, colour.green, colour.blue};
    for (int c = 0; c < 3; ++c) pixel[c] = u8(std::lround(pixel[c] + (over[c] - pixel[c]) * share));
}

void Picture::DrawText(int x, int y, int scale, const std::string& text, Colour colour) {
    struct Vertex {
        float x, y, z;
        u8 colour[4];
    };

    std::vector<Vertex> vertices(text.size() * 64 + 64);
    std::string copy = text;
    int quads = stb_easy_font_print(0, 0, copy.data(), nullptr, vertices.data(), int(vertices.size() * sizeof(Vertex)));
    for (int i = 0; i < quads; ++i) {
        const Vertex& low = vertices[size_t(i) * 4];
        const Vertex& high = vertices[size_t(i) * 4 + 2];
        FillRect(x + int(low.x) * scale, y + int(low.y) * scale, int(high.x - low.x) * scale,
                 int(high.y - low.y) * scale, colour);
    }
}

int Picture::TextWidth(int scale, const std::string& text) {
    std::string copy = text;
    return stb_easy_font_width(copy.data()) * scale;
}

void Picture::WritePNG(const std::string& file, bool overwrite) const {
    std::string bytes;
    auto put = [](void* to, void* from, int count) {
        static_cast<std::string*>(to)->append(static_cast<char*>(from), size_t(count));
    };
    if (!stbi_write_png_to_func(put, &bytes, width_, height_, 4, pixels_.data(), width_ * 4))
        throw Failure("no-memory", "out of memory for the picture '" + file + "'; choose a smaller size");
    WriteWhole(file, bytes, overwrite);
}

}   // namespace kqclip
