#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <random>

#include "Source/EditList.h"
#include "Source/Formats.h"
#include "Source/Frames.h"
#include "kq/files.h"
#include "kq/sequence.h"
#include "pal/file.h"
#include "support/FrameModule.h"

// In the record's own namespace, where comparisons of lists look for it.
static bool operator==(const KQEditRun& a, const KQEditRun& b) { return a.start == b.start && a.count == b.count; }

static void PrintTo(const KQEditRun& run, std::ostream* out) { *out << run.start << " x " << run.count; }

namespace {

constexpr u32 kBackground = 0xFF123456;

using RunList = std::vector<KQEditRun>;

// The file of each frame, as packed colour: source frame n is 0xFF000000 + n.
class EditFrame : public kqtest::FrameTest {
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

TEST_F(EditFrame, FirstEditMakesAListOf32Entries) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(Modify(clip, 4, 0xFFAABBCC), 1);
    EXPECT_EQ(clip->editCapacity, 32);
    EXPECT_EQ(Runs(clip), (RunList{{0, 4}, {-1, 1}, {5, 5}}));
    EXPECT_EQ(clip->scratchCount, 1);
    EXPECT_EQ(Look(clip, 4), 0xFFAABBCCu);
    EXPECT_EQ(Look(clip, 3), 0xFF000003u);
    EXPECT_EQ(Look(clip, 5), 0xFF000005u);
}

TEST_F(EditFrame, ModifyingTwiceOverwritesTheFile) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(Modify(clip, 4, 0xFFAABBCC), 1);
    EXPECT_EQ(Modify(clip, 4, 0x80112233), 1);
    EXPECT_EQ(clip->scratchCount, 1);
    EXPECT_EQ(ScratchFiles(), 1u);
    EXPECT_EQ(Look(clip, 4), 0x80112233u);
}

TEST_F(EditFrame, ModifyingAtTheEndsSplitsIntoTwo) {
    KQClip* clip = Clip(10);
    Modify(clip, 0, 1);
    EXPECT_EQ(Runs(clip), (RunList{{-1, 1}, {1, 9}}));
    Modify(clip, 9, 1);
    EXPECT_EQ(Runs(clip), (RunList{{-1, 1}, {1, 8}, {-2, 1}}));
}

TEST_F(EditFrame, NeighbouringScratchFramesJoinDownward) {
    KQClip* clip = Clip(10);
    Modify(clip, 3, 0xFF000103);
    Modify(clip, 4, 0xFF000104);
    EXPECT_EQ(Runs(clip), (RunList{{0, 3}, {-1, 2}, {5, 5}}));
    EXPECT_EQ(Look(clip, 3), 0xFF000103u);
    EXPECT_EQ(Look(clip, 4), 0xFF000104u);
}

TEST_F(EditFrame, NumberOfAOneFrameRunIsSetWithoutCompacting) {
    KQClip* clip = Clip(10);
    SetRuns(clip, {{0, 3}, {7, 1}, {4, 6}}, 32);
    EXPECT_EQ(kq::SetFrame(clip, 3, 3), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 3}, {3, 1}, {4, 6}}));
}

TEST_F(EditFrame, SettingTheSameNumberDoesNothing) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(kq::SetFrame(clip, 3, 3), 1);
    EXPECT_EQ(clip->editList, nullptr);
}

TEST_F(EditFrame, ThirdRunInARowLosesItsCountToADroppedEntry) {
    KQClip* clip = Clip(20);
    SetRuns(clip, {{0, 2}, {2, 2}, {4, 2}, {10, 10}}, 32);
    // The split of the last run compacts the list.
    EXPECT_EQ(kq::SetFrame(clip, 10, -1), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 4}, {10, 4}, {-1, 1}, {15, 5}}));
}

TEST_F(EditFrame, CompactionKeepsTheRunsBehindItsEnd) {
    KQClip* clip = Clip(6);
    SetRuns(clip, {{0, 6}, {-1, 1}, {20, 1}, {21, 1}}, 32);
    EXPECT_EQ(kq::SetFrame(clip, 0, -5), 1);
    EXPECT_EQ(Runs(clip), (RunList{{-5, 1}, {1, 5}, {-1, 1}, {20, 1}, {21, 1}}));
}

TEST_F(EditFrame, CompactionCutsAListThatIsMuchTooLong) {
    KQClip* clip = Clip(10);
    SetRuns(clip, {{0, 5}, {-3, 5}}, 40);
    EXPECT_EQ(kq::SetFrame(clip, 1, -9), 1);   // 4 runs of 40
    EXPECT_EQ(clip->editCapacity, 4);
    EXPECT_EQ(Runs(clip), (RunList{{0, 1}, {-9, 1}, {2, 3}, {-3, 5}}));
    SetRuns(clip, {{0, 5}, {-3, 5}}, 36);
    EXPECT_EQ(kq::SetFrame(clip, 1, -9), 1);   // 32 to spare
    EXPECT_EQ(clip->editCapacity, 36);
}

TEST_F(EditFrame, ListGrowsBy32) {
    KQClip* clip = Clip(10);
    SetRuns(clip, {{0, 10}}, 2);
    EXPECT_EQ(kq::SetFrame(clip, 5, -1), 1);
    EXPECT_EQ(clip->editCapacity, 34);
}

TEST_F(EditFrame, DeletingShortensOrSplitsARun) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(Delete(clip, 9), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 9}}));
    EXPECT_EQ(Delete(clip, 0), 1);
    EXPECT_EQ(Runs(clip), (RunList{{1, 8}}));
    EXPECT_EQ(Delete(clip, 3), 1);
    EXPECT_EQ(Runs(clip), (RunList{{1, 3}, {5, 4}}));
    EXPECT_EQ(clip->frameCount, 7);
    EXPECT_EQ(Look(clip, 3), 0xFF000005u);
}

TEST_F(EditFrame, DeletingTheLastFrameWithoutAListMakesOneShorterRun) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(Delete(clip, 9), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 9}}));
    EXPECT_EQ(clip->editCapacity, 32);
}

