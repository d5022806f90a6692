#include "kq/filespec.h"

#include <cstring>
#include <filesystem>
#include <random>

#include "Source/AskFile.h"
#include "kq/files.h"
#include "pal/file.h"
#include "support/Fixture.h"

namespace fs = std::filesystem;

namespace {

// What the requester of a test was asked for, and what it answers.
struct Requester {
    std::string name, folder;
    std::string answer;   // empty: cancelled
    int calls = 0;
};

Requester requester;

char* Choose(const char* name, const char* folder) {
    requester.name = name;
    requester.folder = folder ? folder : "none";
    ++requester.calls;
    return requester.answer.empty() ? nullptr : MakeFileSpecKQ(requester.answer.c_str());
}

class FileSpec : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        requester = {};
        kq::SetReplacementRequester(Choose);
    }

    void TearDown() override {
        kq::SetReplacementRequester(nullptr);
        KQTest::TearDown();
    }

    static std::string NameOf(const char* spec) {
        char name[512];
        GetFileNameKQ(spec, name);
        return name;
    }

    static std::string PathOf(const char* spec) {
        char path[512];
        EXPECT_EQ(GetPathKQ(spec, path), 1);
        return path;
    }

    static std::string Truncated(std::string name) {
        TruncExtensionKQ(name.data());
        return name.c_str();
    }

    static std::string Renamed(const char* spec, const char* extension) {
        char* renamed = MakeNewFileSpecKQ(spec, extension);
        std::string text = renamed ? renamed : "null";
        FreeFileSpecKQ(renamed);
        return text;
    }

    // The bytes of a record.
    static std::string Record(const std::string& text) {
        u8 block[2048];
        KQFileInfo* file = OpenFileinMemoryKQ(block, sizeof block, KQFILE_ReadWrite);
        EXPECT_NE(WriteFileSpecKQ(file, text.c_str()), 0);
        std::string bytes(reinterpret_cast<char*>(block), size_t(file->MemCursor - file->MemStart));
        CloseFileKQ(file);
        return bytes;
    }

    // Reads a record that a mark follows; the position behind it is part of every test.
    std::string Read(const std::string& record, TagItem* tags) {
        std::string path = Folder() + "record";
        kqtest::WriteWholeFile(path, record + "MARK");
        KQFileInfo* file = OpenFileKQ(path.c_str(), KQFILE_Read);
        char* spec = ReadFileSpecKQ(file, tags);
        EXPECT_EQ(SeekFileKQ(file, 0, KQSEEK_Current), record.size());
        CloseFileKQ(file);
        std::string text = spec ? spec : "null";
        FreeFileSpecKQ(spec);
        return text;
    }

    template <class... Pairs>
    std::string ReadText(const std::string& text, Pairs... pairs) {
        auto tags = kq::TagArray(pairs..., 0);
        return Read(Record(text), tags.data());
    }

    // A path in the test's folder.
    std::string Below(std::string name) {
        for (char& c : name)
            if (c == '/') c = pal::Separator();
        return Folder() + name;
    }

    void Touch(const std::string& name) {
        fs::create_directories(fs::path(Below(name)).parent_path());
        kqtest::WriteWholeFile(Below(name), "x");
    }

    // Frames 0 to count - 1 of shot[####].tga in a folder.
    void TouchFrames(const std::string& folder, int count, int leftOut = -1) {
        for (int i = 0; i < count; ++i) {
            char name[32];
            std::snprintf(name, sizeof name, "shot%04d.tga", i);
            if (i != leftOut) Touch(folder + name);
        }
    }

    i32 isSequence = 7, framesValid = 7, replaced = 7;
};

TEST_F(FileSpec, MakeCopiesAndClearsTheError) {
    KQEnv->Error = KQERR_READ;
    char* spec = MakeFileSpecKQ("text");
    EXPECT_STREQ(spec, "text");
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    char* copy = CopyFileSpecKQ(spec);
    EXPECT_STREQ(copy, "text");
    EXPECT_NE(copy, spec);
    FreeFileSpecKQ(copy);
    FreeFileSpecKQ(spec);
    FreeFileSpecKQ(nullptr);
}

