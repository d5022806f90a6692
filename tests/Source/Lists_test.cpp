#include "kq/lists.h"

#include <string>

#include "support/Fixture.h"

namespace {

// A list that is freed with its test.
class Lists : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        NewList(&list);
    }

    void TearDown() override {
        Free_List(&list);
        KQTest::TearDown();
    }

    void Fill(std::initializer_list<const char*> names) {
        for (const char* name : names) ASSERT_NE(Add_Node(&list, name), nullptr);
    }

    List list;
};

// The names in order, checked against a walk from the end.
std::string Names(const List* list) {
    std::string names, back;
    for (const Node* n = list->Head; n->Succ; n = n->Succ) names += std::string(n->Name) + " ";
    for (const Node* n = list->TailPred; n->Pred; n = n->Pred) back = std::string(n->Name) + " " + back;
    EXPECT_EQ(names, back);
    EXPECT_EQ(list->Tail, nullptr);
    return names;
}

TEST_F(Lists, NewListPointsAtItsOwnSentinels) {
    EXPECT_EQ(static_cast<void*>(list.Head), static_cast<void*>(&list.Tail));
    EXPECT_EQ(list.Tail, nullptr);
    EXPECT_EQ(static_cast<void*>(list.TailPred), static_cast<void*>(&list));
    EXPECT_NE(List_Empty(&list), 0);
}

TEST_F(Lists, EmptyListGivesNoNodes) {
    EXPECT_EQ(RemHead(&list), nullptr);
    EXPECT_EQ(RemTail(&list), nullptr);
    EXPECT_EQ(List_Entry(&list, 0), nullptr);
    EXPECT_EQ(List_Entries(&list), 0);
    EXPECT_EQ(Find_Name(&list, "x"), nullptr);
    EXPECT_EQ(Find_Index(&list, "x"), -1);
    EXPECT_EQ(FindNodeID(&list, 0), nullptr);
    EXPECT_EQ(Find_IndexID(&list, 0), -1);
}

TEST_F(Lists, SortingAnEmptyListDoesNothing) {
    Sort_List(&list);
    SortListKQ(&list, [](Node*, Node*) { return 1; });
    EXPECT_NE(List_Empty(&list), 0);
    EXPECT_EQ(list.Tail, nullptr);
}

TEST_F(Lists, SortingAListOfOneLeavesIt) {
    Fill({"a"});
    Sort_List(&list);
    SortListKQ(&list, [](Node*, Node*) { return 1; });
    EXPECT_EQ(Names(&list), "a ");
}

TEST_F(Lists, NodesWrapToThemselvesInAListOfOne) {
    Fill({"a"});
    EXPECT_EQ(NextNodeWrap(list.Head), list.Head);
    EXPECT_EQ(PrevNodeWrap(list.Head), list.Head);
}

TEST_F(Lists, NodesWrapAroundTheRing) {
    Fill({"a", "b", "c"});
    EXPECT_STREQ(NextNodeWrap(list.Head)->Name, "b");
    EXPECT_STREQ(NextNodeWrap(list.TailPred)->Name, "a");
    EXPECT_STREQ(PrevNodeWrap(list.Head)->Name, "c");
    EXPECT_STREQ(PrevNodeWrap(list.TailPred)->Name, "b");
}

TEST_F(Lists, AddHeadAndAddTailLinkAtTheEnds) {
    Node a{}, b{}, c{};
    AddTail(&list, &b);
    AddHead(&list, &a);
    AddTail(&list, &c);
    EXPECT_EQ(List_Entry(&list, 0), &a);
    EXPECT_EQ(List_Entry(&list, 1), &b);
    EXPECT_EQ(List_Entry(&list, 2), &c);
    EXPECT_EQ(List_Entry(&list, 3), nullptr);
    EXPECT_EQ(List_Entry(&list, -1), nullptr);
    EXPECT_EQ(List_Entries(&list), 3);
    NewList(&list);
}

TEST_F(Lists, InsertLinksBehindANode) {
    Node a{}, b{}, c{};
    AddTail(&list, &a);
    AddTail(&list, &c);
    Insert(&list, &b, &a);
    EXPECT_EQ(List_Entry(&list, 1), &b);
    EXPECT_EQ(list.TailPred, &c);
    NewList(&list);
}

TEST_F(Lists, InsertBehindNullIsAddHead) {
    Node a{}, b{};
    AddTail(&list, &b);
    Insert(&list, &a, nullptr);
    EXPECT_EQ(list.Head, &a);
    EXPECT_EQ(list.TailPred, &b);
    NewList(&list);
}

TEST_F(Lists, InsertBeforeNullIsAddTail) {
    Node a{}, b{};
    AddTail(&list, &a);
    InsertBefore(&list, &b, nullptr);
    EXPECT_EQ(list.Head, &a);
    EXPECT_EQ(list.TailPred, &b);
    NewList(&list);
}

