// The size gate, and looks into the heads of DDS and TIFF files.
#include "modules/stills/wic/Claims.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace stills {

namespace {

constexpr std::uint64_t kMostPixels = std::uint64_t(1) << 28;
constexpr UINT kLongestSide = 65535;

// A tile is decoded whole, however little of it the picture shows.
constexpr double kMostTilePixels = 1 << 24;

// A file that is read in places; what lies beyond the end is 0.
class Front {
public:
    explicit Front(const wchar_t* path) : stream_(std::filesystem::path(path), std::ios::binary) {
        stream_.seekg(0, std::ios::end);
        length_ = stream_ ? double(stream_.tellg()) : 0;
    }

    double Length() const { return length_; }

    bool Begins(const char* mark, size_t at, size_t count) {
        std::uint8_t bytes[4];
        Read(at, bytes, count);
        return std::memcmp(bytes, mark, count) == 0;
    }

    // An unsigned number of 2 or 4 bytes.
    UINT Number(size_t at, size_t count, bool big = false) {
        std::uint8_t bytes[4];
        Read(at, bytes, count);
        UINT number = 0;
        for (size_t i = 0; i < count; ++i) number |= UINT(bytes[i]) << 8 * (big ? count - 1 - i : i);
        return number;
    }

private:
    void Read(size_t at, std::uint8_t* bytes, size_t count) {
        std::fill(bytes, bytes + count, std::uint8_t(0));
        stream_.clear();
        stream_.seekg(std::streamoff(at));
        stream_.read(reinterpret_cast<char*>(bytes), std::streamsize(count));
    }

    std::ifstream stream_;
    double length_ = 0;
};

// No form of DDS pixels takes less than half a byte.
void CheckDds(Front& file) {
    constexpr size_t kHeight = 12, kWidth = 16, kDepth = 24, kLevels = 28, kForm = 84, kBits = 88, kArray = 140;
    UINT width = file.Number(kWidth, 4), height = file.Number(kHeight, 4);
    CheckSize(width, height);
    double pixels = double(width) * height * std::max(file.Number(kDepth, 4), 1u);
    if (file.Begins("DX10", kForm, 4)) pixels *= std::max(file.Number(kArray, 4), 1u);
    if (file.Number(kBits, 4) > 128) throw Failed{WINCODEC_ERR_BADHEADER};   // of a pixel
    if (pixels / 2 > file.Length() || file.Number(kLevels, 4) > 32) throw Failed{WINCODEC_ERR_BADHEADER};
}

// The tiles of the first picture.
void CheckTiff(Front& file, bool big) {
    constexpr UINT kTileWidth = 322, kTileHeight = 323, kShort = 3;
    size_t directory = file.Number(4, 4, big);
    double tile = 1;
    for (UINT i = 0, entries = file.Number(directory, 2, big); i < entries; ++i) {
        size_t at = directory + 2 + size_t(i) * 12;
        if (double(at) > file.Length()) break;
        UINT tag = file.Number(at, 2, big);
        if (tag != kTileWidth && tag != kTileHeight) continue;
        tile *= file.Number(at + 8, file.Number(at + 2, 2, big) == kShort ? 2 : 4, big);
    }
    if (tile > kMostTilePixels) throw Failed{WINCODEC_ERR_BADHEADER};
}

}   // namespace

void CheckSize(UINT width, UINT height) {
    if (width == 0 || height == 0) throw Failed{WINCODEC_ERR_FRAMEMISSING};
    if (width > kLongestSide || height > kLongestSide || std::uint64_t(width) * height > kMostPixels)
        throw Failed{WINCODEC_ERR_IMAGESIZEOUTOFRANGE};
}

void CheckClaims(const wchar_t* path) {
    Front file(path);
    if (file.Begins("DDS ", 0, 4)) CheckDds(file);
    if (file.Begins("II*", 0, 4)) CheckTiff(file, false);
    if (file.Begins("MM\0*", 0, 4)) CheckTiff(file, true);
}

}   // namespace stills
