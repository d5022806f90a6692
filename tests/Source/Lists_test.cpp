#include "kq/lists.h"

#include "support/Fixture.h"

namespace {

using Lists = kqtest::KQTest;

TEST_F(Lists, EmptyListGivesNoNodes) {
    List list;
    NewList(&list);
    EXPECT_EQ(RemHead(&list), nullptr);
    EXPECT_EQ(RemTail(&list), nullptr);
    EXPECT_EQ(List_Entry(&list, 0), nullptr);
    EXPECT_EQ(List_Entries(&list), 0);
    EXPECT_EQ(Find_Name(&list, "x"), nullptr);
    EXPECT_EQ(Find_Index(&list, "x"), -1);
}

}   // namespace
