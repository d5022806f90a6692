// From 8 bits a channel with straight alpha to a file.
//
// Kinds of integers get the pixels as they are. Kinds of floating-point samples get linear light, by the inverse of the
// transfer curve of sRGB, and colours that are multiplied by alpha where they hold it.
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

#include "modules/stills/oiio/Worker.h"

namespace stills::oiio {

namespace {

using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

constexpr int kJpegQuality = 95;

bool IsLinear(const char* format) { return !std::strcmp(format, "openexr") || !std::strcmp(format, "hdr"); }

float Linear(std::uint8_t code) {
    float value = float(code) / 255.0f;
    return value <= 0.04045f ? value / 12.92f : std::pow((value + 0.055f) / 1.055f, 2.4f);
}

ImageSpec SpecFor(const Request& request) {
    bool linear = IsLinear(request.format);
    TypeDesc type = !linear ? TypeDesc::UINT8 : std::strcmp(request.format, "hdr") ? TypeDesc::HALF : TypeDesc::FLOAT;
    ImageSpec spec(request.width, request.height, request.alpha ? 4 : 3, type);
    if (request.alpha && !linear) spec.attribute("oiio:UnassociatedAlpha", 1);
    if (request.pixelAspect > 0 && request.pixelAspect != 1.0)
        spec.attribute("PixelAspectRatio", float(request.pixelAspect));
    spec.attribute("oiio:ColorSpace", linear ? "Linear" : "sRGB");
    if (!std::strcmp(request.format, "jpeg")) spec.attribute("CompressionQuality", kJpegQuality);
    if (!std::strcmp(request.format, "tiff")) spec.attribute("Compression", "zip");
    // Rows of DPX end on whole words, which the image library does not see to: 10 bits a channel, which hold 8 exactly,
    // make each pixel without alpha a word.
    if (!std::strcmp(request.format, "dpx") && !request.alpha) spec.attribute("oiio:BitsPerSample", 10);
    return spec;
}

// The image library takes red, green, blue, and alpha when there is any.
void PutRow(const std::uint8_t* from, int width, int channels, std::uint8_t* to) {
    for (int x = 0; x < width; ++x, from += 4, to += channels) {
        to[0] = from[1];
        to[1] = from[2];
        to[2] = from[3];
        if (channels == 4) to[3] = from[0];
    }
}

void PutRow(const std::uint8_t* from, int width, int channels, float* to) {
    static const std::vector<float> curve = [] {
        std::vector<float> table;
        for (int i = 0; i < 256; ++i) table.push_back(Linear(std::uint8_t(i)));
        return table;
    }();
    for (int x = 0; x < width; ++x, from += 4, to += channels) {
        float alpha = channels == 4 ? float(from[0]) / 255.0f : 1.0f;
        for (int c = 0; c < 3; ++c) to[c] = curve[from[c + 1]] * alpha;
        if (channels == 4) to[3] = alpha;
    }
}

template <class Sample>
bool WriteImage(ImageOutput& output, const Request& request, const std::uint8_t* source, TypeDesc type) {
    std::size_t channels = request.alpha ? 4 : 3, width = std::size_t(request.width);
    std::vector<Sample> samples(width * std::size_t(request.height) * channels);
    for (int y = 0; y < request.height; ++y)
        PutRow(source + std::size_t(y) * width * 4, request.width, int(channels),
               samples.data() + std::size_t(y) * width * channels);
    return output.write_image(type, samples.data());
}

}   // namespace

void EncodePixels(const Request& request, int file, const std::uint8_t* source, Answer& answer) {
    auto tell = [&](const std::string& text, const char* otherwise) {
        CopyText(answer.problem, sizeof answer.problem, text.empty() ? otherwise : text.c_str());
    };
    std::unique_ptr<ImageOutput> output = ImageOutput::create(request.format);
    if (!output) return tell("", "the image library does not write this kind");
    if (!output->open(OpenPath(file).text, SpecFor(request)))
        return tell(output->geterror(), "the image library does not take it");
    bool written = IsLinear(request.format) ? WriteImage<float>(*output, request, source, TypeDesc::FLOAT)
                                            : WriteImage<std::uint8_t>(*output, request, source, TypeDesc::UINT8);
    bool closed = output->close();
    if (!written || !closed) return tell(output->geterror(), "the image library could not finish it");
    answer.outcome = Outcome::Whole;
    answer.width = request.width;
    answer.height = request.height;
}

}   // namespace stills::oiio
