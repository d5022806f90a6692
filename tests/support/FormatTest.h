// The fixture of format modules: a module of one format, a clip that it serves and a file in the test's folder. The
// slots are called as the clip layer calls them.
#pragma once

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "Source/Formats.h"
#include "kq/bitmap.h"
#include "kq/clip.h"
#include "support/Fixture.h"

namespace kqtest {

using Bytes = std::vector<u8>;

// Appends big-endian words and text.
inline void Put16(Bytes& bytes, u16 value) {
    bytes.push_back(u8(value >> 8));
    bytes.push_back(u8(value));
}

inline void Put32(Bytes& bytes, u32 value) {
    Put16(bytes, u16(value >> 16));
    Put16(bytes, u16(value));
}

inline void PutText(Bytes& bytes, const std::string& text) { bytes.insert(bytes.end(), text.begin(), text.end()); }

#if !defined(_WIN32)
// Runs the ffmpeg program quietly; its exit code.
int RunFfmpeg(const std::string& arguments);

// While it lives no file of this process grows past `bytes`, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(size_t bytes);
    ~FileSizeLimit();

private:
    u64 kept_[2];
};
#endif

class FormatTest : public KQTest {
protected:
    FormatTest(KQFormatDesc* (*make)(), const char* name) : make_(make), name_(name) {}

    void SetUp() override {
        KQTest::SetUp();
        path = Folder() + name_;
        module = make_();
        ASSERT_NE(module, nullptr);
        clip = NewClip(path);
    }

    void TearDown() override {
        FreeClip(clip);
        kq::FreeFormatModule(module);
        KQTest::TearDown();
    }

    // A clip of the module for `file`, with the defaults that an opened clip starts from.
    KQClip* NewClip(const std::string& file) {
        auto made = static_cast<KQClip*>(AllocMemoryKQ(sizeof(KQClip), KQMEM_Clear));
        made->format = module;
        made->fileSpec = static_cast<char*>(AllocMemoryKQ(file.size() + 1, 0));
        std::memcpy(made->fileSpec, file.c_str(), file.size() + 1);
        made->sourceRate = 30.0;
        made->alphaMode = 2;
        made->backgroundColor = 0xFF000000;
        return made;
    }

    void FreeClip(KQClip* which) {
        if (!which) return;
        module->Close(which);
        FreeMemoryKQ(which->fileSpec);
        FreeMemoryKQ(which->options);
        FreeMemoryKQ(which);
    }

    void Write(const Bytes& bytes) { WriteWholeFile(path, bytes.data(), bytes.size()); }

    Bytes Read() const { return ReadWholeFile(path); }

    bool Open() { return module->Open(clip, nullptr) != 0; }

    // The pixels of source frame `frame`, over bytes of 0xA5; empty when the module fails.
    Bytes Frame(i32 frame) { return FrameOf(clip, frame); }

    Bytes FrameOf(KQClip* from, i32 frame) {
        KQBitmap* bitmap = AllocBitmapKQ(from->width, from->height, 32);
        std::memset(bitmap->data, 0xA5, size_t(bitmap->dataSize));
        i32 done = module->GetFrame(from, bitmap, frame, nullptr, from->width, from->height, 0);
        Bytes pixels;
        if (done) pixels.assign(bitmap->data, bitmap->data + bitmap->dataSize);
        FreeBitmapKQ(bitmap);
        return pixels;
    }

    // Begins writing a clip of this size.
    bool Create(i32 width, i32 height) {
        clip->width = width;
        clip->height = height;
        if (!module->Create(clip, 0)) return false;
        clip->sourceFrames = 0;
        clip->flags |= KQCLIP_WRITING | KQCLIP_OPEN;
        return true;
    }

    // Adds a frame of the clip's size with these pixels.
    bool Add(const Bytes& pixels, i32 frame) {
        KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
        std::memcpy(bitmap->data, pixels.data(), size_t(bitmap->dataSize));
        KQRectT<long> all = {0, 0, bitmap->width, bitmap->height};
        bool added = module->AddFrame(clip, bitmap, frame, &all) != 0;
        FreeBitmapKQ(bitmap);
        return added;
    }

