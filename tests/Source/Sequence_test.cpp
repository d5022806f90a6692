#include "Source/Sequence.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kq/files.h"
#include "kq/filespec.h"
#include "kq/sequence.h"
#include "support/Fixture.h"

namespace {

using Numbers = std::vector<i32>;

std::string Numbered(const std::string& head, i32 number) {
    std::string name = head;
    name += std::to_string(number);
    name += ".tga";
    return name;
}

class Sequence : public kqtest::KQTest {
protected:
    void TearDown() override {
        FreeClipKQ(clip);
        KQTest::TearDown();
    }

    void Files(std::initializer_list<const char*> names) {
        for (const char* name : names) kqtest::WriteWholeFile(Folder() + name, "x");
    }

    // A clip on the file, as a module that opened it leaves it.
    void Select(const std::string& name) {
        FreeClipKQ(clip);
        clip = NewClipKQ();
        clip->fileSpec = MakeFileSpecKQ((Folder() + name).c_str());
        clip->sourceFrames = 1;
        clip->firstNumber = 77;
        clip->numberStep = 5;
    }

    int Check(const std::string& name, u32 tag = KQTAG_CLIP_NOASK) {
        Select(name);
        TagItem tags[] = {{tag, 0}, {0, 0}};
        return Sequence_Check(clip, tags);
    }

    std::string Spec() { return std::string(clip->fileSpec).substr(Folder().size()); }

    // The table; empty when the clip has none.
    Numbers Table() {
        if (!clip->frameNumbers) return {};
        return Numbers(clip->frameNumbers, clip->frameNumbers + clip->sourceFrames);
    }

    int Valid(const std::string& name, const i32* frames, i32 count) {
        return Is_Sequence_Valid((Folder() + name).c_str(), frames, count);
    }

    int DataValid(const std::string& name, const i32* frames, i32 count) {
        return Is_SequenceData_Valid((Folder() + name).c_str(), frames, count);
    }

