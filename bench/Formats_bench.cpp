// Reading and writing of the film and picture formats beside the libraries that know them.
//
// The peers work from and to memory or the same file; where a peer's picture has another form than ours, libyuv brings
// it to the same four bytes in a row of its own.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include <libyuv.h>
#include <tiffio.h>

#include "Bench.h"
#include "KQLib.h"
#include "Source/PackRun.h"
#include "Source/PixelUnits.h"
#include "Source/Yuv422.h"
#include "kq/clip.h"
#include "kq/formats.h"
#include "kq/frames.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

constexpr int kWidth = 1920, kHeight = 1080, kFrames = 100;
constexpr size_t kPixels = size_t(kWidth) * kHeight, kFrameBytes = kPixels * 4;

using Bytes = std::vector<u8>;

std::string folder;

KQFormatDesc* Module(const char* name) {
    return reinterpret_cast<KQFormatDesc*>(Find_Name(&KQEnv->formatModules, name));
}

// A flat picture, a mixed one of gradients, flat shapes, fine lines and grain, and noise.
Bytes Picture(const std::string& kind) {
    Bytes pixels(kFrameBytes);
    std::mt19937 random(7);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            u8* p = &pixels[(size_t(y) * kWidth + size_t(x)) * 4];
            u8 v = 90;
            if (kind == "noisy") v = u8(random());
            if (kind == "mixed") {
                int part = (x / 160 + y / 135) % 4;
                v = part == 0   ? 200
                    : part == 1 ? u8(x / 6 + y / 9)
                    : part == 2 ? u8((x / 23 + y / 17) % 3 * 80)
                                : u8(100 + random() % 16);
            }
            p[0] = kind == "noisy" ? u8(random()) : v;
            p[1] = v;
            p[2] = kind == "noisy" ? u8(random()) : u8(v / 2);
            p[3] = kind == "noisy" ? u8(random()) : u8(255 - v);
        }
    return pixels;
}

KQClip* NewClip(const char* module, const std::string& file) {
    KQClip* clip = NewClipKQ();
    clip->format = Module(module);
    clip->fileSpec = MakeFileSpecKQ((folder + file).c_str());
    clip->width = kWidth;
    clip->height = kHeight;
    clip->sourceRate = clip->frameRate = 25;
    clip->alphaMode = 2;
    clip->alphaPremultiplied = 0;
    return clip;
}

void EndClip(KQClip* clip) {
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

KQBitmap* BitmapOf(const Bytes& pixels) {
    KQBitmap* bitmap = AllocBitmapKQ(kWidth, kHeight, 32);
    std::memcpy(bitmap->data, pixels.data(), kFrameBytes);
    return bitmap;
}

void WriteFilm(const std::string& file, KQBitmap* bitmap, int frames) {
    KQClip* clip = NewClip("Filmstrip", file);
    CreateClipKQ(clip, 0);
    for (int i = 0; i < frames; ++i) clip->format->AddFrame(clip, bitmap, i, nullptr);
    EndClip(clip);
}

// libavformat's Filmstrip demuxer, each frame's bytes put in our order.
void ReadFilmByPeer(const std::string& file, u8* pixels) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, (folder + file).c_str(), av_find_input_format("filmstrip"), nullptr) < 0)
        std::abort();
    AVPacket* packet = av_packet_alloc();
    for (int i = 0; i < kFrames && av_read_frame(format, packet) >= 0; ++i) {
        libyuv::ARGBToRGBA(packet->data, kWidth * 4, pixels, kWidth * 4, kWidth, kHeight);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&format);
}

