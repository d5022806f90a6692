#include "modules/stills/oiio/Heads.h"

#include <cstring>

namespace stills::oiio {

namespace {

constexpr int kLargest = 32767;

// The bytes of a file's start. What lies behind them reads as 0 and marks the view as left.
class View {
public:
    View(const std::uint8_t* bytes, std::size_t count) : bytes_(bytes), count_(count) {}

    bool Left() const { return left_; }

    std::uint32_t Byte(std::size_t at) {
        if (at < count_) return bytes_[at];
        left_ = true;
        return 0;
    }

    std::uint32_t Big16(std::size_t at) { return Byte(at) << 8 | Byte(at + 1); }

    std::uint32_t Big32(std::size_t at) { return Big16(at) << 16 | Big16(at + 2); }

    std::uint32_t Little16(std::size_t at) { return Byte(at + 1) << 8 | Byte(at); }

    std::uint32_t Little32(std::size_t at) { return Little16(at + 2) << 16 | Little16(at); }

    bool Is(std::size_t at, const char* text) {
        for (std::size_t i = 0; text[i]; ++i)
            if (Byte(at + i) != static_cast<unsigned char>(text[i])) return false;
        return true;
    }

    // Whether the text at `at`, with its closing 0, is `text`.
    bool IsText(std::size_t at, const char* text) { return Is(at, text) && Byte(at + std::strlen(text)) == 0; }

private:
    const std::uint8_t* bytes_;
    std::size_t count_;
    bool left_ = false;
};

bool TakeSize(std::uint32_t width, std::uint32_t height, Head& head) {
    if (width < 1 || height < 1 || width > kLargest || height > kLargest) return false;
    head.width = int(width);
    head.height = int(height);
    return true;
}

// Whether pixels of so many to a length, across and down, are square. Some writers put 0 for what they do not know.
bool IsSquare(std::uint32_t across, std::uint32_t down) { return across == down || across == 0 || down == 0; }

// Chunks up to the first of the pixels. One for transparency makes an alpha channel; one for the pixel's shape, and
// a checksum that may be wrong, are the helper's.
bool Png(View& v, Head& head) {
    if (v.Big32(8) != 13 || !v.Is(12, "IHDR") || !TakeSize(v.Big32(16), v.Big32(20), head)) return false;
    std::uint32_t colour = v.Byte(25);
    head.alpha = colour == 4 || colour == 6;
    for (std::size_t at = 33; !v.Left(); at += std::size_t(v.Big32(at)) + 12) {
        if (v.Is(at + 4, "IDAT")) return !v.Left();
        if (v.Is(at + 4, "tRNS")) head.alpha = true;
        if (v.Is(at + 4, "pHYs") && !IsSquare(v.Big32(at + 8), v.Big32(at + 12))) return false;
    }
    return false;
}

// Segments up to the frame's.
bool Jpeg(View& v, Head& head) {
    for (std::size_t at = 2; !v.Left(); at += v.Big16(at + 2) + 2) {
        if (v.Byte(at) != 0xFF) return false;
        std::uint32_t marker = v.Byte(at + 1);
        if (marker == 0xE0 && v.Is(at + 4, "JFIF") && v.Big16(at + 12) != v.Big16(at + 14)) return false;
        bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (frame) return TakeSize(v.Big16(at + 7), v.Big16(at + 5), head) && !v.Left();
        if (marker == 0xDA || marker == 0xD9 || v.Big16(at + 2) < 2) return false;
    }
    return false;
}

// One element of red, green and blue, with alpha or without. The aspect stands as two numbers.
bool Dpx(View& v, Head& head) {
    bool big = v.Is(0, "SDPX");
    auto word = [&](std::size_t at) { return big ? v.Big32(at) : v.Little32(at); };
    auto half = [&](std::size_t at) { return big ? v.Big16(at) : v.Little16(at); };
    std::uint32_t across = word(1628), down = word(1632), kind = v.Byte(800);
    bool square = across == down || across == 0xFFFFFFFF || down == 0xFFFFFFFF || across == 0 || down == 0;
    if (!square || half(768) != 0 || half(770) != 1 || (kind != 50 && kind != 51)) return false;
    head.alpha = kind == 51;
    return TakeSize(word(772), word(776), head) && !v.Left();
}

// Attributes up to the empty name: "name\0type\0", four bytes of size, the value.
class ExrAttributes {
public:
    explicit ExrAttributes(View& view) : v_(view) {}

