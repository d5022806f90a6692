#include <cstdio>
#include <filesystem>

#include "Source/Startup.h"
#include "kq/clip.h"
#include "kq/files.h"
#include "pal/file.h"
#include "pal/lock.h"
#include "support/Fixture.h"

namespace fs = std::filesystem;

namespace {

class Scratch : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        SetScratchDirKQ(Folder().c_str());
        clip = NewClipKQ();
        clip->clipId = 12;
    }

    void TearDown() override {
        FreeClipKQ(clip);
        SetScratchDirKQ(nullptr);
        KQTest::TearDown();
    }

    // The last twelve characters of a scratch name.
    std::string Name(i32 number, int alpha = 0) {
        std::string path = Make_TempName(clip, number, alpha);
        return path.substr(path.size() - 12);
    }

    std::string Below(const std::string& folder) { return Folder() + folder; }

    // Runs the other program in this test's folder and returns the name that it printed. The shell of Windows takes
    // a pair of quotes around the whole line, and a backslash in front of a quote is doubled.
    std::string RunOther(const std::string& mode) {
        bool windows = pal::Separator() == '\\';
        std::string command = windows ? "\"" : "";
        for (const std::string& piece : {std::string("\""), std::string(KQEnv->AppDir), std::string("ScratchUser\" \""),
                                         Folder(), std::string(windows ? "\\\" " : "\" "), mode})
            command.append(piece);
        if (windows) command.push_back('"');
        FILE* output = popen(command.c_str(), "r");
        char line[512] = "";
        EXPECT_NE(std::fgets(line, sizeof line, output), nullptr);
        EXPECT_EQ(pclose(output), 0);
        std::string name = line;
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
        return name;
    }

    KQClip* clip = nullptr;
};

TEST_F(Scratch, NameHoldsClipAndNumber) { EXPECT_EQ(Name(-3), "00120000.03V"); }

TEST_F(Scratch, NameOfAlphaEndsInA) { EXPECT_EQ(Name(-3, 1), "00120000.03A"); }

TEST_F(Scratch, NameSplitsTheNumberAtTheDot) { EXPECT_EQ(Name(-123456), "00121234.56V"); }

TEST_F(Scratch, LeadingDigitOfTheNumberGoesPastNine) { EXPECT_EQ(Name(-1000000), "0012:000.00V"); }

TEST_F(Scratch, ClipIdsCountModulo10000) {
    clip->clipId = 10012;
    EXPECT_EQ(Name(-3), "00120000.03V");
}

TEST_F(Scratch, NumberOf0OrAboveHasNoName) {
    EXPECT_EQ(Make_TempName(clip, 0, 0), nullptr);
    EXPECT_EQ(Make_TempName(clip, 7, 0), nullptr);
    EXPECT_EQ(Make_TempName(nullptr, -1, 0), nullptr);
    EXPECT_FALSE(fs::exists(Below("KQScratch")));
}

TEST_F(Scratch, NameLiesInTheFolderThatIsMade) {
    std::string path = Make_TempName(clip, -1, 0);
    EXPECT_TRUE(fs::is_directory(Below("KQScratch")));
    EXPECT_EQ(fs::path(path).parent_path(), fs::path(Below("KQScratch")));
}

TEST_F(Scratch, ScratchDirCountsUpToItsLastSeparator) {
    SetScratchDirKQ((Folder() + "project.file").c_str());
    Make_TempName(clip, -1, 0);
    EXPECT_TRUE(fs::is_directory(Below("KQScratch")));
}

TEST_F(Scratch, FolderThatWentAwayIsMadeAgain) {
    Make_TempName(clip, -1, 0);
    fs::remove_all(Below("KQScratch"));
    Make_TempName(clip, -1, 0);
    EXPECT_TRUE(fs::is_directory(Below("KQScratch")));
}