void WriteFilmByPeer(const std::string& file, const u8* pixels, Bytes& turned) {
    AVFormatContext* format = nullptr;
    avformat_alloc_output_context2(&format, nullptr, "filmstrip", (folder + file).c_str());
    AVStream* stream = avformat_new_stream(format, nullptr);
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = AV_CODEC_ID_RAWVIDEO;
    stream->codecpar->codec_tag = 0;
    stream->codecpar->format = AV_PIX_FMT_RGBA;
    stream->codecpar->width = kWidth;
    stream->codecpar->height = kHeight;
    stream->avg_frame_rate = stream->time_base = {25, 1};
    if (avio_open(&format->pb, (folder + file).c_str(), AVIO_FLAG_WRITE) < 0 ||
        avformat_write_header(format, nullptr) < 0)
        std::abort();
    AVPacket* packet = av_packet_alloc();
    for (int i = 0; i < kFrames; ++i) {
        libyuv::RGBAToARGB(pixels, kWidth * 4, turned.data(), kWidth * 4, kWidth, kHeight);
        packet->data = turned.data();
        packet->size = int(kFrameBytes);
        packet->pts = packet->dts = i;
        if (av_write_frame(format, packet) < 0) std::abort();
    }
    av_write_trailer(format);
    av_packet_free(&packet);
    avio_closep(&format->pb);
    avformat_free_context(format);
}

void BenchFilm() {
    KQBitmap* bitmap = BitmapOf(Picture("mixed"));
    Bytes turned(kFrameBytes + 64);
    constexpr f64 kMegabytes = kFrameBytes * f64(kFrames) / 1e6;
    WriteFilm("read.flm", bitmap, kFrames);
    KQClip* clip = NewClip("Filmstrip", "read.flm");
    clip->format->Open(clip, nullptr);
    int file = open((folder + "read.flm").c_str(), O_RDONLY);
    auto readAll = [&](bool rotate) {
        for (int i = 0; i < kFrames; ++i) {
            if (pread(file, turned.data(), kFrameBytes, off_t(i) * kWidth * (kHeight + 16) * 4) != ssize_t(kFrameBytes))
                std::abort();
            if (rotate) libyuv::ARGBToRGBA(turned.data(), kWidth * 4, turned.data(), kWidth * 4, kWidth, kHeight);
        }
    };
    bench::Row("Filmstrip read, 100 frames of 1920 x 1080", kMegabytes, "MB",
               {{"ours",
                 [&] {
                     for (int i = 0; i < kFrames; ++i)
                         clip->format->GetFrame(clip, bitmap, i, nullptr, kWidth, kHeight, 0);
                 }},
                {"libavformat and libyuv", [&] { ReadFilmByPeer("read.flm", turned.data()); }},
                {"read() of the same bytes", [&] { readAll(false); }},
                {"read(), then libyuv's rotation", [&] { readAll(true); }}},
               {{1, 1.0}, {2, 0.7}, {3, 1 / 1.15}}, 5);
    close(file);
    EndClip(clip);
    std::remove((folder + "read.flm").c_str());
    auto writeAll = [&] {
        int out = open((folder + "raw").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
        for (int i = 0; i < kFrames; ++i)
            if (write(out, bitmap->data, kFrameBytes) != ssize_t(kFrameBytes)) std::abort();
        close(out);
    };
    bench::Row("Filmstrip write, 100 frames of 1920 x 1080", kMegabytes, "MB",
               {{"ours", [&] { WriteFilm("write.flm", bitmap, kFrames); }},
                {"libavformat and libyuv", [&] { WriteFilmByPeer("peer.flm", bitmap->data, turned); }},
                {"write() of the same bytes", writeAll}},
               {{1, 1.0}, {2, 0.8}}, 5);
    FreeBitmapKQ(bitmap);
}

// A TIFF of one strip a row in memory, PackBits of 8-bit rows.
struct Memory {
    Bytes bytes;
    size_t at = 0;
};

tmsize_t MemoryRead(thandle_t handle, void* to, tmsize_t count) {
    auto memory = static_cast<Memory*>(handle);
    size_t left = memory->bytes.size() - std::min(memory->at, memory->bytes.size());
    size_t got = std::min(left, size_t(count));
    std::memcpy(to, memory->bytes.data() + memory->at, got);
    memory->at += got;
    return tmsize_t(got);
}

tmsize_t MemoryWrite(thandle_t handle, void* from, tmsize_t count) {
    auto memory = static_cast<Memory*>(handle);
    if (memory->bytes.size() < memory->at + size_t(count)) memory->bytes.resize(memory->at + size_t(count));
    std::memcpy(memory->bytes.data() + memory->at, from, size_t(count));
    memory->at += size_t(count);
    return count;
}

toff_t MemorySeek(thandle_t handle, toff_t offset, int whence) {
    auto memory = static_cast<Memory*>(handle);
    memory->at = size_t(whence == SEEK_SET   ? offset
                        : whence == SEEK_CUR ? memory->at + offset
                                             : memory->bytes.size() + offset);
    return memory->at;
}

int MemoryClose(thandle_t) { return 0; }
toff_t MemorySize(thandle_t handle) { return static_cast<Memory*>(handle)->bytes.size(); }

TIFF* OpenTiff(Memory* memory, const char* mode) {
    memory->at = 0;
    return TIFFClientOpen("memory", mode, memory, MemoryRead, MemoryWrite, MemorySeek, MemoryClose, MemorySize, nullptr,
                          nullptr);
}

void WriteTiff(Memory* memory, Bytes& grey) {
    memory->bytes.clear();
    memory->bytes.reserve(4 << 20);
    TIFF* tiff = OpenTiff(memory, "w");
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, kWidth);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, kHeight);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, kHeight);
    TIFFWriteEncodedStrip(tiff, 0, grey.data(), tmsize_t(kPixels));
    TIFFClose(tiff);
}

