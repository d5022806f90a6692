#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#if !defined(_WIN32)
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#include "kq/files.h"
#include "pal/file.h"
#include "support/Fixture.h"

namespace {

namespace fs = std::filesystem;

class Pcdos : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        path = Folder() + "file.bin";
    }

    void TearDown() override {
        CloseFileKQ(file);
        KQTest::TearDown();
    }

    void Open(const std::string& text, u32 permission = KQFILE_Read) {
        kqtest::WriteWholeFile(path, text);
        file = OpenFileKQ(path.c_str(), permission);
        ASSERT_NE(file, nullptr);
    }

    std::string Content() {
        auto bytes = kqtest::ReadWholeFile(path);
        return std::string(bytes.begin(), bytes.end());
    }

    std::string path;
    KQFileInfo* file = nullptr;
};

TEST_F(Pcdos, OpeningAMissingFileIsNotFound) {
    EXPECT_EQ(OpenFileKQ((Folder() + "missing").c_str(), KQFILE_Read), nullptr);
    EXPECT_EQ(GetErrorKQ(), 11u);
}

TEST_F(Pcdos, CreatingEmptiesAnExistingFileWithEveryPermission) {
    for (u32 permission : {u32(KQFILE_Read), u32(KQFILE_Write), u32(KQFILE_ReadWrite)}) {
        kqtest::WriteWholeFile(path, "old text");
        file = CreateFileKQ(path.c_str(), permission, 0, 0);
        ASSERT_NE(file, nullptr) << permission;
        EXPECT_EQ(WriteFileKQ(file, "new", 3) != 0, permission != KQFILE_Read);
        CloseFileKQ(file);
        file = nullptr;
        EXPECT_EQ(Content(), permission == KQFILE_Read ? "" : "new");
    }
}

TEST_F(Pcdos, CreatingWithReadPermissionEmptiesNothingThatIsBeingRead) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "the share modes of Windows decide, which wine does not ask here";
    kqtest::WriteWholeFile(path, "old text");
    KQFileInfo* reader = OpenFileKQ(path.c_str(), KQFILE_Read);
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(CreateFileKQ(path.c_str(), KQFILE_Read, 0, 0), nullptr);
    CloseFileKQ(reader);
    EXPECT_EQ(Content(), "old text");
}

TEST_F(Pcdos, CreatingInAMissingFolderIsNotFound) {
    EXPECT_EQ(CreateFileKQ((Folder() + "missing/file").c_str(), KQFILE_Write, 0, 0), nullptr);
    EXPECT_EQ(GetErrorKQ(), 11u);
}

TEST_F(Pcdos, OpeningANullNameLeavesTheErrorWord) {
    KQEnv->Error = KQERR_BADDATA;
    EXPECT_EQ(OpenFileKQ(nullptr, KQFILE_Read), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(Pcdos, CreatingANullNameFails) {
    EXPECT_EQ(CreateFileKQ(nullptr, KQFILE_Write, 0, 0), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_CREATE));
}

TEST_F(Pcdos, OpeningLeavesNoErrorAndCreatingLeavesEight) {
    file = CreateFileKQ(path.c_str(), KQFILE_Write, KQCode4("TEXT"), KQCode4("ABCD"));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_CREATE));
    EXPECT_NE(CloseFileKQ(file), 0);
    file = OpenFileKQ(path.c_str(), KQFILE_Read);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
}

