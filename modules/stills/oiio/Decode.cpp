// From a still to 8 bits a channel with straight alpha.
//
// Integer samples count as they are stored and are reduced to 8 bits with rounding. Floating-point samples are linear
// light, as the kinds that hold them agree, and go through the transfer curve of sRGB. A file whose colours are
// multiplied by alpha is divided in its own precision, in front of the reduction. Grey becomes three equal channels;
// palettes, CMYK and YCbCr are expanded by the image library. The first picture of a file with several is taken, as it
// is stored: a note on its orientation changes nothing, since the frames of a clip are one size.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include "modules/stills/oiio/Worker.h"

namespace stills::oiio {

namespace {

using OIIO::ImageInput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;
using Samples = std::vector<std::uint8_t>;

// Rows that are read in one go, so that they are still in the cache when they are converted.
constexpr int kChunkRows = 16;

// Layers of deep compositing files are channels too; those behind the first few are not looked at.
constexpr int kMostChannels = 256;

// Where the colours lie within the channels that are read.
struct Channels {
    int begin = 0, end = 0;   // the channels to read
    int red = 0, green = 0, blue = 0;
    int alpha = -1;   // -1: none

    int Count() const { return end - begin; }
};

int Named(const ImageSpec& spec, const char* name) {
    for (std::size_t i = 0; i < spec.channelnames.size(); ++i)
        if (spec.channelnames[i] == name) return int(i);
    return -1;
}

Channels ChannelsOf(const ImageSpec& spec) {
    Channels c;
    c.red = Named(spec, "R");
    c.green = Named(spec, "G");
    c.blue = Named(spec, "B");
    if (c.red < 0 || c.green < 0 || c.blue < 0) {
        bool colour = spec.nchannels >= 3;
        c.red = 0;
        c.green = colour ? 1 : 0;
        c.blue = colour ? 2 : 0;
    }
    c.alpha = spec.alpha_channel >= 0 && spec.alpha_channel < spec.nchannels ? spec.alpha_channel : -1;
    c.begin = std::min({c.red, c.green, c.blue, c.alpha < 0 ? c.red : c.alpha});
    c.end = std::max({c.red, c.green, c.blue, c.alpha}) + 1;
    c.red -= c.begin;
    c.green -= c.begin;
    c.blue -= c.begin;
    if (c.alpha >= 0) c.alpha -= c.begin;
    return c;
}

// The frame within the file's coordinates: the window that is shown, for the one kind that tells it from the one that
// is stored; else what is stored.
struct Window {
    int x, y, width, height;
};

Window FrameOf(const ImageSpec& spec, const char* format) {
    bool shown = std::strcmp(format, "openexr") == 0 && spec.full_width > 0 && spec.full_height > 0;
    if (shown) return {spec.full_x, spec.full_y, spec.full_width, spec.full_height};
    return {spec.x, spec.y, spec.width, spec.height};
}

bool IsSane(int width, int height) {
    return width >= 1 && height >= 1 && width <= 32767 && height <= 32767 &&
           std::int64_t(width) * height <= kMostPixels;
}

void Tell(Answer& answer, const std::string& text) { CopyText(answer.problem, sizeof answer.problem, text.c_str()); }

// An open still.
struct Still {
    std::unique_ptr<ImageInput> input;
    ImageSpec spec;
    Channels channels;
    Window frame = {};
    bool multiplied = false;   // colours are multiplied by alpha
    int copy = -1;             // what is read in place of the file

    Still() = default;
    Still(const Still&) = delete;
    Still& operator=(const Still&) = delete;