void ReadTiff(Memory* memory, u8* grey) {
    TIFF* tiff = OpenTiff(memory, "r");
    if (TIFFReadEncodedStrip(tiff, 0, grey, tmsize_t(kPixels)) < 0) std::abort();
    TIFFClose(tiff);
}

// An encoder and decoder of libavcodec for single pictures.
struct Codec {
    AVCodecContext *encoder, *decoder;
    AVFrame *frame, *decoded;
    AVPacket* packet;

    Codec(AVCodecID id, AVPixelFormat format, const Bytes& pixels) {
        encoder = avcodec_alloc_context3(avcodec_find_encoder(id));
        decoder = avcodec_alloc_context3(avcodec_find_decoder(id));
        encoder->width = decoder->width = kWidth;
        encoder->height = decoder->height = kHeight;
        encoder->pix_fmt = format;
        encoder->time_base = {1, 25};
        encoder->gop_size = 1;
        encoder->thread_count = decoder->thread_count = 1;
        int bits = format == AV_PIX_FMT_BGRA || format == AV_PIX_FMT_ARGB ? 32 : 24;
        decoder->bits_per_coded_sample = bits;
        if (avcodec_open2(encoder, nullptr, nullptr) < 0 || avcodec_open2(decoder, nullptr, nullptr) < 0) std::abort();
        frame = av_frame_alloc();
        frame->format = format;
        frame->width = kWidth;
        frame->height = kHeight;
        av_frame_get_buffer(frame, 0);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                std::memcpy(frame->data[0] + y * frame->linesize[0] + x * bits / 8,
                            &pixels[(size_t(y) * kWidth + size_t(x)) * 4 + (bits == 24)], size_t(bits / 8));
        decoded = av_frame_alloc();
        packet = av_packet_alloc();
        Encode();
    }
    void Encode() {
        av_packet_unref(packet);
        frame->pts++;
        frame->pict_type = AV_PICTURE_TYPE_I;
        if (avcodec_send_frame(encoder, frame) < 0 || avcodec_receive_packet(encoder, packet) < 0) std::abort();
    }
    void Decode() {
        if (avcodec_send_packet(decoder, packet) < 0 || avcodec_receive_frame(decoder, decoded) < 0) std::abort();
    }
};