TEST_F(FileSpec, MakeOfNullIsNullAndLeavesTheErrorAlone) {
    KQEnv->Error = KQERR_READ;
    EXPECT_EQ(MakeFileSpecKQ(nullptr), nullptr);
    EXPECT_EQ(CopyFileSpecKQ(nullptr), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}

TEST_F(FileSpec, MakeWithoutMemoryIsNullWithErrorOne) {
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(MakeFileSpecKQ("text"), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
}

TEST_F(FileSpec, DosFormIsTheSameText) {
    char path[32] = "", text[] = "c:\\a";
    FileSpecToDosKQ(path, "c:\\a\\b.tga");
    EXPECT_STREQ(path, "c:\\a\\b.tga");
    ConvertDOStoPathKQ(text);
    ConvertPathtoDOSKQ(text);
    EXPECT_STREQ(text, "c:\\a");
}

TEST_F(FileSpec, PathOfANameWithoutSeparatorIsTheName) { EXPECT_EQ(PathOf("name.tga"), "name.tga"); }

TEST_F(FileSpec, PathEndsAtADrivePrefix) { EXPECT_EQ(PathOf("c:name.tga"), "c:"); }

TEST_F(FileSpec, PathKeepsItsLastSeparator) { EXPECT_EQ(PathOf("c:\\a\\b.tga"), "c:\\a\\"); }

TEST_F(FileSpec, NativePathIsSeparatedBySlashAlone) {
    if (!pal::SlashPaths()) GTEST_SKIP() << "this host has no such paths";
    EXPECT_EQ(PathOf("/a/b:c\\d.tga"), "/a/");
    EXPECT_EQ(NameOf("/a/b:c\\d.tga"), "b:c\\d.tga");
}

TEST_F(FileSpec, NameDoesNotExamineTheFirstCharacter) { EXPECT_EQ(NameOf("\\abc"), "\\abc"); }

TEST_F(FileSpec, NameIsThePartBehindTheLastSeparator) {
    EXPECT_EQ(NameOf("c:\\a\\b.tga"), "b.tga");
    EXPECT_EQ(NameOf("c:b.tga"), "b.tga");
    EXPECT_EQ(NameOf("b.tga"), "b.tga");
    EXPECT_EQ(NameOf("c:\\a\\"), "");
    EXPECT_EQ(NameOf(""), "");
}

TEST_F(FileSpec, NameAndPathMayBeTakenInPlace) {
    char name[] = "c:\\a\\b.tga", path[] = "c:\\a\\b.tga";
    GetFileNameKQ(name, name);
    GetPathKQ(path, path);
    EXPECT_STREQ(name, "b.tga");
    EXPECT_STREQ(path, "c:\\a\\");
}

TEST_F(FileSpec, TruncationDoesNotStopAtSeparators) { EXPECT_EQ(Truncated("a.b\\c"), "a"); }

TEST_F(FileSpec, TruncationCutsAtTheLastDotButNotAtTheFirstCharacter) {
    EXPECT_EQ(Truncated("a.b.tga"), "a.b");
    EXPECT_EQ(Truncated(".tga"), ".tga");
    EXPECT_EQ(Truncated("name"), "name");
    EXPECT_EQ(Truncated(""), "");
}

TEST_F(FileSpec, NewSpecReplacesTheExtension) {
    EXPECT_EQ(Renamed("c:\\a\\clip.tga", "flm"), "c:\\a\\clip.flm");
    EXPECT_EQ(Renamed("a.jpeg", "tga"), "a.tga");
    EXPECT_EQ(Renamed("a.tga", ""), "a.");
}

TEST_F(FileSpec, NewSpecCutsAtTheLastOfSeveralDots) {
    EXPECT_EQ(Renamed("a.b.c", "tga"), "a.b.tga");
    EXPECT_EQ(Renamed("a.b.", "tga"), "a.b.tga");
}

TEST_F(FileSpec, NewSpecWithoutADotNearTheEndIsAppendedTo) {
    EXPECT_EQ(Renamed("name", "a long extension"), "name.a long extension");
    EXPECT_EQ(Renamed("a.banana", "tga"), "a.banana.tga");
    EXPECT_EQ(Renamed("", "tga"), ".tga");
}

TEST_F(FileSpec, NewSpecOfNullIsNull) {
    EXPECT_EQ(Renamed(nullptr, "tga"), "null");
    EXPECT_EQ(Renamed("a.tga", nullptr), "null");
}

TEST_F(FileSpec, ComparisonIgnoresCase) {
    EXPECT_NE(FileSpecCompareKQ("C:\\Clip.TGA", "c:\\clip.tga"), 0);
    EXPECT_EQ(FileSpecCompareKQ("c:\\clip.tga", "c:\\clip.tg"), 0);
    EXPECT_EQ(FileSpecCompareKQ(nullptr, "a"), 0);
    EXPECT_EQ(FileSpecCompareKQ("a", nullptr), 0);
}

TEST_F(FileSpec, RecordOfThreeCharactersHasFourBytes) { EXPECT_EQ(Record("abc"), std::string("\0\0\0\4abc\0", 8)); }

TEST_F(FileSpec, RecordOfFourCharactersHasSixBytes) { EXPECT_EQ(Record("abcd"), std::string("\0\0\0\6abcd\0\0", 10)); }

TEST_F(FileSpec, RecordOfNoCharactersHasTwoBytes) { EXPECT_EQ(Record(""), std::string("\0\0\0\2\0\0", 6)); }

TEST_F(FileSpec, WritingOfNullAndToNullIsZero) {
    u8 block[4];
    KQFileInfo* file = OpenFileinMemoryKQ(block, 4, KQFILE_Write);
    EXPECT_EQ(WriteFileSpecKQ(file, nullptr), 0);
    EXPECT_EQ(WriteFileSpecKQ(nullptr, "a"), 0);
    EXPECT_EQ(WriteFileSpecKQ(file, "too long"), 0);
    CloseFileKQ(file);
}

TEST_F(FileSpec, StoredFileThatExistsIsReturned) {
    Touch("a.tga");
    EXPECT_EQ(ReadText(Below("a.tga")), Below("a.tga"));
    EXPECT_EQ(ReadText(Below("aa.tga")), "null");
}

TEST_F(FileSpec, RecordsWithAndWithoutPaddingAreReadInARow) {
    std::string records = Record("one") + Record("four") + Record("") + Record("last");
    KQFileInfo* file = OpenFileinMemoryKQ(reinterpret_cast<u8*>(records.data()), i64(records.size()), KQFILE_Read);
    for (const char* text : {"one", "four", "", "last"}) {
        char* spec = ReadFileSpecKQ(file, KQTAG_SpecNoCheck, 0, 0);
        EXPECT_STREQ(spec, text);
        FreeFileSpecKQ(spec);
    }
    EXPECT_EQ(ReadFileSpecKQ(file, KQTAG_SpecNoCheck, 0, 0), nullptr);
    CloseFileKQ(file);
}

TEST_F(FileSpec, LengthAloneDecidesWhereTheNextFieldBegins) {
    std::string record = std::string("\0\0\0\x0A", 4) + std::string("ab\0garbage", 10);
    TagItem tags[] = {{KQTAG_SpecNoCheck, 0}, {0, 0}};
    EXPECT_EQ(Read(record, tags), "ab");
}

TEST_F(FileSpec, LengthThatCannotBeReadIsNull) {
    EXPECT_EQ(ReadFileSpecKQ(nullptr, nullptr), nullptr);
    u8 bytes[3] = {};
    KQFileInfo* file = OpenFileinMemoryKQ(bytes, 3, KQFILE_Read);
    EXPECT_EQ(ReadFileSpecKQ(file, KQTAG_SpecReplaced, &replaced, 0), nullptr);
    EXPECT_EQ(replaced, 7);
    CloseFileKQ(file);
}

TEST_F(FileSpec, LengthOfANegativeNumberDoesNotLeadBack) {
    std::string record(
        "\xFF\xFF\xFF\xFC"
        "abc\0",
        8);
    KQFileInfo* file = OpenFileinMemoryKQ(reinterpret_cast<u8*>(record.data()), 8, KQFILE_Read);
    FreeFileSpecKQ(ReadFileSpecKQ(file, KQTAG_SpecNoCheck, 0, 0));
    EXPECT_EQ(SeekFileKQ(file, 0, KQSEEK_Current), 8u);
    CloseFileKQ(file);
}

TEST_F(FileSpec, TextOfManyBytesIsReadWhole) {
    std::string text(2000, 'x');
    EXPECT_EQ(ReadText(text, KQTAG_SpecNoCheck, 0), text);
}

TEST_F(FileSpec, TextBeyondTheLimitIsCutAndThePositionIsRight) {
    std::string text(5001, 'x');
    std::string record = std::string("\0\0\x13\x8A", 4) + text + '\0';
    TagItem tags[] = {{KQTAG_SpecNoCheck, 0}, {0, 0}};
    EXPECT_EQ(Read(record, tags), text.substr(0, 4095));
}

TEST_F(FileSpec, NoCheckTouchesNoFileAndAsksNothing) {
    char* folders[] = {const_cast<char*>("elsewhere/"), nullptr};
    answer = 1;
    EXPECT_EQ(ReadText("gone[###].tga", KQTAG_SpecNoCheck, 0, KQTAG_SpecAskReplace, 0, KQTAG_SpecSearchDirs, folders,
                       KQTAG_SpecSearchTree, 0, KQTAG_SpecIsSequence, &isSequence, KQTAG_SpecFramesValid, &framesValid,
                       KQTAG_SpecFrameCount, 5, KQTAG_SpecReplaced, &replaced),
              "gone[###].tga");
    EXPECT_EQ(isSequence, 1);
    EXPECT_EQ(replaced, 0);
    EXPECT_EQ(framesValid, 7);
    EXPECT_TRUE(messages.empty());
    EXPECT_EQ(requester.calls, 0);
}

TEST_F(FileSpec, IsSequenceIsZeroForAPlainName) {
    ReadText("plain.tga", KQTAG_SpecIsSequence, &isSequence);
    EXPECT_EQ(isSequence, 0);
}

TEST_F(FileSpec, PlainFileIsFoundInAFolderOfTheList) {
    Touch("new/a.tga");
    std::string missing = Below("missing/"), folder = Below("new/");
    char* folders[] = {missing.data(), folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecSearchDirs, folders, KQTAG_SpecReplaced, &replaced),
              Below("new/a.tga"));
    EXPECT_EQ(replaced, 0);
}

TEST_F(FileSpec, PathOfAnotherPlatformIsSearchedByItsName) {
    Touch("new/a.tga");
    std::string folder = Below("new/");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText("x:\\projects\\a.tga", KQTAG_SpecSearchDirs, folders), Below("new/a.tga"));
}