TEST_F(EditFrame, DeletingTheFirstOfADownwardRunMovesItsStartDown) {
    KQClip* clip = Clip(10);
    SetRuns(clip, {{-4, 3}, {3, 7}}, 32);
    EXPECT_EQ(Delete(clip, 0), 1);
    EXPECT_EQ(Runs(clip), (RunList{{-5, 2}, {3, 7}}));
}

TEST_F(EditFrame, DeletingTheLastOfARunLeavesTheFollowingRun) {
    KQClip* clip = Clip(10);
    Modify(clip, 5, 0xFF000105);
    EXPECT_EQ(Delete(clip, 4), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 4}, {-1, 1}, {6, 4}}));
    EXPECT_EQ(Look(clip, 4), 0xFF000105u);
    EXPECT_EQ(Look(clip, 5), 0xFF000006u);
}

TEST_F(EditFrame, DeletingAllFramesLeavesNone) {
    KQClip* clip = Clip(10);
    for (i32 left = 10; left > 0; --left) EXPECT_EQ(Delete(clip, left / 2), 1);
    EXPECT_EQ(clip->frameCount, 0);
    EXPECT_EQ(clip->editCount, 0);
    EXPECT_EQ(Delete(clip, 0), 0);
    EXPECT_EQ(After(clip, 0), 0);
    EXPECT_EQ(Look(clip, 0), kBackground);
}

TEST_F(EditFrame, DeletingOutsideTheClipDoesNothing) {
    KQClip* clip = Clip(10);
    for (f64 frame : {10.0, -2.0, 1e300, -1e300}) {
        EXPECT_EQ(Delete(clip, frame), 0);
        EXPECT_EQ(After(clip, frame), 0);
        EXPECT_EQ(Before(clip, frame), 0);
    }
    EXPECT_EQ(DeleteFrameKQ(nullptr, nullptr), 0);
    EXPECT_EQ(InsertFrameAfterKQ(nullptr, nullptr), 0);
    EXPECT_EQ(InsertFrameBeforeKQ(nullptr, nullptr), 0);
    EXPECT_EQ(clip->editList, nullptr);
    EXPECT_EQ(clip->frameCount, 10);
}

TEST_F(EditFrame, FrameInNoRunReadsAsBackground) {
    KQClip* clip = Clip(10);
    Delete(clip, 3);
    EXPECT_EQ(Look(clip, 8), 0xFF000009u);
    EXPECT_EQ(Look(clip, 9), kBackground);
}

TEST_F(EditFrame, FramePastTheSourceReadsAsBackgroundAfterAnInsert) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(Before(clip, 2), 1);
    EXPECT_EQ(clip->frameCount, 11);
    EXPECT_EQ(Look(clip, 9), 0xFF000008u);
    EXPECT_EQ(Look(clip, 10), kBackground) << "the source has ten frames";
}

TEST_F(EditFrame, InsertAfterSplitsBehindTheFrame) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(After(clip, 4), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 5}, {-1, 1}, {5, 5}}));
    EXPECT_EQ(clip->frameCount, 11);
}

TEST_F(EditFrame, InsertAfterTheLastFrameLeavesARunOfNoFrames) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(After(clip, 9), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 10}, {-1, 1}, {10, 0}}));
    EXPECT_EQ(After(clip, 0), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 1}, {-2, 1}, {1, 9}, {-1, 1}, {10, 0}}));
}

TEST_F(EditFrame, InsertAfterTheFirstFrameOfALaterRunLandsBehindThatRun) {
    KQClip* clip = Clip(10);
    Modify(clip, 2, 0xFF000102);
    EXPECT_EQ(After(clip, 3), 1);
    EXPECT_EQ(Runs(clip), (RunList{{0, 2}, {-1, 1}, {3, 7}, {-2, 1}}));
}

TEST_F(EditFrame, InsertBeforeTheFirstFrameOfARunGoesBeforeIt) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(Before(clip, 0), 1);
    EXPECT_EQ(Runs(clip), (RunList{{-1, 1}, {0, 10}}));
    EXPECT_EQ(Before(clip, 5), 1);
    EXPECT_EQ(Runs(clip), (RunList{{-1, 1}, {0, 4}, {-2, 1}, {4, 6}}));
    EXPECT_EQ(Before(clip, 5), 1);
    EXPECT_EQ(Runs(clip), (RunList{{-1, 1}, {0, 4}, {-3, 1}, {-2, 1}, {4, 6}}));
}

TEST_F(EditFrame, InsertedFrameReadsAsBackgroundUntilModified) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(After(clip, 4), 1);
    EXPECT_EQ(Look(clip, 5), kBackground);
    EXPECT_EQ(ScratchFiles(), 0u);
    EXPECT_EQ(Modify(clip, 5, 0xFF000105), 1);
    EXPECT_EQ(clip->scratchCount, 1) << "the frame has the insert's number";
    EXPECT_EQ(Look(clip, 5), 0xFF000105u);
}

TEST_F(EditFrame, ReadingAnInsertedFrameLeavesTheErrorWord) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(After(clip, 4), 1);
    KQBitmap* scaled = MakeBitmap(3, 3);
    for (u32 code : {0u, 17u}) {
        KQEnv->Error = code;
        EXPECT_EQ(Look(clip, 5), kBackground);
        EXPECT_EQ(GetErrorKQ(), code);
        EXPECT_EQ(Get(clip, scaled, 5), 1);
        EXPECT_EQ(GetErrorKQ(), code);
    }
}

TEST_F(EditFrame, ClosingWithInsertedFramesThatHaveNoFileLeavesTheErrorWord) {
    KQClip* clip = Clip(10);
    EXPECT_EQ(After(clip, 4), 1);
    EXPECT_EQ(Before(clip, 2), 1);
    EXPECT_EQ(Modify(clip, 8, 0xFF000108), 1);
    EndClipIOKQ(clip, static_cast<TagItem*>(nullptr));
    KQEnv->Error = 0;
    CloseClipKQ(clip);
    EXPECT_EQ(GetErrorKQ(), 0u);
    EXPECT_EQ(ScratchFiles(), 0u);
}