TEST_F(Scratch, CleanUpRemovesTheFolderWithAllThatIsInIt) {
    kqtest::WriteWholeFile(Make_TempName(clip, -1, 0), "frame");
    FreeClipKQ(clip);
    clip = nullptr;
    fs::create_directory(Below("KQScratch/sub"));
    kq::RemoveScratchFolder();
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(Scratch, FramesOfACrashedRunAreNotTakenForOurs) {
    fs::create_directory(Below("KQScratch"));
    kqtest::WriteWholeFile(Below("KQScratch/00120000.01V"), "old");
    std::string path = Make_TempName(clip, -1, 0);
    EXPECT_FALSE(FileExistsKQ(path.c_str()));
}

TEST_F(Scratch, CleanUpRemovesWhatACrashedRunLeft) {
    fs::create_directory(Below("KQScratch"));
    fs::create_directory(Below("KQScratch5"));
    kqtest::WriteWholeFile(Below("KQScratch5/00120000.01V"), "old");
    kq::RemoveScratchFolder();
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(Scratch, AnotherScratchDirTakesTheOldFolderAway) {
    Make_TempName(clip, -1, 0);
    fs::create_directory(Below("other"));
    SetScratchDirKQ((Folder() + "other" + Folder().back()).c_str());
    EXPECT_FALSE(fs::exists(Below("KQScratch")));
    Make_TempName(clip, -1, 0);
    EXPECT_TRUE(fs::is_directory(Below("other/KQScratch")));
}

TEST_F(Scratch, PathThatDoesNotFitHasNoName) {
    SetScratchDirKQ((std::string(300, 'x') + Folder().back()).c_str());
    EXPECT_EQ(Make_TempName(clip, -1, 0), nullptr);
}

TEST_F(Scratch, FolderThatIsTakenLeavesTheNextOne) {
    bool taken;
    pal::FileLock* lock = pal::LockTake(Below("KQScratch.lck").c_str(), &taken);
    ASSERT_NE(lock, nullptr);
    fs::create_directory(Below("KQScratch"));
    kqtest::WriteWholeFile(Below("KQScratch/00000000.01V"), "theirs");
    Make_TempName(clip, -1, 0);
    EXPECT_TRUE(fs::is_directory(Below("KQScratch2")));
    kq::RemoveScratchFolder();
    EXPECT_FALSE(fs::exists(Below("KQScratch2")));
    EXPECT_TRUE(fs::exists(Below("KQScratch/00000000.01V")));
    pal::LockRelease(lock);
}

TEST_F(Scratch, LockIsHeldOnceAndItsFileGoesWithIt) {
    std::string path = Folder() + "a.lck";
    bool taken;
    pal::FileLock* lock = pal::LockTake(path.c_str(), &taken);
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(pal::LockTake(path.c_str(), &taken), nullptr);
    EXPECT_TRUE(taken);
    pal::LockRelease(lock);
    EXPECT_FALSE(fs::exists(path));
    lock = pal::LockTake(path.c_str(), &taken);
    EXPECT_NE(lock, nullptr);
    pal::LockRelease(lock);
    pal::LockRelease(nullptr);
}

TEST_F(Scratch, LockThatCannotBeMadeIsNotTaken) {
    bool taken = true;
    EXPECT_EQ(pal::LockTake((Folder() + "none" + Folder().back() + "a.lck").c_str(), &taken), nullptr);
    EXPECT_FALSE(taken);
}

TEST_F(Scratch, TwoProgramsDoNotMeetInOneFolder) {
    std::string ours = Make_TempName(clip, -1, 0);
    kqtest::WriteWholeFile(ours, "ours");
    std::string theirs = RunOther("clean");
    EXPECT_NE(theirs.find("KQScratch2"), std::string::npos) << theirs;
    EXPECT_TRUE(fs::exists(ours));
    EXPECT_FALSE(fs::exists(Below("KQScratch2")));
}

TEST_F(Scratch, ProgramThatCrashesLosesItsFolderToTheNextCleanUp) {
    std::string theirs = RunOther("crash");
    EXPECT_NE(theirs.find("KQScratch"), std::string::npos) << theirs;
    EXPECT_TRUE(fs::exists(theirs));
    kq::RemoveScratchFolder();
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(Scratch, ProgramThatCrashesBesideUsLosesItsFolderToo) {
    Make_TempName(clip, -1, 0);
    std::string theirs = RunOther("crash");
    EXPECT_NE(theirs.find("KQScratch2"), std::string::npos) << theirs;
    kq::RemoveScratchFolder();
    EXPECT_TRUE(fs::is_empty(Folder()));
}

TEST_F(Scratch, EveryFileCallMayFail) {
    kqtest::FailEveryFileCall([&] {
        Make_TempName(clip, -1, 0);
        kq::RemoveScratchFolder();
    });
}

TEST_F(Scratch, TheSameScratchDirAgainKeepsTheFolderAndItsFrames) {
    std::string path = Make_TempName(clip, -1, 0);
    kqtest::WriteWholeFile(path, "frame");
    SetScratchDirKQ(Folder().c_str());
    EXPECT_TRUE(fs::exists(path));
    SetScratchDirKQ(KQEnv->ScratchDir);
    EXPECT_TRUE(fs::exists(path));
    EXPECT_EQ(Make_TempName(clip, -1, 0), path);
}

TEST_F(Scratch, EveryAllocationOfSettingTheScratchDirMayFail) {
    std::string other = Below("other") + Folder().back(), kept = Folder();
    fs::create_directory(other);
    i64 failed = 0;
    kqtest::FailEveryAllocation([&] {
        std::string path = Make_TempName(clip, -1, 0);
        SetScratchDirKQ(other.c_str());
        bool changed = std::string(KQEnv->ScratchDir) == other;
        failed += !changed;
        EXPECT_TRUE(changed || KQEnv->ScratchDir == kept);
        EXPECT_TRUE(changed || fs::exists(Below("KQScratch"))) << "the folder in use stays";
        kq::allocationFaults.failAt = 0;
        SetScratchDirKQ(kept.c_str());
    });
    EXPECT_GT(failed, 0);
}

TEST_F(Scratch, EveryFileCallOfSettingTheScratchDirMayFail) {
    std::string other = Below("other") + Folder().back();
    fs::create_directory(other);
    kqtest::FailEveryFileCall([&] {
        Make_TempName(clip, -1, 0);
        SetScratchDirKQ(other.c_str());
        EXPECT_EQ(KQEnv->ScratchDir, other);
        Make_TempName(clip, -1, 0);
        SetScratchDirKQ(Folder().c_str());
    });
    EXPECT_NE(Make_TempName(clip, -1, 0), nullptr);
}

}   // namespace