TEST_F(FileSpec, FolderWithoutItsSeparatorNamesItsParentsFiles) {
    Touch("a.tga");
    Touch("sub/b.tga");
    std::string folder = Below("sub");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecSearchDirs, folders), Below("a.tga"));
    EXPECT_EQ(ReadText(Below("old/b.tga"), KQTAG_SpecSearchDirs, folders), "null");
    EXPECT_EQ(ReadText(Below("old/b.tga"), KQTAG_SpecSearchDirs, folders, KQTAG_SpecSearchTree, 0), Below("sub/b.tga"));
}

TEST_F(FileSpec, SubfoldersAreSearchedInATreeAlone) {
    Touch("new/deep/A.TGA");
    std::string folder = Below("new/");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecSearchDirs, folders), "null");
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecSearchDirs, folders, KQTAG_SpecSearchTree, 0),
              Below("new/deep/A.TGA"));
}

TEST_F(FileSpec, StoredSequenceWithoutACountPassesUnchecked) {
    EXPECT_EQ(ReadText("gone[###].tga", KQTAG_SpecIsSequence, &isSequence, KQTAG_SpecFramesValid, &framesValid),
              "gone[###].tga");
    EXPECT_EQ(isSequence, 1);
    EXPECT_EQ(framesValid, 0);
}

