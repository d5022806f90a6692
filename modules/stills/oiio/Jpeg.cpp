// JPEG through libjpeg itself, which is also what the image library decodes it with.
//
// libjpeg goes on over damage, fills up with what it has, and only notes a warning; the image library passes none of
// them on. So the kinds of JPEG that photographs are (grey, or red, green and blue by way of YCbCr) are decoded here
// with the warnings heard; of the others (CMYK) the stream is run through once more for its warnings alone. A frame of
// half the size or less is decoded at an eighth, a quarter or half, which skips most of the work.
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include <jpeglib.h>

#include <jerror.h>

#include "modules/stills/oiio/Worker.h"

namespace stills::oiio {

namespace {

// What libjpeg calls for its errors and warnings.
struct Listener {
    jpeg_error_mgr manager;   // first: libjpeg hands out its address
    std::jmp_buf leave;
    int first = 0;   // the first complaint's number
    char words[JMSG_LENGTH_MAX] = {};
};

Listener& ListenerOf(j_common_ptr common) { return *reinterpret_cast<Listener*>(common->err); }

void Note(j_common_ptr common) {
    Listener& listener = ListenerOf(common);
    if (listener.first) return;
    listener.first = common->err->msg_code;
    common->err->format_message(common, listener.words);
}

void OnWarning(j_common_ptr common, int level) {
    if (level < 0) Note(common);
}

// A file that was damaged before it went wrong altogether is told by its first complaint.
[[noreturn]] void OnError(j_common_ptr common) {
    Note(common);
    std::longjmp(ListenerOf(common).leave, 1);
}

// A decompressor on an open file. No function between setjmp and longjmp holds anything that wants to be destroyed:
// all that does stands here.
struct Jpeg {
    jpeg_decompress_struct codec = {};
    Listener listener = {};
    std::FILE* file;
    std::vector<std::uint8_t> row;
    int done = 0;   // rows of the target that are filled

    explicit Jpeg(int descriptor) : file(std::fopen(OpenPath(descriptor).text, "rb")) {
        codec.err = jpeg_std_error(&listener.manager);
        listener.manager.emit_message = OnWarning;
        listener.manager.error_exit = OnError;
    }

    Jpeg(const Jpeg&) = delete;
    Jpeg& operator=(const Jpeg&) = delete;

    ~Jpeg() {
        jpeg_destroy_decompress(&codec);
        if (file) std::fclose(file);
    }
};

bool ReadHeader(Jpeg& jpeg) {
    if (!jpeg.file || setjmp(jpeg.listener.leave)) return false;
    jpeg_create_decompress(&jpeg.codec);
    jpeg_stdio_src(&jpeg.codec, jpeg.file);
    return jpeg_read_header(&jpeg.codec, TRUE) == JPEG_HEADER_OK;
}

// The smallest of the cheap scales that gives at least the pixels that are asked for.
void ChooseScale(jpeg_decompress_struct& codec, const Request& request) {
    unsigned width = unsigned(request.width), height = unsigned(request.height);
    codec.scale_denom = 8;
    for (codec.scale_num = 1; codec.scale_num < 8; codec.scale_num *= 2)
        if (codec.image_width * codec.scale_num / 8 >= width && codec.image_height * codec.scale_num / 8 >= height)
            return;
}

void PutRow(const Jpeg& jpeg, int width, std::uint8_t* to) {
    std::uint32_t step = (std::uint32_t(jpeg.codec.output_width) << 16) / std::uint32_t(width);
    std::size_t channels = std::size_t(jpeg.codec.output_components), colour = channels == 3;
    for (int x = 0; x < width; ++x, to += 4) {
        const std::uint8_t* from = jpeg.row.data() + (std::uint64_t(unsigned(x)) * step >> 16) * channels;
        to[0] = 255;
        to[1] = from[0];
        to[2] = from[colour];
        to[3] = from[2 * colour];
    }
}

// Fills the target's rows that come from the row that was just decoded.
void PutRows(Jpeg& jpeg, const Request& request, std::uint8_t* target) {
    std::uint32_t step = (std::uint32_t(jpeg.codec.output_height) << 16) / std::uint32_t(request.height);
    std::uint32_t row = jpeg.codec.output_scanline - 1;
    while (jpeg.done < request.height && std::uint64_t(unsigned(jpeg.done)) * step >> 16 == row) {
        PutRow(jpeg, request.width, target + std::size_t(jpeg.done) * std::size_t(request.width) * 4);
        ++jpeg.done;
    }
}

// Decodes to the file's end, past the last row that is wanted, for what libjpeg has to say; false when it gives up.
// Without a target it is run through only.
bool Decode(Jpeg& jpeg, const Request& request, std::uint8_t* target) {
    if (setjmp(jpeg.listener.leave)) return false;
    jpeg_start_decompress(&jpeg.codec);
    jpeg.row.resize(std::size_t(jpeg.codec.output_width) * std::size_t(jpeg.codec.output_components));
    JSAMPROW row = jpeg.row.data();
    while (jpeg.codec.output_scanline < jpeg.codec.output_height) {
        jpeg_read_scanlines(&jpeg.codec, &row, 1);
        if (target) PutRows(jpeg, request, target);
    }
    jpeg_finish_decompress(&jpeg.codec);
    return true;
}

bool IsCommon(const jpeg_decompress_struct& codec) {
    return (codec.num_components == 1 && codec.out_color_space == JCS_GRAYSCALE) ||
           (codec.num_components == 3 && codec.out_color_space == JCS_RGB);
}

bool IsSane(const jpeg_decompress_struct& codec) {
    return codec.image_width >= 1 && codec.image_height >= 1 && codec.image_width <= 32767 &&
           codec.image_height <= 32767 && std::int64_t(codec.image_width) * codec.image_height <= kMostPixels;
}

void TellDamage(const Listener& listener, Answer& answer) {
    if (!listener.first) return;
    answer.outcome = answer.rows > 0 ? Outcome::Damaged : Outcome::None;
    bool cut = listener.first == JWRN_JPEG_EOF || listener.first == JERR_INPUT_EOF;
    CopyText(answer.problem, sizeof answer.problem, cut ? "it is cut off" : listener.words);
}

}   // namespace

bool DecodeCommonJpeg(const Request& request, int file, std::uint8_t* target, Answer& answer) {
    Jpeg jpeg(file);
    if (!ReadHeader(jpeg) || !IsCommon(jpeg.codec) || !IsSane(jpeg.codec)) return false;
    ChooseScale(jpeg.codec, request);
    Decode(jpeg, request, target);
    answer.outcome = Outcome::Whole;
    answer.width = std::int32_t(jpeg.codec.image_width);
    answer.height = std::int32_t(jpeg.codec.image_height);
    answer.rows = jpeg.done;
    TellDamage(jpeg.listener, answer);
    return true;
}

void CheckJpeg(int file, Answer& answer) {
    Jpeg jpeg(file);
    if (ReadHeader(jpeg)) {
        jpeg.codec.scale_num = 1;
        jpeg.codec.scale_denom = 8;
        Decode(jpeg, {}, nullptr);
    }
    TellDamage(jpeg.listener, answer);
}

}   // namespace stills::oiio
