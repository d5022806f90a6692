// The main program of all tests: after each test no environment may be left, no block of the platform's memory be out
// and no leak report be written.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "kq/environment.h"
#include "pal/memory.h"
#include "support/Fixture.h"

namespace {

class LeakListener : public testing::EmptyTestEventListener {
public:
    explicit LeakListener(std::string report) : report_(std::move(report)) {}

private:
    void OnTestEnd(const testing::TestInfo&) override {
        if (KQEnv) {
            ADD_FAILURE() << "the test left an environment behind";
            CleanUpKQ();
        }
        EXPECT_EQ(pal::BlocksOut(), 0) << "blocks of the platform's memory were left behind";
        std::vector<u8> report = kqtest::ReadWholeFile(report_);
        if (!report.empty()) {
            ADD_FAILURE() << "leak report: " << std::string(report.begin(), report.end());
            std::remove(report_.c_str());
        }
    }

    std::string report_;
};

}   // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    std::string folder = kqtest::MakeTemporaryFolder();
    std::string report = folder + "leaks.txt";
#if defined(_WIN32)
    _putenv_s("KQLIB_LEAK_REPORT", report.c_str());
#else
    setenv("KQLIB_LEAK_REPORT", report.c_str(), 1);
#endif
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener(report));
    int result = RUN_ALL_TESTS();
    kqtest::RemoveTemporaryFolder(folder);
    return result;
}