TEST_F(EditFrame, ClosingDeletesTheScratchFilesAndKeepsTheList) {
    KQClip* clip = Clip(10);
    Modify(clip, 4, 0xFF000104);
    Modify(clip, 5, 0xFF000105);
    EXPECT_EQ(ScratchFiles(), 2u);
    EndClipIOKQ(clip, static_cast<TagItem*>(nullptr));
    CloseClipKQ(clip);
    EXPECT_EQ(ScratchFiles(), 0u);
    ASSERT_TRUE(OpenClipKQ(clip, static_cast<TagItem*>(nullptr)));
    BeginClipIOKQ(clip, static_cast<TagItem*>(nullptr));
    EXPECT_EQ(Look(clip, 4), kBackground);
}

TEST_F(EditFrame, ModifyOutsideTheClipStoresNothing) {
    KQClip* clip = Clip(10);
    for (f64 frame : {10.0, -2.0, 1e300}) EXPECT_EQ(Modify(clip, frame, 1), 0);
    EXPECT_EQ(ScratchFiles(), 0u);
    EXPECT_EQ(clip->scratchCount, 0);
    EXPECT_EQ(ModifyFrameKQ(nullptr, MakeBitmap(2, 2), nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
}

TEST_F(EditFrame, NumbersThatHaveRunOutAreRefused) {
    KQClip* clip = Clip(10);
    clip->scratchCount = INT_MAX;
    EXPECT_EQ(Modify(clip, 3, 1), 0);
    EXPECT_EQ(After(clip, 3), 0);
    EXPECT_EQ(clip->editList, nullptr);
}

// Scratch frames on retrieval.

TEST_F(EditFrame, ScratchFrameIsNotInterpretedAgain) {
    KQClip* clip = Clip(10);
    clip->alphaPremultiplied = 1;
    Modify(clip, 4, 0x80402010);
    EXPECT_EQ(Look(clip, 4), 0x80402010u);
    clip->alphaMode = 0;
    EXPECT_EQ(Look(clip, 4), 0x80402010u);
    EXPECT_EQ(Look(clip, 5), 0xFF000005u);
}

TEST_F(EditFrame, ScratchFrameIsScaledAndGetsMargins) {
    KQClip* clip = Clip(10);
    Modify(clip, 4, 0x80402010);
    KQBitmap* bitmap = MakeBitmap(6, 6, 0xFFFFFFFF);
    KQRectT<long> rect = {-1, -1, 0, 0};
    KQTimeValue time = At(clip, 4);
    EXPECT_EQ(GetFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_RECT, &rect, KQTAG_FRAME_WIDTH, 4,
                         KQTAG_FRAME_HEIGHT, 4, 0),
              1);
    EXPECT_EQ(Pixel(bitmap, 0, 0), 0u);
    EXPECT_EQ(Pixel(bitmap, 1, 1), 0x80402010u);
    EXPECT_EQ(Pixel(bitmap, 4, 4), 0x80402010u);
    EXPECT_EQ(Pixel(bitmap, 5, 4), 0u);
}

TEST_F(EditFrame, ScratchFrameGetsRowFilters) {
    KQClip* clip = Clip(10);
    KQBitmap* bitmap = MakeBitmap(2, 2);
    SetPixel(bitmap, 0, 0, 0x10101010);
    SetPixel(bitmap, 0, 1, 0x50505050);
    KQTimeValue time = At(clip, 4), field = {0.5, clip->frameRate};
    ModifyFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
    clip->fieldOrder = 1;
    GetFrameKQ(clip, bitmap, &time, &field, static_cast<TagItem*>(nullptr));
    EXPECT_EQ(Pixel(bitmap, 0, 1), 0x10101010u);
}

TEST_F(EditFrame, ShortScratchFileReadsAsBackgroundWithACode) {
    KQClip* clip = Clip(10);
    Modify(clip, 4, 0xFF000104);
    std::string name = Make_TempName(clip, -1, 0);
    kqtest::WriteWholeFile(name, "short");
    KQEnv->Error = 0;
    EXPECT_EQ(Look(clip, 4), kBackground);
    EXPECT_EQ(GetErrorKQ(), KQERR_READ);
    KQBitmap* scaled = MakeBitmap(3, 3);
    EXPECT_EQ(Get(clip, scaled, 4), 1);
    EXPECT_EQ(Pixel(scaled, 2, 2), kBackground);
    EXPECT_EQ(Modify(clip, 4, 0xFF000204), 1) << "the clip stays usable";
    EXPECT_EQ(Look(clip, 4), 0xFF000204u);
}

TEST_F(EditFrame, EmptyScratchFileReadsAsBackground) {
    KQClip* clip = Clip(10);
    Modify(clip, 4, 0xFF000104);
    std::string name = Make_TempName(clip, -1, 0);
    kqtest::WriteWholeFile(name, "");
    EXPECT_EQ(Look(clip, 4), kBackground);
}

TEST_F(EditFrame, MissingScratchFileReadsAsBackground) {
    KQClip* clip = Clip(10);
    Modify(clip, 4, 0xFF000104);
    std::string name = Make_TempName(clip, -1, 0);
    DeleteFileKQ(name.c_str());
    KQEnv->Error = 0;
    EXPECT_EQ(Look(clip, 4), kBackground);
    EXPECT_EQ(GetErrorKQ(), 0u) << "a missing one is no failure";
}

TEST_F(EditFrame, UnreadableScratchFileReadsAsBackground) {
    KQClip* clip = Clip(10);
    Modify(clip, 4, 0xFF000104);
    std::string name = Make_TempName(clip, -1, 0);
    DeleteFileKQ(name.c_str());
    std::filesystem::create_directory(name);
    EXPECT_EQ(Look(clip, 4), kBackground);
    EXPECT_EQ(Look(clip, 5), 0xFF000005u);
}

TEST_F(EditFrame, StoringWhereNoFileCanBeKeepsTheList) {
    KQClip* clip = Clip(10);
    std::filesystem::create_directory(Make_TempName(clip, -1, 0));
    EXPECT_EQ(Modify(clip, 4, 0xFF000104), 0);
    EXPECT_NE(GetErrorKQ(), 0u);
    EXPECT_EQ(Look(clip, 4), 0xFF000004u);
    EXPECT_EQ(Modify(clip, 4, 0xFF000204), 1) << "the next number has a free name";
    EXPECT_EQ(Look(clip, 4), 0xFF000204u);
}

TEST_F(EditFrame, FailedStoreKeepsWhatWasStoredBefore) {
    KQClip* clip = Clip(10);
    ASSERT_EQ(Modify(clip, 4, 0xFF000104), 1);
    // File calls of the store: make the folder twice, create, write, close, replace.
    i64 failed = 0;
    for (bool once : {true, false})
        for (i64 n = 1; n < 20; ++n) {
            kq::fileFaults.Set(n, once);
            KQEnv->Error = 0;
            int done = Modify(clip, 4, 0xFF000204);
            u32 code = GetErrorKQ();
            kq::fileFaults.Clear();
            EXPECT_EQ(Look(clip, 4), done ? 0xFF000204u : 0xFF000104u) << n;
            if (!done) {
                ++failed;
                EXPECT_NE(code, 0u) << n;
            }
            ASSERT_EQ(Modify(clip, 4, 0xFF000104), 1);
        }
    EXPECT_GT(failed, 4);
    EXPECT_EQ(ScratchFiles(), 1u);
}

// A second name of the old file shows what becomes of it.
TEST_F(EditFrame, StoringPutsANewFileInThePlaceOfTheOldOne) {
    KQClip* clip = Clip(10);
    ASSERT_EQ(Modify(clip, 4, 0xFF000104), 1);
    std::string name = Make_TempName(clip, -1, 0), other = Folder() + "other";
    std::error_code error;
    std::filesystem::create_hard_link(name, other, error);
    ASSERT_FALSE(error) << error.message();
    std::vector<u8> before = kqtest::ReadWholeFile(other);
    ASSERT_EQ(before.size(), 16u);
    ASSERT_EQ(Modify(clip, 4, 0xFF000204), 1);
    EXPECT_EQ(kqtest::ReadWholeFile(other), before);
    EXPECT_EQ(Look(clip, 4), 0xFF000204u);
    EXPECT_EQ(ScratchFiles(), 1u);
}

// Under Linux /dev/full is a disk that is full; the file name leads there.
TEST_F(EditFrame, FullDiskGivesItsCodeAndLosesNothing) {
    if (pal::Separator() != '/') GTEST_SKIP() << "this host has no full device; the write faults stand for it";
    KQClip* clip = Clip(10);
    ASSERT_EQ(Modify(clip, 4, 0xFF000104), 1);
    std::filesystem::create_symlink("/dev/full", Make_TempName(clip, -1, 1));
    EXPECT_EQ(Modify(clip, 4, 0xFF000204), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_DISKFULL);
    EXPECT_EQ(Look(clip, 4), 0xFF000104u);
    std::filesystem::create_symlink("/dev/full", Make_TempName(clip, -2, 1));
    EXPECT_EQ(Modify(clip, 5, 0xFF000105), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_DISKFULL);
    EXPECT_EQ(Look(clip, 5), 0xFF000005u);
    EXPECT_EQ(Modify(clip, 5, 0xFF000105), 1);
    EXPECT_EQ(Look(clip, 5), 0xFF000105u);
}

// Pull-down.

class EditFramePullDown : public EditFrame {
protected:
    KQClip* PulledClip(i32 phase, i32 order) {
        module.width = 1;
        module.height = 4;
        KQClip* clip = Clip(20);
        clip->pullDown = phase;
        clip->fieldOrder = order;
        return clip;
    }

    // Rows 0 and 1 of source frame `frame` as stored.
    std::pair<u32, u32> Stored(KQClip* clip, i32 frame) {
        KQBitmap* bitmap = AllocBitmapKQ(1, 4, 32);
        EXPECT_EQ(kq::FetchFrame(clip, frame, bitmap, 0, nullptr, 1, 4), 1);
        std::pair<u32, u32> rows = {Pixel(bitmap, 0, 0), Pixel(bitmap, 0, 1)};
        EXPECT_EQ(Pixel(bitmap, 0, 2), rows.first);
        EXPECT_EQ(Pixel(bitmap, 0, 3), rows.second);
        FreeBitmapKQ(bitmap);
        return rows;
    }
};

TEST_F(EditFramePullDown, WholeFramesAreStoredWhole) {
    for (i32 frame : {0, 1, 2}) {
        KQClip* clip = PulledClip(1, 1);
        EXPECT_EQ(Modify(clip, frame, 0xFFAAAAAA), 1);
        EXPECT_EQ(Stored(clip, frame), std::make_pair(0xFFAAAAAAu, 0xFFAAAAAAu));
        EXPECT_EQ(clip->scratchCount, 1);
    }
}

TEST_F(EditFramePullDown, FourthFrameSpreadsOverTwo) {
    for (i32 order : {1, 2, 0}) {
        KQClip* clip = PulledClip(1, order);
        EXPECT_EQ(Modify(clip, 3, 0xFFAAAAAA), 1);
        u32 third = 0xFF000003, fourth = 0xFF000004, ours = 0xFFAAAAAA;
        EXPECT_EQ(Stored(clip, 3), order == 1 ? std::make_pair(third, ours) : std::make_pair(ours, third)) << order;
        EXPECT_EQ(Stored(clip, 4), order == 2 ? std::make_pair(fourth, ours) : std::make_pair(ours, fourth)) << order;
        EXPECT_EQ(clip->scratchCount, 2);
    }
}

TEST_F(EditFramePullDown, FrameModifiedUnderPullDownReadsBack) {
    for (i32 phase = 1; phase <= 5; ++phase)
        for (i32 frame = 0; frame < 12; ++frame) {
            KQClip* clip = PulledClip(phase, 1);
            ASSERT_EQ(Modify(clip, frame, 0xFFAAAAAA), 1) << phase << " " << frame;
            EXPECT_EQ(Look(clip, frame), 0xFFAAAAAAu) << phase << " " << frame;
        }
}

TEST_F(EditFramePullDown, FirstFrameOfACadenceUpdatesTheStoredFrameBeforeIt) {
    KQClip* clip = PulledClip(1, 1);
    Modify(clip, 3, 0xFFAAAAAA);                 // source frames 3 and 4
    EXPECT_EQ(Modify(clip, 4, 0xFFBBBBBB), 1);   // source frame 5, and one field of 4
    EXPECT_EQ(Stored(clip, 5), std::make_pair(0xFFBBBBBBu, 0xFFBBBBBBu));
    EXPECT_EQ(Stored(clip, 4), std::make_pair(0xFFAAAAAAu, 0xFFBBBBBBu));
}

TEST_F(EditFramePullDown, ThirdFrameOfACadenceUpdatesTheStoredFrameBehindIt) {
    KQClip* clip = PulledClip(1, 1);
    Modify(clip, 3, 0xFFAAAAAA);
    EXPECT_EQ(Modify(clip, 2, 0xFFBBBBBB), 1);
    EXPECT_EQ(Stored(clip, 2), std::make_pair(0xFFBBBBBBu, 0xFFBBBBBBu));
    EXPECT_EQ(Stored(clip, 3), std::make_pair(0xFFBBBBBBu, 0xFFAAAAAAu));
}

TEST_F(EditFramePullDown, FourthFrameStartsFromTheStoredFrameBeforeIt) {
    KQClip* clip = PulledClip(1, 1);
    Modify(clip, 2, 0xFFBBBBBB);
    EXPECT_EQ(Modify(clip, 3, 0xFFAAAAAA), 1);
    EXPECT_EQ(Stored(clip, 3), std::make_pair(0xFFBBBBBBu, 0xFFAAAAAAu));
}

TEST_F(EditFramePullDown, PhaseFourFetchesFrameZero) {
    KQClip* clip = PulledClip(4, 1);
    EXPECT_EQ(Modify(clip, 0, 0xFFAAAAAA), 1);
    EXPECT_EQ(Stored(clip, 0), std::make_pair(0xFF000000u, 0xFFAAAAAAu));
    EXPECT_EQ(Stored(clip, 1), std::make_pair(0xFFAAAAAAu, 0xFF000001u));
}

TEST_F(EditFramePullDown, LastFrameOfTheSourceEndsTheSpread) {
    KQClip* clip = PulledClip(1, 1);
    EXPECT_EQ(Modify(clip, 15, 0xFFAAAAAA), 1);   // source frames 18 and 19
    EXPECT_EQ(Stored(clip, 19), std::make_pair(0xFFAAAAAAu, 0xFF000013u));
    clip->sourceFrames = 19;
    EXPECT_EQ(Modify(clip, 15, 0xFFBBBBBB), 1);
    clip->sourceFrames = 20;
    EXPECT_EQ(Stored(clip, 19), std::make_pair(0xFFAAAAAAu, 0xFF000013u));
}

TEST_F(EditFramePullDown, SecondHalfThatCannotBeStoredIsNoFailure) {
    KQClip* clip = PulledClip(1, 1);
    std::filesystem::create_directory(Make_TempName(clip, -2, 0));
    EXPECT_EQ(Modify(clip, 3, 0xFFAAAAAA), 1);
    EXPECT_EQ(Stored(clip, 3), std::make_pair(0xFF000003u, 0xFFAAAAAAu));
    EXPECT_EQ(Stored(clip, 4), std::make_pair(0xFF000004u, 0xFF000004u));
}

TEST_F(EditFramePullDown, OddHeightCopiesAllRowsOfItsParity) {
    module.width = 1;
    module.height = 5;
    KQClip* clip = Clip(20);
    clip->pullDown = 1;
    clip->fieldOrder = 2;
    EXPECT_EQ(Modify(clip, 3, 0xFFAAAAAA), 1);
    KQBitmap* bitmap = MakeBitmap(1, 5);
    kq::FetchFrame(clip, 3, bitmap, 0, nullptr, 1, 5);
    EXPECT_EQ(Pixel(bitmap, 0, 4), 0xFFAAAAAAu);
    EXPECT_EQ(Pixel(bitmap, 0, 3), 0xFF000003u);
}

// The plain model of the list, run by run as it is described.

struct Model {
    RunList runs;
    bool made = false;
    i32 capacity = 0, sourceFrames, frameCount, scratchCount = 0;

    void Make() {
        if (made) return;
        made = true;
        runs = {{0, sourceFrames}};
        capacity = 32;
    }

    static i32 Step(i32 start, i32 n) { return start >= 0 ? start + n : start - n; }

    bool Find(i32 frame, size_t* run, i32* base) const {
        *base = 0;
        for (*run = 0; *run < runs.size(); ++*run) {
            if (frame < *base + runs[*run].count) return true;
            *base += runs[*run].count;
        }
        return false;
    }

    // INT_MIN stands for no run.
    i32 Map(i32 frame) const {
        if (!made || frame >= sourceFrames) return frame;
        size_t run;
        i32 base;
        return Find(frame, &run, &base) ? Step(runs[run].start, frame - base) : INT_MIN;
    }

    void Grow() {
        if (i32(runs.size()) > capacity) capacity += 32;
    }

    void Compact() {
        if (runs.size() < 2) return;
        size_t read = 1, write = 1;
        i32 sum = runs[0].count, next = Step(runs[0].start, runs[0].count);
        while (read < runs.size() && sum < sourceFrames) {
            KQEditRun run = runs[read];
            if (run.start == next)
                runs[read - 1].count += run.count;
            else
                runs[write++] = run;
            sum += run.count;
            next = Step(run.start, run.count);
            ++read;
        }
        runs.erase(runs.begin() + i64(write), runs.begin() + i64(read));
        if (capacity - i32(runs.size()) >= 33) capacity = i32(runs.size());
    }

    void Put(size_t at, RunList pieces) {
        runs.erase(runs.begin() + i64(at));
        runs.insert(runs.begin() + i64(at), pieces.begin(), pieces.end());
        Grow();
    }

    int Set(i32 frame, i32 number) {
        if (Map(frame) == number) return 1;
        Make();
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun old = runs[run];
        if (old.count == 1) {
            runs[run].start = number;
            return 1;
        }
        i32 offset = frame - base;
        RunList pieces;
        if (offset > 0) pieces.push_back({old.start, offset});
        pieces.push_back({number, 1});
        if (offset < old.count - 1) pieces.push_back({Step(old.start, offset + 1), old.count - offset - 1});
        Put(run, pieces);
        Compact();
        return 1;
    }

    int Modify(i32 frame) {
        size_t run;
        i32 base;
        Model whole = *this;
        whole.Make();
        if (!whole.Find(frame, &run, &base)) return 0;
        if (Map(frame) < 0) return 1;
        return Set(frame, -++scratchCount);
    }

    int Delete(i32 frame) {
        if (frame >= frameCount) return 0;
        Make();
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun& old = runs[run];
        if (old.count == 1) {
            runs.erase(runs.begin() + i64(run));
        } else if (frame == base) {
            old.start = Step(old.start, 1);
            --old.count;
        } else if (frame == base + old.count - 1) {
            --old.count;
        } else {
            i32 head = frame - base;
            Put(run, {{old.start, head}, {Step(old.start, head + 1), old.count - head - 1}});
            Compact();
        }
        --frameCount;
        return 1;
    }

    int After(i32 frame) {
        if (frame >= frameCount) return 0;
        Make();
        i32 number = -++scratchCount;
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun old = runs[run];
        i32 head = frame - base + 1;
        if (frame == 0 || frame > base)
            Put(run, {{old.start, head}, {number, 1}, {Step(old.start, head), old.count - head}});
        else
            Put(run, {old, {number, 1}});
        ++frameCount;
        return 1;
    }

    int Before(i32 frame) {
        if (frame >= frameCount) return 0;
        Make();
        i32 number = -++scratchCount;
        size_t run;
        i32 base;
        if (!Find(frame, &run, &base)) return 0;
        KQEditRun old = runs[run];
        i32 head = frame - base;
        if (head == 0)
            Put(run, {{number, 1}, old});
        else
            Put(run, {{old.start, head}, {number, 1}, {Step(old.start, head), old.count - head}});
        ++frameCount;
        return 1;
    }
};

// A list as an application might have made it, with runs that continue each other here and there.
RunList RandomRuns(std::mt19937& random) {
    RunList runs;
    i32 next = 0;
    for (u32 i = random() % 6 + 1; i > 0; --i) {
        i32 count = i32(random() % 4) + 1;
        i32 start = random() % 2 ? next : random() % 2 ? i32(random() % 20) : -i32(random() % 20) - 30;
        runs.push_back({start, count});
        next = Model::Step(start, count);
    }
    return runs;
}

TEST_F(EditFrame, TenThousandRandomSequencesFollowThePlainModel) {
    u32 seed = std::random_device{}();
    RecordProperty("seed", int(seed));
    std::mt19937 random(seed);
    module.width = module.height = 0;   // scratch files without a byte: the list is what counts
    KQClip* clip = Clip(1);
    for (int round = 0; round < 10000; ++round) {
        Model model;
        model.sourceFrames = model.frameCount = clip->sourceFrames = clip->frameCount = i32(random() % 12) + 1;
        clip->scratchCount = 0;
        FreeMemoryKQ(clip->editList);
        clip->editList = nullptr;
        clip->editCount = clip->editCapacity = 0;
        if (random() % 2) {
            model.runs = RandomRuns(random);
            model.made = true;
            model.capacity = i32(model.runs.size()) + i32(random() % 50);
            SetRuns(clip, model.runs, model.capacity);
        }
        for (u32 step = random() % 16 + 1; step > 0; --step) {
            i32 frame = i32(random() % u32(model.frameCount + 2));
            u32 kind = random() % 4;
            int expected = kind == 0   ? model.Modify(frame)
                           : kind == 1 ? model.Delete(frame)
                           : kind == 2 ? model.After(frame)
                                       : model.Before(frame);
            int done = kind == 0   ? Modify(clip, frame, 0xFF000000)
                       : kind == 1 ? Delete(clip, frame)
                       : kind == 2 ? After(clip, frame)
                                   : Before(clip, frame);
            ASSERT_EQ(done, expected) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->editList != nullptr, model.made) << "seed " << seed << " round " << round;
            ASSERT_EQ(Runs(clip), model.runs) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->editCapacity, model.capacity) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->frameCount, model.frameCount) << "seed " << seed << " round " << round;
            ASSERT_EQ(clip->scratchCount, model.scratchCount) << "seed " << seed << " round " << round;
            for (i32 i = 0; i < model.frameCount + 2; ++i) {
                i32 number;
                bool found = kq::MapFrame(clip, i, &number);
                ASSERT_EQ(found ? number : INT_MIN, model.Map(i)) << "seed " << seed << " round " << round;
            }
        }
    }
}

