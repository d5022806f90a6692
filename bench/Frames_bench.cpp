// Frames at 1920 x 1080: alpha, fields, smoothing, blending, the two surveys, retrieval, and look-up in long edit
// lists. The row loops are built in; the rest goes through the public calls.
#include <cstring>
#include <new>
#include <random>
#include <vector>

#include <libyuv.h>
#include <opencv2/core.hpp>

#include "Source/AlphaRows.h"
#include "Source/AlphaSurvey.h"
#include "Source/RowFilter.h"
#include "bench/Bench.h"
#include "kq/clip.h"
#include "kq/environment.h"
#include "kq/formats.h"
#include "kq/frames.h"
#include "kq/memory.h"

namespace {

constexpr i32 kWidth = 1920, kHeight = 1080;
constexpr size_t kPixels = size_t(kWidth) * kHeight, kBytes = kPixels * 4, kRow = size_t(kWidth) * 4;
constexpr double kMegapixels = kPixels / 1e6, kMegabytes = kBytes / 1e6;

// Pictures start on a cache line, as the library's frames do.
template <class T>
struct OnALine {
    using value_type = T;

    T* allocate(size_t count) { return static_cast<T*>(::operator new(count * sizeof(T), std::align_val_t(64))); }
    void deallocate(T* pixels, size_t) { ::operator delete(pixels, std::align_val_t(64)); }
    bool operator==(const OnALine&) const { return true; }
};

using Picture = std::vector<u32, OnALine<u32>>;

Picture Random(u32 seed) {
    std::mt19937 random(seed);
    Picture picture(kPixels);
    for (u32& pixel : picture) pixel = random();
    return picture;
}

u8* Bytes(Picture& picture) { return reinterpret_cast<u8*>(picture.data()); }

// What OpenCV does with a picture matted against black: the colours divided by the alpha.
void UnmatteByOpenCV(const Picture& from, Picture& to, cv::Mat planes[4], cv::Mat& alpha) {
    cv::Mat source(kHeight, kWidth, CV_8UC4, const_cast<u32*>(from.data())),
        target(kHeight, kWidth, CV_8UC4, to.data());
    cv::split(source, planes);
    planes[0].copyTo(alpha);
    for (int k = 1; k < 4; ++k) cv::divide(planes[k], alpha, planes[k], 255.0);
    cv::merge(planes, 4, target);
}

void Alpha() {
    Picture source = Random(1), target = Random(2), other(kPixels), inPlace = Random(3);
    cv::Mat planes[4], alpha;
    kq::Matte matte = {51, 102, 153};
    // In place each run starts from what the last one left: the loops do not look at the data.
    bench::Row("alpha of a matted picture, any matte, exact", kMegapixels, "Mpixel",
               {{"ours", [&] { kq::UnmatteRow(inPlace.data(), kPixels, 0, matte); }},
                {"OpenCV, black only", [&] { UnmatteByOpenCV(source, target, planes, alpha); }},
                {"libyuv ARGBUnattenuate, black only",
                 [&] { libyuv::ARGBUnattenuate(Bytes(source), kRow, Bytes(target), kRow, kWidth, kHeight); }},
                {"memcpy", [&] { std::memcpy(other.data(), source.data(), kBytes); }}},
               {{1, 2.0}});
    auto copy = [&] { std::memcpy(other.data(), source.data(), kBytes); };
    bench::Row("alpha stored straight, inverted", kMegapixels, "Mpixel",
               {{"ours", [&] { kq::InvertRow(inPlace.data(), kPixels); }}, {"memcpy", copy}}, {{1, 0.85}});
    bench::Row("alpha from a grey matte", kMegapixels, "Mpixel",
               {{"ours", [&] { kq::GreyMatteRow(inPlace.data(), kPixels, 0x33221100); }}, {"memcpy", copy}},
               {{1, 0.85}});
    bench::Row("Interpret_Alpha, straight", kMegapixels, "Mpixel",
               {{"ours", [&] { kq::CopyAlphaRow(target.data(), source.data(), kPixels, 255, 255); }}, {"memcpy", copy}},
               {{1, 0.85}});
    Picture background = Random(4);
    bench::Row("Interpret_Alpha, matted, exact", kMegapixels, "Mpixel",
               {{"ours", [&] { kq::MatteRow(target.data(), source.data(), kPixels, 255, 0, matte); }},
                {"libyuv ARGBAttenuate and ARGBBlend",
                 [&] {
                     libyuv::ARGBAttenuate(Bytes(source), kRow, Bytes(other), kRow, kWidth, kHeight);
                     libyuv::ARGBBlend(Bytes(other), kRow, Bytes(background), kRow, Bytes(target), kRow, kWidth,
                                       kHeight);
                 }}},
               {{1, 1.5}});
}

void Rows() {
    Picture picture = Random(5), other = Random(6);
    std::vector<u8> above(kRow);
    u8* bytes = Bytes(picture);
    bench::Row("field interpolation", kMegabytes, "MB",
               {{"ours",
                 [&] {
                     for (size_t y = 1; y + 1 < kHeight; y += 2)
                         kq::AverageRows(bytes + y * kRow, bytes + (y - 1) * kRow, bytes + (y + 1) * kRow, kRow);
                 }},
                {"libyuv InterpolatePlane",
                 [&] {
                     for (size_t y = 1; y + 1 < kHeight; y += 2)
                         libyuv::InterpolatePlane(bytes + (y - 1) * kRow, 0, bytes + (y + 1) * kRow, 0,
                                                  bytes + y * kRow, 0, int(kRow), 1, 128);
                 }}},
               {{1, 0.95}});
    bench::Row("vertical smoothing", kMegabytes, "MB",
               {{"ours",
                 [&] {
                     for (size_t y = 1; y + 1 < kHeight; ++y)
                         kq::SmoothRow(bytes + y * kRow, above.data(), bytes + (y + 1) * kRow, kRow);
                 }},
                {"memcpy", [&] { std::memcpy(Bytes(other), bytes, kBytes); }}},
               {{1, 0.7}});
}

void Blends() {
    Picture target(kPixels), work(kPixels);
    std::vector<Picture> frames;
    for (u32 i = 0; i < 5; ++i) frames.push_back(Random(10 + i));
    const u8* sources[5];
    kq::Weight weights[5] = {20000, 10000, 15000, 9000, 11536};
    for (size_t i = 0; i < 5; ++i) sources[i] = Bytes(frames[i]);
    auto interpolate = [&](const u8* a, const u8* b, u8* out) {
        libyuv::ARGBInterpolate(a, kRow, b, kRow, out, kRow, kWidth, kHeight, 100);
    };
    bench::Row("blend of 2 frames", kMegabytes, "MB",
               {{"ours, 16-bit weights", [&] { kq::BlendRows(Bytes(target), sources, weights, 2, kBytes); }},
                {"libyuv ARGBInterpolate", [&] { interpolate(sources[0], sources[1], Bytes(target)); }}},
               {{1, 0.95}});
    bench::Row("blend of 5 frames", kMegabytes, "MB",
               {{"ours, 16-bit weights", [&] { kq::BlendRows(Bytes(target), sources, weights, 5, kBytes); }},
                {"libyuv ARGBInterpolate in a cascade",
                 [&] {
                     interpolate(sources[0], sources[1], Bytes(target));
                     for (int i = 2; i < 5; ++i) interpolate(Bytes(target), sources[i], Bytes(target));
                 }}},
               {{1, 1.1}});
}

// One pass over the memory: the sum of its words.
void ReadAll(const Picture& picture) {
    u64 sum = 0;
    auto words = reinterpret_cast<const u64*>(picture.data());
    for (size_t i = 0; i < kPixels / 2; ++i) sum += words[i];
    bench::Keep(&sum);
}

void Surveys() {
    Picture picture = Random(20);
    // A disc matted against blue, so that both the survey and the test of the matte run to the end.
    for (size_t i = 0; i < kPixels; ++i) {
        i64 x = i64(i % kWidth) - kWidth / 2, y = i64(i / kWidth) - kHeight / 2;
        i64 far = x * x + y * y;
        picture[i] = far > 250000 ? 0xFF000000u : far < 200000 ? picture[i] | 255 : 0xFF000000u | 1;
    }
    kq::AlphaSurvey survey;
    bench::Row("alpha guess of one frame", kMegabytes, "MB",
               {{"ours",
                 [&] {
                     survey = kq::SurveyAlpha(picture.data(), kPixels);
                     bool fits = kq::FitsMatte(picture.data(), kPixels, 0xFF000000u, false);
                     bench::Keep(&fits);
                 }},
                {"one pass over the memory", [&] { ReadAll(picture); }}},
               {{1, 0.5}});
    u64 sum = 0;
    bench::Row("comb measure of one frame", kMegabytes, "MB",
               {{"ours",
                 [&] {
                     for (size_t y = 0; y + 1 < kHeight; y += 2)
                         sum +=
                             kq::ColourDifference(Bytes(picture) + y * kRow, Bytes(picture) + (y + 1) * kRow, kWidth);
                     bench::Keep(&sum);
                 }},
                {"one pass over the memory", [&] { ReadAll(picture); }}},
               {{1, 0.5}});
}

// A module of frames in memory, for the rows that go through the clip.
const u32* framePixels = nullptr;

i32 GiveFrame(KQClip*, KQBitmap* target, i32, const KQRectT<long>*, i32, i32, i32) {
    if (framePixels) std::memcpy(target->data, framePixels, size_t(target->dataSize));
    return 1;
}

u32 Properties(KQFormatDesc*) { return KQFORMAT_READS | KQFORMAT_MULTIFRAME; }

// A clip within input that the module serves.
KQClip* MakeClip(KQFormatDesc* module, i32 width, i32 height, i32 frames) {
    module->GetFrame = GiveFrame;
    module->ImportProperties = Properties;
    KQClip* clip = NewClipKQ();
    clip->format = module;
    clip->width = width;
    clip->height = height;
    clip->depth = 32;
    clip->sourceFrames = clip->frameCount = frames;
    clip->frameRate = clip->sourceRate = 30.0;
    clip->alphaMode = 2;
    clip->alphaPremultiplied = 0;
    clip->flags |= KQCLIP_IO;
    return clip;
}

void Retrieval() {
    KQFormatDesc module = {};
    Picture frame = Random(30), target(kPixels);
    framePixels = frame.data();
    KQClip* clip = MakeClip(&module, kWidth, kHeight, 100);
    KQBitmap* bitmap = AllocBitmapKQ(kWidth, kHeight, 32);
    bench::Row("retrieval at the clip's own size", kMegabytes, "MB",
               {{"ours", [&] { GetFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)); }},
                {"the copy alone", [&] { std::memcpy(target.data(), frame.data(), kBytes); }}},
               {{1, 1 / 1.1}});
    FreeBitmapKQ(bitmap);
    FreeClipKQ(clip);
}

