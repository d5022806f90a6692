// Writing of pictures with a palette: the colours are counted, the palette is theirs or the component's choice, and
// each pixel takes the nearest entry.
#include "modules/stills/wic/Indexed.h"

#include <algorithm>
#include <climits>
#include <unordered_map>
#include <vector>

namespace stills {

namespace {

// A colour in the component's form; the one of transparent pixels.
using Colour = WICColor;
constexpr Colour kTransparent = 0;

Colour ColourOf(const std::uint8_t* pixel, bool alpha) {
    if (alpha && pixel[0] < 128) return kTransparent;
    return 0xFF000000u | Colour(pixel[1]) << 16 | Colour(pixel[2]) << 8 | pixel[3];
}

// The picture's colours in the order of their first appearance, at most one more than 256.
std::vector<Colour> Colours(const Head& head, const std::uint8_t* pixels) {
    std::vector<Colour> colours;
    std::unordered_map<Colour, bool> seen;
    size_t count = size_t(head.width) * size_t(head.height);
    for (size_t i = 0; i < count && colours.size() <= 256; ++i) {
        Colour colour = ColourOf(pixels + i * 4, head.alpha);
        if (seen.emplace(colour, true).second) colours.push_back(colour);
    }
    return colours;
}

// The component's choice of colours, with one entry kept for transparency where there is any.
std::vector<Colour> Chosen(IWICImagingFactory* factory, const Head& head, const std::uint8_t* pixels) {
    size_t count = size_t(head.width) * size_t(head.height);
    std::vector<std::uint8_t> opaque(count * 3);
    for (size_t i = 0; i < count; ++i)
        for (size_t c = 0; c < 3; ++c) opaque[i * 3 + c] = pixels[i * 4 + 3 - c];
    Owned<IWICBitmap> bitmap;
    Check(factory->CreateBitmapFromMemory(UINT(head.width), UINT(head.height), GUID_WICPixelFormat24bppBGR,
                                          UINT(head.width) * 3, UINT(opaque.size()), opaque.data(), bitmap.Out()));
    Owned<IWICPalette> palette;
    Check(factory->CreatePalette(palette.Out()));
    Check(palette->InitializeFromBitmap(bitmap.Get(), head.alpha ? 255 : 256, FALSE));
    UINT found = 0;
    Check(palette->GetColorCount(&found));
    std::vector<Colour> colours(found);
    Check(palette->GetColors(found, colours.data(), &found));
    colours.resize(found);
    if (head.alpha) colours.push_back(kTransparent);
    return colours;
}

int Distance(Colour a, Colour b) {
    int sum = 0;
    for (int shift = 0; shift < 24; shift += 8) {
        int difference = int(a >> shift & 255) - int(b >> shift & 255);
        sum += difference * difference;
    }
    return sum;
}

// The nearest entry of a palette; each colour is looked for once.
class Nearest {
public:
    explicit Nearest(const std::vector<Colour>& palette) : palette_(palette) {}

    std::uint8_t Of(Colour colour) {
        auto known = known_.find(colour);
        if (known != known_.end()) return known->second;
        return known_[colour] = Search(colour);
    }

private:
    std::uint8_t Search(Colour colour) const {
        size_t best = 0;
        int least = INT_MAX;
        for (size_t i = 0; i < palette_.size(); ++i) {
            bool sameKind = (palette_[i] == kTransparent) == (colour == kTransparent);
            int distance = sameKind ? Distance(palette_[i], colour) : INT_MAX;
            if (distance < least) {
                least = distance;
                best = i;
            }
        }
        return std::uint8_t(best);
    }

    const std::vector<Colour>& palette_;
    std::unordered_map<Colour, std::uint8_t> known_;
};

void SetPalette(IWICImagingFactory* factory, IWICBitmapFrameEncode* frame, std::vector<Colour>& colours) {
    GUID format = GUID_WICPixelFormat8bppIndexed;
    Check(frame->SetPixelFormat(&format));
    if (!IsEqualGUID(format, GUID_WICPixelFormat8bppIndexed)) throw Failed{WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT};
    Owned<IWICPalette> palette;
    Check(factory->CreatePalette(palette.Out()));
    Check(palette->InitializeCustom(colours.data(), UINT(colours.size())));
    Check(frame->SetPalette(palette.Get()));
}

// The bytes of a GIF's colour table by the flags of its screen or picture.
size_t TableBytes(std::uint8_t flags) { return flags & 0x80 ? size_t(3) << ((flags & 7) + 1) : 0; }

// Where the first picture or graphic control of a GIF begins; the length when there is none.
size_t FindPicture(const std::vector<std::uint8_t>& gif) {
    constexpr size_t kScreenEnd = 13;
    size_t at = gif.size() < kScreenEnd ? gif.size() : kScreenEnd + TableBytes(gif[10]);
    while (at + 2 < gif.size() && gif[at] == 0x21 && gif[at + 1] != 0xF9) {
        at += 2;
        while (at < gif.size() && gif[at] != 0) at += size_t(gif[at]) + 1;
        ++at;
    }
    return at;
}

}   // namespace

int WriteIndexed(IWICImagingFactory* factory, IWICBitmapFrameEncode* frame, const Head& head,
                 const std::uint8_t* pixels) {
    std::vector<Colour> colours = Colours(head, pixels);
    if (colours.size() > 256) colours = Chosen(factory, head, pixels);
    SetPalette(factory, frame, colours);
    Nearest nearest(colours);
    std::vector<std::uint8_t> row(size_t(head.width));
    for (int y = 0; y < head.height; ++y) {
        const std::uint8_t* in = pixels + size_t(y) * row.size() * 4;
        for (size_t x = 0; x < row.size(); ++x) row[x] = nearest.Of(ColourOf(in + x * 4, head.alpha));
        Check(frame->WritePixels(1, UINT(row.size()), UINT(row.size()), row.data()));
    }
    auto transparent = std::find(colours.begin(), colours.end(), kTransparent);
    return transparent == colours.end() ? -1 : int(transparent - colours.begin());
}

void MarkTransparent(std::vector<std::uint8_t>& gif, int entry) {
    size_t at = FindPicture(gif);
    if (at + 8 > gif.size()) return;
    const std::uint8_t control[8] = {0x21, 0xF9, 4, 1, 0, 0, std::uint8_t(entry), 0};
    if (gif[at] == 0x21)
        std::copy(control, control + 8, gif.begin() + std::ptrdiff_t(at));
    else
        gif.insert(gif.begin() + std::ptrdiff_t(at), control, control + 8);
}

}   // namespace stills
