// Tests of the helpers that only Windows has: names as UTF-16, links of the file system, paths as the system answers.
#include <cwchar>
#include <string>

#include "pal/allocate.h"
#include "pal/file.h"
#include "pal/win32/fontbytes.h"
#include "pal/win32/links.h"
#include "pal/win32/wide.h"
#include "support/Fixture.h"

namespace {

class PalWin32 : public kqtest::KQTest {};

std::wstring Plain(const wchar_t* full) {
    wchar_t path[200];
    std::wcscpy(path, full);
    return pal::PlainPath(path);
}

TEST_F(PalWin32, PrefixesOfPathsAreTakenOff) {
    EXPECT_EQ(Plain(L"\\\\?\\C:\\a\\b"), L"C:\\a\\b");
    EXPECT_EQ(Plain(L"\\\\?\\UNC\\server\\share\\b"), L"\\\\server\\share\\b");
    EXPECT_EQ(Plain(L"C:\\a"), L"C:\\a");
    EXPECT_EQ(Plain(L"\\\\server\\share"), L"\\\\server\\share");
    EXPECT_EQ(Plain(L"\\\\?\\UNCLE\\a"), L"UNCLE\\a");
}

TEST_F(PalWin32, OnlySymbolicLinksAndJunctionsAreLinks) {
    constexpr DWORD kPoint = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    EXPECT_TRUE(pal::IsLink(kPoint, IO_REPARSE_TAG_SYMLINK));
    EXPECT_TRUE(pal::IsLink(kPoint, IO_REPARSE_TAG_MOUNT_POINT));
    EXPECT_TRUE(pal::IsLink(kPoint, 0)) << "a host that does not tell";
    for (DWORD other : {0x9000001Aul, 0x80000013ul, 0x80000017ul})   // cloud, deduplicated, compressed
        EXPECT_FALSE(pal::IsLink(kPoint, other));
    EXPECT_FALSE(pal::IsLink(FILE_ATTRIBUTE_DIRECTORY, IO_REPARSE_TAG_SYMLINK)) << "the tag counts on points alone";
    EXPECT_FALSE(pal::IsLink(INVALID_FILE_ATTRIBUTES, IO_REPARSE_TAG_SYMLINK));
}

TEST_F(PalWin32, NamesTellNoMemoryFromNoName) {
    std::string name = "x";
    EXPECT_EQ(pal::Wide(name.c_str()).Error(), 0u);
    EXPECT_EQ(pal::Wide("\xFF").Error(), DWORD(ERROR_PATH_NOT_FOUND));
    name.assign(1000, 'x');
    kq::allocationFaults.Set(1, false);
    pal::Wide wide(name.c_str());
    kq::allocationFaults.Clear();
    EXPECT_FALSE(wide);
    EXPECT_EQ(wide.Error(), DWORD(ERROR_NOT_ENOUGH_MEMORY));
}

TEST_F(PalWin32, FilesOfLongNamesWithoutMemorySayNoMemory) {
    std::string name = Folder() + std::string(500, 'x');
    auto expectNoMemory = [&](auto call) {
        kq::allocationFaults.Set(1, false);
        EXPECT_FALSE(call());
        kq::allocationFaults.Clear();
        EXPECT_EQ(pal::FileError(), u32(KQERR_NOMEM));
    };
    expectNoMemory([&] { return pal::FileOpen(name.c_str(), pal::Access::Read); });
    expectNoMemory([&] { return pal::FileDelete(name.c_str()); });
    expectNoMemory([&] { return pal::FileQuery(name.c_str(), nullptr); });
    expectNoMemory([&] { return pal::FileReplace("a", name.c_str()); });
    expectNoMemory([&] { return pal::FolderCreate(name.c_str()); });
    expectNoMemory([&] { return pal::FolderRemove(name.c_str()); });
    expectNoMemory([&] { return pal::FolderOpen(name.c_str()); });
}

// A collection of two faces whose directories stand at 20 and 60 of 100 bytes.
std::vector<u8> Collection() {
    std::vector<u8> bytes = {'t', 't', 'c', 'f', 0, 1, 0, 0, 0, 0, 0, 2, 0, 0, 0, 20, 0, 0, 0, 60};
    bytes.resize(100);
    return bytes;
}

TEST_F(PalWin32, AFaceOfACollectionIsFoundByWhatFollowsIt) {
    std::vector<u8> bytes = Collection();
    size_t directory = 1;
    EXPECT_TRUE(pal::FindFace(bytes.data(), bytes.size(), 80, &directory));
    EXPECT_EQ(directory, 20u);
    EXPECT_TRUE(pal::FindFace(bytes.data(), bytes.size(), 40, &directory));
    EXPECT_EQ(directory, 60u);
}

TEST_F(PalWin32, APlaceThatTheCollectionDoesNotListIsNoFace) {
    std::vector<u8> bytes = Collection();
    size_t directory;
    for (size_t faceLength : {0, 39, 41, 100, 101})
        EXPECT_FALSE(pal::FindFace(bytes.data(), bytes.size(), faceLength, &directory)) << faceLength;
    bytes[8] = 0xFF;   // a count beyond the end
    EXPECT_FALSE(pal::FindFace(bytes.data(), bytes.size(), 39, &directory));
}

TEST_F(PalWin32, AFileOfOneFaceBeginsWithItsDirectory) {
    std::vector<u8> bytes(100);
    bytes[1] = 1;
    for (size_t length : {size_t(0), size_t(5), bytes.size()}) {
        size_t directory = 1;
        EXPECT_TRUE(pal::FindFace(bytes.data(), length, length, &directory));
        EXPECT_EQ(directory, 0u);
    }
}

}   // namespace
