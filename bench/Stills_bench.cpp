// Stills through the module, beside the image library in this process and the tools that people use for the same work.
//
//   Stills_bench [FOLDER]    FOLDER holds the working files for its time (a folder of its own below the temporary one)
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <opencv2/imgcodecs.hpp>

#include "KQLib.h"
#include "bench/Bench.h"
#include "tests/support/HelperProcesses.h"

namespace {

namespace fs = std::filesystem;

constexpr int kWidth = 1920, kHeight = 1080;
constexpr int kThumbWidth = 128, kThumbHeight = 96;
constexpr int kStills = 1000, kDifferent = 25, kFilm = 100;

std::string folder, tool;

std::string NameOf(int number, const char* extension = "png") {
    char name[32];
    std::snprintf(name, sizeof name, "shot.%04d.%s", number, extension);
    return folder + "/" + name;
}

// A picture with the smooth parts and the grain of a photograph.
void MakeStill(int number) {
    std::vector<unsigned char> pixels(size_t(kWidth) * kHeight * 3);
    unsigned noise = unsigned(number) * 2654435761u + 1;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            for (int c = 0; c < 3; ++c) {
                noise = noise * 1664525u + 1013904223u;
                int smooth = (x * (c + 1) + y * (3 - c) + number * 8) / 16;
                pixels[(size_t(y) * kWidth + size_t(x)) * 3 + size_t(c)] = (unsigned char)(smooth + int(noise >> 30));
            }
    OIIO::ImageSpec spec(kWidth, kHeight, 3, OIIO::TypeDesc::UINT8);
    spec.attribute("Compression", "jpeg:90");   // which PNG passes over
    for (const char* extension : {"png", "jpg"}) {
        auto output = OIIO::ImageOutput::create(extension);
        if (!output || !output->open(NameOf(number, extension), spec) ||
            !output->write_image(OIIO::TypeDesc::UINT8, pixels.data()))
            std::exit(1);
        output->close();
    }
}

// The stills repeat after a few, as links: what is measured is decoding and not the disk.
void MakeStills() {
    for (int i = 0; i < kDifferent; ++i) MakeStill(i);
    for (int i = kDifferent; i < kStills; ++i)
        for (const char* extension : {"png", "jpg"})
            fs::create_hard_link(NameOf(i % kDifferent, extension), NameOf(i, extension));
}

void Shell(const std::string& command) {
    if (std::system(command.c_str()) != 0) std::printf("    FAILED: %s\n", command.c_str());
}

bool Has(const char* program) {
    return std::system((std::string("command -v ") + program + " >/dev/null").c_str()) == 0;
}

KQClip* OpenSequence(const char* extension) {
    KQClip* clip = OpenClipKQ(NameOf(0, extension).c_str(), KQTAG_CLIP_NOASK, 0, 0);
    if (!clip || clip->sourceFrames < kStills || !BeginClipIOKQ(clip, nullptr)) std::exit(1);
    return clip;
}

void Thumbnails(const char* extension) {
    KQClip* clip = OpenSequence(extension);
    KQBitmap* bitmap = AllocBitmapKQ(kThumbWidth, kThumbHeight, 32);
    for (int i = 0; i < kStills; ++i) {
        KQTimeValue time = {double(i), clip->frameRate};
        if (!GetFrameKQ(clip, bitmap, &time, nullptr, nullptr)) std::printf("    WRONG: frame %d\n", i);
    }
    FreeBitmapKQ(bitmap);
    EndClipIOKQ(clip, nullptr);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

// Runs `work` for every still, on as many threads as the module has workers.
template <class Work>
void OnTwoThreads(Work work) {
    std::atomic<int> next = 0;
    auto all = [&] {
        for (int i; (i = next++) < kStills;) work(i);
    };
    std::thread other(all);
    all();
    other.join();
}

// Takes the nearest lower pixels of a decoded picture of 3 bytes a pixel.
void Sample(const unsigned char* pixels, int width, int height) {
    unsigned char thumb[kThumbWidth * kThumbHeight * 3];
    for (int y = 0; y < kThumbHeight; ++y)
        for (int x = 0; x < kThumbWidth; ++x)
            std::memcpy(
                thumb + (y * kThumbWidth + x) * 3,
                pixels + (size_t(y * height / kThumbHeight) * size_t(width) + size_t(x * width / kThumbWidth)) * 3, 3);
    bench::Keep(thumb);
}

void PlainDecoding(const char* extension) {
    OnTwoThreads([&](int i) {
        thread_local std::vector<unsigned char> pixels(size_t(kWidth) * kHeight * 3);
        auto input = OIIO::ImageInput::open(NameOf(i, extension));
        if (!input || !input->read_image(0, 0, 0, 3, OIIO::TypeDesc::UINT8, pixels.data())) std::exit(1);
        Sample(pixels.data(), kWidth, kHeight);
    });
}

void ReducedDecoding() {
    OnTwoThreads([](int i) {
        cv::Mat picture = cv::imread(NameOf(i, "jpg"), cv::IMREAD_REDUCED_COLOR_8);
        if (picture.empty()) std::exit(1);
        Sample(picture.data, picture.cols, picture.rows);
    });
}

void FilmByFfmpeg() {
    Shell("ffmpeg -nostdin -v error -y -f image2 -i " + folder + "/shot.%04d.png -frames:v " + std::to_string(kFilm) +
          " -pix_fmt rgba " + folder + "/peer.flm");
}

void FilmByTool() {
    Shell(tool + " convert " + folder + "/shot.####.png " + folder + "/ours.flm --frames 0-" +
          std::to_string(kFilm - 1) + " --overwrite >/dev/null");
}

void Verdict(const char* what, double seconds, double limit) {
    std::printf("    %s: %.1f ms\n    to reach: under %.0f ms: %s\n", what, seconds * 1e3, limit * 1e3,
                seconds < limit ? "reached" : "NOT reached");
    std::fflush(stdout);
}

// The median of a run of the tool, from start to end.
double Info(const std::string& still) {
    std::printf("kqclip info of one PNG file, start to end\n");
    std::vector<double> times;
    for (int i = 0; i < 21; ++i)
        times.push_back(bench::Seconds([&] { Shell(tool + " info --single " + still + " >/dev/null"); }));
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// From the kill to the next frame.
void Restart() {
    KQClip* clip = OpenClipKQ((folder + "/small.png").c_str(), KQTAG_CLIP_SINGLE, 0, 0);
    BeginClipIOKQ(clip, nullptr);
    KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
    std::vector<double> times;
    for (int i = 0; i < 21; ++i) {
        GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
        std::vector<pid_t> workers = kqtest::Workers();
        times.push_back(bench::Seconds([&] {
            for (pid_t worker : workers) kill(worker, SIGKILL);
            if (!GetFrameKQ(clip, bitmap, nullptr, nullptr, nullptr)) std::printf("    WRONG: no frame\n");
        }));
    }
    std::sort(times.begin(), times.end());
    std::printf("a frame of 64 x 48 after the helper's workers were killed\n    median %.1f ms\n", times[10] * 1e3);
    Verdict("slowest of 21", times.back(), 0.15);
    FreeBitmapKQ(bitmap);
    EndClipIOKQ(clip, nullptr);
    CloseClipKQ(clip);
    FreeClipKQ(clip);
}

// One run of each: these take long enough to be measured so. The first peer is to be held by `ratio`.
void Once(const std::string& work, int amount, const char* unit, const std::vector<bench::Contender>& contenders,
          double ratio) {
    std::printf("%s\n", work.c_str());
    std::vector<double> seconds;
    for (const bench::Contender& c : contenders) {
        seconds.push_back(bench::Seconds(c.run));
        std::printf("    %-44s %12.1f %s/s", c.name.c_str(), amount / seconds.back(), unit);
        if (seconds.size() > 1) std::printf("   ours is %.2f times as fast", seconds.back() / seconds[0]);
        std::printf("\n");
        std::fflush(stdout);
    }
    double reached = seconds[1] / seconds[0];
    std::printf("    to reach: %.2f times %s: %s (%.2f)\n", ratio, contenders[1].name.c_str(),
                reached >= ratio ? "reached" : "NOT reached", reached);
    std::fflush(stdout);
}

void Scan(const std::string& modules) {
    std::string path = modules + "/stills.ifm";
    u32 code;
    std::memcpy(&code, "IFM ", 4);
    FormatModule_CheckFile(path.c_str(), code, 0);
}

}   // namespace

int main(int count, char** arguments) {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    std::string home = KQEnv->AppDir;
    setenv("KQCLIP_MODULES", (home + "modules").c_str(), 1);
    tool = home + "kqclip";
    InitFormatModulesKQ(nullptr);
    Scan(home + "modules");
    folder = count > 1 ? arguments[1] : (fs::temp_directory_path() / ("kqstills" + std::to_string(getpid()))).string();
    fs::create_directories(folder);
    MakeStills();
    std::string still = NameOf(0), quiet = " >/dev/null";
    Shell("ffmpeg -nostdin -v error -y -i " + still + " -vf scale=64:48 -frames:v 1 -update 1 " + folder +
          "/small.png");

    Verdict("median of kqclip info, plain", Info(still), 0.05);
    bench::Row("what is in one PNG file, start to end (ns a call)", 1, "call",
               {{"kqclip info", [&] { Shell(tool + " info --single " + still + quiet); }},
                {"ffprobe", [&] { Shell("ffprobe -v error -show_streams " + still + quiet); }},
                {"oiiotool --info", [&] { Shell("oiiotool --info " + still + quiet); }}},
               {{1, 1.0}, {2, 1.0}}, 9);
    Restart();

    std::vector<bench::Contender> thumbs = {{"GetFrameKQ, stills module", [] { Thumbnails("png"); }},
                                            {"OpenImageIO in this process, 2 threads", [] { PlainDecoding("png"); }}};
    if (Has("vipsthumbnail"))
        thumbs.push_back({"vipsthumbnail, 1 process",
                          [&] { Shell("cd " + folder + " && vipsthumbnail --size 128x96 -o tn_%s.ppm shot.*.png"); }});
    Once("1,000 PNG stills of 1920 x 1080 to thumbnails of 128 x 96", kStills, "still", thumbs, 1 / 1.2);

    Once("1,000 JPEG stills of 1920 x 1080 to thumbnails of 128 x 96", kStills, "still",
         {{"GetFrameKQ, stills module", [] { Thumbnails("jpg"); }},
          {"OpenCV reduced to 1/8 in this process, 2 threads", ReducedDecoding},
          {"OpenImageIO in this process, 2 threads", [] { PlainDecoding("jpg"); }}},
         1 / 1.2);

    Once("PNG sequence of 1920 x 1080 to Filmstrip, 100 frames, start to end", kFilm, "frame",
         {{"kqclip convert", FilmByTool}, {"ffmpeg -f image2", FilmByFfmpeg}}, 1.0);
    CleanUpKQ();
    fs::remove_all(folder);
    return 0;
}
