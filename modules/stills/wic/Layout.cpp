// The table of layouts and the turning of rows.
#include "modules/stills/wic/Layout.h"

#include <algorithm>

namespace stills {

namespace {

const Layout kLayouts[] = {
    {&GUID_WICPixelFormat32bppBGRA, 1, 4, 3, 2, 1, 0, false},  {&GUID_WICPixelFormat32bppRGBA, 1, 4, 3, 0, 1, 2, false},
    {&GUID_WICPixelFormat32bppPBGRA, 1, 4, 3, 2, 1, 0, true},  {&GUID_WICPixelFormat32bppPRGBA, 1, 4, 3, 0, 1, 2, true},
    {&GUID_WICPixelFormat32bppBGR, 1, 4, -1, 2, 1, 0, false},  {&GUID_WICPixelFormat24bppBGR, 1, 3, -1, 2, 1, 0, false},
    {&GUID_WICPixelFormat24bppRGB, 1, 3, -1, 0, 1, 2, false},  {&GUID_WICPixelFormat8bppGray, 1, 1, -1, 0, 0, 0, false},
    {&GUID_WICPixelFormat16bppGray, 2, 1, -1, 0, 0, 0, false}, {&GUID_WICPixelFormat48bppRGB, 2, 3, -1, 0, 1, 2, false},
    {&GUID_WICPixelFormat48bppBGR, 2, 3, -1, 2, 1, 0, false},  {&GUID_WICPixelFormat64bppRGB, 2, 4, -1, 0, 1, 2, false},
    {&GUID_WICPixelFormat64bppRGBA, 2, 4, 3, 0, 1, 2, false},  {&GUID_WICPixelFormat64bppBGRA, 2, 4, 3, 2, 1, 0, false},
    {&GUID_WICPixelFormat64bppPRGBA, 2, 4, 3, 0, 1, 2, true},  {&GUID_WICPixelFormat64bppPBGRA, 2, 4, 3, 2, 1, 0, true},
};

template <int Bytes>
unsigned Channel(const std::uint8_t* pixel, int channel) {
    const std::uint8_t* at = pixel + channel * Bytes;
    return Bytes == 1 ? at[0] : at[0] | unsigned(at[1]) << 8;
}

// The 8 bits nearest to a channel of `Bytes` bytes.
template <int Bytes>
std::uint8_t Narrowed(unsigned value) {
    return std::uint8_t(Bytes == 1 ? value : (value + 128) / 257);
}

// The straight colour of a premultiplied one; a colour brighter than its alpha is held to white.
template <int Bytes>
std::uint8_t Straight(unsigned value, unsigned alpha) {
    if (alpha == 0) return 0;
    return std::uint8_t(std::min(255u, (value * 255 + alpha / 2) / alpha));
}

template <int Bytes>
void Turn(const Layout& layout, const std::uint8_t* row, const int* columns, int count, std::uint8_t* out) {
    for (int i = 0; i < count; ++i, out += 4) {
        const std::uint8_t* pixel = row + std::ptrdiff_t(columns[i]) * layout.channels * Bytes;
        unsigned alpha = layout.alpha < 0 ? 0 : Channel<Bytes>(pixel, layout.alpha);
        out[0] = layout.alpha < 0 ? 255 : Narrowed<Bytes>(alpha);
        const int colours[3] = {layout.red, layout.green, layout.blue};
        for (int c = 0; c < 3; ++c) {
            unsigned value = Channel<Bytes>(pixel, colours[c]);
            out[1 + c] = layout.premultiplied ? Straight<Bytes>(value, alpha) : Narrowed<Bytes>(value);
        }
    }
}

}   // namespace

const Layout& kConverted = kLayouts[0];

const Layout* FindLayout(const GUID& format) {
    for (const Layout& layout : kLayouts)
        if (IsEqualGUID(*layout.format, format)) return &layout;
    return nullptr;
}

void TurnRow(const Layout& layout, const std::uint8_t* row, const int* columns, int count, std::uint8_t* out) {
    layout.channelBytes == 1 ? Turn<1>(layout, row, columns, count, out) : Turn<2>(layout, row, columns, count, out);
}

}   // namespace stills