    ~Still() {
        input.reset();
        if (copy >= 0) close(copy);
    }
};

// A DPX file of 8 bits whose rows end on whole words, which not every writer tells in the head and the image library
// does not expect: a copy in memory whose head tells. -1 for any other file.
int WithPaddingTold(int file) {
    constexpr std::size_t kElement = 780, kHead = 832;
    std::uint8_t head[kHead];
    if (pread(file, head, sizeof head, 0) != ssize_t(sizeof head)) return -1;
    bool big = head[0] == 'S';
    auto word = [&](std::size_t at) {
        const std::uint8_t* b = head + at;
        return big ? std::uint32_t(b[0]) << 24 | b[1] << 16 | b[2] << 8 | b[3]
                   : std::uint32_t(b[3]) << 24 | b[2] << 16 | b[1] << 8 | b[0];
    };
    bool colours = head[kElement + 20] == 50, bytes = head[kElement + 23] == 8;
    std::uint64_t width = word(772), height = word(776), begin = word(kElement + 28), told = word(kElement + 32);
    std::uint32_t missing = std::uint32_t(4 - width * 3 % 4) % 4;
    off_t size = lseek(file, 0, SEEK_END);
    if (!colours || !bytes || !missing || (told != 0 && told != 0xFFFFFFFF) || width > 32767 || height > 32767)
        return -1;
    if (std::uint64_t(size) < begin + (width * 3 + missing) * height) return -1;
    int copy = memfd_create("dpx", MFD_CLOEXEC);
    off_t at = 0;
    while (copy >= 0 && at < size && sendfile(copy, file, &at, std::size_t(size - at)) > 0) {
    }
    std::uint8_t padding[4] = {};
    padding[big ? 3 : 0] = std::uint8_t(missing);
    if (copy >= 0 && pwrite(copy, padding, sizeof padding, kElement + 32) == ssize_t(sizeof padding)) return copy;
    close(copy);
    return -1;
}

// A Softimage picture whose samples are stored as they are, which the image library gives as black.
bool IsRawSoftimage(int file) {
    constexpr off_t kPackets = 104;
    std::uint8_t packet[4];
    off_t at = kPackets;
    do {
        if (pread(file, packet, sizeof packet, at) != ssize_t(sizeof packet)) return false;
        if (packet[2] == 0) return true;
        at += off_t(sizeof packet);
    } while (packet[0] && at < kPackets + 64);
    return false;
}

bool Open(const Request& request, int file, Still& still, Answer& answer) {
    if (std::strcmp(request.format, "softimage") == 0 && IsRawSoftimage(file)) {
        Tell(answer, "its samples are not packed by runs, which is not read");
        return false;
    }
    if (std::strcmp(request.format, "dpx") == 0) still.copy = WithPaddingTold(file);
    if (still.copy >= 0) file = still.copy;
    still.input = ImageInput::create(request.format, false, nullptr, "");
    if (!still.input) {
        Tell(answer, "the image library does not read this kind");
        return false;
    }
    ImageSpec hints;
    hints.attribute("oiio:UnassociatedAlpha", 1);
    if (!still.input->open(OpenPath(file).text, still.spec, hints)) {
        std::string reason = still.input->geterror();
        Tell(answer, reason.empty() ? "it is damaged, or not what it seems" : reason);
        return false;
    }
    const ImageSpec& spec = still.spec;
    still.frame = FrameOf(spec, request.format);
    if (!IsSane(still.frame.width, still.frame.height) || !IsSane(spec.width, spec.height) || spec.depth > 1) {
        Tell(answer, "its size of " + std::to_string(still.frame.width) + " x " + std::to_string(still.frame.height) +
                         " pixels is none that is read");
        return false;
    }
    if (spec.nchannels < 1 || spec.nchannels > kMostChannels || spec.deep) {
        Tell(answer, "its " + std::to_string(spec.nchannels) + " channels are none that are read");
        return false;
    }
    still.channels = ChannelsOf(spec);
    still.multiplied = still.channels.alpha >= 0 && spec.get_int_attribute("oiio:UnassociatedAlpha") == 0 &&
                       (std::strcmp(request.format, "openexr") == 0 || std::strcmp(request.format, "tiff") == 0 ||
                        std::strcmp(request.format, "targa") == 0);
    answer.width = still.frame.width;
    answer.height = still.frame.height;
    answer.alpha = still.channels.alpha >= 0;
    answer.pixelAspect = spec.get_float_attribute("PixelAspectRatio", 1.0f);
    return true;
}

// Samples as they are read: 8 bits as they are, other integers in 16 bits, the rest as 32-bit floating point.
TypeDesc SampleType(const ImageSpec& spec) {
    if (spec.format == TypeDesc::UINT8) return TypeDesc::UINT8;
    return spec.format.is_floating_point() ? TypeDesc::FLOAT : TypeDesc::UINT16;
}

std::uint8_t Reduced(std::uint8_t value) { return value; }

std::uint8_t Reduced(std::uint16_t value) { return std::uint8_t((value + 128u) / 257u); }

// The transfer curve of sRGB.
float Encoded(float linear) {
    return linear <= 0.0031308f ? linear * 12.92f : 1.055f * std::pow(linear, 1.0f / 2.4f) - 0.055f;
}

std::uint8_t Reduced(float linear) {
    if (!(linear > 0.0f)) return 0;
    if (linear >= 1.0f) return 255;
    return std::uint8_t(Encoded(linear) * 255.0f + 0.5f);
}

std::uint8_t ReducedAlpha(float value) {
    if (!(value > 0.0f)) return 0;
    return value >= 1.0f ? 255 : std::uint8_t(value * 255.0f + 0.5f);
}

std::uint8_t ReducedAlpha(std::uint16_t value) { return Reduced(value); }

std::uint8_t ReducedAlpha(std::uint8_t value) { return value; }

std::uint8_t Divided(std::uint8_t colour, std::uint8_t alpha) {
    return alpha == 0 ? colour : std::uint8_t(std::min(255u, (colour * 255u + alpha / 2u) / alpha));
}

std::uint16_t Divided(std::uint16_t colour, std::uint16_t alpha) {
    return alpha == 0 ? colour : std::uint16_t(std::min(65535u, (colour * 65535u + alpha / 2u) / alpha));
}

float Divided(float colour, float alpha) { return alpha > 0.0f ? colour / alpha : colour; }

// Puts one pixel. Samples of a float file's colours may be multiplied many times over: they end at white.
template <class Sample>
void Put(const Sample* from, const Channels& c, bool multiplied, std::uint8_t* to) {
    Sample red = from[c.red], green = from[c.green], blue = from[c.blue];
    if (c.alpha >= 0 && multiplied) {
        Sample alpha = from[c.alpha];
        red = Divided(red, alpha);
        green = Divided(green, alpha);
        blue = Divided(blue, alpha);
    }
    to[0] = c.alpha < 0 ? 255 : ReducedAlpha(from[c.alpha]);
    to[1] = Reduced(red);
    to[2] = Reduced(green);
    to[3] = Reduced(blue);
}

// The common rows of 8 bits, in loops without a decision in them.
bool PutPlainRow(const std::uint8_t* from, const Channels& c, std::uint8_t* to, int width) {
    bool order = c.red == 0 && c.green == 1 && c.blue == 2;
    if (!order) return false;
    if (c.alpha < 0 && c.Count() == 3) {
        for (int x = 0; x < width; ++x, from += 3, to += 4) {
            to[0] = 255;
            to[1] = from[0];
            to[2] = from[1];
            to[3] = from[2];
        }
        return true;
    }
    if (c.alpha != 3 || c.Count() != 4) return false;
    for (int x = 0; x < width; ++x) {
        std::uint32_t pixel;
        std::memcpy(&pixel, from + 4 * x, 4);
        pixel = pixel << 8 | pixel >> 24;
        std::memcpy(to + 4 * x, &pixel, 4);
    }
    return true;
}

// Where each target pixel of a row, or each row, takes its sample from: the library's own rule.
std::vector<int> Places(int source, int target) {
    std::vector<int> places(static_cast<std::size_t>(target));
    std::int64_t step = (std::int64_t(source) << 16) / target;
    for (int i = 0; i < target; ++i) places[std::size_t(i)] = int((i * step) >> 16);
    return places;
}

// Fills the target row by row from the chunks of rows that are read.
class Filler {
public:
    Filler(const Still& still, const Request& request, std::uint8_t* target)
        : still_(still),
          width_(request.width),
          height_(request.height),
          columns_(Places(still.frame.width, request.width)),
          rows_(Places(still.frame.height, request.height)),
          target_(target),
          whole_(still.frame.x == still.spec.x && still.frame.width == still.spec.width &&
                 request.width == still.frame.width) {}