    KQClip* clip = nullptr;
};

TEST_F(Sequence, TwoNumbersMakeASequenceWithATable) {
    Files({"a1.tga", "a2.tga"});
    EXPECT_NE(Check("a1.tga"), 0);
    EXPECT_EQ(Spec(), "a[#].tga");
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(Table(), (Numbers{1, 2}));
    EXPECT_EQ(clip->firstNumber, 0);
    EXPECT_EQ(clip->numberStep, 1);
}

TEST_F(Sequence, ACompleteRunFromZeroHasNoTable) {
    Files({"a0.tga", "a1.tga"});
    EXPECT_NE(Check("a1.tga"), 0);
    EXPECT_EQ(clip->sourceFrames, 2);
    EXPECT_EQ(clip->frameNumbers, nullptr);
}

TEST_F(Sequence, TheNameWidensToTheWidestNumber) {
    Files({"a8.tga", "a9.tga", "a10.tga"});
    EXPECT_NE(Check("a8.tga"), 0);
    EXPECT_EQ(Spec(), "a[##].tga");
    EXPECT_EQ(Table(), (Numbers{8, 9, 10}));
    std::string frame = clip->fileSpec;
    EXPECT_EQ(SequenceNumber_to_Name_Validate(frame.data(), 8), 1);
    EXPECT_EQ(std::string(frame.c_str()), Folder() + "a8.tga");
}

TEST_F(Sequence, AWiderFileOpenedKeepsItsWidth) {
    Files({"a8.tga", "a9.tga", "a10.tga"});
    EXPECT_NE(Check("a10.tga"), 0);
    EXPECT_EQ(Spec(), "a[##].tga");
}

TEST_F(Sequence, ALoneNumberedFileStaysAPicture) {
    Files({"a1.tga", "b2.tga", "a1.tif", "a.tga"});
    EXPECT_NE(Check("a1.tga"), 0);
    EXPECT_EQ(Spec(), "a1.tga");
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(clip->firstNumber, 0);
    EXPECT_EQ(clip->numberStep, 1);
}

TEST_F(Sequence, ANameWithoutDigitsReturnsEarly) {
    Files({"a.tga", "b.tga"});
    EXPECT_NE(Check("a.tga"), 0);
    EXPECT_EQ(Spec(), "a.tga");
    EXPECT_EQ(clip->firstNumber, 77);
    EXPECT_EQ(clip->numberStep, 5);
}

TEST_F(Sequence, SingleFreesTheTableAndDoesNotLookAtTheName) {
    Files({"a1.tga", "a2.tga"});
    Select("a1.tga");
    clip->frameNumbers = static_cast<i32*>(AllocMemoryKQ(8, 0));
    clip->sourceFrames = 2;
    TagItem tags[] = {{KQTAG_CLIP_SINGLE, 0}, {0, 0}};
    EXPECT_EQ(Sequence_Check(clip, tags), 1);
    EXPECT_EQ(Spec(), "a1.tga");
    EXPECT_EQ(clip->sourceFrames, 1);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(clip->firstNumber, 77);
}

TEST_F(Sequence, WithoutTagsASequenceIsAccepted) {
    Files({"a1.tga", "a2.tga"});
    Select("a1.tga");
    EXPECT_NE(Sequence_Check(clip, nullptr), 0);
    EXPECT_EQ(clip->sourceFrames, 2);
}

TEST_F(Sequence, GapsStayInTheTable) {
    Files({"a0010.tga", "a0002.tga", "a0500.tga"});
    EXPECT_NE(Check("a0002.tga"), 0);
    EXPECT_EQ(Table(), (Numbers{2, 10, 500}));
}

TEST_F(Sequence, CaseDoesNotMatter) {
    Files({"Shot1.TGA", "shot2.tga", "SHOT3.Tga"});
    EXPECT_NE(Check("shot2.tga"), 0);
    EXPECT_EQ(Table(), (Numbers{1, 2, 3}));
}

TEST_F(Sequence, OtherFilesOfTheFolderDoNotCount) {
    Files({"a1.tga", "a2.tga", "a3.tif", "b3.tga", "ab3.tga", "a.tga", "3.tga", "a3b4.tga"});
    EXPECT_NE(Check("a1.tga"), 0);
    EXPECT_EQ(Table(), (Numbers{1, 2}));
}

TEST_F(Sequence, SubfoldersDoNotCount) {
    Files({"a1.tga"});
    CreateDirKQ((Folder() + "a2.tga").c_str());
    EXPECT_NE(Check("a1.tga"), 0);
    EXPECT_EQ(clip->sourceFrames, 1);
}

TEST_F(Sequence, NumbersInTheFolderNameDoNotCount) {
    std::string folder = Folder() + "take 12345";
    CreateDirKQ(folder.c_str());
    Files({"take 12345/a1.tga", "take 12345/a2.tga"});
    EXPECT_NE(Check("take 12345" + std::string(1, Folder().back()) + "a1.tga"), 0);
    EXPECT_EQ(Spec().substr(11), "a[#].tga");
    EXPECT_EQ(clip->sourceFrames, 2);
}

TEST_F(Sequence, FoldersWithBracketsHoldSequences) {
    std::string folder = "take [1]";
    CreateDirKQ((Folder() + folder).c_str());
    Files({"take [1]/a1.tga", "take [1]/a2.tga"});
    EXPECT_NE(Check(folder + std::string(1, Folder().back()) + "a1.tga"), 0);
    std::string frame = clip->fileSpec;
    EXPECT_EQ(SequenceNumber_to_Name_Validate(frame.data(), 2), 1);
}

TEST_F(Sequence, TwoWidthsOfOneNumberAreTwoFrames) {
    Files({"a1.tga", "a01.tga"});
    EXPECT_NE(Check("a1.tga"), 0);
    EXPECT_EQ(Table(), (Numbers{1, 1}));
}

TEST_F(Sequence, NumbersAbove31BitsSortAsTheyWrap) {
    Files({"a4294967295.tga", "a0000000003.tga"});
    EXPECT_NE(Check("a0000000003.tga"), 0);
    EXPECT_EQ(Table(), (Numbers{-1, 3}));
    std::string frame = clip->fileSpec;
    EXPECT_EQ(SequenceNumber_to_Name_Validate(frame.data(), -1), 1);
}

TEST_F(Sequence, AFolderThatCannotBeReadLeavesThePicture) {
    EXPECT_NE(Check("missing/a1.tga"), 0);
    EXPECT_EQ(Spec(), "missing/a1.tga");
    EXPECT_EQ(clip->sourceFrames, 1);
}

// Names in an order of the test's own.
struct Listing {
    std::vector<std::string> names;

