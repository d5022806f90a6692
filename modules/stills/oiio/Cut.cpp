// Files that were cut where the image library does not notice: it gives black for what is missing. Their heads tell how
// long they have to be.
#include <algorithm>
#include <cstring>
#include <vector>

#include <unistd.h>

#include "modules/stills/oiio/Worker.h"

namespace stills::oiio {

namespace {

using Bytes = std::vector<std::uint8_t>;

// What there is of `count` bytes at `at`.
Bytes Read(int file, off_t at, std::size_t count) {
    Bytes bytes(count);
    ssize_t got = pread(file, bytes.data(), count, at);
    bytes.resize(got > 0 ? std::size_t(got) : 0);
    return bytes;
}

std::uint32_t Big(const Bytes& b, std::size_t at) {
    return std::uint32_t(b[at]) << 24 | b[at + 1] << 16 | b[at + 2] << 8 | b[at + 3];
}

std::uint32_t Little(const Bytes& b, std::size_t at) {
    return std::uint32_t(b[at + 3]) << 24 | b[at + 2] << 16 | b[at + 1] << 8 | b[at];
}

// The bytes that the first picture of a DirectDraw surface takes, with its head. Blocks of 4 x 4 pixels take 8 or 16
// bytes, other pixels the bits that the head tells.
std::uint64_t LengthOfDds(int file) {
    Bytes head = Read(file, 0, 148);
    if (head.size() < 128) return 128;
    std::uint64_t height = Little(head, 12), width = Little(head, 16);
    bool blocks = Little(head, 80) & 4, extended = blocks && std::memcmp(&head[84], "DX10", 4) == 0;
    if (extended) return 148;   // its many forms are not known here
    if (!blocks) return 128 + (width * Little(head, 88) + 7) / 8 * height;
    bool half = std::memcmp(&head[84], "DXT1", 4) == 0 || std::memcmp(&head[84], "ATI1", 4) == 0 ||
                std::memcmp(&head[84], "BC4U", 4) == 0;
    return 128 + (width + 3) / 4 * ((height + 3) / 4) * (half ? 8 : 16);
}

// A row's bytes of the kinds of samples that are met; words of 32 bits hold three samples of 10.
std::uint64_t RowOfDpx(std::uint64_t samples, unsigned bits, bool filled) {
    if (filled && bits == 10) return (samples + 2) / 3 * 4;
    if (filled && bits == 12) return samples * 2;
    return (samples * bits + 7) / 8;
}

// Rows that are packed by runs are of any length.
std::uint64_t LengthOfDpx(int file) {
    constexpr std::size_t kElement = 780;
    Bytes head = Read(file, 0, kElement + 36);
    if (head.size() < kElement + 36) return kElement + 36;
    bool big = head[0] == 'S';
    auto word = [&](std::size_t at) { return big ? Big(head, at) : Little(head, at); };
    unsigned descriptor = head[kElement + 20], packing = head[kElement + (big ? 25 : 24)];
    unsigned channels = descriptor == 50 ? 3 : descriptor == 51 || descriptor == 52 ? 4 : 1;
    if (head[kElement + (big ? 27 : 26)] != 0) return 0;
    std::uint64_t begin = word(kElement + 28), samples = std::uint64_t(word(772)) * channels;
    if (begin == 0xFFFFFFFF) begin = word(4);
    return begin + RowOfDpx(samples, head[kElement + 23], packing != 0) * word(776);
}

// All is one chunk.
std::uint64_t LengthOfIff(int file) {
    Bytes head = Read(file, 0, 8);
    return head.size() < 8 ? 8 : 8 + std::uint64_t(Big(head, 4));
}

// Rows that are packed lie anywhere: two tables, behind the head, tell where each begins and how long it is.
std::uint64_t LengthOfSgi(int file) {
    Bytes head = Read(file, 0, 12);
    if (head.size() < 12) return 12;
    if (head[2] != 1) return 0;   // the image library notices by itself
    std::size_t rows = std::size_t(head[8] << 8 | head[9]) * std::size_t(head[10] << 8 | head[11]);
    Bytes tables = Read(file, 512, std::min<std::size_t>(rows, 32767 * 4) * 8);
    std::uint64_t length = 512 + std::uint64_t(rows) * 8;
    if (tables.size() < rows * 8) return length;
    for (std::size_t i = 0; i < rows; ++i)
        length = std::max(length, std::uint64_t(Big(tables, i * 4)) + Big(tables, (rows + i) * 4));
    return length;
}

}   // namespace

bool IsCut(const char* format, int file) {
    std::uint64_t length = 0;
    if (std::strcmp(format, "dds") == 0) length = LengthOfDds(file);
    if (std::strcmp(format, "dpx") == 0) length = LengthOfDpx(file);
    if (std::strcmp(format, "iff") == 0) length = LengthOfIff(file);
    if (std::strcmp(format, "sgi") == 0) length = LengthOfSgi(file);
    off_t size = lseek(file, 0, SEEK_END);
    return size >= 0 && std::uint64_t(size) < length;
}

}   // namespace stills::oiio
