// JPEG through libjpeg itself, which is also what the image library decodes it with.
//
// libjpeg goes on over damage, fills up with what it has, and only notes a warning; the image library passes none of
// them on. So the kinds of JPEG that photographs are (grey, or red, green and blue by way of YCbCr) are decoded here
// with the warnings heard; of the others (CMYK) the stream is run through once more for its warnings alone. A frame of
// half the size or less is decoded at an eighth, a quarter or half, which skips most of the work: a pixel is then about
// the mean of the block of 2, 4 or 8 pixels a side that holds the one which would have been taken.
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
    bool nothing = false;   // the file ends before the first row of blocks does
};

Listener& ListenerOf(j_common_ptr common) { return *reinterpret_cast<Listener*>(common->err); }

bool TellsOfAnEnd(int complaint) { return complaint == JWRN_JPEG_EOF || complaint == JERR_INPUT_EOF; }

void Note(j_common_ptr common) {
    Listener& listener = ListenerOf(common);
    if (listener.first) return;
    listener.first = common->err->msg_code;
    common->err->format_message(common, listener.words);
}

// A version that libjpeg does not know says nothing of the pixels.
void OnWarning(j_common_ptr common, int level) {
    if (level >= 0 || common->err->msg_code == JWRN_JFIF_MAJOR) return;
    Note(common);
    auto codec = reinterpret_cast<j_decompress_ptr>(common);
    bool starts = codec->input_scan_number <= 1 && codec->input_iMCU_row == 0;
    Listener& listener = ListenerOf(common);
    if (starts && TellsOfAnEnd(listener.first) && common->err->msg_code == JWRN_HIT_MARKER) listener.nothing = true;
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
    std::vector<JDIMENSION> columns;
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

// Where the target's pixel or row `index` takes its sample from: the library's own rule, on the reduced picture.
JDIMENSION Place(const jpeg_decompress_struct& codec, JDIMENSION source, int target, int index) {
    std::uint64_t step = (std::uint64_t(source) << 16) / unsigned(target);
    return JDIMENSION((unsigned(index) * step >> 16) * codec.scale_num / codec.scale_denom);
}

// Fills the target's rows that come from the row that was just decoded.
void PutRows(Jpeg& jpeg, const Request& request, std::uint8_t* target) {
    const jpeg_decompress_struct& codec = jpeg.codec;
    std::size_t rowBytes = std::size_t(request.width) * 4;
    while (jpeg.done < request.height &&
           Place(codec, codec.image_height, request.height, jpeg.done) + 1 == codec.output_scanline) {
        std::uint8_t* to = target + std::size_t(jpeg.done) * rowBytes;
        for (std::size_t x = 0; x < rowBytes; x += 4) std::memcpy(to + x, &jpeg.row[jpeg.columns[x / 4]], 4);
        ++jpeg.done;
    }
}

// Where in a decoded row each of the target's pixels starts.
void ChooseColumns(Jpeg& jpeg, const Request& request) {
    jpeg.columns.resize(std::size_t(request.width));
    for (int x = 0; x < request.width; ++x)
        jpeg.columns[std::size_t(x)] = Place(jpeg.codec, jpeg.codec.image_width, request.width, x) * 4;
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
    answer.outcome = answer.rows > 0 && !listener.nothing ? Outcome::Damaged : Outcome::None;
    const char* words = TellsOfAnEnd(listener.first) ? "it is cut off" : listener.words;
    CopyText(answer.problem, sizeof answer.problem, words);
}

}   // namespace

bool DecodeCommonJpeg(const Request& request, int file, std::uint8_t* target, Answer& answer) {
    Jpeg jpeg(file);
    if (!ReadHeader(jpeg) || !IsCommon(jpeg.codec) || !IsSane(jpeg.codec)) return false;
    jpeg.codec.out_color_space = JCS_EXT_ARGB;
    ChooseScale(jpeg.codec, request);
    ChooseColumns(jpeg, request);
    Decode(jpeg, request, target);
    answer.outcome = Outcome::Whole;
    answer.width = std::int32_t(jpeg.codec.image_width);
    answer.height = std::int32_t(jpeg.codec.image_height);
    answer.pixelAspect = 1.0;
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