// Our packer and unpacker from memory to memory, as the peers work; pixels on our side are those of a bitmap.
size_t PackFrame(const Bytes& pixels, i32 size, Bytes& values, Bytes& out) {
    kq::RunPacker packer;
    kq::EqualBits equal;
    u8* end = out.data();
    for (int y = 0; y < kHeight; ++y) {
        const u8* row = &pixels[size_t(y) * kWidth * 4];
        if (size == 1) {
            kq::NarrowToReds(row, kWidth, values.data());
            kq::MarkEqualBytes(values.data(), kWidth, &equal);
            end = kq::PackBytes(&packer, values.data(), kWidth, &equal, end);
        } else if (size == 3) {
            kq::NarrowToTriples(row, kWidth, values.data());
            kq::MarkEqualColours(row, kWidth, &equal);
            end = kq::PackTriples(&packer, values.data(), kWidth, &equal, end);
        } else {
            kq::MarkEqualPixels(row, kWidth, &equal);
            end = kq::PackQuads(&packer, row, kWidth, &equal, end);
        }
    }
    return size_t(end - out.data());
}

void UnpackFrame(const Bytes& packed, size_t length, i32 size, u8* pixels) {
    kq::RunUnpacker unpacker;
    const u8* in = packed.data();
    const u8* end = in + length;
    size_t done = size == 4   ? kq::UnpackRuns(&unpacker, 4, &in, end, pixels, kPixels)
                  : size == 3 ? kq::UnpackTriplePixels(&unpacker, &in, end, pixels, kPixels)
                              : kq::UnpackGreyPixels(&unpacker, &in, end, pixels, kPixels);
    if (done != kPixels) std::abort();
}

// To values, the form in which libtiff gives them.
void UnpackValues(const Bytes& packed, size_t length, i32 size, u8* values) {
    kq::RunUnpacker unpacker;
    const u8* in = packed.data();
    if (kq::UnpackRuns(&unpacker, size, &in, in + length, values, kPixels) != kPixels) std::abort();
}