    int Row(int y) const { return rows_[std::size_t(y)]; }

    // The first target row that is not filled yet, and the source row that it needs, in the file's coordinates.
    int Done() const { return done_; }

    bool Finished() const { return done_ == height_; }

    int NextSourceRow() const { return still_.frame.y + Row(done_); }

    // Fills the target rows that come from above the file's rows or from below them.
    void PassOutside() {
        const ImageSpec& spec = still_.spec;
        while (!Finished() && (NextSourceRow() < spec.y || NextSourceRow() >= spec.y + spec.height)) {
            std::memset(target_ + std::size_t(done_) * std::size_t(width_) * 4, 0, std::size_t(width_) * 4);
            if (still_.channels.alpha < 0) FillOpaque(done_);
            ++done_;
        }
    }

    // Fills the target rows that come from the source rows [begin, end), whose samples stand in `chunk`.
    template <class Sample>
    void Take(const std::uint8_t* chunk, int begin, int end) {
        std::size_t rowBytes = std::size_t(still_.spec.width) * std::size_t(still_.channels.Count()) * sizeof(Sample);
        while (!Finished() && NextSourceRow() >= begin && NextSourceRow() < end) {
            const std::uint8_t* row = chunk + std::size_t(NextSourceRow() - begin) * rowBytes;
            PutRow(reinterpret_cast<const Sample*>(row), target_ + std::size_t(done_) * std::size_t(width_) * 4);
            ++done_;
        }
    }