TEST_F(FileSpec, StoredSequenceWithAllFramesIsValid) {
    TouchFrames("", 3);
    EXPECT_EQ(ReadText(Below("shot[####].tga"), KQTAG_SpecFrameCount, 3, KQTAG_SpecFramesValid, &framesValid),
              Below("shot[####].tga"));
    EXPECT_EQ(framesValid, 1);
    EXPECT_TRUE(messages.empty());
}

TEST_F(FileSpec, PartlyMissingSequenceIsKeptAndWarnsTwice) {
    TouchFrames("", 3, 1);
    EXPECT_EQ(ReadText(Below("shot[####].tga"), KQTAG_SpecFrameCount, 3, KQTAG_SpecFramesValid, &framesValid),
              Below("shot[####].tga"));
    EXPECT_EQ(framesValid, 0);
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Warning: Some images in image sequence shot[####].tga cannot be found!");
    EXPECT_EQ(messages[1], messages[0]);
}

TEST_F(FileSpec, MovedSequenceIsFoundInTheSecondFolder) {
    TouchFrames("new/", 3);
    std::string first = Below("first/"), second = Below("new/");
    char* folders[] = {first.data(), second.data(), nullptr};
    EXPECT_EQ(
        ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 3, KQTAG_SpecSearchDirs, folders,
                 KQTAG_SpecReplaced, &replaced, KQTAG_SpecIsSequence, &isSequence, KQTAG_SpecFramesValid, &framesValid),
        Below("new/shot[####].tga"));
    EXPECT_EQ(replaced, 0);
    EXPECT_EQ(isSequence, 1);
    EXPECT_EQ(framesValid, 1);
}

