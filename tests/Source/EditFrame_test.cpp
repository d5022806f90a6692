#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include "Source/EditList.h"
#include "Source/Formats.h"
#include "Source/Frames.h"
#include "kq/files.h"
#include "kq/sequence.h"
#include "pal/file.h"
#include "support/EditTest.h"

namespace {

using namespace kqtest;

class EditFrame : public EditTest {};

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
