// The fixture of the stills module's tests: the module in the registry, the small pictures of tests/modules/stills, and
// what their pixels are by formula.
#pragma once

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "Source/Startup.h"
#include "kq/bitmap.h"
#include "kq/clip.h"
#include "kq/filespec.h"
#include "kq/formats.h"
#include "kq/frames.h"
#include "pal/module.h"
#include "support/BuiltModules.h"
#include "support/Fixture.h"

namespace kqtest {

struct BitmapFree {
    void operator()(KQBitmap* bitmap) const { FreeBitmapKQ(bitmap); }
};

using Bitmap = std::unique_ptr<KQBitmap, BitmapFree>;

// The pictures' size.
inline constexpr i32 kStillWidth = 19, kStillHeight = 13;

struct Pixel {
    int alpha, red, green, blue;
};

// The pixel that every still of the folder is made from.
inline Pixel StillPixel(i32 x, i32 y, bool alpha) {
    return {alpha ? 255 - 9 * x : 255, 13 * x, 19 * y, 5 * x * y % 256};
}

inline Pixel PixelAt(const KQBitmap* bitmap, i32 x, i32 y) {
    const u8* p = bitmap->data + i64(y) * bitmap->rowBytes + x * 4;
    return {p[0], p[1], p[2], p[3]};
}

inline void SetPixel(KQBitmap* bitmap, i32 x, i32 y, const Pixel& pixel) {
    u8* p = bitmap->data + i64(y) * bitmap->rowBytes + x * 4;
    p[0] = u8(pixel.alpha);
    p[1] = u8(pixel.red);
    p[2] = u8(pixel.green);
    p[3] = u8(pixel.blue);
}

// A bitmap whose pixels `at` gives.
inline Bitmap MakePicture(i32 width, i32 height, const std::function<Pixel(i32, i32)>& at) {
    Bitmap bitmap(AllocBitmapKQ(width, height, 32));
    for (i32 y = 0; y < height; ++y)
        for (i32 x = 0; x < width; ++x) SetPixel(bitmap.get(), x, y, at(x, y));
    return bitmap;
}

// The largest difference of a channel.
inline int Difference(const KQBitmap* a, const KQBitmap* b) {
    if (a->width != b->width || a->height != b->height) return 256;
    int largest = 0;
    for (i32 i = 0; i < a->dataSize; ++i) largest = std::max(largest, std::abs(int(a->data[i]) - b->data[i]));
    return largest;
}

class StillsTest : public KQTest {
protected:
    // The module stays loaded between the tests, and with it the helper that it starts.
    static void SetUpTestSuite() {
        InitWithoutWindow();
        char reason[256];
        loaded_ = pal::ModuleOpen(ModulePath("stills.ifm").c_str(), reason, sizeof reason);
        ASSERT_NE(loaded_, nullptr) << reason;
        CleanUpKQ();
    }

    static void TearDownTestSuite() { pal::ModuleClose(loaded_); }

    void SetUp() override {
        KQTest::SetUp();
        FormatModule_CheckFile(ModulePath("stills.ifm").c_str(), TypeCodeOf("IFM "), 0);
        ASSERT_FALSE(List_Empty(&KQEnv->formatModules));
        module_ = reinterpret_cast<KQFormatDesc*>(KQEnv->formatModules.TailPred);
    }

    void TearDown() override {
        kq::FreeFormatModules();
        KQTest::TearDown();
    }

    KQFormatDesc* Module() { return module_; }

    bool Reads(const std::string& extension) { return Has(module_->importExts, module_->importExtCount, extension); }

    bool Writes(const std::string& extension) { return Has(module_->exportExts, module_->exportExtCount, extension); }

    static std::string ExtensionOf(const std::string& path) { return path.substr(path.rfind('.') + 1); }

    // Opens a still, or a sequence, as kqclip does: the tag names the extension.
    // The platform's image library does not read files of this kind.
    void ExpectNotOpened(const std::string& file) {
        KQEnv->Error = KQERR_NONE;
        EXPECT_EQ(Open(Seed(file)), nullptr) << file;
        EXPECT_NE(GetErrorKQ(), u32(KQERR_NONE)) << file;
    }

    KQClip* Open(const std::string& path, bool single = true) {
        char code[5] = {};
        ExtensionOf(path).copy(code, 4);
        return OpenClipKQ(path.c_str(), KQTAG_CLIP_NOASK, 0, single ? KQTAG_CLIP_SINGLE : KQTAG_Ignore, 0,
                          KQTAG_CLIP_EXTENSION, code, 0);
    }

    static void Shut(KQClip* clip) {
        CloseClipKQ(clip);
        FreeClipKQ(clip);
    }

    // A frame at its own size, or at another; null when it could not be had.
    Bitmap Frame(KQClip* clip, int index = 0, i32 width = 0, i32 height = 0) {
        Bitmap bitmap(AllocBitmapKQ(width ? width : clip->width, height ? height : clip->height, 32));
        KQTimeValue time = {f64(index), clip->frameRate};
        KQEnv->Error = KQERR_NONE;
        if (!GetFrameKQ(clip, bitmap.get(), &time, nullptr, nullptr)) return nullptr;
        return bitmap;
    }

    // The one picture of a file.
    Bitmap Read(const std::string& path) {
        KQClip* clip = Open(path);
        if (!clip) return nullptr;
        BeginClipIOKQ(clip, nullptr);
        Bitmap bitmap = Frame(clip);
        u32 error = KQEnv->Error;
        EndClipIOKQ(clip, nullptr);
        Shut(clip);
        KQEnv->Error = error;
        return bitmap;
    }

    // Writes one picture; the result is AddFrameKQ's.
    int Write(const std::string& path, KQBitmap* bitmap, bool alpha) {
        KQClip* clip = NewClipKQ();
        clip->fileSpec = MakeFileSpecKQ(path.c_str());
        clip->format = module_;
        clip->width = bitmap->width;
        clip->height = bitmap->height;
        clip->frameCount = 1;
        clip->frameRate = 24;
        clip->alphaMode = alpha ? 2 : 0;
        int done = CreateClipKQ(clip, 0) && BeginClipIOKQ(clip, nullptr);
        if (done) {
            done = AddFrameKQ(clip, bitmap, nullptr, nullptr, nullptr);
            u32 error = KQEnv->Error;
            EndClipIOKQ(clip, nullptr);
            KQEnv->Error = error;
        }
        u32 error = KQEnv->Error;
        Shut(clip);
        KQEnv->Error = error;
        return done;
    }

    static std::string Seed(const std::string& name) { return std::string(KQ_STILLS) + name; }

    // True when a message to the user names `part`.
    bool WasTold(const std::string& part) {
        for (const std::string& message : messages)
            if (message.find(part) != std::string::npos) return true;
        return false;
    }

private:
    static bool Has(const u32* codes, i32 count, const std::string& extension) {
        u32 code = 0;
        for (size_t i = 0; i < 4; ++i) code = code << 8 | (i < extension.size() ? u8(extension[i]) : 0);
        for (i32 i = 0; i < count; ++i)
            if (codes[i] == code) return true;
        return false;
    }

    static inline pal::Module* loaded_ = nullptr;
    KQFormatDesc* module_ = nullptr;
};

}   // namespace kqtest
