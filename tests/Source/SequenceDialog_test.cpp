#include "Source/SequenceDialog.h"

#include <string>
#include <vector>

#include "kq/filespec.h"
#include "support/Fixture.h"

namespace {

using Numbers = std::vector<i32>;

class SequenceDialog : public kqtest::KQTest {
protected:
    // A clip of the numbered files a[##].tga with `count` frames from `from` on; a table unless that is 0.
    void SetUp() override {
        KQTest::SetUp();
        Make(10, 0);
    }

    void TearDown() override {
        // The choice of the last dialog outlives it: each test leaves it as it found it.
        fields.wholeSequence = true;
        kq::AcceptSequence(clip, fields, &selected);
        FreeClipKQ(clip);
        FreeFileSpecKQ(selected);
        KQTest::TearDown();
    }

    void Make(i32 count, i32 from) {
        FreeClipKQ(clip);
        FreeFileSpecKQ(selected);
        clip = NewClipKQ();
        clip->fileSpec = MakeFileSpecKQ((Folder() + "a[##].tga").c_str());
        clip->sourceFrames = count;
        clip->sourceRate = 25.0;
        if (from > 0) {
            clip->frameNumbers = static_cast<i32*>(AllocMemoryKQ(size_t(count) * 4, 0));
            for (i32 i = 0; i < count; ++i) clip->frameNumbers[i] = from + i;
        }
        selected = MakeFileSpecKQ((Folder() + "a3.tga").c_str());
        fields = kq::OpenSequenceFields(clip);
    }

    void Expect(i32 first, i32 last, i32 duration) {
        EXPECT_EQ(fields.first, first);
        EXPECT_EQ(fields.last, last);
        EXPECT_EQ(fields.duration, duration);
    }

    void Accept() { kq::AcceptSequence(clip, fields, &selected); }

    Numbers Table() {
        if (!clip->frameNumbers) return {};
        return Numbers(clip->frameNumbers, clip->frameNumbers + clip->sourceFrames);
    }