// Long lists.

TEST_F(EditFrame, LongListsAreLookedUpAsShortOnes) {
    u32 seed = std::random_device{}();
    std::mt19937 random(seed);
    module.width = module.height = 1;
    KQClip* clip = Clip(1);
    RunList runs;
    i32 total = 0;
    for (int i = 0; i < 3000; ++i) {
        runs.push_back({i32(random() % 100000), i32(random() % 4)});
        total += runs.back().count;
    }
    clip->sourceFrames = clip->frameCount = total + 5;
    SetRuns(clip, runs, 3000);
    Model model;
    model.runs = runs;
    model.made = true;
    model.sourceFrames = total + 5;
    auto compare = [&](const char* when) {
        for (i32 frame = 0; frame < total + 8; ++frame) {
            i32 number;
            bool found = kq::MapFrame(clip, frame, &number);
            ASSERT_EQ(found ? number : INT_MIN, model.Map(frame)) << when << ", seed " << seed << " frame " << frame;
        }
    };
    compare("fresh");
    for (int step = 0; step < 200; ++step) {
        i32 frame = i32(random() % u32(total - 300));
        if (step % 2) {
            kq::RemoveFrame(clip, frame);
            model.frameCount = INT_MAX;
            model.Delete(frame);
        } else {
            kq::SetFrame(clip, frame, -7);
            model.Set(frame, -7);
        }
        i32 number, probe = i32(random() % u32(total - 300));
        bool found = kq::MapFrame(clip, probe, &number);
        ASSERT_EQ(found ? number : INT_MIN, model.Map(probe)) << "seed " << seed;
    }
    compare("edited");
}