TEST_F(Pcdos, AFolderIsNoFile) {
    EXPECT_EQ(OpenFileKQ(Folder().c_str(), KQFILE_Read), nullptr);
    fs::create_directory(path);
    EXPECT_EQ(OpenFileKQ(path.c_str(), KQFILE_Read), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
    EXPECT_EQ(CreateFileKQ(path.c_str(), KQFILE_Write, 0, 0), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
}

TEST_F(Pcdos, CreatingEmptiesWhatExists) {
    kqtest::WriteWholeFile(path, "old text");
    file = CreateFileKQ(path.c_str(), KQFILE_ReadWrite, 0, 0);
    EXPECT_EQ(GetFileLengthKQ(file), 0);
    EXPECT_EQ(WriteFileKQ(file, "new", 3), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_EQ(SeekFileKQ(file, 0, KQSEEK_Start), 3u);
    char text[4] = {};
    EXPECT_EQ(ReadFileKQ(file, text, 3), 1);
    EXPECT_STREQ(text, "new");
}

TEST_F(Pcdos, OpeningForWritingKeepsTheContent) {
    Open("abcdef", KQFILE_ReadWrite);
    SeekFileKQ(file, 2, KQSEEK_Start);
    EXPECT_EQ(WriteFileKQ(file, "XY", 2), 1);
    CloseFileKQ(file);
    file = nullptr;
    EXPECT_EQ(Content(), "abXYef");
}

TEST_F(Pcdos, TheRecordTellsThatItIsADiskFile) {
    Open("abc", KQFILE_ReadWrite);
    EXPECT_EQ(file->Permission, u32(KQFILE_ReadWrite));
    EXPECT_EQ(file->MemStart, nullptr);
    EXPECT_NE(file->Handle, nullptr);
}

TEST_F(Pcdos, AShortReadSucceedsAndLeavesTheRestOfTheBuffer) {
    Open("abcd");
    SeekFileKQ(file, -2, KQSEEK_End);
    char buffer[] = "wxyz";
    EXPECT_EQ(ReadFileKQ(file, buffer, 4), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_STREQ(buffer, "cdyz");
}

TEST_F(Pcdos, AReadAtTheEndFails) {
    Open("abcd");
    SeekFileKQ(file, 0, KQSEEK_End);
    char byte;
    EXPECT_EQ(ReadFileKQ(file, &byte, 1), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}

TEST_F(Pcdos, SeekReturnsThePositionBefore) {
    Open("0123456789");
    EXPECT_EQ(SeekFileKQ(file, 4, KQSEEK_Start), 0u);
    EXPECT_EQ(SeekFileKQ(file, 3, KQSEEK_Current), 4u);
    EXPECT_EQ(SeekFileKQ(file, -1, KQSEEK_End), 7u);
    char byte;
    ReadFileKQ(file, &byte, 1);
    EXPECT_EQ(byte, '9');
}

TEST_F(Pcdos, AFailedSeekStaysSilentAndInPlace) {
    Open("0123456789");
    SeekFileKQ(file, 4, KQSEEK_Start);
    KQEnv->Error = KQERR_BADDATA;
    EXPECT_EQ(SeekFileKQ(file, -50, KQSEEK_Current), 4u);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    EXPECT_EQ(SeekFileKQ(file, 0, KQSEEK_Current), 4u);
}

TEST_F(Pcdos, TransfersThatTheFileWasNotOpenedForAreDenied) {
    Open("abc", KQFILE_Read);
    EXPECT_EQ(WriteFileKQ(file, "x", 1), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
    CloseFileKQ(file);
    file = OpenFileKQ(path.c_str(), KQFILE_Write);
    char byte;
    EXPECT_EQ(ReadFileKQ(file, &byte, 1), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
}

// Numbers of the host's own: errno here, the last error on Windows.
TEST_F(Pcdos, HostErrorsHaveTheirCodes) {
#if defined(_WIN32)
    const u32 numbers[][2] = {{8, 1},   {14, 1}, {39, 6}, {112, 6}, {5, 9},   {12, 9},  {32, 9}, {33, 9},
                              {19, 10}, {2, 11}, {3, 11}, {30, 12}, {29, 13}, {11, 14}, {0, 0},  {87, 0}};
#else
    const u32 numbers[][2] = {{ENOMEM, 1},   {ENOSPC, 6},   {EDQUOT, 6}, {EFBIG, 6},  {EACCES, 9},
                              {EPERM, 9},    {EBUSY, 9},    {EISDIR, 9}, {EROFS, 10}, {ENOENT, 11},
                              {ENOTDIR, 11}, {ENOEXEC, 14}, {0, 0},      {EINVAL, 0}};
#endif
    for (auto [number, code] : numbers) EXPECT_EQ(pal::ErrorCode(number), code) << number;
}

TEST_F(Pcdos, AFailedTransferWithoutAReasonKeepsItsCode) {
    Open("abcdef", KQFILE_ReadWrite);
    kq::fileFaults.Set(1, true);
    EXPECT_EQ(WriteFileKQ(file, "x", 1), 0);
    EXPECT_EQ(GetErrorKQ(), 13u);
    char byte;
    kq::fileFaults.Set(1, true);
    EXPECT_EQ(ReadFileKQ(file, &byte, 1), 0);
    EXPECT_EQ(GetErrorKQ(), 12u);
}

#if !defined(_WIN32)
// A device that is always full.
TEST_F(Pcdos, AFullDiskIsToldAsSuch) {
    file = OpenFileKQ("/dev/full", KQFILE_Write);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(WriteFileKQ(file, "x", 1), 0);
    EXPECT_EQ(GetErrorKQ(), 6u);
}
#endif

TEST_F(Pcdos, ReadersShareAFile) {
    Open("abc");
    KQFileInfo* second = OpenFileKQ(path.c_str(), KQFILE_Read);
    EXPECT_NE(second, nullptr);
    CloseFileKQ(second);
}

// Every pair of opens of one file: only readers get on with each other.
TEST_F(Pcdos, WritersShareAFileWithNobody) {
    kqtest::WriteWholeFile(path, "abc");
    for (u32 first : {KQFILE_Read, KQFILE_Write, KQFILE_ReadWrite})
        for (u32 second : {KQFILE_Read, KQFILE_Write, KQFILE_ReadWrite}) {
            SCOPED_TRACE(std::to_string(first) + " then " + std::to_string(second));
            file = OpenFileKQ(path.c_str(), first);
            ASSERT_NE(file, nullptr);
            KQFileInfo* other = OpenFileKQ(path.c_str(), second);
            bool shared = first == KQFILE_Read && second == KQFILE_Read;
            EXPECT_EQ(other != nullptr, shared);
            EXPECT_EQ(GetErrorKQ(), shared ? u32(KQERR_NONE) : u32(KQERR_ACCESS));
            CloseFileKQ(other);
            CloseFileKQ(file);
            file = OpenFileKQ(path.c_str(), KQFILE_ReadWrite);
            EXPECT_NE(file, nullptr) << "what was refused leaves nothing behind";
            CloseFileKQ(file);
            file = nullptr;
        }
}

TEST_F(Pcdos, CreatingLeavesAFileThatIsOpenUntouched) {
    for (u32 permission : {KQFILE_Read, KQFILE_Write}) {
        Open("abc", permission);
        EXPECT_EQ(CreateFileKQ(path.c_str(), KQFILE_Write, 0, 0), nullptr);
        EXPECT_EQ(GetErrorKQ(), u32(KQERR_ACCESS));
        CloseFileKQ(file);
        file = nullptr;
        EXPECT_EQ(Content(), "abc");
    }
}

#if !defined(_WIN32)

// A pipe without a writer is empty; one with a writer that has not written yet is waited for.
TEST_F(Pcdos, APipeIsReadAsItsWriterWrites) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    char bytes[3] = {};
    file = OpenFileKQ(path.c_str(), KQFILE_Read);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(ReadFileKQ(file, bytes, 3), 0);
    int writer = open(path.c_str(), O_WRONLY);
    ASSERT_GE(writer, 0);
    int reader = -1;   // the library's end of the pipe
    for (int i = 3; i < 64 && reader < 0; ++i) {
        struct stat status;
        if (i != writer && fstat(i, &status) == 0 && S_ISFIFO(status.st_mode) &&
            fs::read_symlink("/proc/self/fd/" + std::to_string(i)) == fs::path(path))
            reader = i;
    }
    ASSERT_GE(reader, 0);
    EXPECT_EQ(fcntl(reader, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(write(writer, "abc", 3), 3);
    EXPECT_NE(ReadFileKQ(file, bytes, 3), 0);
    EXPECT_EQ(std::string(bytes, 3), "abc");
    close(writer);
}

#endif

TEST_F(Pcdos, OffsetsBehindFourGigabytes) {
    file = CreateFileKQ(path.c_str(), KQFILE_ReadWrite, 0, 0);
    ASSERT_NE(file, nullptr);
    i64 far = (i64(5) << 30) + 12345;
    SeekFileKQ(file, far, KQSEEK_Start);
    ASSERT_EQ(PutLongKQ(file, 0x01020304), 1);
    EXPECT_EQ(GetFileLengthKQ(file), far + 4);
    EXPECT_EQ(SeekFileKQ(file, -4, KQSEEK_End), u64(far) + 4);
    i32 value = 0;
    EXPECT_EQ(GetLongKQ(file, &value), 1);
    EXPECT_EQ(value, 0x01020304);
    EXPECT_EQ(SeekFileKQ(file, -(far + 4), KQSEEK_Current), u64(far) + 4);
    u8 first = 9;
    EXPECT_EQ(ReadFileKQ(file, &first, 1), 1);
    EXPECT_EQ(first, 0);
}

TEST_F(Pcdos, LinesOnDisk) {
    file = CreateFileKQ(path.c_str(), KQFILE_ReadWrite, 0, 0);
    EXPECT_EQ(FPutStringKQ(file, "one"), 1);
    EXPECT_EQ(FPutStringKQ(file, ""), 1);
    EXPECT_EQ(FPutStringKQ(file, "two"), 1);
    SeekFileKQ(file, 0, KQSEEK_Start);
    char line[20] = {};
    EXPECT_STREQ(FGetStringKQ(file, line, 18), "one");
    EXPECT_STREQ(FGetStringKQ(file, line, 18), "two");
    EXPECT_EQ(FGetStringKQ(file, line, 18), nullptr);
}

TEST_F(Pcdos, NamesAreUtf8) {
    std::string name = Folder() + "gr\xC3\xBC\xC3\x9F \xE6\x98\xA0.bin";
    file = CreateFileKQ(name.c_str(), KQFILE_Write, 0, 0);
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(FileExistsKQ(name.c_str()));
    EXPECT_TRUE(fs::exists(fs::path(std::u8string(name.begin(), name.end()))));
}

TEST_F(Pcdos, DeleteRemovesAFile) {
    kqtest::WriteWholeFile(path, "abc");
    EXPECT_TRUE(FileExistsKQ(path.c_str()));
    EXPECT_NE(DeleteFileKQ(path.c_str()), 0);
    EXPECT_FALSE(FileExistsKQ(path.c_str()));
    EXPECT_EQ(DeleteFileKQ(path.c_str()), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOTFOUND));
}

TEST_F(Pcdos, NullNamesOfPaths) {
    EXPECT_EQ(DeleteFileKQ(nullptr), 0);
    EXPECT_EQ(FileExistsKQ(nullptr), 0);
    EXPECT_EQ(CreateDirKQ(nullptr), 1);
    EXPECT_EQ(DeleteDirKQ(nullptr), 1);
}

TEST_F(Pcdos, FoldersAreMadeOnceAndExist) {
    EXPECT_NE(CreateDirKQ(path.c_str()), 0);
    EXPECT_TRUE(FileExistsKQ(path.c_str()));
    EXPECT_EQ(CreateDirKQ(path.c_str()), 0);
    EXPECT_EQ(CreateDirKQ((Folder() + "missing/sub").c_str()), 0);
}

// A folder with files, folders and an empty folder in it.
void MakeTree(const fs::path& top) {
    fs::create_directories(top / "a" / "b" / "c");
    fs::create_directories(top / "empty");
    for (const char* name : {"one", "a/two", "a/b/three", "a/b/c/four", ".hidden"})
        kqtest::WriteWholeFile((top / name).string(), "text");
}

TEST_F(Pcdos, DeleteDirRemovesAWholeTree) {
    MakeTree(path);
    EXPECT_NE(DeleteDirKQ(path.c_str()), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(Pcdos, DeleteDirTakesAClosingSeparator) {
    MakeTree(path);
    EXPECT_NE(DeleteDirKQ((path + pal::Separator()).c_str()), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(Pcdos, DeleteDirOfWhatIsNoFolderFails) {
    EXPECT_EQ(DeleteDirKQ((Folder() + "missing").c_str()), 0);
    kqtest::WriteWholeFile(path, "text");
    EXPECT_EQ(DeleteDirKQ(path.c_str()), 0);
    EXPECT_TRUE(fs::exists(path));
    EXPECT_EQ(DeleteDirKQ(""), 0);
}

TEST_F(Pcdos, DeleteDirOfADeepTree) {
    std::string deep = path;
    int levels = pal::SlashPaths() ? 1500 : 80;   // paths of 4,096 and of 260 bytes
    for (int i = 0; i < levels; ++i) {
        ASSERT_NE(CreateDirKQ(deep.c_str()), 0) << i;
        deep += std::string(1, pal::Separator()) + "d";
    }
    KQFileInfo* leaf = CreateFileKQ(deep.c_str(), KQFILE_Write, 0, 0);
    ASSERT_NE(leaf, nullptr);
    CloseFileKQ(leaf);
    EXPECT_NE(DeleteDirKQ(path.c_str()), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(Pcdos, DeleteDirRemovesLinksToFoldersAndDoesNotFollowThem) {
    fs::path target = fs::path(Folder()) / "target";
    MakeTree(target);
    fs::create_directory(path);
    std::error_code error;
    fs::create_directory_symlink(target, fs::path(path) / "link", error);
    if (error) GTEST_SKIP() << "this host makes no links: " << error.message();
    fs::create_symlink(target / "one", fs::path(path) / "filelink", error);
    fs::create_symlink(target / "missing", fs::path(path) / "dangling", error);
    EXPECT_NE(DeleteDirKQ(path.c_str()), 0);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(fs::exists(target / "a" / "b" / "c" / "four"));
    EXPECT_TRUE(fs::exists(target / "one"));
}

TEST_F(Pcdos, DeleteDirOfALinkRemovesTheLink) {
    fs::path target = fs::path(Folder()) / "target";
    MakeTree(target);
    std::error_code error;
    fs::create_directory_symlink(target, path, error);
    if (error) GTEST_SKIP() << "this host makes no links: " << error.message();
    EXPECT_NE(DeleteDirKQ((path + pal::Separator()).c_str()), 0);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(fs::exists(target / "a" / "b" / "c" / "four"));
}

// On a host where that is a name like any other.
TEST_F(Pcdos, DeleteDirOfALinkThatIsNamedAsADriveRemovesTheLink) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "names hold no colon here";
    fs::path target = fs::path(Folder()) / "target", link = fs::path(Folder()) / "foo:";
    MakeTree(target);
    fs::create_directory_symlink(target, link);
    EXPECT_NE(DeleteDirKQ((link.string() + "/").c_str()), 0);
    EXPECT_FALSE(fs::exists(link));
    EXPECT_TRUE(fs::exists(target / "a" / "b" / "c" / "four"));
}

TEST_F(Pcdos, DeleteDirFailsAtTheTopWhenAnythingBelowStays) {
    kqtest::FailEveryFileCall([&] {
        i64 failAt = kq::fileFaults.failAt;
        bool once = kq::fileFaults.once;
        fs::remove_all(path);
        MakeTree(path);
        kq::fileFaults.Set(failAt, once);
        int done = DeleteDirKQ(path.c_str());
        EXPECT_EQ(done == 0, fs::exists(path)) << failAt;
    });
}

TEST_F(Pcdos, DeleteDirWithoutMemory) {
    kqtest::FailEveryAllocation([&] {
        fs::remove_all(path);
        MakeTree(path);
        DeleteDirKQ(path.c_str());
        EXPECT_TRUE(fs::exists(Folder()));
    });
}

TEST_F(Pcdos, EveryFailedFileCallIsReported) {
    kqtest::WriteWholeFile(path, "abcdef");
    std::string copy = Folder() + "copy.bin";
    kqtest::FailEveryFileCall([&] {
        char bytes[6];
        KQFileInfo* in = OpenFileKQ(path.c_str(), KQFILE_Read);
        KQFileInfo* out = CreateFileKQ(copy.c_str(), KQFILE_Write, 0, 0);
        int opened = in && out;
        int done = opened && ReadFileKQ(in, bytes, 6) && WriteFileKQ(out, bytes, 6);
        done &= CloseFileKQ(in) & CloseFileKQ(out);
        EXPECT_EQ(done, kq::fileFaults.failures == 0);
    });
}

TEST_F(Pcdos, CreatingWithoutMemoryNeitherMakesNorEmptiesAFile) {
    kqtest::FailEveryAllocation([&] {
        i64 failAt = kq::allocationFaults.failAt;
        bool once = kq::allocationFaults.once;
        kq::allocationFaults.Clear();
        kqtest::WriteWholeFile(path, "abc");
        fs::remove(path + ".new");
        kq::allocationFaults.Set(failAt, once);
        KQFileInfo* emptied = CreateFileKQ(path.c_str(), KQFILE_Write, 0, 0);
        KQFileInfo* made = CreateFileKQ((path + ".new").c_str(), KQFILE_Write, 0, 0);
        kq::allocationFaults.failAt = 0;
        EXPECT_EQ(fs::file_size(path), emptied ? 0u : 3u);
        EXPECT_EQ(fs::exists(path + ".new"), made != nullptr);
        CloseFileKQ(emptied);
        CloseFileKQ(made);
    });
}

TEST_F(Pcdos, OpeningWithoutMemoryGivesNoFile) {
    kqtest::WriteWholeFile(path, "abc");
    kqtest::FailEveryAllocation([&] {
        KQFileInfo* opened = OpenFileKQ(path.c_str(), KQFILE_Read);
        EXPECT_EQ(opened == nullptr, GetErrorKQ() == KQERR_NOMEM);
        CloseFileKQ(opened);
    });
}

}   // namespace
