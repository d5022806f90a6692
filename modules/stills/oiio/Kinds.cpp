#include "modules/stills/oiio/Kinds.h"

#include <cstring>

namespace stills::oiio {

namespace {

// Maya IFF is not written: pictures of some sizes come back with other pixels.
constexpr Kind kKinds[] = {
    {"bmp", "bmp", "BMP", true, false},
    {"cin", "cineon", "Cineon", false, false},
    {"dds", "dds", "DirectDraw surface", false, false},
    {"dpx", "dpx", "DPX", true, true},
    {"exr", "openexr", "OpenEXR", true, true},
    {"gif", "gif", "GIF", false, false},
    {"hdr", "hdr", "Radiance HDR", true, false},
    {"ico", "ico", "Windows icon", false, false},
    {"iff", "iff", "Maya IFF", false, false},
    {"jp2", "jpeg2000", "JPEG 2000", false, false},
    {"jpg", "jpeg", "JPEG", true, false},
    {"pbm", "pnm", "PBM", false, false},
    {"pgm", "pnm", "PGM", false, false},
    {"pic", "softimage", "Softimage picture", false, false},
    {"png", "png", "PNG", true, true},
    {"ppm", "pnm", "PPM", true, false},
    {"psd", "psd", "Photoshop document", false, false},
    {"rgb", "sgi", "SGI", true, true},
    {"rla", "rla", "RLA", false, false},
    {"sgi", "sgi", "SGI", true, true},
    {"tga", "targa", "TGA", true, true},
    {"tif", "tiff", "TIFF", true, true},
    {"webp", "webp", "WebP", false, false},
};

struct Mark {
    std::size_t at;
    const char* bytes;
    std::size_t length;
    const char* extension;
};

template <std::size_t N>
constexpr Mark At(std::size_t at, const char (&bytes)[N], const char* extension) {
    return {at, bytes, N - 1, extension};
}

constexpr Mark kMarks[] = {
    At(0, "\x89PNG\r\n\x1a\n", "png"),
    At(0, "\xff\xd8\xff", "jpg"),
    At(0, "II*\0", "tif"),
    At(0, "MM\0*", "tif"),
    At(0, "II+\0", "tif"),
    At(0, "MM\0+", "tif"),
    At(0, "SDPX", "dpx"),
    At(0, "XPDS", "dpx"),
    At(0, "\x76\x2f\x31\x01", "exr"),
    At(0, "GIF8", "gif"),
    At(0, "8BPS", "psd"),
    At(0, "\x80\x2a\x5f\xd7", "cin"),
    At(0, "\xd7\x5f\x2a\x80", "cin"),
    At(0, "#?RADIANCE", "hdr"),
    At(0, "#?RGBE", "hdr"),
    At(0, "\x01\xda\x00", "sgi"),
    At(0, "\x01\xda\x01", "sgi"),
    At(0, "DDS ", "dds"),
    At(0, "FOR4", "iff"),
    At(4, "jP  \r\n", "jp2"),
    At(0, "\xff\x4f\xff\x51", "jp2"),
    At(8, "WEBP", "webp"),
    At(0, "\x53\x80\xf6\x34", "pic"),
    At(0, "P1", "pbm"),
    At(0, "P4", "pbm"),
    At(0, "P2", "pgm"),
    At(0, "P5", "pgm"),
    At(0, "P3", "ppm"),
    At(0, "P6", "ppm"),
    At(0, "BM", "bmp"),
};

bool Fits(const Mark& mark, const std::uint8_t* bytes, std::size_t count) {
    return mark.at + mark.length <= count && std::memcmp(bytes + mark.at, mark.bytes, mark.length) == 0;
}

// A TGA file has no mark at its start: the fields that matter make sense together.
bool LooksLikeTarga(const std::uint8_t* b, std::size_t count) {
    if (count < 18 || b[1] > 1) return false;
    int type = b[2] & ~8, depth = b[16];
    bool depthFits = depth == 8 || depth == 15 || depth == 16 || depth == 24 || depth == 32;
    return type >= 1 && type <= 3 && (b[2] & ~11) == 0 && depthFits && (b[12] | b[13]) && (b[14] | b[15]);
}

}   // namespace

const Kind* KindOf(const char* extension) {
    for (const Kind& kind : kKinds)
        if (std::strcmp(kind.extension, extension) == 0) return &kind;
    return nullptr;
}

const Kind* KindOf(const std::uint8_t* bytes, std::size_t count, const char* extension) {
    if (count == 0) return nullptr;
    for (const Mark& mark : kMarks)
        if (Fits(mark, bytes, count)) return KindOf(mark.extension);
    bool named = !std::strcmp(extension, "ico") || !std::strcmp(extension, "rla") || !std::strcmp(extension, "tga");
    if (named) return KindOf(extension);
    return LooksLikeTarga(bytes, count) ? KindOf("tga") : nullptr;
}

}   // namespace stills::oiio