TEST_F(EditFrame, LongListReplacedByTheApplicationIsIndexedAgain) {
    KQClip* clip = Clip(5000);
    RunList runs(1000, KQEditRun{7, 2});
    SetRuns(clip, runs, 1000);
    i32 number;
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 8);
    runs.assign(2000, KQEditRun{9, 1});
    SetRuns(clip, runs, 2000);
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 9);
    EXPECT_FALSE(kq::MapFrame(clip, 2000, &number));
}

TEST_F(EditFrame, StartsWrittenInPlaceCountAtOnce) {
    KQClip* clip = Clip(5000);
    SetRuns(clip, RunList(1000, KQEditRun{7, 2}), 1000);
    i32 number;
    kq::MapFrame(clip, 1001, &number);
    clip->editList[500].start = 70;
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 71);
}

TEST_F(EditFrame, CountsWrittenInPlaceCountWhereTheyLie) {
    KQClip* clip = Clip(5000);
    SetRuns(clip, RunList(1000, KQEditRun{7, 2}), 1000);
    i32 number;
    kq::MapFrame(clip, 1001, &number);
    clip->editList[500] = {70, 1};
    ASSERT_TRUE(kq::MapFrame(clip, 1001, &number));
    EXPECT_EQ(number, 7) << "one frame fewer: the frame is the next run's first";
}

