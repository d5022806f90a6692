#include "kq/files.h"

#include <cstring>
#include <string>
#include <vector>

#include "support/Fixture.h"

namespace {

// A memory file over a block of the test, closed with it.
class DOS : public kqtest::KQTest {
protected:
    void TearDown() override {
        CloseFileKQ(file);
        KQTest::TearDown();
    }

    void Open(size_t size) {
        block.assign(size, 0);
        file = OpenFileinMemoryKQ(block.data(), i64(size), KQFILE_ReadWrite);
        ASSERT_NE(file, nullptr);
    }

    void Open(const std::string& text) {
        Open(text.size());
        std::memcpy(block.data(), text.data(), text.size());
    }

    // The next line, read with room for `size` bytes into a cleared buffer; "(null)" at the end.
    std::string Line(u32 size = 60) {
        char buffer[64] = {};
        char* got = FGetStringKQ(file, buffer, size);
        EXPECT_TRUE(got == nullptr || got == buffer);
        return got ? got : "(null)";
    }

    std::vector<u8> block;
    KQFileInfo* file = nullptr;
};

TEST_F(DOS, MemoryFileHoldsItsBlock) {
    Open(10);
    EXPECT_EQ(file->Permission, u32(KQFILE_ReadWrite));
    EXPECT_EQ(file->MemStart, block.data());
    EXPECT_EQ(file->MemCursor, block.data());
    EXPECT_EQ(file->MemEnd, block.data() + 10);
    EXPECT_EQ(file->Handle, nullptr);
    EXPECT_EQ(GetFileLengthKQ(file), 10);
}

TEST_F(DOS, NullBlockGivesNoFile) {
    KQEnv->Error = KQERR_READ;
    EXPECT_EQ(OpenFileinMemoryKQ(nullptr, 10, KQFILE_Read), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}

TEST_F(DOS, NegativeLengthIsAnEmptyFile) {
    u8 byte = 0;
    file = OpenFileinMemoryKQ(&byte, -5, KQFILE_Read);
    EXPECT_EQ(GetFileLengthKQ(file), 0);
    EXPECT_EQ(ReadFileKQ(file, &byte, 1), 0);
    EXPECT_EQ(SeekFileKQ(file, 0, KQSEEK_End), 0u);
    EXPECT_EQ(file->MemCursor, &byte);
}

TEST_F(DOS, MemoryReadIsAllOrNothing) {
    Open("abcd");
    char two[4] = "xxx";
    SeekFileKQ(file, 2, KQSEEK_Start);
    EXPECT_EQ(ReadFileKQ(file, two, 4), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
    EXPECT_EQ(file->MemCursor, block.data() + 2);
    EXPECT_STREQ(two, "xxx");
    EXPECT_EQ(ReadFileKQ(file, two, 2), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_STREQ(two, "cdx");
}

TEST_F(DOS, MemoryWriteIsAllOrNothingAndNeverGrows) {
    Open(4);
    EXPECT_EQ(WriteFileKQ(file, "abcde", 5), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_WRITE));
    EXPECT_EQ(file->MemCursor, block.data());
    EXPECT_EQ(WriteFileKQ(file, "abcd", 4), 1);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_EQ(WriteFileKQ(file, "e", 1), 0);
    EXPECT_EQ(std::memcmp(block.data(), "abcd", 4), 0);
}

TEST_F(DOS, MemoryWriteDoesNotLookAtThePermission) {
    u8 bytes[2] = {};
    file = OpenFileinMemoryKQ(bytes, 2, KQFILE_Read);
    EXPECT_EQ(WriteFileKQ(file, "ab", 2), 1);
    EXPECT_EQ(bytes[1], 'b');
}

TEST_F(DOS, HugeCountsDoNotWrap) {
    Open(4);
    u8 byte;
    SeekFileKQ(file, 2, KQSEEK_Start);
    EXPECT_EQ(ReadFileKQ(file, &byte, SIZE_MAX), 0);
    EXPECT_EQ(WriteFileKQ(file, &byte, SIZE_MAX - 1), 0);
}

TEST_F(DOS, MemorySeekFromTheEndIsOneShort) {
    Open(10);
    EXPECT_EQ(SeekFileKQ(file, 0, KQSEEK_End), 0u);
    EXPECT_EQ(file->MemCursor, block.data() + 9);
}

TEST_F(DOS, MemorySeekIsHeldToTheBlock) {
    Open(10);
    SeekFileKQ(file, 5, KQSEEK_Start);
    EXPECT_EQ(SeekFileKQ(file, -100, KQSEEK_Current), 5u);
    EXPECT_EQ(file->MemCursor, block.data());
    SeekFileKQ(file, 100, KQSEEK_Current);
    EXPECT_EQ(file->MemCursor, block.data() + 10);
    SeekFileKQ(file, INT64_MAX, KQSEEK_Current);
    EXPECT_EQ(file->MemCursor, block.data() + 10);
    SeekFileKQ(file, INT64_MIN, KQSEEK_Current);
    EXPECT_EQ(file->MemCursor, block.data());
}

TEST_F(DOS, SeekLeavesTheErrorWord) {
    Open(10);
    KQEnv->Error = KQERR_BADDATA;
    SeekFileKQ(file, 100, KQSEEK_Current);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
}

TEST_F(DOS, NullHandlesGiveZeroAndLeaveTheErrorWord) {
    KQEnv->Error = KQERR_BADDATA;
    i32 l = 5;
    i16 s = 5;
    u32 ul = 5;
    u16 us = 5;
    char buffer[8] = "abc";
    EXPECT_EQ(ReadFileKQ(nullptr, buffer, 1), 0);
    EXPECT_EQ(WriteFileKQ(nullptr, buffer, 1), 0);
    EXPECT_EQ(SeekFileKQ(nullptr, 1, 0), 0u);
    EXPECT_EQ(GetFileLengthKQ(nullptr), 0);
    EXPECT_EQ(CloseFileKQ(nullptr), 0);
    EXPECT_EQ(FPutStringKQ(nullptr, "x"), 0);
    EXPECT_EQ(FGetStringKQ(nullptr, buffer, 4), nullptr);
    EXPECT_EQ(PutLongKQ(nullptr, 1) + PutShortKQ(nullptr, 1), 0);
    EXPECT_EQ(GetLongKQ(nullptr, &l) + GetShortKQ(nullptr, &s) + GetULongKQ(nullptr, &ul) + GetUShortKQ(nullptr, &us),
              0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_BADDATA));
    EXPECT_EQ(l + s + i32(ul) + us, 20);
}

TEST_F(DOS, IntegersAreBigEndian) {
    Open(6);
    EXPECT_EQ(PutLongKQ(file, 258), 1);
    EXPECT_EQ(PutShortKQ(file, -2), 1);
    EXPECT_EQ(block, (std::vector<u8>{0, 0, 1, 2, 0xFF, 0xFE}));
}

TEST_F(DOS, IntegersReadBack) {
    Open(std::string("\0\0\1\2\xFF\xFE\xFF\xFE\x80\0\0\0", 12));
    i32 l;
    i16 s;
    u16 us;
    u32 ul;
    EXPECT_EQ(GetLongKQ(file, &l) & GetShortKQ(file, &s) & GetUShortKQ(file, &us) & GetULongKQ(file, &ul), 1);
    EXPECT_EQ(l, 258);
    EXPECT_EQ(s, -2);
    EXPECT_EQ(us, 0xFFFE);
    EXPECT_EQ(ul, 0x80000000u);
}

TEST_F(DOS, AFailedIntegerLeavesItsValue) {
    Open(1);
    i32 l = 7;
    i16 s = 7;
    u32 ul = 7;
    u16 us = 7;
    EXPECT_EQ(GetLongKQ(file, &l) | GetShortKQ(file, &s) | GetULongKQ(file, &ul) | GetUShortKQ(file, &us), 0);
    EXPECT_EQ(l + s + i32(ul) + us, 28);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}

TEST_F(DOS, PutStringAppendsCrLf) {
    Open(5);
    EXPECT_EQ(FPutStringKQ(file, "abc"), 1);
    EXPECT_EQ(std::memcmp(block.data(), "abc\r\n", 5), 0);
    EXPECT_EQ(FPutStringKQ(file, nullptr), 0);
}

TEST_F(DOS, PutStringTakes253Bytes) {
    Open(1000);
    EXPECT_EQ(FPutStringKQ(file, std::string(253, 'x').c_str()), 1);
    EXPECT_EQ(file->MemCursor, block.data() + 255);
    EXPECT_EQ(FPutStringKQ(file, std::string(254, 'x').c_str()), 0);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_WRITE));
    EXPECT_EQ(file->MemCursor, block.data() + 255);
}

