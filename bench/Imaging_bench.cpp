// Scaling, conversions, copies and fills of whole frames beside libyuv, OpenCV and libswscale, and beside memcpy and
// memset of the same bytes. One thread each unless a row says otherwise.
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <libyuv.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libswscale/swscale.h>
}

#include "bench/Bench.h"
#include "kq/bitmap.h"
#include "kq/environment.h"
#include "kq/nativebitmap.h"
#include "kq/tasks.h"

namespace {

using bench::Contender;
using bench::Target;

struct Size {
    i32 width, height;

    double Mpixel() const { return double(width) * height / 1e6; }
    std::string Text() const { return std::to_string(width) + " x " + std::to_string(height); }
};

struct Releaser {
    void operator()(KQBitmap* bitmap) const { FreeBitmapKQ(bitmap); }
    void operator()(KQNativeBitmap* bitmap) const { FreeBitmapKQ(bitmap); }
};

using Portable = std::unique_ptr<KQBitmap, Releaser>;
using Native = std::unique_ptr<KQNativeBitmap, Releaser>;

template <class Bitmap>
void Touch(Bitmap* bitmap) {
    for (i32 i = 0; i < bitmap->dataSize; ++i) bitmap->data[i] = u8(i * 7);
}

Portable NewPortable(Size size, i32 depth) {
    Portable bitmap(AllocBitmapKQ(size.width, size.height, depth));
    Touch(bitmap.get());
    return bitmap;
}

Native NewNative(Size size, i32 depth) {
    Native bitmap(AllocNativeBitmapKQ(size.width, size.height, depth));
    Touch(bitmap.get());
    return bitmap;
}

// A row more: libswscale writes behind the last pixel.
Size Spare(Size size) { return {size.width, size.height + 1}; }

// All contenders of a row read and write the same memory, so that none has the luckier pages.

// Ours on one thread, and on all processors.
i32 processors = 1;

Contender OneThread(std::function<void()> work) {
    return {"KQLib", [work] {
                KQEnv->Processors = 1;
                work();
            }};
}

Contender AllThreads(std::function<void()> work) {
    return {"KQLib, " + std::to_string(processors) + " threads", [work] {
                KQEnv->Processors = processors;
                work();
                KQEnv->Processors = 1;
            }};
}

// What threads are for comes frame after frame. Once in a while, it would measure how long a halted processor takes to
// wake up.
constexpr int kFrames = 8;

std::function<void()> FrameAfterFrame(std::function<void()> work) {
    return [work] {
        for (int i = 0; i < kFrames; ++i) work();
    };
}

// Part of the names of the rows that are wanted.
std::string wanted;

// The row on one thread with its ratio to the fastest peer, then the same on all processors.
void Rows(const std::string& name, double amount, const std::string& unit, std::function<void()> ours,
          std::vector<Contender> peers, double ratio, std::function<void()> sharedPeer = nullptr,
          const std::vector<Contender>& sharedLimits = {}) {
    if (name.find(wanted) == std::string::npos) return;
    std::vector<Contender> all{OneThread(ours)};
    all.insert(all.end(), peers.begin(), peers.end());
    std::vector<double> medians = bench::Medians(all, 5);
    size_t best = 1;
    for (size_t i = 2; i < medians.size(); ++i)
        if (medians[i] < medians[best]) best = i;
    bench::Row(name, amount, unit, all, {{best, ratio}}, 9);
    if (!sharedPeer) return;
    std::vector<Contender> shared{AllThreads(ours)};
    shared.insert(shared.end(), sharedLimits.begin(), sharedLimits.end());
    shared.push_back({"OpenCV, as many threads", [sharedPeer] {
                          cv::setNumThreads(processors);
                          sharedPeer();
                          cv::setNumThreads(1);
                      }});
    shared.push_back(OneThread(ours));
    for (Contender& one : shared) one.run = FrameAfterFrame(one.run);
    bench::Row(name + ", all processors", amount * kFrames, unit, shared,
               {{shared.size() - 1, 1.6}, {shared.size() - 2, 1.0}}, 9);
}

// What the memory gives to all processors at once: memcpy, or memset for a null source, of a share each.
struct Limit {
    const u8* from;
    u8* to;
    size_t bytes;

    void Run() {
        KQEnv->Processors = processors;
        MPForkKQ(
            [](i32 slice, i32 slices, void* data) {
                auto& limit = *static_cast<Limit*>(data);
                size_t share = limit.bytes / size_t(slices), first = share * size_t(slice - 1);
                if (limit.from)
                    std::memcpy(limit.to + first, limit.from + first, share);
                else
                    std::memset(limit.to + first, 0x33, share);
                return 1;
            },
            this, processors);
        KQEnv->Processors = 1;
    }
};

struct ScaleContext {
    SwsContext* context;