TEST_F(EditFrame, CountsWrittenInPlaceElsewhereCountOnceTheIndexIsGiven) {
    KQClip* clip = Clip(50000);
    SetRuns(clip, RunList(20000, KQEditRun{7, 2}), 20000);
    i32 number;
    kq::MapFrame(clip, 39001, &number);
    clip->editList[0].count = 1;
    FreeMemoryKQ(clip->editIndex);
    clip->editIndex = nullptr;
    ASSERT_TRUE(kq::MapFrame(clip, 39001, &number));
    EXPECT_EQ(number, 7);
}

TEST_F(EditFrame, CountsWrittenInPlaceElsewhereComeToLightByThemselves) {
    KQClip* clip = Clip(50000);
    SetRuns(clip, RunList(20000, KQEditRun{7, 2}), 20000);
    i32 number;
    kq::MapFrame(clip, 39001, &number);
    clip->editList[0].count = 1;
    for (int i = 0; i < 20000 / 32; ++i) kq::MapFrame(clip, 39001, &number);
    EXPECT_EQ(number, 7);
}

TEST_F(EditFrame, NegativeCountsInALongListAreWalked) {
    KQClip* clip = Clip(5000);
    RunList runs(1000, KQEditRun{7, 2});
    runs[10].count = -5;
    SetRuns(clip, runs, 1000);
    Model model;
    model.runs = runs;
    model.made = true;
    model.sourceFrames = 5000;
    for (i32 frame = 0; frame < 2000; ++frame) {
        i32 number;
        bool found = kq::MapFrame(clip, frame, &number);
        ASSERT_EQ(found ? number : INT_MIN, model.Map(frame));
    }
}