void BenchPacker(const std::string& kind, i32 alphaMode) {
    Bytes pixels = Picture(kind), grey(kPixels), plain(kFrameBytes + 64), copy(kFrameBytes);
    i32 size = alphaMode == 2 ? 4 : alphaMode == 1 ? 1 : 3;
    for (size_t i = 0; i < kPixels; ++i) {
        if (alphaMode == 1) std::memset(&pixels[i * 4 + 1], pixels[i * 4], 3);
        grey[i] = pixels[i * 4];
    }
    KQBitmap* bitmap = BitmapOf(pixels);
    KQClip* clip = NewClip("ElectricImage", "a.ei");
    clip->alphaMode = alphaMode;
    auto encode = [&] {
        CreateClipKQ(clip, 0);
        clip->format->AddFrame(clip, bitmap, 0, nullptr);
        CloseClipKQ(clip);
    };
    encode();
    KQClip* reader = NewClip("ElectricImage", "a.ei");
    if (!reader->format->Open(reader, nullptr)) std::abort();
    auto decode = [&] { reader->format->GetFrame(reader, bitmap, 0, nullptr, kWidth, kHeight, 0); };
    Bytes source = pixels, values(kFrameBytes + 1024), packed(kFrameBytes * 5 / 4);
    source.resize(kFrameBytes + 1024);
    size_t length = PackFrame(source, size, values, packed);
    std::vector<bench::Contender> encoders, decoders;
    encoders.push_back({"ours, memory to memory", [&] { PackFrame(source, size, values, packed); }});
    if (size == 1)
        decoders.push_back({"ours, memory to bytes", [&] { UnpackValues(packed, length, size, values.data()); }});
    decoders.push_back({"ours, memory to pixels", [&] { UnpackFrame(packed, length, size, bitmap->data); }});
    Memory tiff;
    std::vector<Codec> codecs;
    codecs.reserve(2);
    if (size == 1) {
        WriteTiff(&tiff, grey);
        encoders.push_back({"libtiff PackBits", [&] { WriteTiff(&tiff, grey); }});
        decoders.push_back({"libtiff PackBits", [&] { ReadTiff(&tiff, plain.data()); }});
        decoders.push_back({"libtiff PackBits and libyuv to pixels", [&] {
                                ReadTiff(&tiff, plain.data());
                                libyuv::J400ToARGB(plain.data(), kWidth, copy.data(), kWidth * 4, kWidth, kHeight);
                            }});
    } else {
        codecs.emplace_back(AV_CODEC_ID_TARGA, size == 4 ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24, pixels);
        codecs.emplace_back(AV_CODEC_ID_QTRLE, size == 4 ? AV_PIX_FMT_ARGB : AV_PIX_FMT_RGB24, pixels);
        const char* names[] = {"libavcodec TGA", "libavcodec QuickTime RLE"};
        for (size_t i = 0; i < 2; ++i) {
            encoders.push_back({names[i], [&, i] { codecs[i].Encode(); }});
            decoders.push_back({names[i], [&, i] { codecs[i].Decode(); }});
        }
    }
    f64 amount = f64(kPixels) * size / 1e6;
    std::string what =
        std::to_string(size * 8) + " bits, " + kind + " (MB of " + std::to_string(size) + "-byte pixels)";
    size_t peers = encoders.size() - 1;
    std::vector<bench::Target> encodeTargets, decodeTargets;
    for (size_t i = 1; i <= peers; ++i) {
        encodeTargets.push_back({i, kind == "mixed" ? 3.0 : 1.0});
        if (kind != "noisy") decodeTargets.push_back({size == 1 ? i + 1 : i, 2.0});
    }
    decoders.push_back({"memcpy of the pixels", [&] {
                            std::memcpy(copy.data(), pixels.data(), kFrameBytes);
                            bench::Keep(copy.data());
                        }});
    if (kind == "noisy") decodeTargets.push_back({decoders.size() - 1, 0.85});
    encoders.push_back({"ours, frame to file", encode});
    decoders.push_back({"ours, file to frame", decode});
    bench::Row("ElectricImage encode, " + what, amount, "MB", encoders, encodeTargets, 7);
    bench::Row("ElectricImage decode, " + what, amount, "MB", decoders, decodeTargets, 7);
    FreeBitmapKQ(bitmap);
    EndClip(clip);
    EndClip(reader);
}

void BenchOpen() {
    constexpr int kMany = 100000;
    KQClip* clip = NewClip("ElectricImage", "many.ei");
    KQBitmap* bitmap = AllocBitmapKQ(32, 32, 32);
    std::mt19937 random(3);
    for (i32 i = 0; i < bitmap->dataSize; ++i) bitmap->data[i] = u8(random());
    CreateClipKQ(clip, 0);
    for (int i = 0; i < kMany; ++i) clip->format->AddFrame(clip, bitmap, i, nullptr);
    CloseClipKQ(clip);
    int file = open((folder + "many.ei").c_str(), O_RDONLY);
    off_t step = (std::filesystem::file_size(folder + "many.ei") - 6) / kMany;
    KQClip* reader = NewClip("ElectricImage", "many.ei");
    bench::Row("opening an ElectricImage file of 100,000 frames", kMany, "call",
               {{"ours, a frame",
                 [&] {
                     reader->format->Open(reader, nullptr);
                     reader->format->Close(reader);
                 }},
                {"one pread a frame",
                 [&] {
                     u8 head[32];
                     for (int i = 0; i < kMany; ++i)
                         if (pread(file, head, sizeof head, 6 + i * step) != 32) std::abort();
                 }}},
               {{1, 1 / 1.3}}, 9);
    close(file);
    EndClip(clip);
    EndClip(reader);
    FreeBitmapKQ(bitmap);
}

