#include "kq/tags.h"

#include <vector>

#include "support/Fixture.h"

namespace {

using Tags = kqtest::KQTest;

// The tags that a walk over `list` gives, in order.
std::vector<u32> Walk(TagItem* list) {
    std::vector<u32> tags;
    TagItem* cursor = list;
    while (TagItem* item = NextTagItem(&cursor)) tags.push_back(item->Tag);
    return tags;
}

uptr Pointer(TagItem* list) { return reinterpret_cast<uptr>(list); }

using Walked = std::vector<u32>;

TEST_F(Tags, NullCursorOrListGivesNull) {
    EXPECT_EQ(NextTagItem(nullptr), nullptr);
    TagItem* cursor = nullptr;
    EXPECT_EQ(NextTagItem(&cursor), nullptr);
    EXPECT_EQ(cursor, nullptr);
}

TEST_F(Tags, WalkReturnsEachPairAndMovesBehindIt) {
    TagItem list[] = {{10, 1}, {11, 2}, {0, 0}};
    TagItem* cursor = list;
    EXPECT_EQ(NextTagItem(&cursor), &list[0]);
    EXPECT_EQ(cursor, &list[1]);
    EXPECT_EQ(NextTagItem(&cursor), &list[1]);
    EXPECT_EQ(NextTagItem(&cursor), nullptr);
    EXPECT_EQ(cursor, &list[2]);
    EXPECT_EQ(NextTagItem(&cursor), nullptr);
}

TEST_F(Tags, IgnoreInTheFirstPlaceYieldsTheSecondPairFirst) {
    TagItem list[] = {{KQTAG_Ignore, 99}, {10, 1}, {0, 0}};
    TagItem* cursor = list;
    EXPECT_EQ(NextTagItem(&cursor), &list[1]);
}

TEST_F(Tags, SkipOfOnePassesOverOneMorePair) {
    TagItem list[] = {{KQTAG_Skip, 1}, {10, 0}, {11, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), (Walked{11}));
}

TEST_F(Tags, SkipOfNonePassesOverItself) {
    TagItem list[] = {{KQTAG_Skip, 0}, {10, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), (Walked{10}));
}

TEST_F(Tags, SkipOfOneAtTheEndReturnsNull) {
    TagItem list[] = {{KQTAG_Skip, 1}, {10, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), Walked{});
}

TEST_F(Tags, SkipOverTheEndStopsAtTheEndPair) {
    TagItem list[] = {{KQTAG_Skip, 100}, {10, 0}, {0, 0}, {12, 0}};
    TagItem* cursor = list;
    EXPECT_EQ(NextTagItem(&cursor), nullptr);
    EXPECT_EQ(NextTagItem(&cursor), nullptr);
}

TEST_F(Tags, SkipCountsWithItsLow16Bits) {
    TagItem list[] = {{KQTAG_Skip, 0x50001}, {10, 0}, {11, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), (Walked{11}));
}

TEST_F(Tags, MoreGoesOnInTheOtherListAndLeavesTheRest) {
    TagItem second[] = {{20, 0}, {KQTAG_Ignore, 0}, {21, 0}, {0, 0}};
    TagItem list[] = {{10, 0}, {KQTAG_More, Pointer(second)}, {11, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), (Walked{10, 20, 21}));
}

TEST_F(Tags, MoreWithNullIsReturnedAsAPairAndTheWalkGoesOnBehindIt) {
    TagItem list[] = {{KQTAG_More, 0}, {11, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), (Walked{KQTAG_More, 11}));
}

TEST_F(Tags, MoreWithAnEmptyListEnds) {
    TagItem empty[] = {{0, 0}};
    TagItem list[] = {{KQTAG_More, Pointer(empty)}, {11, 0}, {0, 0}};
    EXPECT_EQ(Walk(list), Walked{});
}

TEST_F(Tags, TheFirstPairOfAChainedListIsReturnedAsItStands) {
    TagItem second[] = {{KQTAG_Ignore, 7}, {20, 0}, {0, 0}};
    TagItem list[] = {{KQTAG_More, Pointer(second)}, {0, 0}};
    EXPECT_EQ(Walk(list), (Walked{KQTAG_Ignore, 20}));
}

TEST_F(Tags, FindSeesChainedLists) {
    TagItem second[] = {{5, 55}, {0, 0}};
    TagItem list[] = {{10, 0}, {KQTAG_More, Pointer(second)}, {0, 0}};
    EXPECT_EQ(FindTagItem(5, list), &second[0]);
}

TEST_F(Tags, FindDoesNotSeeSkippedPairs) {
    TagItem list[] = {{KQTAG_Skip, 1}, {5, 1}, {5, 2}, {0, 0}};
    EXPECT_EQ(FindTagItem(5, list), &list[2]);
    EXPECT_EQ(FindTagItem(6, list), nullptr);
}

TEST_F(Tags, FindInANullListGivesNull) { EXPECT_EQ(FindTagItem(5, nullptr), nullptr); }

TEST_F(Tags, CloneOfNullHoldsTheEndPairAlone) {
    TagItem* clone = CloneTagItems(nullptr);
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(clone[0].Tag, 0u);
    EXPECT_EQ(clone[0].Data, 0u);
    FreeMemoryKQ(clone);
}

TEST_F(Tags, CloneFlattensAChain) {
    TagItem second[] = {{20, 200}, {KQTAG_Skip, 0}, {21, 210}, {0, 0}};
    TagItem list[] = {{KQTAG_Ignore, 0}, {10, 100}, {KQTAG_More, Pointer(second)}, {0, 0}};
    TagItem* clone = CloneTagItems(list);
    ASSERT_NE(clone, nullptr);
    for (u32 i = 0; i < 3; ++i) EXPECT_EQ(clone[i].Data, uptr(clone[i].Tag) * 10);
    EXPECT_EQ(Walk(clone), (Walked{10, 20, 21}));
    EXPECT_EQ(clone[3].Tag, 0u);
    EXPECT_EQ(clone[3].Data, 0u);
    FreeMemoryKQ(clone);
}

TEST_F(Tags, CloneOutOfMemoryIsNull) {
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(CloneTagItems(nullptr), nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
}

// A call with a tag list and its twin, as the public headers declare them.
std::vector<TagItem> received;
TagItem* receivedList;

int Call(int value, TagItem* list) {
    receivedList = list;
    received.clear();
    TagItem* cursor = list;
    while (TagItem* item = NextTagItem(&cursor)) received.push_back(*item);
    return value;
}

template <kq::TagNumber Tag, class... Rest>
int Call(int value, Tag tag, Rest... rest) {
    auto tags = kq::TagArray(tag, rest...);
    return Call(value, tags.data());
}

TEST_F(Tags, TwinWithAZeroTagPassesAnEmptyListAndNotNull) {
    EXPECT_EQ(Call(7, 0), 7);
    EXPECT_NE(receivedList, nullptr);
    EXPECT_TRUE(received.empty());
}

TEST_F(Tags, TwinPassesItsPairs) {
    EXPECT_EQ(Call(7, 10, -1, 11u, "text", 0), 7);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].Tag, 10u);
    EXPECT_EQ(i32(received[0].Data), -1);
    EXPECT_STREQ(reinterpret_cast<const char*>(received[1].Data), "text");
}

TEST_F(Tags, TwinFollowsMore) {
    TagItem second[] = {{20, 0}, {0, 0}};
    Call(7, 10, nullptr, KQTAG_More, second, 0);
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].Data, 0u);
    EXPECT_EQ(received[1].Tag, 20u);
}

}   // namespace