TEST_F(FileSpec, FolderWithHolesIsLeftAndTheNextOneTried) {
    TouchFrames("first/", 3, 1);
    TouchFrames("second/", 3);
    std::string first = Below("first/"), second = Below("second/");
    char* folders[] = {first.data(), second.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 3, KQTAG_SpecSearchDirs, folders),
              Below("second/shot[####].tga"));
    EXPECT_TRUE(messages.empty());
}

TEST_F(FileSpec, SequenceIsLookedForByItsLastNeededFrame) {
    i32 frames[] = {0, 2};
    TouchFrames("new/", 3, 1);
    std::string folder = Below("new/");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 2, KQTAG_SpecFrames, frames,
                       KQTAG_SpecSearchDirs, folders),
              Below("new/shot[####].tga"));
}

TEST_F(FileSpec, SequenceInATreeMustHaveAllItsFrames) {
    TouchFrames("tree/a/", 3, 0);
    TouchFrames("tree/b/deep/", 3);
    TouchFrames("tree/c/", 3, 2);
    std::string folder = Below("tree");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 3, KQTAG_SpecSearchDirs, folders,
                       KQTAG_SpecSearchTree, 0),
              Below("tree/b/deep/shot[####].tga"));
}

TEST_F(FileSpec, SequenceWhoseLastFrameDoesNotFitItsNameIsNotFound) {
    Touch("new/shot0.tga");
    std::string folder = Below("new/");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/shot[#].tga"), KQTAG_SpecFrameCount, 11, KQTAG_SpecSearchDirs, folders), "null");
}

TEST_F(FileSpec, FileOfTheRootIsSearchedByItsNameAlone) {
    Touch("new/deep/a.tga");
    TouchFrames("new/deep/", 2);
    std::string folder = Below("new/deep/"), tree = Below("new");
    char* folders[] = {folder.data(), nullptr};
    char* trees[] = {tree.data(), nullptr};
    const std::string root(1, pal::Separator());
    EXPECT_EQ(ReadText(root + "a.tga", KQTAG_SpecSearchDirs, folders), Below("new/deep/a.tga"));
    EXPECT_EQ(ReadText(root + "a.tga", KQTAG_SpecSearchDirs, trees, KQTAG_SpecSearchTree, 0), Below("new/deep/a.tga"));
    EXPECT_EQ(ReadText(root + "shot[####].tga", KQTAG_SpecSearchDirs, trees, KQTAG_SpecSearchTree, 0,
                       KQTAG_SpecFrameCount, 2),
              Below("new/deep/shot[####].tga"));
}

TEST_F(FileSpec, SequenceWhoseLastNumberIsBelowZeroIsNotFound) {
    TouchFrames("new/", 2);
    i32 frames[] = {0, -2};
    std::string folder = Below("new/"), tree = Below("new");
    char* folders[] = {folder.data(), nullptr};
    char* trees[] = {tree.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 2, KQTAG_SpecFrames, frames,
                       KQTAG_SpecSearchDirs, folders),
              "null");
    EXPECT_EQ(ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 2, KQTAG_SpecFrames, frames,
                       KQTAG_SpecSearchDirs, trees, KQTAG_SpecSearchTree, 0),
              "null");
}

