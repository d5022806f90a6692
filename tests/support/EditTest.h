// The fixture of tests that edit a clip: frames of one colour each, and the list of edits as it stands.
#pragma once

#include <filesystem>
#include <ostream>
#include <vector>

#include "kq/files.h"
#include "support/FrameModule.h"

// In the record's own namespace, where comparisons of lists look for it.
inline bool operator==(const KQEditRun& a, const KQEditRun& b) { return a.start == b.start && a.count == b.count; }

inline void PrintTo(const KQEditRun& run, std::ostream* out) { *out << run.start << " x " << run.count; }

namespace kqtest {

inline constexpr u32 kBackground = 0xFF123456;

using RunList = std::vector<KQEditRun>;

// The file of each frame, as packed colour: source frame n is 0xFF000000 + n.
class EditTest : public FrameTest {
protected:
    void SetUp() override {
        FrameTest::SetUp();
        module.width = module.height = 2;
        module.paint = [](i32 frame, KQBitmap* target) { FillBitmapKQ(target, 0xFF000000u + u32(frame)); };
    }

    KQClip* Clip(i32 frames) {
        module.frames = frames;
        KQClip* clip = MakeClip();
        clip->backgroundColor = kBackground;
        return clip;
    }

    int Modify(KQClip* clip, f64 frame, u32 colour) {
        KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
        FillBitmapKQ(bitmap, colour);
        KQTimeValue time = At(clip, frame);
        int done = ModifyFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
        FreeBitmapKQ(bitmap);
        return done;
    }

    static int Delete(KQClip* clip, f64 frame) {
        KQTimeValue time = At(clip, frame);
        return DeleteFrameKQ(clip, &time);
    }

    static int After(KQClip* clip, f64 frame) {
        KQTimeValue time = At(clip, frame);
        return InsertFrameAfterKQ(clip, &time);
    }

    static int Before(KQClip* clip, f64 frame) {
        KQTimeValue time = At(clip, frame);
        return InsertFrameBeforeKQ(clip, &time);
    }

    // The colour that frame `frame` reads as.
    u32 Look(KQClip* clip, f64 frame) {
        KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
        FillBitmapKQ(bitmap, 0);
        EXPECT_EQ(Get(clip, bitmap, frame), 1);
        u32 colour = Pixel(bitmap, 1, 1);
        FreeBitmapKQ(bitmap);
        return colour;
    }

    static RunList Runs(const KQClip* clip) {
        if (!clip->editList) return {};
        return {clip->editList, clip->editList + clip->editCount};
    }

    // Gives the clip this list, as an application may.
    static void SetRuns(KQClip* clip, const RunList& runs, i32 capacity) {
        FreeMemoryKQ(clip->editList);
        clip->editList = static_cast<KQEditRun*>(AllocMemoryKQ(size_t(capacity) * sizeof(KQEditRun), 0));
        std::copy(runs.begin(), runs.end(), clip->editList);
        clip->editCount = i32(runs.size());
        clip->editCapacity = capacity;
    }

    // Puts the clip back to no edits.
    static void ForgetEdits(KQClip* clip) {
        FreeMemoryKQ(clip->editList);
        clip->editList = nullptr;
        clip->editCount = clip->editCapacity = clip->scratchCount = 0;
        clip->frameCount = clip->sourceFrames;
    }

    // A bitmap that no fault switch counts.
    static KQBitmap* MakeFaultless(const KQClip* clip) {
        kq::FaultSwitch kept = kq::allocationFaults;
        kq::allocationFaults.Clear();
        KQBitmap* bitmap = AllocBitmapKQ(clip->width, clip->height, 32);
        kq::allocationFaults = kept;
        return bitmap;
    }

    size_t ScratchFiles() {
        size_t count = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(Folder())) {
            std::string extension = entry.path().extension().string();
            count += extension.size() == 4 && (extension.back() == 'V' || extension.back() == 'A');
        }
        return count;
    }
};

}   // namespace kqtest