TEST_F(Lists, InsertBeforeTheFirstLinksAtTheHead) {
    Node a{}, b{};
    AddTail(&list, &b);
    InsertBefore(&list, &a, &b);
    EXPECT_EQ(list.Head, &a);
    EXPECT_EQ(list.TailPred, &b);
    NewList(&list);
}

TEST_F(Lists, RemoveNullsTheLinks) {
    Node a{}, b{};
    AddTail(&list, &a);
    AddTail(&list, &b);
    Remove(&a);
    EXPECT_EQ(a.Succ, nullptr);
    EXPECT_EQ(a.Pred, nullptr);
    EXPECT_EQ(list.Head, &b);
    NewList(&list);
}

TEST_F(Lists, RemHeadLeavesLinksOfReturnedNode) {
    Node a{}, b{};
    AddTail(&list, &a);
    AddTail(&list, &b);
    EXPECT_EQ(RemHead(&list), &a);
    EXPECT_EQ(a.Succ, &b);
    EXPECT_EQ(static_cast<void*>(a.Pred), static_cast<void*>(&list));
    EXPECT_EQ(list.Head, &b);
    NewList(&list);
}

TEST_F(Lists, RemTailLeavesLinksOfReturnedNode) {
    Node a{}, b{};
    AddTail(&list, &a);
    AddTail(&list, &b);
    EXPECT_EQ(RemTail(&list), &b);
    EXPECT_EQ(b.Pred, &a);
    EXPECT_EQ(static_cast<void*>(b.Succ), static_cast<void*>(&list.Tail));
    EXPECT_EQ(list.TailPred, &a);
    NewList(&list);
}

TEST_F(Lists, GetListFindsTheListOfANode) {
    Fill({"a", "b", "c"});
    EXPECT_EQ(GetList(list.TailPred), &list);
    EXPECT_EQ(GetList(list.Head), &list);
    EXPECT_EQ(GetList(reinterpret_cast<Node*>(&list)), &list);
}

TEST_F(Lists, FindNodeIDGivesTheFirstOfEqualIDs) {
    Fill({"a", "b", "c"});
    List_Entry(&list, 1)->ID = 7;
    List_Entry(&list, 2)->ID = 7;
    EXPECT_EQ(FindNodeID(&list, 7), List_Entry(&list, 1));
    EXPECT_EQ(Find_IndexID(&list, 7), 1);
    EXPECT_EQ(Find_IndexID(&list, 8), -1);
}

TEST_F(Lists, FindNameIgnoresCase) {
    Fill({"x", "ABC", "abc"});
    EXPECT_EQ(Find_Name(&list, "abc"), List_Entry(&list, 1));
    EXPECT_EQ(Find_Index(&list, "aBc"), 1);
    EXPECT_EQ(Find_Index(&list, "ab"), -1);
    EXPECT_EQ(Find_Index(&list, "abcd"), -1);
}

TEST_F(Lists, FindNameLeavesBytesAboveAsciiAlone) {
    Fill({"\xC3\x84"});
    EXPECT_EQ(Find_Index(&list, "\xC3\xA4"), -1);
    EXPECT_EQ(Find_Index(&list, "\xC3\x84"), 0);
}

TEST_F(Lists, AddNameReplacesTheName) {
    Fill({"old"});
    const char* name = AddName(list.Head, "new name");
    EXPECT_EQ(name, list.Head->Name);
    EXPECT_STREQ(name, "new name");
}

TEST_F(Lists, AddNameWithNullLeavesNoName) {
    Fill({"old"});
    EXPECT_EQ(AddName(list.Head, nullptr), nullptr);
    EXPECT_EQ(list.Head->Name, nullptr);
}

TEST_F(Lists, InsertNodePastTheEndPutsItLast) {
    Fill({"a", "b", "c"});
    EXPECT_EQ(Insert_Node(&list, "x", 1000), list.TailPred);
    EXPECT_EQ(Names(&list), "a b c x ");
}

TEST_F(Lists, InsertNodeBelowZeroPutsItFirst) {
    Fill({"a", "b", "c"});
    EXPECT_EQ(Insert_Node(&list, "x", -5), list.Head);
    EXPECT_EQ(Names(&list), "x a b c ");
}

TEST_F(Lists, InsertNodeGoesInFrontOfItsIndex) {
    Insert_Node(&list, "b", 0);
    Insert_Node(&list, "a", 0);
    Insert_Node(&list, "c", 1);
    Insert_Node(&list, "d", 3);
    EXPECT_EQ(Names(&list), "a c b d ");
}

TEST_F(Lists, NewNodesAreCleared) {
    Fill({"a"});
    EXPECT_EQ(list.Head->ID, 0u);
}