// -1 marks a number of the list that was found, whoever wrote it there.
TEST_F(FileSpec, LastNumberOfMinusOneCountsAsAFrameThatIsThere) {
    i32 frames[] = {0, -1};
    EXPECT_EQ(ReadText(Below("old/shot[####].tga"), KQTAG_SpecFrameCount, 2, KQTAG_SpecFrames, frames,
                       KQTAG_SpecFramesValid, &framesValid),
              Below("old/shot[####].tga"));
    EXPECT_EQ(framesValid, 0);
    EXPECT_EQ(messages.size(), 2u);
}

TEST_F(FileSpec, TextWithoutAFileNameIsNotSearchedFor) {
    Touch("new/a.tga");
    std::string folder = Below("new/");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/"), KQTAG_SpecSearchDirs, folders), "null");
    EXPECT_EQ(ReadText("", KQTAG_SpecSearchDirs, folders), "null");
    EXPECT_EQ(ReadText("", KQTAG_SpecSearchDirs, folders, KQTAG_SpecSearchTree, 0), "null");
    EXPECT_EQ(ReadText(folder, KQTAG_SpecSearchDirs, folders), folder);   // a folder that is there is found as stored
}

TEST_F(FileSpec, QuestionForALongNameIsWhole) {
    std::string name(1000, 'n');
    name.replace(766, 3, "\xE2\x82\xAC");   // a character across the cut
    ReadText(Below("old/" + name), KQTAG_SpecAskReplace, 0);
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], std::string(766, 'n') + "... not found!\nWould you like to replace it?");
}

TEST_F(FileSpec, UserIsAskedWhenAllElseFails) {
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecAskReplace, 0), "null");
    EXPECT_EQ(ReadText(Below("old/a[##].tga"), KQTAG_SpecAskReplace, 0, KQTAG_SpecFrameCount, 1), "null");
    EXPECT_EQ(messages,
              (std::vector<std::string>{"a.tga not found!\nWould you like to replace it?",
                                        "Image Sequence 'a[##].tga' not found!\nWould you like to replace it?"}));
    EXPECT_EQ(requester.calls, 0);
}

