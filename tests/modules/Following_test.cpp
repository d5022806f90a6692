#include "modules/stills/Following.h"

#include <gtest/gtest.h>

namespace {

using stills::Following;
using Paths = std::vector<std::string>;

TEST(Following, FirstPathCountsUpItsLastNumber) {
    Following following;
    EXPECT_EQ(following.After("v2/shot3.0009.png", 2), (Paths{"v2/shot3.0010.png", "v2/shot3.0011.png"}));
}

TEST(Following, StepIsLearned) {
    Following following;
    following.After("a10.png", 1);
    EXPECT_EQ(following.After("a12.png", 2), (Paths{"a14.png", "a16.png"}));
    EXPECT_EQ(following.After("a14.png", 1), Paths{"a16.png"});
}

TEST(Following, BackwardsEndsAtZero) {
    Following following;
    following.After("a3.png", 1);
    EXPECT_EQ(following.After("a2.png", 5), (Paths{"a1.png", "a0.png"}));
}

TEST(Following, TheRunThatChangesIsTheNumber) {
    Following following;
    following.After("7_take2.png", 1);
    EXPECT_EQ(following.After("8_take2.png", 1), Paths{"9_take2.png"});
}

TEST(Following, NumbersWithoutLeadingZerosGrow) {
    Following following;
    following.After("a8.png", 1);
    EXPECT_EQ(following.After("a9.png", 1), Paths{"a10.png"});
    EXPECT_EQ(following.After("a10.png", 1), Paths{"a11.png"});
}

TEST(Following, TheSamePathAgainKeepsTheStep) {
    Following following;
    following.After("a1.png", 1);
    following.After("a3.png", 1);
    EXPECT_EQ(following.After("a3.png", 1), Paths{"a5.png"});
}

TEST(Following, ANameWithoutDigitsTellsNothing) {
    Following following;
    EXPECT_TRUE(following.After("12/still.png", 3).empty());
}

TEST(Following, ARunTooLongToCountIsNoNumber) {
    Following following;
    EXPECT_TRUE(following.After("12345678901234567890.png", 3).empty());
}

TEST(Following, DigitsOfTheExtensionCountOnlyWhenTheyChange) {
    Following following;
    EXPECT_EQ(following.After("a1.jp2", 1), Paths{"a2.jp2"});
}

TEST(Following, AnotherClipBeginsAnew) {
    Following following;
    following.After("a1.png", 1);
    EXPECT_EQ(following.After("other5.png", 1), Paths{"other6.png"});
}

}   // namespace