void BenchVPB() {
    KQBitmap* bitmap = BitmapOf(Picture("mixed"));
    KQClip* clip = NewClip("Quantel VPB", "a.vpb");
    Bytes yuv(kPixels * 2 + 1024), pixels(kFrameBytes);
    clip->format->AddFrame(clip, bitmap, 0, nullptr);
    auto peerRead = [&] {
        int file = open((folder + "a.vpb").c_str(), O_RDONLY);
        if (pread(file, yuv.data(), kPixels * 2, 1024) != ssize_t(kPixels * 2)) std::abort();
        close(file);
    };
    auto peerDecode = [&] {
        libyuv::UYVYToARGB(yuv.data(), kWidth * 2, pixels.data(), kWidth * 4, kWidth, kHeight);
        libyuv::ARGBToBGRA(pixels.data(), kWidth * 4, pixels.data(), kWidth * 4, kWidth, kHeight);
    };
    auto peerEncode = [&] {
        libyuv::BGRAToARGB(bitmap->data, kWidth * 4, pixels.data(), kWidth * 4, kWidth, kHeight);
        libyuv::ARGBToUYVY(pixels.data(), kWidth * 4, yuv.data(), kWidth * 2, kWidth, kHeight);
    };
    bench::Row("VPB decode, 1920 x 1080, memory to memory", kPixels / 1e6, "Mpixel",
               {{"ours",
                 [&] {
                     for (int y = 0; y < kHeight; ++y)
                         kq::Yuv422ToPixels(&yuv[size_t(y) * kWidth * 2], kWidth,
                                            bitmap->data + size_t(y) * kWidth * 4);
                 }},
                {"libyuv", peerDecode}},
               {{1, 1.0}});
    bench::Row("VPB encode, 1920 x 1080, memory to memory", kPixels / 1e6, "Mpixel",
               {{"ours",
                 [&] {
                     for (int y = 0; y < kHeight; ++y)
                         kq::PixelsToYuv422(bitmap->data + size_t(y) * kWidth * 4, kWidth,
                                            &yuv[size_t(y) * kWidth * 2]);
                 }},
                {"libyuv", peerEncode}},
               {{1, 1.0}});
    bench::Row("VPB decode, 1920 x 1080, file to frame", kPixels / 1e6, "Mpixel",
               {{"ours", [&] { clip->format->GetFrame(clip, bitmap, 0, nullptr, kWidth, kHeight, 0); }},
                {"libyuv alone, memory to memory", peerDecode},
                {"read() and libyuv",
                 [&] {
                     peerRead();
                     peerDecode();
                 }}},
               {{2, 1.0}});
    bench::Row("VPB encode, 1920 x 1080, frame to file", kPixels / 1e6, "Mpixel",
               {{"ours", [&] { clip->format->AddFrame(clip, bitmap, 0, nullptr); }},
                {"libyuv alone, memory to memory", peerEncode},
                {"libyuv and write()",
                 [&] {
                     peerEncode();
                     int file = open((folder + "b.vpb").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
                     if (write(file, yuv.data(), kPixels * 2 + 1024) < 0) std::abort();
                     close(file);
                 }}},
               {{2, 1.0}});
    FreeBitmapKQ(bitmap);
    EndClip(clip);
}

}   // namespace

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    InitFormatModulesKQ(nullptr);
    folder =
        (std::filesystem::exists("/dev/shm") ? "/dev/shm/" : std::filesystem::temp_directory_path().string() + "/") +
        ("kqbench-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    folder += "/";
    BenchVPB();
    BenchOpen();
    for (i32 mode : {1, 0, 2})
        for (const char* kind : {"flat", "mixed", "noisy"}) BenchPacker(kind, mode);
    BenchFilm();
    std::filesystem::remove_all(folder);
    CleanUpKQ();
}
