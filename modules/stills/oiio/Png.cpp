// The plain PNG file, which sequences are made of: 8 bits, red, green and blue with alpha or without, in one pass.
//
// Its whole stream is inflated at once by libdeflate, in about half the time that inflating it piece by piece takes.
// Whatever is unusual or wrong, a checksum included, is left to the image library, which then says what it is.
#include <cstring>
#include <memory>
#include <vector>

#include <emmintrin.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include "modules/stills/oiio/Worker.h"

namespace stills::oiio {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kMostBytes = std::size_t(512) << 20;
constexpr std::size_t kPadding = 16;   // pixels are loaded and stored by whole words

std::uint32_t Big32(const std::uint8_t* b) {
    return std::uint32_t(b[0]) << 24 | std::uint32_t(b[1]) << 16 | std::uint32_t(b[2]) << 8 | b[3];
}

struct Plain {
    std::size_t width = 0, height = 0, channels = 0;
    Bytes stream;   // the data of all IDAT chunks
};

bool ReadFile(int file, Bytes& bytes) {
    struct stat status;
    if (fstat(file, &status) != 0 || status.st_size < 57 || std::size_t(status.st_size) > kMostBytes) return false;
    bytes.resize(std::size_t(status.st_size));
    return pread(file, bytes.data(), bytes.size(), 0) == status.st_size;
}

bool TakeHeader(const std::uint8_t* header, Plain& plain) {
    bool usual = header[8] == 8 && (header[9] == 2 || header[9] == 6) && !header[10] && !header[11] && !header[12];
    plain.width = Big32(header);
    plain.height = Big32(header + 4);
    plain.channels = header[9] == 6 ? 4 : 3;
    if (!usual || plain.width < 1 || plain.height < 1 || plain.width > 32767 || plain.height > 32767) return false;
    return (plain.width * plain.channels + 1) * plain.height <= kMostBytes;
}

// Whether a chunk of the pixel's shape tells of square ones; most writers put one. A zero tells nothing.
bool IsSquare(const std::uint8_t* data, std::size_t length) {
    if (length != 9) return false;
    std::uint32_t across = Big32(data), down = Big32(data + 4);
    return across == down || across == 0 || down == 0;
}

// Walks the chunks. False for a file that is not whole, or has a chunk that changes what pixels mean.
bool Parse(const Bytes& bytes, Plain& plain) {
    if (std::memcmp(bytes.data(), "\x89PNG\r\n\x1a\n", 8) != 0) return false;
    for (std::size_t at = 8; at + 12 <= bytes.size();) {
        const std::uint8_t* chunk = bytes.data() + at;
        std::size_t length = Big32(chunk);
        if (length > bytes.size() - at - 12) return false;
        auto is = [&](const char* name) { return std::memcmp(chunk + 4, name, 4) == 0; };
        if (libdeflate_crc32(0, chunk + 4, length + 4) != Big32(chunk + 8 + length)) return false;
        if (at == 8 && (!is("IHDR") || length != 13 || !TakeHeader(chunk + 8, plain))) return false;
        if (is("tRNS") || (is("pHYs") && !IsSquare(chunk + 8, length))) return false;
        if (is("IDAT")) plain.stream.insert(plain.stream.end(), chunk + 8, chunk + 8 + length);
        if (is("IEND")) return !plain.stream.empty();
        at += length + 12;
    }
    return false;
}

bool Inflate(const Plain& plain, Bytes& rows) {
    struct Freer {
        void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
    };
    static std::unique_ptr<libdeflate_decompressor, Freer> decompressor(libdeflate_alloc_decompressor());
    std::size_t size = (plain.width * plain.channels + 1) * plain.height;
    rows.resize(size + kPadding);
    return decompressor && libdeflate_zlib_decompress(decompressor.get(), plain.stream.data(), plain.stream.size(),
                                                      rows.data(), size, nullptr) == LIBDEFLATE_SUCCESS;
}

__m128i Absolute(__m128i x) { return _mm_max_epi16(x, _mm_sub_epi16(_mm_setzero_si128(), x)); }

__m128i Chosen(__m128i mask, __m128i yes, __m128i no) {
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

__m128i Load(const std::uint8_t* at) {
    int word;
    std::memcpy(&word, at, 4);
    return _mm_unpacklo_epi8(_mm_cvtsi32_si128(word), _mm_setzero_si128());
}

// All channels of a pixel at once: each takes the neighbour, left, above or between, that lies nearest to their plane.
template <std::size_t N>
void AddNearest(std::uint8_t* row, const std::uint8_t* above, std::size_t bytes) {
    __m128i left = _mm_setzero_si128(), between = left;
    for (std::size_t i = 0; i < bytes; i += N) {
        __m128i up = Load(above + i);
        __m128i a = _mm_sub_epi16(up, between), b = _mm_sub_epi16(left, between);
        __m128i c = Absolute(_mm_add_epi16(a, b));
        a = Absolute(a);
        b = Absolute(b);
        __m128i least = _mm_min_epi16(c, _mm_min_epi16(a, b));
        __m128i nearest = Chosen(_mm_cmpeq_epi16(least, a), left, Chosen(_mm_cmpeq_epi16(least, b), up, between));
        left = _mm_and_si128(_mm_add_epi16(Load(row + i), nearest), _mm_set1_epi16(255));
        between = up;
        int word = _mm_cvtsi128_si32(_mm_packus_epi16(left, left));
        std::memcpy(row + i, &word, N);
    }
}

// Undoes a row's filter in place. False for one that there is not.
template <std::size_t N>
bool Unfilter(int filter, std::uint8_t* row, const std::uint8_t* above, std::size_t bytes) {
    switch (filter) {
    case 0: return true;
    case 1:
        for (std::size_t i = N; i < bytes; ++i) row[i] = std::uint8_t(row[i] + row[i - N]);
        return true;
    case 2:
        for (std::size_t i = 0; i < bytes; ++i) row[i] = std::uint8_t(row[i] + above[i]);
        return true;
    case 3:
        for (std::size_t i = 0; i < bytes; ++i)
            row[i] = std::uint8_t(row[i] + ((i < N ? 0 : row[i - N]) + above[i]) / 2);
        return true;
    case 4: AddNearest<N>(row, above, bytes); return true;
    default: return false;
    }
}

template <std::size_t N>
bool UnfilterAll(const Plain& plain, Bytes& rows) {
    std::size_t bytes = plain.width * N;
    Bytes none(bytes + kPadding);
    const std::uint8_t* above = none.data();
    for (std::size_t y = 0; y < plain.height; ++y) {
        std::uint8_t* row = rows.data() + y * (bytes + 1);
        if (!Unfilter<N>(row[0], row + 1, above, bytes)) return false;
        above = row + 1;
    }
    return true;
}

// Puts the pixels that the library's own scaler would take.
template <std::size_t N>
void Put(const Plain& plain, const Bytes& rows, const Request& request, std::uint8_t* to) {
    std::size_t width = std::size_t(request.width), height = std::size_t(request.height);
    std::size_t stepX = (plain.width << 16) / width, stepY = (plain.height << 16) / height;
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* row = rows.data() + (y * stepY >> 16) * (plain.width * N + 1) + 1;
        for (std::size_t x = 0; x < width; ++x, to += 4) {
            const std::uint8_t* from = row + (x * stepX >> 16) * N;
            to[0] = N == 4 ? from[N - 1] : 255;
            to[1] = from[0];
            to[2] = from[1];
            to[3] = from[2];
        }
    }
}

}   // namespace

bool DecodePlainPng(const Request& request, int file, std::uint8_t* target, Answer& answer) {
    Plain plain;
    Bytes bytes, rows;
    if (!ReadFile(file, bytes) || !Parse(bytes, plain) || !Inflate(plain, rows)) return false;
    bool alpha = plain.channels == 4;
    if (!(alpha ? UnfilterAll<4>(plain, rows) : UnfilterAll<3>(plain, rows))) return false;
    alpha ? Put<4>(plain, rows, request, target) : Put<3>(plain, rows, request, target);
    answer.outcome = Outcome::Whole;
    answer.width = std::int32_t(plain.width);
    answer.height = std::int32_t(plain.height);
    answer.alpha = alpha;
    answer.pixelAspect = 1.0;
    answer.rows = request.height;
    return true;
}

}   // namespace stills::oiio