    KQClip* clip = nullptr;
    char* selected = nullptr;
    kq::SequenceFields fields{};
};

TEST_F(SequenceDialog, OpensWithTheWholeSequence) {
    EXPECT_TRUE(fields.wholeSequence);
    EXPECT_TRUE(fields.OptionsEnabled());
    Expect(0, 9, 10);
    EXPECT_EQ(fields.rate, 25.0);
    EXPECT_EQ(fields.rateEntry, 4);
}

TEST_F(SequenceDialog, RatesHaveTheirEntries) {
    f64 rates[] = {10, 15, 24, 25, 29.97, 30, 60};
    for (i32 i = 0; i < 7; ++i) EXPECT_EQ(kq::RateEntry(rates[i]), i + 1);
    EXPECT_EQ(kq::RateEntry(29.970029), 8);
    EXPECT_EQ(kq::RateEntry(0.0), 8);
}

TEST_F(SequenceDialog, PickingARateSetsItAndCustomLeavesIt) {
    kq::PickRate(&fields, 5);
    EXPECT_EQ(fields.rate, 29.97);
    kq::PickRate(&fields, 8);
    EXPECT_EQ(fields.rate, 29.97);
    EXPECT_EQ(fields.rateEntry, 8);
}

TEST_F(SequenceDialog, ThePopUpFollowsATypedRate) {
    kq::CommitRate(&fields, 12.5);
    EXPECT_EQ(fields.rateEntry, 8);
    kq::CommitRate(&fields, 60.0);
    EXPECT_EQ(fields.rateEntry, 7);
}

TEST_F(SequenceDialog, FirstAboveTheLastFrameBecomesIt) {
    kq::CommitFirstFrame(&fields, 10);
    Expect(9, 9, 1);
    kq::CommitFirstFrame(&fields, -4);
    Expect(0, 9, 10);
}

TEST_F(SequenceDialog, LastIsHeldToTheSequence) {
    kq::CommitLastFrame(&fields, 50);
    Expect(0, 9, 10);
    kq::CommitLastFrame(&fields, -1);
    Expect(0, 0, 1);
}

TEST_F(SequenceDialog, FirstBehindLastGivesADurationBelowOne) {
    kq::CommitLastFrame(&fields, 3);
    kq::CommitFirstFrame(&fields, 6);
    Expect(6, 3, -2);
}

TEST_F(SequenceDialog, DurationOfZeroBecomesOne) {
    kq::CommitFirstFrame(&fields, 4);
    kq::CommitDuration(&fields, 0);
    Expect(4, 4, 1);
}

TEST_F(SequenceDialog, DurationIsHeldToWhatFollowsFirst) {
    kq::CommitFirstFrame(&fields, 4);
    kq::CommitDuration(&fields, INT32_MAX);
    Expect(4, 9, 6);
    kq::CommitDuration(&fields, 3);
    Expect(4, 6, 3);
}

TEST_F(SequenceDialog, KeysAnswer) {
    using kq::DialogKey;
    for (u32 key : {310u, 317u, u32('o')}) EXPECT_EQ(kq::SequenceDialogKey(key, 0), DialogKey::OK);
    for (u32 key : {316u, u32('c')}) EXPECT_EQ(kq::SequenceDialogKey(key, 0x9FFF), DialogKey::Cancel);
    EXPECT_EQ(kq::SequenceDialogKey('o', 0x2000), DialogKey::None);
    EXPECT_EQ(kq::SequenceDialogKey(316, 0x4000), DialogKey::None);
    EXPECT_EQ(kq::SequenceDialogKey('x', 0), DialogKey::None);
}

TEST_F(SequenceDialog, OkWithAllFramesSetsTheRateAlone) {
    kq::PickRate(&fields, 3);
    Accept();
    EXPECT_EQ(clip->sourceRate, 24.0);
    EXPECT_EQ(clip->sourceFrames, 10);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(std::string(clip->fileSpec), Folder() + "a[##].tga");
    EXPECT_NE(selected, nullptr);
}

TEST_F(SequenceDialog, OkWithAPartMakesATable) {
    kq::CommitFirstFrame(&fields, 2);
    kq::CommitLastFrame(&fields, 4);
    Accept();
    EXPECT_EQ(Table(), (Numbers{2, 3, 4}));
}

TEST_F(SequenceDialog, OkWithAPartMovesTheTableDown) {
    Make(10, 100);
    kq::CommitFirstFrame(&fields, 7);
    Accept();
    EXPECT_EQ(Table(), (Numbers{107, 108, 109}));
}

TEST_F(SequenceDialog, OkRaisesLastToFirst) {
    kqtest::WriteWholeFile(Folder() + "a6.tga", "x");
    kq::CommitLastFrame(&fields, 3);
    kq::CommitFirstFrame(&fields, 6);
    Accept();
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(std::string(clip->fileSpec), Folder() + "a6.tga");
}

TEST_F(SequenceDialog, OkWithOneFrameOfATableTakesItsFile) {
    Make(10, 50);
    kqtest::WriteWholeFile(Folder() + "a52.tga", "x");
    kq::CommitFirstFrame(&fields, 2);
    kq::CommitDuration(&fields, 1);
    Accept();
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(std::string(clip->fileSpec), Folder() + "a52.tga");
}

TEST_F(SequenceDialog, OkWithFieldsThatWereNotCommittedStaysInTheSequence) {
    Make(10, 50);
    fields.first = 8;
    fields.last = 1000;
    Accept();
    EXPECT_EQ(Table(), (Numbers{58, 59}));
}

TEST_F(SequenceDialog, OkWithoutMemoryForTheTableLeavesOneFrame) {
    kqtest::WriteWholeFile(Folder() + "a4.tga", "x");
    kq::CommitFirstFrame(&fields, 4);
    kq::allocationFaults.Set(1, true);
    Accept();
    kq::allocationFaults.Clear();
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(std::string(clip->fileSpec), Folder() + "a4.tga");
}

TEST_F(SequenceDialog, OkWithTheSelectedImageGivesTheOldSpecBack) {
    Make(10, 50);
    fields.wholeSequence = false;
    EXPECT_FALSE(fields.OptionsEnabled());
    kq::CommitRate(&fields, 12.0);
    Accept();
    EXPECT_EQ(selected, nullptr);
    EXPECT_EQ(std::string(clip->fileSpec), Folder() + "a3.tga");
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(clip->sourceRate, 25.0);
}

TEST_F(SequenceDialog, TheChoiceIsRememberedForTheNextDialog) {
    fields.wholeSequence = false;
    Accept();
    Make(10, 0);
    EXPECT_FALSE(fields.wholeSequence);
    fields.wholeSequence = true;
    Accept();
    Make(10, 0);
    EXPECT_TRUE(fields.wholeSequence);
}

}   // namespace