TEST_F(DOS, GetStringSkipsBlankLines) {
    Open("a\r\n\r\nb");
    EXPECT_EQ(Line(), "a");
    EXPECT_EQ(Line(), "b");
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NONE));
    EXPECT_EQ(Line(), "(null)");
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_READ));
}

TEST_F(DOS, GetStringOfBlankLinesAloneIsTheEnd) {
    Open("\r\n\n\r");
    EXPECT_EQ(Line(), "(null)");
}

TEST_F(DOS, GetStringStopsAtNul) {
    Open(std::string("ab\0cd\n", 6));
    EXPECT_EQ(Line(), "ab");
    EXPECT_EQ(Line(), "cd");
}

TEST_F(DOS, GetStringAtTheEndOfTheFileKeepsAStaleByte) {
    Open("ab");
    char buffer[8] = "xxxxxxx";
    ASSERT_EQ(FGetStringKQ(file, buffer, 6), buffer);
    EXPECT_EQ(std::memcmp(buffer, "abx\0xxx", 7), 0);
}

TEST_F(DOS, GetStringCutBySizeKeepsAStaleByte) {
    Open("abcdef\n");
    char buffer[8] = "xxxxxxx";
    ASSERT_EQ(FGetStringKQ(file, buffer, 4), buffer);
    EXPECT_EQ(std::memcmp(buffer, "abcdx\0x", 7), 0);
    EXPECT_EQ(Line(), "ef");
}

TEST_F(DOS, GetStringWithAFullLineOverwritesItsEnd) {
    Open("abc\n");
    char buffer[8] = "xxxxxxx";
    ASSERT_EQ(FGetStringKQ(file, buffer, 4), buffer);
    EXPECT_EQ(std::memcmp(buffer, "abc\0xxx", 7), 0);
}

TEST_F(DOS, GetStringOfNoSizeIsNull) {
    Open("abc\n");
    EXPECT_EQ(Line(0), "(null)");
}

TEST_F(DOS, OpeningWithoutMemoryGivesNoFile) {
    u8 byte;
    kqtest::FailEveryAllocation([&] { CloseFileKQ(OpenFileinMemoryKQ(&byte, 1, KQFILE_Read)); });
}

}   // namespace