    // True when source rows follow each other closely enough that reading all is best.
    bool IsDense() const { return still_.frame.height < height_ * 2; }

private:
    void FillOpaque(int row) {
        std::uint8_t* to = target_ + std::size_t(row) * std::size_t(width_) * 4;
        for (int x = 0; x < width_; ++x) to[x * 4] = 255;
    }

    template <class Sample>
    void PutRow(const Sample* from, std::uint8_t* to) {
        const Channels& c = still_.channels;
        if constexpr (sizeof(Sample) == 1)
            if (whole_ && !still_.multiplied && PutPlainRow(from, c, to, width_)) return;
        int shift = still_.frame.x - still_.spec.x;
        for (int x = 0; x < width_; ++x, to += 4) {
            int column = columns_[std::size_t(x)] + shift;
            if (column >= 0 && column < still_.spec.width)
                Put(from + std::size_t(column) * std::size_t(c.Count()), c, still_.multiplied, to);
            else
                std::memset(to, 0, 4), to[0] = c.alpha < 0 ? 255 : 0;
        }
    }

    const Still& still_;
    int width_, height_;
    std::vector<int> columns_, rows_;
    std::uint8_t* target_;
    bool whole_;
    int done_ = 0;
};

// The rows that are read together from `row` on: those of a row of tiles, a chunk, or just the one.
struct Span {
    int begin, end;
};

Span SpanFrom(const ImageSpec& spec, int row, bool dense) {
    int bottom = spec.y + spec.height;
    if (spec.tile_width > 0) {
        int begin = spec.y + (row - spec.y) / spec.tile_height * spec.tile_height;
        return {begin, std::min(begin + spec.tile_height, bottom)};
    }
    return {row, std::min(row + (dense ? kChunkRows : 1), bottom)};
}

bool ReadSpan(const Still& still, Span span, TypeDesc type, Samples& samples) {
    const ImageSpec& spec = still.spec;
    const Channels& c = still.channels;
    samples.resize(std::size_t(span.end - span.begin) * std::size_t(spec.width) * std::size_t(c.Count()) * type.size());
    if (spec.tile_width > 0)
        return still.input->read_tiles(0, 0, spec.x, spec.x + spec.width, span.begin, span.end, spec.z, spec.z + 1,
                                       c.begin, c.end, type, samples.data());
    return still.input->read_scanlines(0, 0, span.begin, span.end, spec.z, c.begin, c.end, type, samples.data());
}

void Take(Filler& filler, TypeDesc type, const Samples& samples, Span span) {
    if (type == TypeDesc::UINT8)
        filler.Take<std::uint8_t>(samples.data(), span.begin, span.end);
    else if (type == TypeDesc::UINT16)
        filler.Take<std::uint16_t>(samples.data(), span.begin, span.end);
    else
        filler.Take<float>(samples.data(), span.begin, span.end);
}

// Reads until every target row is filled, or a row cannot be read.
bool ReadRows(const Still& still, Filler& filler) {
    TypeDesc type = SampleType(still.spec);
    Samples samples;
    for (filler.PassOutside(); !filler.Finished(); filler.PassOutside()) {
        Span span = SpanFrom(still.spec, filler.NextSourceRow(), filler.IsDense());
        if (!ReadSpan(still, span, type, samples)) return false;
        Take(filler, type, samples, span);
    }
    return true;
}

}   // namespace

void DecodeHead(const Request& request, int file, Answer& answer) {
    Still still;
    if (Open(request, file, still, answer)) answer.outcome = Outcome::Whole;
}

void DecodePixels(const Request& request, int file, std::uint8_t* target, Answer& answer) {
    if (std::strcmp(request.format, "png") == 0 && DecodePlainPng(request, file, target, answer)) return;
    bool jpeg = std::strcmp(request.format, "jpeg") == 0;
    if (jpeg && DecodeCommonJpeg(request, file, target, answer)) return;
    Still still;
    if (!Open(request, file, still, answer)) return;
    Filler filler(still, request, target);
    bool whole = ReadRows(still, filler);
    answer.rows = filler.Done();
    if (!whole) {
        answer.outcome = answer.rows > 0 ? Outcome::Damaged : Outcome::None;
        std::string reason = still.input->geterror();
        int row = filler.Finished() ? 0 : filler.NextSourceRow() - still.frame.y;
        Tell(answer, "its row " + std::to_string(row) + " cannot be read" + (reason.empty() ? "" : ": " + reason));
        return;
    }
    bool cut = IsCut(request.format, file);
    answer.outcome = cut ? Outcome::Damaged : Outcome::Whole;
    if (cut) Tell(answer, "it is cut off");
    if (jpeg) CheckJpeg(file, answer);
}

}   // namespace stills::oiio