TEST_F(EditFrame, LongListIsWalkedWhenThereIsNoMemoryForItsIndex) {
    KQClip* clip = Clip(5000);
    SetRuns(clip, RunList(1000, KQEditRun{7, 2}), 1000);
    KQEnv->Error = 0;
    kq::allocationFaults.Set(1, false);
    i32 number;
    EXPECT_TRUE(kq::MapFrame(clip, 1001, &number));
    kq::allocationFaults.Clear();
    EXPECT_EQ(number, 8);
    EXPECT_EQ(GetErrorKQ(), 0u);
    EXPECT_EQ(clip->editIndex, nullptr);
}

// Adding.

TEST_F(EditFrame, AddFrameGoesThroughTheModule) {
    KQClip* clip = Clip(10);
    KQBitmap* bitmap = MakeBitmap(3, 2);
    KQTimeValue time = At(clip, 10);
    EXPECT_EQ(AddFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr)), 1);
    KQRectT<long> rect = {1, 0, 2, 2};
    EXPECT_EQ(AddFrameKQ(clip, bitmap, &time, nullptr, KQTAG_FRAME_SOURCE_RECT, &rect, 0), 1);
    ASSERT_EQ(module.added.size(), 2u);
    EXPECT_EQ(module.added[0].frame, 10);
    EXPECT_EQ(module.added[0].rect.width, 3);
    EXPECT_EQ(module.added[0].rect.height, 2);
    EXPECT_EQ(module.added[1].rect.x, 1);
    EXPECT_EQ(clip->sourceFrames, 10) << "the module counts its frames";
}

