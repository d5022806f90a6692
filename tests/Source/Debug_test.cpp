#include "Source/Debug.h"

#include <string>
#include <vector>

#include "support/Fixture.h"

namespace {

std::vector<std::string> lines;

class Debug : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        lines.clear();
        SetDebugSinkKQ([](const char* text) { lines.push_back(text); });
    }

    void TearDown() override {
        SetDebugSinkKQ(nullptr);
        KQTest::TearDown();
    }
};

TEST_F(Debug, MessageIsFormatted) {
    DebugMessage("%s %d", "frame", 7);
    EXPECT_EQ(lines, std::vector<std::string>{"frame 7"});
}

TEST_F(Debug, LongMessagesAreCut) {
    std::string text(5000, 'x');
    DebugMessage("%s", text.c_str());
    EXPECT_EQ(lines.at(0).size(), 1023u);
}

TEST_F(Debug, WithoutASinkTextIsDropped) {
    SetDebugSinkKQ(nullptr);
    DebugMessage("%d", 1);
    EXPECT_TRUE(lines.empty());
}

TEST_F(Debug, HdcMessageSetsTheLineCounterTo60AndAdvances) {
    HdcMessage("%d", 1);
    EXPECT_EQ(kq::DebugLine(), 78);
    HdcMessage("%d", 2);
    EXPECT_EQ(kq::DebugLine(), 78);
}

TEST_F(Debug, HdcMessageRunAdvancesAndWrapsPast730) {
    HdcMessage("%d", 1);
    for (int line = 78 + 18; line <= 730; line += 18) {
        HdcMessageRun("%d", 1);
        EXPECT_EQ(kq::DebugLine(), line);
    }
    HdcMessageRun("%d", 1);
    EXPECT_EQ(kq::DebugLine(), 50);
}

TEST_F(Debug, HdcMessagePosLeavesTheLineCounter) {
    HdcMessage("%d", 1);
    HdcMessagePos(5, 6, "%d", 1);
    EXPECT_EQ(kq::DebugLine(), 78);
}

TEST_F(Debug, FreeMemoryReportsOnlyWhenAsked) {
    ShowFreeMemory(0);
    EXPECT_TRUE(lines.empty());
    ShowFreeMemory(1);
    ASSERT_EQ(lines.size(), 1u);
}

TEST_F(Debug, FreeMemoryReportHasItsForm) {
    ShowFreeMemory(1);
    int percent = -1;
    long long total = 0, totalK = 0, page = -1, pageK = -1;
    ASSERT_EQ(std::sscanf(lines.at(0).c_str(),
                          "Percent in use:\t\t%10d\nPhysical Memory (total):\t%lld  %lldk\nPaging File "
                          "(total):\t\t%lld  %lldk\nPhysical Memory (free):",
                          &percent, &total, &totalK, &page, &pageK),
              5);
    EXPECT_TRUE(percent >= 0 && percent <= 100) << percent;
    EXPECT_GT(total, 0);
    EXPECT_EQ(totalK, total / 1024);
    EXPECT_EQ(pageK, page / 1024);
    EXPECT_NE(lines[0].find("Physical Memory (change):\t"), std::string::npos);
    EXPECT_EQ(lines[0].back(), '\n');
}

TEST_F(Debug, DibSupportIsReported) {
    ShowDibSupport(24);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("20 x 20"), std::string::npos);
    EXPECT_NE(lines[0].find("24 bits"), std::string::npos);
}

}   // namespace