TEST_F(Lists, FreeNodeUnlinksAndFrees) {
    Fill({"a", "b"});
    i64 before = kqtest::LiveBlocks();
    FreeNode(list.Head);
    EXPECT_EQ(kqtest::LiveBlocks(), before - 2);
    EXPECT_EQ(Names(&list), "b ");
}

TEST_F(Lists, FreeListLeavesAValidEmptyList) {
    Fill({"a", "b"});
    Free_List(&list);
    EXPECT_NE(List_Empty(&list), 0);
    Fill({"c"});
    EXPECT_EQ(Names(&list), "c ");
}

TEST_F(Lists, FreeListLeavesNullAndUnmadeListsAlone) {
    i64 before = kqtest::LiveBlocks();
    Free_List(nullptr);
    List unmade{};
    Free_List(&unmade);
    EXPECT_EQ(unmade.Head, nullptr);
    EXPECT_EQ(kqtest::LiveBlocks(), before);
}

TEST_F(Lists, MinNodeFormsDoTheSame) {
    MinNode a, b, c;
    AddHead(&list, &b);
    AddTail(&list, &c);
    InsertBefore(&list, &a, &b);
    EXPECT_EQ(KQMinNodeOf(list.Head), &a);
    EXPECT_EQ(NextNodeWrap(&c), &a);
    EXPECT_EQ(PrevNodeWrap(&a), &c);
    Remove(&b);
    EXPECT_EQ(b.Succ, nullptr);
    Insert(&list, &b, &a);
    EXPECT_EQ(a.Succ, &b);
    NewList(&list);
}

TEST_F(Lists, FreeNodeFreesAMinNode) {
    MinNode* node = static_cast<MinNode*>(AllocMemoryKQ(sizeof(MinNode), 0));
    AddTail(&list, node);
    FreeNode(node);
    EXPECT_NE(List_Empty(&list), 0);
}

TEST_F(Lists, EveryFailedAllocationOfANodeGivesNullAndLeavesTheList) {
    Fill({"a"});
    kqtest::FailEveryAllocation([&] {
        Node* added = Add_Node(&list, "b");
        Node* inserted = Insert_Node(&list, "c", 0);
        EXPECT_EQ(List_Entries(&list), 1 + (added != nullptr) + (inserted != nullptr));
        if (!added || !inserted) {
            EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
        }
        if (added) FreeNode(added);
        if (inserted) FreeNode(inserted);
    });
}

TEST_F(Lists, AddNameOutOfMemoryLeavesNoName) {
    Fill({"a"});
    kq::allocationFaults.Set(1, true);
    EXPECT_EQ(AddName(list.Head, "b"), nullptr);
    kq::allocationFaults.Clear();
    EXPECT_EQ(list.Head->Name, nullptr);
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_NOMEM));
}

// A parent whose child list lies at a known offset.
struct Parent {
    Node node;
    i32 other;
    List children;
};

class ListRing : public kqtest::KQTest {
protected:
    void SetUp() override {
        KQTest::SetUp();
        NewList(&parents);
        for (Parent& parent : all) {
            parent = {};
            NewList(&parent.children);
            AddTail(&parents, &parent.node);
        }
    }

    static constexpr ptrdiff_t kOffset = offsetof(Parent, children);
    List parents;
    Parent all[4];
    Node nodes[4] = {};
};

TEST_F(ListRing, GoesOnInTheNextParentThatHasChildren) {
    AddTail(&all[1].children, &nodes[0]);
    AddTail(&all[1].children, &nodes[1]);
    AddTail(&all[3].children, &nodes[2]);
    EXPECT_EQ(NextNodeListWrap(&nodes[0], kOffset), &nodes[1]);
    EXPECT_EQ(NextNodeListWrap(&nodes[1], kOffset), &nodes[2]);
    EXPECT_EQ(NextNodeListWrap(&nodes[2], kOffset), &nodes[0]);
    EXPECT_EQ(PrevNodeListWrap(&nodes[0], kOffset), &nodes[2]);
    EXPECT_EQ(PrevNodeListWrap(&nodes[2], kOffset), &nodes[1]);
    EXPECT_EQ(PrevNodeListWrap(&nodes[1], kOffset), &nodes[0]);
}

TEST_F(ListRing, TheOnlyMemberComesBackToItself) {
    AddTail(&all[2].children, &nodes[0]);
    EXPECT_EQ(NextNodeListWrap(&nodes[0], kOffset), &nodes[0]);
    EXPECT_EQ(PrevNodeListWrap(&nodes[0], kOffset), &nodes[0]);
}

TEST_F(ListRing, MinNodeFormsDoTheSame) {
    MinNode a, b;
    AddTail(&all[0].children, &a);
    AddTail(&all[2].children, &b);
    EXPECT_EQ(NextNodeListWrap(&a, kOffset), &b);
    EXPECT_EQ(PrevNodeListWrap(&a, kOffset), &b);
}

}   // namespace