    bool Next() {
        at_ = end_;
        if (v_.Byte(at_) == 0 || v_.Left()) return false;
        std::size_t type = Behind(at_);
        value_ = Behind(type) + 4;
        end_ = value_ + v_.Little32(value_ - 4);
        return !v_.Left();
    }

    bool IsNamed(const char* name) { return v_.IsText(at_, name); }

    std::size_t Value() const { return value_; }

private:
    std::size_t Behind(std::size_t at) {
        while (v_.Byte(at) != 0) ++at;
        return at + 1;
    }

    View& v_;
    std::size_t at_ = 8, value_ = 8, end_ = 8;
};

// Channels are "name\0" and 16 bytes each.
bool ExrHasPlainChannels(View& v, std::size_t at, Head& head) {
    int known = 0;
    for (; v.Byte(at) != 0; at += 18) {
        if (v.Byte(at + 1) != 0 || !std::strchr("RGBA", int(v.Byte(at)))) return false;
        if (v.Byte(at) == 'A') head.alpha = true;
        ++known;
    }
    return known == (head.alpha ? 4 : 3);
}

bool Exr(View& v, Head& head) {
    constexpr std::uint32_t kOne = 0x3F800000;
    if (v.Little32(4) & 0xFFFFFD00) return false;   // several parts, or deep pixels
    ExrAttributes attributes(v);
    bool channels = false, window = false, square = false;
    while (attributes.Next()) {
        std::size_t at = attributes.Value();
        if (attributes.IsNamed("channels")) channels = ExrHasPlainChannels(v, at, head);
        if (attributes.IsNamed("pixelAspectRatio")) square = v.Little32(at) == kOne;
        if (attributes.IsNamed("displayWindow"))
            window =
                TakeSize(v.Little32(at + 8) - v.Little32(at) + 1, v.Little32(at + 12) - v.Little32(at + 4) + 1, head);
    }
    return channels && window && square && !v.Left();
}

// The first directory, where all it takes stands in it: 8 or 16 bits of red, green and blue, or grey.
bool Tiff(View& v, Head& head) {
    bool big = v.Is(0, "MM");
    auto word = [&](std::size_t at) { return big ? v.Big32(at) : v.Little32(at); };
    auto half = [&](std::size_t at) { return big ? v.Big16(at) : v.Little16(at); };
    if (half(2) != 42) return false;
    std::size_t at = word(4);
    std::uint32_t width = 0, height = 0, samples = 1, colours = 0, extra = 0;
    std::size_t across = 0, down = 0;
    std::uint32_t count = half(at);
    for (at += 2; count > 0 && !v.Left(); --count, at += 12) {
        std::uint32_t value = half(at + 2) == 3 ? half(at + 8) : word(at + 8);
        switch (half(at)) {
        case 256: width = value; break;
        case 257: height = value; break;
        case 262: colours = value; break;
        case 277: samples = value; break;
        case 282: across = word(at + 8); break;
        case 283: down = word(at + 8); break;
        case 338: extra = word(at + 4) == 1 ? value : 99; break;
        }
    }
    bool square = !across || !down || (word(across) == word(down) && word(across + 4) == word(down + 4));
    std::uint32_t plain = colours == 2 ? 3 : colours <= 1 ? 1 : 0;
    head.alpha = extra == 1 || extra == 2;
    if (!plain || !square || samples != plain + (head.alpha ? 1 : 0) || (extra && !head.alpha)) return false;
    return TakeSize(width, height, head) && !v.Left();
}

}   // namespace

bool ReadPlainHead(const Kind& kind, const std::uint8_t* bytes, std::size_t count, Head& head) {
    static constexpr struct {
        const char* extension;
        bool (*read)(View&, Head&);
    } kReaders[] = {{"png", Png}, {"jpg", Jpeg}, {"dpx", Dpx}, {"exr", Exr}, {"tif", Tiff}};
    View view(bytes, count);
    Head plain;
    for (auto& reader : kReaders)
        if (std::strcmp(reader.extension, kind.extension) == 0 && reader.read(view, plain)) {
            plain.format = kind.words;
            head = plain;
            return true;
        }
    return false;
}

}   // namespace stills::oiio
