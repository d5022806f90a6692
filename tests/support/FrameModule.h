// A format module of the tests: its frames are made by a function, its slots note what they were asked and fail when
// told to. MakeClip gives an open clip that it serves.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "kq/clip.h"
#include "kq/environment.h"
#include "kq/filespec.h"
#include "kq/formats.h"
#include "kq/frames.h"
#include "kq/gbuffers.h"
#include "support/Fixture.h"

namespace kqtest {

// One call of the GetFrame or AddFrame slot.
struct FrameCall {
    i32 frame;
    KQRectT<long> rect;
    i32 width, height, track;
    i32 bitmapWidth, bitmapHeight;
    std::string fileSpec;
};

struct FrameModule {
    u32 properties = KQFORMAT_READS | KQFORMAT_WRITES | KQFORMAT_MULTIFRAME;
    i32 width = 8, height = 6, depth = 32, frames = 10;
    f64 rate = 30.0;
    std::function<void(i32 frame, KQBitmap* target)> paint;
    std::function<int(i32 frame, u32 mask, KQGBufferArray* array)> planes;
    bool openFails = false, beginFails = false, frameFails = false, addFails = false;
    i32 failFrame = -1;   // this frame alone fails
    i32 addResult = 1;    // of AddFrame, when it does not fail
    std::vector<FrameCall> calls;
    std::vector<FrameCall> added;
    i32 planeCalls = 0;
    i32 opens = 0, closes = 0, begins = 0, ends = 0;
};

// The one module of the present test.
inline FrameModule* theModule = nullptr;

namespace slots {

inline i32 Open(KQClip* clip, TagItem*) {
    if (theModule->openFails) return 0;
    ++theModule->opens;
    clip->width = theModule->width;
    clip->height = theModule->height;
    clip->depth = theModule->depth;
    clip->sourceFrames = theModule->frames;
    clip->sourceRate = theModule->rate;
    return 1;
}

inline void Close(KQClip*) { ++theModule->closes; }

inline i32 Create(KQClip*, u32) { return 1; }

inline i32 BeginIO(KQClip*, u32) {
    ++theModule->begins;
    return !theModule->beginFails;
}

inline i32 EndIO(KQClip*, u32) {
    ++theModule->ends;
    return 1;
}

inline FrameCall Note(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect) {
    return {frame, *rect, 0, 0, clip->track, bitmap->width, bitmap->height, clip->fileSpec ? clip->fileSpec : ""};
}

inline i32 GetFrame(KQClip* clip, KQBitmap* target, i32 frame, const KQRectT<long>* rect, i32 width, i32 height,
                    i32 track) {
    FrameCall call = Note(clip, target, frame, rect);
    call.width = width;
    call.height = height;
    call.track = track;
    theModule->calls.push_back(call);
    if (theModule->frameFails || frame == theModule->failFrame) return 0;
    if (theModule->paint) theModule->paint(frame, target);
    return 1;
}

inline i32 AddFrame(KQClip* clip, KQBitmap* bitmap, i32 frame, const KQRectT<long>* rect) {
    theModule->added.push_back(Note(clip, bitmap, frame, rect));
    return theModule->addFails ? 0 : theModule->addResult;
}

inline i32 GetGBuffers(KQClip*, i32 frame, u32 mask, KQGBufferArray* array) {
    ++theModule->planeCalls;
    return theModule->planes ? theModule->planes(frame, mask, array) : 0;
}

inline i32 CheckFile(KQFormatDesc*, const char*, u32, u32, u32) { return 1; }
inline u32 ImportProperties(KQFormatDesc*) { return theModule->properties; }
inline u32 ExportProperties(KQFormatDesc*, KQClip*) { return theModule->properties; }

}   // namespace slots

// The fixture: a module, its record, and clips that end with the test.
class FrameTest : public KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        if (HasFatalFailure()) return;
        theModule = &module;
        desc.Open = slots::Open;
        desc.Close = slots::Close;
        desc.Create = slots::Create;
        desc.BeginIO = slots::BeginIO;
        desc.EndIO = slots::EndIO;
        desc.GetFrame = slots::GetFrame;
        desc.AddFrame = slots::AddFrame;
        desc.GetGBuffers = slots::GetGBuffers;
        desc.CheckFile = slots::CheckFile;
        desc.ImportProperties = slots::ImportProperties;
        desc.ExportProperties = slots::ExportProperties;
        SetScratchDirKQ(Folder().c_str());
    }

    void TearDown() override {
        if (KQEnv) {
            for (KQClip* clip : clips_) {
                if (clip->flags & KQCLIP_IO) EndClipIOKQ(clip, nullptr);
                CloseClipKQ(clip);
                FreeClipKQ(clip);
            }
            for (KQBitmap* bitmap : bitmaps_) FreeBitmapKQ(bitmap);
            SetScratchDirKQ(nullptr);
        }
        theModule = nullptr;
        KQTest::TearDown();
    }

    // A clip as OpenClipKQ leaves it, without the guess at alpha: stored alpha, straight.
    KQClip* MakeClip(bool begin = true) {
        KQClip* clip = NewClipKQ();
        clips_.push_back(clip);
        clip->format = &desc;
        EXPECT_TRUE(OpenClipKQ(clip, static_cast<TagItem*>(nullptr)));
        clip->frameCount = clip->sourceFrames;
        clip->frameRate = clip->nativeRate = clip->sourceRate;
        clip->alphaMode = 2;
        clip->alphaPremultiplied = 0;
        if (begin) {
            EXPECT_TRUE(BeginClipIOKQ(clip, static_cast<TagItem*>(nullptr)));
        }
        return clip;
    }

    KQBitmap* MakeBitmap(i32 width, i32 height, u32 colour = 0) {
        KQBitmap* bitmap = AllocBitmapKQ(width, height, 32);
        bitmaps_.push_back(bitmap);
        FillBitmapKQ(bitmap, colour);
        return bitmap;
    }

    // Frame `frame` of a clip at its own rate.
    static KQTimeValue At(const KQClip* clip, f64 frame) { return {frame, clip->frameRate}; }

    static int Get(KQClip* clip, KQBitmap* bitmap, f64 frame) {
        KQTimeValue time = At(clip, frame);
        return GetFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
    }

    // The pixel as a packed colour 0xAARRGGBB.
    static u32 Pixel(const KQBitmap* bitmap, i32 x, i32 y) {
        u32 word;
        __builtin_memcpy(&word, bitmap->data + i64(y) * bitmap->rowBytes + x * 4, 4);
        return __builtin_bswap32(word);
    }

    static void SetPixel(KQBitmap* bitmap, i32 x, i32 y, u32 colour) {
        u32 word = __builtin_bswap32(colour);
        __builtin_memcpy(bitmap->data + i64(y) * bitmap->rowBytes + x * 4, &word, 4);
    }

    static std::vector<u8> Bytes(const KQBitmap* bitmap) { return {bitmap->data, bitmap->data + bitmap->dataSize}; }

    FrameModule module;
    KQFormatDesc desc = {};

private:
    std::vector<KQClip*> clips_;
    std::vector<KQBitmap*> bitmaps_;
};

}   // namespace kqtest