    void Close() { module->Close(clip); }

    // Opens the file that was written with a fresh clip.
    bool Reopen() {
        FreeClip(clip);
        clip = NewClip(path);
        return Open();
    }

    // Pixels of random bytes, in runs of random length when `runs` is set. The seed is printed with a failure.
    Bytes RandomPixels(i32 width, i32 height, bool runs = false) {
        Bytes pixels(size_t(width) * size_t(height) * 4);
        for (size_t i = 0; i < pixels.size();) {
            size_t count = runs && random() % 2 ? random() % 300 + 1 : 1;
            u8 pixel[4];
            for (u8& byte : pixel) byte = u8(random() % (runs ? 3 : 256));
            for (; count > 0 && i < pixels.size(); --count, i += 4) std::memcpy(&pixels[i], pixel, 4);
        }
        return pixels;
    }

    // Makes the n-th call of the file layer from now on fail, and no other.
    static void FailFileCall(i64 n) { kq::fileFaults.Set(n, true); }

    // The values of a header field of `size` bytes at its limits: 0, 1, the greatest, the one below, the sign alone,
    // and the greatest signed one.
    static std::vector<u32> FieldLimits(size_t size) {
        u32 most = size == 4 ? 0xFFFFFFFFu : (u32(1) << 8 * size) - 1, sign = most ^ most >> 1;
        return {0, 1, most, most - 1, sign, sign - 1};
    }

    // Puts a big-endian value of `size` bytes at `at`.
    static void PatchField(Bytes& bytes, size_t at, size_t size, u32 value) {
        for (size_t i = 0; i < size; ++i) bytes[at + i] = u8(value >> 8 * (size - 1 - i));
    }

    // Adds frames of sizes that no reader's gate lets through; each is refused before a pixel of it is touched.
    void ExpectOversizeRefused() {
        for (auto [width, height] : {std::pair{32768, 1}, {1, 32768}, {32767, 8193}}) {
            u8 pixel[4] = {};
            KQBitmap view = {};
            view.width = width, view.height = height, view.depth = 32;
            view.rowBytes = width * 4, view.data = pixel;
            KQEnv->Error = KQERR_NONE;
            EXPECT_EQ(module->AddFrame(clip, &view, 0, nullptr), 0) << width << " x " << height;
            EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
        }
    }

    // How many allocations the call makes, the platform layer's own included.
    template <class Call>
    static i64 AllocationsOf(Call call) {
        kq::allocationFaults.Clear();
        call();
        return kq::allocationFaults.calls;
    }

    // The file that a frame of these pixels gives while `failures` allocations fail, the first of them behind
    // `before` that succeed within the slot; empty when the frame is refused.
    Bytes WrittenShortOfMemory(const Bytes& pixels, i32 width, i32 height, i64 before, i64 failures) {
        EXPECT_TRUE(Create(width, height));
        KQBitmap* bitmap = AllocBitmapKQ(width, height, 32);
        std::memcpy(bitmap->data, pixels.data(), size_t(bitmap->dataSize));
        kq::allocationFaults.SetSpan(before + 1, failures);
        bool added = module->AddFrame(clip, bitmap, 0, nullptr) != 0;
        kq::allocationFaults.Clear();
        FreeBitmapKQ(bitmap);
        Close();
        return added ? Read() : Bytes();
    }

    // Makes the file, all zero and without taking room on the disk.
    bool MakeSparse(i64 length) {
        WriteWholeFile(path, "");
        std::error_code error;
        std::filesystem::resize_file(path, u64(length), error);
        return !error;
    }

    // Overwrites a part of the file.
    void WriteAt(i64 offset, const Bytes& bytes) {
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(offset);
        file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        ASSERT_TRUE(file.flush());
    }

    u32 seed = std::random_device()();
    std::mt19937 random{seed};
    testing::ScopedTrace trace{__FILE__, __LINE__, "seed " + std::to_string(seed)};
    KQBitmap* small = nullptr;
    KQFormatDesc* module = nullptr;
    KQClip* clip = nullptr;
    std::string path;

private:
    KQFormatDesc* (*make_)();
    const char* name_;
};

}   // namespace kqtest