// A clip of `runs` runs of three frames each.
KQClip* MakeEditedClip(KQFormatDesc* module, i32 runs) {
    KQClip* clip = MakeClip(module, 1, 1, runs * 3);
    clip->editList = static_cast<KQEditRun*>(AllocMemoryKQ(size_t(runs) * sizeof(KQEditRun), 0));
    for (i32 i = 0; i < runs; ++i) clip->editList[i] = {(runs - i) * 3, 3};
    clip->editCount = clip->editCapacity = runs;
    return clip;
}

void Retrieve(KQClip* clip, KQBitmap* bitmap, const std::vector<u32>& places) {
    for (u32 place : places) {
        KQTimeValue time = {f64(place % u32(clip->frameCount)), 30.0};
        GetFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
    }
}

void LongLists() {
    KQFormatDesc module = {};
    framePixels = nullptr;
    std::mt19937 random(7);
    std::vector<u32> places(10000);
    for (u32& place : places) place = random();
    KQClip* large = MakeEditedClip(&module, 1000000);
    KQClip* small = MakeEditedClip(&module, 100);
    KQBitmap* bitmap = AllocBitmapKQ(1, 1, 32);
    bench::Row("10,000 random retrievals, 1,000,000 runs", 10000, "call",
               {{"ours", [&] { Retrieve(large, bitmap, places); }},
                {"the same with 100 runs", [&] { Retrieve(small, bitmap, places); }}},
               {{1, 1.0 / 3.0}});
    FreeBitmapKQ(bitmap);
    FreeClipKQ(large);
    FreeClipKQ(small);
}

}   // namespace

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    cv::setNumThreads(1);
    Alpha();
    Rows();
    Blends();
    Surveys();
    Retrieval();
    LongLists();
    CleanUpKQ();
    return 0;
}
