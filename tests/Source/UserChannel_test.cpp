#include "Source/UserChannel.h"

#include <string>

#include "kq/user.h"
#include "support/Fixture.h"

namespace {

using UserChannel = kqtest::KQTest;

TEST_F(UserChannel, MessagesReachTheListenerFormatted) {
    UserMessageKQ("%s %d", "frame", 3);
    StopAlertKQ("stop %d", 4);
    EXPECT_EQ(messages, (std::vector<std::string>{"frame 3", "stop 4"}));
}

TEST_F(UserChannel, TheListenerAnswersQuestions) {
    answer = 1;
    EXPECT_EQ(AskUserKQ("go on?"), 1);
    EXPECT_EQ(kq::AskAlert("alert"), 1);
    answer = 0;
    EXPECT_EQ(AskUserKQ("go on?"), 0);
    EXPECT_EQ(kq::AskAlert("alert"), 0);
}

TEST_F(UserChannel, TextIsCutAt1023Bytes) {
    UserMessageKQ("%s", std::string(3000, 'x').c_str());
    EXPECT_EQ(messages.at(0).size(), 1023u);
}

TEST_F(UserChannel, WithoutAListenerEachMessageIsOneLineOnStandardError) {
    kq::SetUserListener(nullptr, nullptr);
    testing::internal::CaptureStderr();
    UserMessageKQ("two\nlines\r\n");
    StopAlertKQ("stop");
    std::string text = testing::internal::GetCapturedStderr();
    std::erase(text, '\r');
    EXPECT_EQ(text, "two lines  \nstop\n");
}

std::vector<std::string> heard;

TEST_F(UserChannel, ASinkHearsWhatWouldGoToStandardError) {
    kq::SetUserListener(nullptr, nullptr);
    heard.clear();
    SetUserSinkKQ([](const char* text) { heard.push_back(text); });
    testing::internal::CaptureStderr();
    UserMessageKQ("frame %d", 3);
    StopAlertKQ("stop");
    EXPECT_EQ(AskUserKQ("delete it?"), 0);
    SetUserSinkKQ(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(heard, (std::vector<std::string>{"frame 3", "stop", "delete it?"}));
    heard = {};
}

TEST_F(UserChannel, AQuestionThatNobodyAnswersChangesNothing) {
    kq::SetUserListener(nullptr, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(AskUserKQ("delete it?"), 0);
    EXPECT_EQ(kq::AskAlert("damaged, go on?"), 1);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("delete it?"), std::string::npos);
}

}   // namespace
