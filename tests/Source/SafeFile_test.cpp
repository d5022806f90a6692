#include "Source/SafeFile.h"

#include <filesystem>
#include <string>

#include "support/Fixture.h"

namespace {

class SafeFile : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        path = Folder() + "settings.txt";
    }

    std::string Content() {
        auto bytes = kqtest::ReadWholeFile(path);
        return std::string(bytes.begin(), bytes.end());
    }

    int FilesInFolder() {
        int count = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(Folder())) ++count;
        return count;
    }

    std::string path;
};

TEST_F(SafeFile, CommitMakesANewFile) {
    kq::SafeFile file;
    ASSERT_TRUE(file.Open(path.c_str()));
    EXPECT_TRUE(file.Write("new", 3));
    EXPECT_FALSE(FileExistsKQ(path.c_str()));
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_EQ(Content(), "new");
    EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(SafeFile, CommitReplacesWhatStoodThere) {
    kqtest::WriteWholeFile(path, "a longer old text");
    kq::SafeFile file;
    ASSERT_TRUE(file.Open(path.c_str()));
    file.Check(FPutStringKQ(file.Get(), "new"));
    EXPECT_EQ(Content(), "a longer old text");
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(Content(), "new\r\n");
    EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(SafeFile, AbandonedFilesLeaveTheTarget) {
    kqtest::WriteWholeFile(path, "old");
    {
        kq::SafeFile file;
        ASSERT_TRUE(file.Open(path.c_str()));
        file.Write("new", 3);
        KQEnv->Error = KQERR_BADDATA;
    }
    EXPECT_EQ(Content(), "old");
    EXPECT_EQ(FilesInFolder(), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(SafeFile, AFailureInBetweenIsRememberedWithItsReason) {
    kqtest::WriteWholeFile(path, "old");
    kq::SafeFile file;
    ASSERT_TRUE(file.Open(path.c_str()));
    KQEnv->Error = KQERR_DISKFULL;
    EXPECT_FALSE(file.Check(0));
    EXPECT_EQ(file.Get(), nullptr);
    EXPECT_FALSE(file.Write("new", 3));
    KQEnv->Error = KQERR_NONE;
    EXPECT_FALSE(file.Commit());
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
    EXPECT_EQ(Content(), "old");
    EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(SafeFile, OpenInAMissingFolderFails) {
    kq::SafeFile file;
    EXPECT_FALSE(file.Open((Folder() + "missing/settings.txt").c_str()));
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
    EXPECT_FALSE(file.Commit());
    EXPECT_FALSE(file.Open(nullptr));
}

TEST_F(SafeFile, AFolderIsNotReplaced) {
    ASSERT_TRUE(CreateDirKQ(path.c_str()));
    kq::SafeFile file;
    ASSERT_TRUE(file.Open(path.c_str()));
    file.Write("new", 3);
    EXPECT_FALSE(file.Commit());
    EXPECT_NE(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_EQ(FilesInFolder(), 1);
}

TEST_F(SafeFile, OpenedAgainItStartsAnew) {
    kq::SafeFile file;
    ASSERT_TRUE(file.Open(path.c_str()));
    file.Check(0);
    ASSERT_TRUE(file.Open(path.c_str()));
    EXPECT_TRUE(file.Write("new", 3));
    EXPECT_TRUE(file.Commit());
    EXPECT_EQ(Content(), "new");
    EXPECT_EQ(FilesInFolder(), 1);
}

bool Replace(const std::string& path) {
    kq::SafeFile file;
    if (!file.Open(path.c_str())) return false;
    file.Write("new ", 4);
    file.Write("text", 4);
    return file.Commit();
}

TEST_F(SafeFile, EveryFailedFileCallLeavesOldOrNewAndNothingBetween) {
    kqtest::FailEveryFileCall([&] {
        kqtest::WriteWholeFile(path, "old text");
        i64 failAt = kq::fileFaults.failAt;
        bool once = kq::fileFaults.once;
        kq::fileFaults.Set(failAt, once);
        bool done = Replace(path);
        EXPECT_EQ(Content(), done ? "new text" : "old text") << failAt;
        EXPECT_EQ(GetErrorKQ() == KQERR_NONE, done) << failAt;
        // When nothing works any more the sibling cannot be deleted either.
        EXPECT_LE(FilesInFolder(), once ? 1 : 2) << failAt;
        for (const auto& entry : std::filesystem::directory_iterator(Folder())) std::filesystem::remove(entry.path());
    });
}

TEST_F(SafeFile, EveryFailedAllocationLeavesTheOld) {
    kqtest::FailEveryAllocation([&] {
        kqtest::WriteWholeFile(path, "old text");
        bool done = Replace(path);
        EXPECT_EQ(Content(), done ? "new text" : "old text");
        EXPECT_EQ(FilesInFolder(), 1);
    });
}

}   // namespace