    static void Show(const char*, kq::SequenceScan& scan, void* self) {
        for (const std::string& name : static_cast<Listing*>(self)->names) scan.Add(name.c_str());
    }
};

TEST_F(Sequence, AThousandOrdersOfAFolderGiveTheSameSequence) {
    std::mt19937 random(7);
    Listing listing;
    Numbers expected;
    for (i32 i = 5; i < 130; i += 1 + i % 3) {
        listing.names.push_back(Numbered("Frame.", i));
        expected.push_back(i);
    }
    for (const char* other : {"Frame.tga", "frame.7.tif", "readme", "Frame.1.2.tga", "3.tga"})
        listing.names.push_back(other);
    for (int round = 0; round < 1000; ++round) {
        std::shuffle(listing.names.begin(), listing.names.end(), random);
        Select("Frame.5.tga");
        ASSERT_NE(kq::CheckSequence(clip, nullptr, Listing::Show, &listing), 0);
        ASSERT_EQ(Table(), expected) << "round " << round;
        ASSERT_EQ(Spec(), "Frame.[###].tga");
    }
}

TEST_F(Sequence, FoldersOfAHundredThousandNamesAreSorted) {
    Listing listing;
    for (i32 i = 99999; i >= 0; --i) listing.names.push_back(Numbered("f", i));
    Select("f5.tga");
    EXPECT_NE(kq::CheckSequence(clip, nullptr, Listing::Show, &listing), 0);
    EXPECT_EQ(clip->sourceFrames, 100000);
    EXPECT_EQ(clip->frameNumbers, nullptr);
    EXPECT_EQ(Spec(), "f[#####].tga");
}

TEST_F(Sequence, NamesLongerThanHostsAllowArePassedOver) {
    Listing listing;
    listing.names = {"a1.tga", "a2.tga", std::string(5000, '3')};
    Select("a1.tga");
    EXPECT_NE(kq::CheckSequence(clip, nullptr, Listing::Show, &listing), 0);
    EXPECT_EQ(Table(), (Numbers{1, 2}));
}

TEST_F(Sequence, EveryFailedAllocationGivesZeroOrTheSequence) {
    Files({"a8.tga", "a9.tga", "a10.tga"});
    kqtest::FailEveryAllocation([&] {
        i64 failAt = kq::allocationFaults.failAt;
        bool once = kq::allocationFaults.once;
        kq::allocationFaults.Clear();
        Select("a8.tga");
        kq::allocationFaults.Set(failAt, once);
        int done = Sequence_Check(clip, nullptr);
        bool failed = kq::allocationFaults.failures > 0;
        EXPECT_EQ(done == 0, failed) << failAt;
        EXPECT_EQ(GetErrorKQ() == KQERR_NOMEM, failed);
        EXPECT_TRUE(failed || clip->sourceFrames == 3);
        FreeClipKQ(clip);
        clip = nullptr;
    });
}

TEST_F(Sequence, AllFramesPresentIsValid) {
    Files({"a0.tga", "a1.tga", "A02.TGA"});
    EXPECT_EQ(DataValid("a[##].tga", nullptr, 3), 1);
    EXPECT_EQ(Valid("a[##].tga", nullptr, 3), 1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Sequence, MissingFramesAreWarnedAboutOrRefused) {
    Files({"a0.tga", "a2.tga"});
    EXPECT_EQ(DataValid("a[#].tga", nullptr, 3), 0);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(Valid("a[#].tga", nullptr, 3), 1);
    EXPECT_EQ(messages, std::vector<std::string>{"Warning: Some images in image sequence a[#].tga cannot be found!"});
}

TEST_F(Sequence, NoFramePresentIsInvalid) {
    Files({"b0.tga"});
    EXPECT_EQ(DataValid("a[#].tga", nullptr, 3), 0);
    EXPECT_EQ(Valid("a[#].tga", nullptr, 3), 0);
    EXPECT_TRUE(messages.empty());
}

TEST_F(Sequence, CountsBelowOne) {
    EXPECT_EQ(DataValid("a[#].tga", nullptr, 0), 1);
    EXPECT_EQ(DataValid("a[#].tga", nullptr, -1), 0);
    EXPECT_EQ(Valid("a[#].tga", nullptr, 0), 0);
    EXPECT_EQ(Valid("a[#].tga", nullptr, -1), 0);
    EXPECT_EQ(Is_SequenceData_Valid(nullptr, nullptr, 1), 0);
}

TEST_F(Sequence, ACountThatNobodyCanHoldNeedsNoMemory) {
    Files({"a0.tga"});
    EXPECT_EQ(DataValid("a[#].tga", nullptr, INT32_MAX), 0);
    EXPECT_EQ(Valid("a[#].tga", nullptr, INT32_MAX), 1);
}

TEST_F(Sequence, TablesAreCheckedInAnyOrder) {
    Files({"a3.tga", "a1.tga", "a7.tga", "a9.tga"});
    i32 frames[] = {7, 1, 3};
    EXPECT_EQ(DataValid("a[#].tga", frames, 3), 1);
    i32 missing[] = {7, 1, 4};
    EXPECT_EQ(DataValid("a[#].tga", missing, 3), 0);
}

TEST_F(Sequence, ANumberWantedTwiceTakesTwoFiles) {
    Files({"a1.tga"});
    i32 twice[] = {1, 1};
    EXPECT_EQ(DataValid("a[#].tga", twice, 2), 0);
    Files({"a01.tga"});
    EXPECT_EQ(DataValid("a[#].tga", twice, 2), 1);
    EXPECT_EQ(DataValid("a[#].tga", nullptr, 2), 0);
}

TEST_F(Sequence, AWantedMinusOneCountsAsFound) {
    i32 frames[] = {-1};
    EXPECT_EQ(DataValid("a[#].tga", frames, 1), 1);
}

// Presence as it is defined, entry by entry.
i32 ReferenceFound(std::vector<i32> wanted, const std::vector<std::string>& names) {
    for (const std::string& name : names)
        for (i32& entry : wanted)
            if (entry == Name_to_SequenceNumber(name.c_str())) {
                entry = -1;
                break;
            }
    return i32(std::count(wanted.begin(), wanted.end(), -1));
}

TEST_F(Sequence, PresenceAgreesWithItsDefinitionOnRandomTables) {
    std::mt19937 random(11);
    for (int round = 0; round < 60; ++round) {
        std::string base = "r";
        for (int letter : {round % 26, round / 26}) base += char('a' + letter);
        std::vector<std::string> names;
        for (int i = 0; i < 6; ++i) {
            std::string name = Numbered(base + std::string(random() % 2, '0'), i32(random() % 6));
            if (std::find(names.begin(), names.end(), name) != names.end()) continue;
            names.push_back(name);
            kqtest::WriteWholeFile(Folder() + name, "x");
        }
        std::vector<i32> wanted(1 + random() % 6);
        for (i32& entry : wanted) entry = i32(random() % 8) - 1;
        i32 expected = ReferenceFound(wanted, names);
        EXPECT_EQ(DataValid(base + "[#].tga", wanted.data(), i32(wanted.size())), expected == i32(wanted.size()));
        messages.clear();
        EXPECT_EQ(Valid(base + "[#].tga", wanted.data(), i32(wanted.size())), expected > 0);
        EXPECT_EQ(messages.size(), size_t(expected > 0 && expected < i32(wanted.size())));
    }
}

TEST_F(Sequence, PresenceWithoutMemoryIsZero) {
    Files({"a0.tga", "a1.tga"});
    i32 frames[] = {0, 1};
    kqtest::FailEveryAllocation([&] {
        int all = DataValid("a[#].tga", frames, 2), some = Valid("a[#].tga", nullptr, 2);
        EXPECT_EQ(all && some, kq::allocationFaults.failures == 0);
    });
}

TEST_F(Sequence, EveryFailedFileCallLeavesAUsableClip) {
    Files({"a8.tga", "a9.tga", "a10.tga"});
    kqtest::FailEveryFileCall([&] {
        Select("a8.tga");
        EXPECT_NE(Sequence_Check(clip, nullptr), 0);
        EXPECT_GE(clip->sourceFrames, 1);
        FreeClipKQ(clip);
        clip = nullptr;
    });
}

}   // namespace