TEST_F(FileSpec, UserIsNotAskedWithoutTheTag) {
    EXPECT_EQ(ReadText(Below("old/a.tga")), "null");
    EXPECT_TRUE(messages.empty());
}

TEST_F(FileSpec, UserSayingNoGivesNullAndThePositionIsBehindTheRecord) {
    answer = 0;
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecAskReplace, 0, KQTAG_SpecReplaced, &replaced), "null");
    EXPECT_EQ(messages.size(), 1u);
    EXPECT_EQ(replaced, 0);
}

TEST_F(FileSpec, UserWhoCancelsTheRequesterGivesNull) {
    answer = 1;
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecAskReplace, 0, KQTAG_SpecReplaced, &replaced), "null");
    EXPECT_EQ(requester.calls, 1);
    EXPECT_EQ(requester.name, "a.tga");
    EXPECT_EQ(requester.folder, "none");
    EXPECT_EQ(replaced, 0);
}

TEST_F(FileSpec, UsersFileIsReturnedAndToldAsReplaced) {
    Touch("chosen/still.tga");
    answer = 1;
    requester.answer = Below("chosen/still.tga");
    std::string folder = Below("first/");
    char* folders[] = {folder.data(), nullptr};
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecAskReplace, 0, KQTAG_SpecReplaced, &replaced, KQTAG_SpecSearchDirs,
                       folders),
              Below("chosen/still.tga"));
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(requester.folder, folder);
}

TEST_F(FileSpec, UsersFrameBecomesASequence) {
    TouchFrames("chosen/", 3);
    answer = 1;
    requester.answer = Below("chosen/shot0001.tga");
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecAskReplace, 0, KQTAG_SpecReplaced, &replaced, KQTAG_SpecIsSequence,
                       &isSequence, KQTAG_SpecFrameCount, 3, KQTAG_SpecFramesValid, &framesValid),
              Below("chosen/shot[####].tga"));
    EXPECT_EQ(replaced, 1);
    EXPECT_EQ(isSequence, 1);
    EXPECT_EQ(framesValid, 1);
}

TEST_F(FileSpec, WithoutARequesterTheUsersYesGivesNull) {
    kq::SetReplacementRequester(nullptr);
    answer = 1;
    EXPECT_EQ(ReadText(Below("old/a.tga"), KQTAG_SpecAskReplace, 0), "null");
}

TEST_F(FileSpec, EveryFailingAllocationAndFileCallIsSurvived) {
    TouchFrames("new/deep/", 2);
    answer = 1;
    requester.answer = Below("new/deep/shot0000.tga");
    std::string record = Record(Below("old/shot[####].tga")), folder = Below("new");
    char* folders[] = {folder.data(), nullptr};
    auto tags = kq::TagArray(KQTAG_SpecSearchDirs, folders, KQTAG_SpecSearchTree, 0, KQTAG_SpecAskReplace, 0,
                             KQTAG_SpecFrameCount, 2, KQTAG_SpecFramesValid, &framesValid, 0);
    auto run = [&] {
        KQFileInfo* file = OpenFileinMemoryKQ(reinterpret_cast<u8*>(record.data()), i64(record.size()), KQFILE_Read);
        FreeFileSpecKQ(ReadFileSpecKQ(file, tags.data()));
        if (file) {
            EXPECT_EQ(file->MemCursor, file->MemEnd);
        }
        CloseFileKQ(file);
    };
    kqtest::FailEveryAllocation(run);
    kqtest::FailEveryFileCall(run);
}

TEST_F(FileSpec, RandomTextsComeBack) {
    u32 seed = std::random_device()();
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    for (int round = 0; round < 200; ++round) {
        std::string text(random() % 300, 0);
        for (char& c : text) c = char(1 + random() % 255);
        EXPECT_EQ(ReadText(text, KQTAG_SpecNoCheck, 0), text);
    }
}

}   // namespace