TEST_F(EditFrame, AddFrameNeedsAModuleThatWrites) {
    KQClip* clip = Clip(10);
    KQBitmap* bitmap = MakeBitmap(2, 2);
    EXPECT_EQ(AddFrameKQ(nullptr, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    module.properties &= ~u32(KQFORMAT_WRITES);
    EXPECT_EQ(AddFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    clip->format = nullptr;
    EXPECT_EQ(AddFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    clip->format = &desc;
    EXPECT_TRUE(module.added.empty());
}

TEST_F(EditFrame, AddFrameThatFailsLeavesACode) {
    KQClip* clip = Clip(10);
    module.addFails = true;
    EXPECT_EQ(AddFrameKQ(clip, MakeBitmap(2, 2), nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
    desc.AddFrame = nullptr;
    EXPECT_EQ(AddFrameKQ(clip, MakeBitmap(2, 2), nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    EXPECT_EQ(GetErrorKQ(), KQERR_MODULE);
}

TEST_F(EditFrame, AddFrameGivesBackWhatTheSlotReturned) {
    KQClip* clip = Clip(10);
    for (i32 result : {1, 7, -3, 0x7FFFFFFF}) {
        module.addResult = result;
        EXPECT_EQ(AddFrameKQ(clip, MakeBitmap(2, 2), nullptr, nullptr, static_cast<TagItem*>(nullptr)), result);
        EXPECT_EQ(GetErrorKQ(), 0u);
    }
}

TEST_F(EditFrame, AddFrameOfASequenceNamesTheNextNumber) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    KQClip* clip = Clip(10);
    clip->fileSpec = CopyFileSpecKQ((Folder() + "out[####].tst").c_str());
    clip->firstNumber = 100;
    clip->numberStep = 5;
    char* kept = clip->fileSpec;
    EXPECT_EQ(AddFrameKQ(clip, MakeBitmap(2, 2), nullptr, nullptr, static_cast<TagItem*>(nullptr)), 1);
    ASSERT_EQ(module.added.size(), 1u);
    EXPECT_EQ(module.added[0].fileSpec, Folder() + "out0150.tst");
    EXPECT_EQ(clip->fileSpec, kept);
    clip->firstNumber = 100000;
    EXPECT_EQ(AddFrameKQ(clip, MakeBitmap(2, 2), nullptr, nullptr, static_cast<TagItem*>(nullptr)), 0);
    EXPECT_NE(GetErrorKQ(), 0u);
    EXPECT_EQ(clip->fileSpec, kept);
}

// Faults.

TEST_F(EditFrame, EveryFailedAllocationLeavesTheClipUsable) {
    KQClip* clip = Clip(10);
    kqtest::FailEveryAllocation([&] {
        KQBitmap* bitmap = MakeFaultless(clip);
        KQTimeValue time = At(clip, 3);
        ModifyFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
        clip->pullDown = 1;
        ModifyFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
        clip->pullDown = 0;
        InsertFrameAfterKQ(clip, &time);
        InsertFrameBeforeKQ(clip, &time);
        DeleteFrameKQ(clip, &time);
        AddFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
        ForgetEdits(clip);
        FreeBitmapKQ(bitmap);
    });
    EXPECT_EQ(Modify(clip, 4, 0xFF000104), 1);
    EXPECT_EQ(Look(clip, 4), 0xFF000104u);
}

TEST_F(EditFrame, EveryFailedFileCallLeavesTheClipUsable) {
    KQClip* clip = Clip(10);
    KQBitmap* bitmap = MakeBitmap(2, 2);
    KQBitmap* out = MakeBitmap(2, 2);
    kqtest::FailEveryFileCall([&] {
        KQTimeValue time = At(clip, 3);
        for (i32 phase : {0, 1}) {
            clip->pullDown = phase;
            ModifyFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
            ModifyFrameKQ(clip, bitmap, &time, nullptr, static_cast<TagItem*>(nullptr));
            EXPECT_EQ(Get(clip, out, 3), 1);
        }
        clip->pullDown = 0;
        ForgetEdits(clip);
    });
    EXPECT_EQ(Modify(clip, 4, 0xFF000104), 1);
    EXPECT_EQ(Look(clip, 4), 0xFF000104u);
}

TEST_F(EditFrame, EveryFailedAllocationOfAddingToASequenceLeavesTheClipUsable) {
    module.properties &= ~u32(KQFORMAT_MULTIFRAME);
    KQClip* clip = Clip(10);
    clip->fileSpec = CopyFileSpecKQ((Folder() + "out[####].tst").c_str());
    KQBitmap* bitmap = MakeBitmap(2, 2);
    char* kept = clip->fileSpec;
    i64 failed = 0;
    kqtest::FailEveryAllocation([&] {
        KQEnv->Error = 0;
        if (!AddFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr))) {
            ++failed;
            EXPECT_NE(GetErrorKQ(), 0u);
        }
        EXPECT_EQ(clip->fileSpec, kept);
    });
    EXPECT_GT(failed, 0);
    EXPECT_EQ(AddFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 1);
}

TEST_F(EditFrame, EveryFailedFileCallOfAddingToASequenceLeavesTheClipUsable) {
    KQFormatDesc* real = kq::MakeVPBModule();
    KQClip* clip = Clip(10);
    clip->format = real;
    clip->fileSpec = CopyFileSpecKQ((Folder() + "out[####].vpb").c_str());
    clip->sourceFrames = 0;
    KQBitmap* bitmap = MakeBitmap(2, 2);
    char* kept = clip->fileSpec;
    kqtest::FailEveryFileCall([&] {
        i32 before = clip->sourceFrames;
        int done = AddFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr));
        EXPECT_EQ(clip->sourceFrames, before + (done != 0));
        EXPECT_TRUE(done || GetErrorKQ() != 0);
        EXPECT_EQ(clip->fileSpec, kept);
    });
    EXPECT_EQ(AddFrameKQ(clip, bitmap, nullptr, nullptr, static_cast<TagItem*>(nullptr)), 1);
    clip->format = &desc;
    kq::FreeFormatModule(real);
}

}   // namespace