    ScaleContext(Size from, AVPixelFormat source, Size to, AVPixelFormat target)
        : context(sws_getContext(from.width, from.height, source, to.width, to.height, target, SWS_POINT, nullptr,
                                 nullptr, nullptr)) {}

    ~ScaleContext() { sws_freeContext(context); }
};

void ScaleRow(Size from, Size to, i32 depth, const std::string& what, double ratio) {
    Portable source = NewPortable(from, depth), target = NewPortable(to, depth);
    int type = depth == 32 ? CV_8UC4 : CV_8UC1;
    cv::Mat in(from.height, from.width, type, source->data), out(to.height, to.width, type, target->data);
    auto opencv = [&] { cv::resize(in, out, {to.width, to.height}, 0, 0, cv::INTER_NEAREST); };
    auto yuv = [&] {
        if (depth == 32)
            libyuv::ARGBScale(source->data, source->rowBytes, from.width, from.height, target->data, target->rowBytes,
                              to.width, to.height, libyuv::kFilterNone);
        else
            libyuv::ScalePlane(source->data, source->rowBytes, from.width, from.height, target->data, target->rowBytes,
                               to.width, to.height, libyuv::kFilterNone);
    };
    AVPixelFormat format = depth == 32 ? AV_PIX_FMT_ARGB : AV_PIX_FMT_GRAY8;
    ScaleContext swscale(from, format, to, format);
    auto sws = [&] {
        const u8* sources[] = {source->data};
        u8* targets[] = {target->data};
        sws_scale(swscale.context, sources, &source->rowBytes, 0, from.height, targets, &target->rowBytes);
    };
    Rows(
        "scale " + std::to_string(depth) + " to " + std::to_string(depth) + " " + what + ", " + from.Text() + " to " +
            to.Text(),
        to.Mpixel(), "Mpixel", [&] { ScaleBitmapKQ(source.get(), target.get(), nullptr, nullptr); },
        {{"OpenCV", opencv}, {"libyuv", yuv}, {"libswscale", sws}}, ratio, opencv);
}

void ScaleRows(Size size) {
    Size third{size.width * 2 / 3, size.height * 2 / 3}, half{size.width / 2, size.height / 2};
    Size twice{size.width * 2, size.height * 2};
    for (i32 depth : {32, 8}) {
        bool wide = depth == 32;
        ScaleRow(size, third, depth, "to two thirds", wide ? 1.1 : 3);
        ScaleRow(size, half, depth, "to a half", wide ? 1.1 : 1);
        ScaleRow(size, twice, depth, "to double", wide ? 1.3 : 3);
    }
}

// A native bitmap's rows as the peers address them: from the top row on, with a negative stride.
u8* Top(const Native& bitmap) { return bitmap->data + bitmap->firstRowOffset; }

// Scaling with conversion, the peer in bands of rows that stay in the cache: scale, then convert.
void ScaleConvertRows(Size size) {
    Size to{size.width * 2 / 3, size.height * 2 / 3};
    Portable wide = NewPortable(size, 32), target = NewPortable(to, 32);
    Native three = NewNative(to, 24), source = NewNative(size, 24);
    std::vector<u8> between(size_t(to.width) * size_t(to.height) * 4), band(size_t(size.width) * 4 * 24);
    auto yuvDown = [&] {
        for (i32 y = 0; y < to.height; y += 16) {
            i32 rows = std::min(16, to.height - y);
            libyuv::ARGBScale(wide->data + i64(y) * 3 / 2 * wide->rowBytes, wide->rowBytes, size.width, rows * 3 / 2,
                              between.data(), to.width * 4, to.width, rows, libyuv::kFilterNone);
            libyuv::ARGBToBGRA(between.data(), to.width * 4, between.data(), to.width * 4, to.width, rows);
            libyuv::ARGBToRGB24(between.data(), to.width * 4, Top(three) + i64(y) * three->rowBytes, three->rowBytes,
                                to.width, rows);
        }
    };
    cv::Mat in(size.height, size.width, CV_8UC4, wide->data), small(to.height, to.width, CV_8UC4, between.data());
    Rows(
        "scale 32 to native 24, " + size.Text() + " to " + to.Text(), to.Mpixel(), "Mpixel",
        [&] { ScaleBitmapKQ(wide.get(), three.get(), nullptr, nullptr); }, {{"libyuv in bands", yuvDown}}, 1.6);
    auto yuvUp = [&] {
        for (i32 y = 0; y < to.height; y += 16) {
            i32 rows = std::min(16, to.height - y);
            libyuv::RGB24ToARGB(Top(source) + i64(y) * 3 / 2 * source->rowBytes, source->rowBytes, band.data(),
                                size.width * 4, size.width, rows * 3 / 2);
            libyuv::ARGBScale(band.data(), size.width * 4, size.width, rows * 3 / 2, between.data(), to.width * 4,
                              to.width, rows, libyuv::kFilterNone);
            libyuv::ARGBToBGRA(between.data(), to.width * 4, target->data + i64(y) * target->rowBytes, target->rowBytes,
                               to.width, rows);
        }
    };
    cv::Mat bgr(size.height, size.width, CV_8UC3, source->data, size_t(-source->rowBytes)), scaled, flipped;
    cv::Mat out(to.height, to.width, CV_8UC4, target->data);
    int order[] = {-1, 0, 2, 1, 1, 2, 0, 3};
    auto chain = [&] {
        cv::resize(bgr, scaled, {to.width, to.height}, 0, 0, cv::INTER_NEAREST);
        cv::flip(scaled, flipped, 0);
        cv::mixChannels(&flipped, 1, &out, 1, order, 4);
    };
    Rows(
        "scale native 24 to 32, " + size.Text() + " to " + to.Text(), to.Mpixel(), "Mpixel",
        [&] { ScaleBitmapKQ(source.get(), target.get(), nullptr, nullptr); },
        {{"libyuv in bands", yuvUp}, {"OpenCV in a chain", chain}}, 2);
}

void ToNativeRow(Size size, i32 depth, double ratio) {
    Portable source = NewPortable(size, 32);
    Native target = NewNative(Spare(size), depth);
    // libyuv's BGRA is ours in memory; its own ARGB is blue first.
    std::vector<u8> band(size_t(size.width) * 4 * 16);
    auto yuv = [&] {
        if (depth == 32) {
            libyuv::BGRAToARGB(source->data, source->rowBytes, Top(target), target->rowBytes, size.width, size.height);
            return;
        }
        for (i32 y = 0; y < size.height; y += 16) {
            i32 rows = std::min(16, size.height - y);
            libyuv::BGRAToARGB(source->data + i64(y) * source->rowBytes, source->rowBytes, band.data(), size.width * 4,
                               size.width, rows);
            u8* to = Top(target) + i64(y) * target->rowBytes;
            if (depth == 24)
                libyuv::ARGBToRGB24(band.data(), size.width * 4, to, target->rowBytes, size.width, rows);
            else
                libyuv::ARGBToARGB1555(band.data(), size.width * 4, to, target->rowBytes, size.width, rows);
        }
    };
    AVPixelFormat format = depth == 24 ? AV_PIX_FMT_BGR24 : depth == 32 ? AV_PIX_FMT_BGRA : AV_PIX_FMT_RGB555LE;
    ScaleContext swscale(size, AV_PIX_FMT_ARGB, size, format);
    auto sws = [&] {
        const u8* sources[] = {source->data};
        u8* targets[] = {Top(target)};
        sws_scale(swscale.context, sources, &source->rowBytes, 0, size.height, targets, &target->rowBytes);
    };
    Rows(
        "32 to native " + std::to_string(depth) + ", rows turned over, " + size.Text(), size.Mpixel(), "Mpixel",
        [&] { CopyBitmapKQ(source.get(), target.get(), 0, 0, -1, -1, 0, 0); }, {{"libyuv", yuv}, {"libswscale", sws}},
        ratio);
}

void FromNativeRow(Size size, i32 depth, double ratio) {
    Native source = NewNative(size, depth);
    Portable target = NewPortable(Spare(size), 32);
    std::vector<u8> band(size_t(size.width) * 4 * 16);
    auto yuv = [&] {
        if (depth == 32) {
            libyuv::ARGBToBGRA(Top(source), source->rowBytes, target->data, target->rowBytes, size.width, size.height);
            return;
        }
        for (i32 y = 0; y < size.height; y += 16) {
            i32 rows = std::min(16, size.height - y);
            const u8* from = Top(source) + i64(y) * source->rowBytes;
            if (depth == 24)
                libyuv::RGB24ToARGB(from, source->rowBytes, band.data(), size.width * 4, size.width, rows);
            else
                libyuv::ARGB1555ToARGB(from, source->rowBytes, band.data(), size.width * 4, size.width, rows);
            libyuv::ARGBToBGRA(band.data(), size.width * 4, target->data + i64(y) * target->rowBytes, target->rowBytes,
                               size.width, rows);
        }
    };
    AVPixelFormat format = depth == 24 ? AV_PIX_FMT_BGR24 : depth == 32 ? AV_PIX_FMT_BGR0 : AV_PIX_FMT_RGB555LE;
    ScaleContext swscale(size, format, size, AV_PIX_FMT_ARGB);
    auto sws = [&] {
        const u8* sources[] = {Top(source)};
        u8* targets[] = {target->data};
        sws_scale(swscale.context, sources, &source->rowBytes, 0, size.height, targets, &target->rowBytes);
    };
    Rows(
        "native " + std::to_string(depth) + " to 32, rows turned over, " + size.Text(), size.Mpixel(), "Mpixel",
        [&] { CopyBitmapKQ(source.get(), target.get(), 0, 0, -1, -1, 0, 0); }, {{"libyuv", yuv}, {"libswscale", sws}},
        ratio);
}

void CopyRows(Size size) {
    Portable source = NewPortable(size, 32), target = NewPortable(size, 32);
    Size part{size.width - 16, size.height - 16};
    double megabytes = part.Mpixel() * 4;
    cv::Mat in(size.height, size.width, CV_8UC4, source->data), out(size.height, size.width, CV_8UC4, target->data);
    cv::Rect from(8, 8, part.width, part.height), to(16, 16, part.width, part.height);
    auto opencv = [&] { in(from).copyTo(out(to)); };
    auto yuv = [&] {
        libyuv::ARGBCopy(source->data + 8 * source->rowBytes + 32, source->rowBytes,
                         target->data + 16 * target->rowBytes + 64, target->rowBytes, part.width, part.height);
    };
    Rows(
        "copy of a rectangle, " + size.Text(), megabytes, "MB",
        [&] { CopyBitmapKQ(source.get(), target.get(), 8, 8, part.width, part.height, 16, 16); },
        {{"OpenCV", opencv}, {"libyuv", yuv}}, 1.15, opencv);
    size_t bytes = size_t(source->dataSize);
    Rows(
        "whole copy, " + size.Text(), double(bytes) / 1e6, "MB",
        [&] { CopyBitmapKQ(source.get(), target.get(), 0, 0, -1, -1, 0, 0); },
        {{"memcpy", [&] { std::memcpy(target->data, source->data, bytes); }}}, 0.9, [&] { in.copyTo(out); },
        {{"limit: memcpy, as many threads", [&] {
              Limit{source->data, target->data, bytes}.Run();
          }}});
    Rows(
        "fill 32, " + size.Text(), double(bytes) / 1e6, "MB", [&] { FillBitmapKQ(target.get(), 0xFF102030); },
        {{"memset", [&] { std::memset(target->data, 16, bytes); }}}, 0.9, [&] { out.setTo(cv::Scalar(1, 2, 3, 4)); },
        {{"limit: memset, as many threads", [&] {
              Limit{nullptr, target->data, bytes}.Run();
          }}});
    Rows(
        "fill of alpha, " + size.Text(), double(bytes) / 1e6, "MB", [&] { FillAlphaKQ(target.get(), 200); },
        {{"memset", [&] { std::memset(target->data, 16, bytes); }}}, 0.9);
    Portable plane = NewPortable(size, 8);
    size_t small = size_t(plane->dataSize);
    Rows(
        "fill 8, " + size.Text(), double(small) / 1e6, "MB", [&] { FillBitmapKQ(plane.get(), 0x30); },
        {{"memset", [&] { std::memset(plane->data, 16, small); }}}, 0.9);
    Native three = NewNative(size, 24);
    size_t packed = size_t(three->dataSize);
    Rows(
        "fill native 24, " + size.Text(), double(packed) / 1e6, "MB", [&] { FillBitmapKQ(three.get(), 0x102030); },
        {{"memset", [&] { std::memset(three->data, 16, packed); }}}, 0.9);
}

void AllRows(Size size) {
    ScaleRows(size);
    ScaleConvertRows(size);
    ToNativeRow(size, 24, 1.1);
    ToNativeRow(size, 32, 1);
    ToNativeRow(size, 16, 1.8);
    FromNativeRow(size, 24, 1.2);
    FromNativeRow(size, 32, 1);
    FromNativeRow(size, 16, 1.4);
    CopyRows(size);
}

}   // namespace

// With an argument: only the rows whose names hold it.
int main(int count, char** arguments) {
    if (count > 1) wanted = arguments[1];
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    processors = KQEnv->Processors;
    cv::setNumThreads(1);
    for (Size size : {Size{1920, 1080}, Size{3840, 2160}}) AllRows(size);
    CleanUpKQ();
    return 0;
}
