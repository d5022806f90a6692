// The leak report at the end of a program.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "pal/memory.h"
#include "support/MemoryTest.h"

namespace fs = std::filesystem;

namespace {

using namespace kqtest;

std::string TextOf(const std::string& path) {
    std::vector<u8> bytes = kqtest::ReadWholeFile(path);
    std::string text;
    for (u8 b : bytes)
        if (b != '\r') text += char(b);
    return text;
}

void NameReport(const char* path) {
#if defined(_WIN32)
    _wputenv_s(L"KQLIB_LEAK_REPORT", std::filesystem::path(reinterpret_cast<const char8_t*>(path)).c_str());
#else
    setenv("KQLIB_LEAK_REPORT", path, 1);
#endif
}

void UnnameReport() {
#if defined(_WIN32)
    _putenv_s("KQLIB_LEAK_REPORT", "");
#else
    unsetenv("KQLIB_LEAK_REPORT");
#endif
}

// Sends the leak report of this test to a file of its own.
class MemoryLeaks : public testing::Test {
protected:
    void SetUp() override {
        saved_ = std::getenv("KQLIB_LEAK_REPORT");
        folder_ = kqtest::MakeTemporaryFolder();
        report = folder_ + "report.txt";
        NameReport(report.c_str());
        ASSERT_NE(kqtest::InitWithoutWindow(), nullptr);
    }

    void TearDown() override {
        NameReport(saved_.c_str());
        kqtest::RemoveTemporaryFolder(folder_);
    }

    std::string report, folder_;

private:
    std::string saved_;
};

TEST_F(MemoryLeaks, ReportNamesEachBlockInAddressOrder) {
    u32 allocated = KQEnv->AllocCount;
    Guarded(10, 0, 11);
    u8* freed = Guarded(20, 0, 22);
    Bare(33);
    FreeMemoryKQ(freed);
    CleanUpKQ();
    std::string text = TextOf(report);
    std::string first = text.substr(0, text.find('\n') + 1);
    int allocs = 0, frees = 0;
    ASSERT_EQ(std::sscanf(first.c_str(), "Memory not free'd: AllocCount: %d FreeCount: %d\n", &allocs, &frees), 2);
    EXPECT_GE(u32(allocs), allocated + 3);
    EXPECT_EQ(allocs - frees, 2);
    EXPECT_EQ(text.substr(first.size()), "Tests/Here Line: 11 Size: 16\nUnknown Line: 0 Size: 40\n");
    EXPECT_EQ(pal::BlocksOut(), 0);
}

// Where nobody names a file the report has a fixed one; a host without drives takes its name as a plain file's.
TEST_F(MemoryLeaks, ReportGoesToTheFixedFileWhenNoneIsNamed) {
    const std::string fixed = "f:\\source\\mardle\\_memdbg.txt";
    fs::path before = fs::current_path();
    fs::current_path(folder_);
    UnnameReport();
    Guarded(10, 0, 11);
    CleanUpKQ();
    std::string text = TextOf(fixed);
    fs::current_path(before);
    EXPECT_EQ(TextOf(report), "");
    bool opens = true;
#if defined(_WIN32)
    std::error_code error;
    opens = fs::exists("f:\\source\\mardle", error);
#endif
    EXPECT_EQ(text.find("Tests/Here Line: 11 Size: 16\n") != std::string::npos, opens) << text;
}

TEST_F(MemoryLeaks, NoReportWhenAllIsFreed) {
    FreeMemoryKQ(Guarded(10));
    CleanUpKQ();
    EXPECT_EQ(TextOf(report), "");
}

TEST_F(MemoryLeaks, ReportThatCannotBeOpenedIsSkippedAndTheRestGoesOn) {
    NameReport((report + "/none/none.txt").c_str());
    Guarded(10);
    Bare(1000000);
    CleanUpKQ();
    EXPECT_EQ(KQEnv, nullptr);
    EXPECT_EQ(pal::BlocksOut(), 0);
}

TEST_F(MemoryLeaks, ReportsPathIsUtf8) {
    std::string named = report + "-gr\xC3\xBC\xC3\x9F \xE6\x98\xA0.txt";
    NameReport(named.c_str());
    Guarded(10, 0, 5);
    CleanUpKQ();
    EXPECT_NE(TextOf(named).find("Tests/Here Line: 5 Size: 16\n"), std::string::npos);
}

TEST_F(MemoryLeaks, OpeningOfTheReportIsAFileCallThatMayFail) {
    Guarded(10);
    kq::fileFaults.Set(1, false);
    CleanUpKQ();
    i64 failures = kq::fileFaults.failures;
    kq::fileFaults.Clear();
    EXPECT_GE(failures, 1);
    EXPECT_EQ(TextOf(report), "");
    EXPECT_EQ(pal::BlocksOut(), 0);
}

TEST_F(MemoryLeaks, NothingIsReportedWithoutChunks) {
    u32 allocated = KQEnv->AllocCount;
    KQEnv->AllocCount = allocated + 5;
    CleanUpKQ();
    EXPECT_EQ(TextOf(report), "");
}

}   // namespace
