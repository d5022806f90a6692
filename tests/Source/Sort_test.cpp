// Both sorts against the steps written out on the links, one by one.
#include <random>
#include <string>
#include <vector>

#include "kq/lists.h"
#include "support/Fixture.h"

namespace {

// A node with its place in the list as it was made; its name is the test's.
struct Entry {
    Node node;
    i32 serial;
    i32 weight;
};

Entry* EntryOf(Node* node) { return reinterpret_cast<Entry*>(node); }

void Build(List* list, std::vector<Entry>& entries) {
    NewList(list);
    for (size_t i = 0; i < entries.size(); ++i) {
        entries[i].serial = i32(i);
        AddTail(list, &entries[i].node);
    }
}

// The order of the nodes as a text of serial numbers; fails when the links back do not mirror the links on.
std::vector<i32> Order(List* list) {
    std::vector<i32> order, back;
    for (Node* n = list->Head; n->Succ; n = n->Succ) order.push_back(EntryOf(n)->serial);
    for (Node* n = list->TailPred; n->Pred; n = n->Pred) back.insert(back.begin(), EntryOf(n)->serial);
    EXPECT_EQ(order, back);
    EXPECT_EQ(list->Tail, nullptr);
    return order;
}

// Exchanges the nodes by what happens to a list: taken out and put in at each other's index.
void ExchangeEntries(List* list, i32 a, i32 b) {
    if (a == b) return;
    Node* first = List_Entry(list, a);
    Node* second = List_Entry(list, b);
    Remove(first);
    InsertBefore(list, first, second);
    Remove(second);
    InsertBefore(list, second, List_Entry(list, a));
}

template <class Before, class After, class PivotOf>
void ReferenceSort(List* list, i32 lo, i32 hi, Before before, After after, PivotOf pivotOf) {
    for (;;) {
        auto pivot = pivotOf(List_Entry(list, (lo + hi) / 2));
        i32 i = lo, j = hi;
        do {
            while (before(List_Entry(list, i), pivot) && i < hi) ++i;
            while (after(List_Entry(list, j), pivot) && j > lo) --j;
            if (i > j) break;
            ExchangeEntries(list, i, j);
            ++i;
            --j;
        } while (i <= j);
        if (lo < j) ReferenceSort(list, lo, j, before, after, pivotOf);
        if (i >= hi) return;
        lo = i;
    }
}

int Fold(int c) { return c >= 'A' && c <= 'Z' ? c + 'a' - 'A' : c; }

int CompareNames(const char* a, const char* b) {
    for (;; ++a, ++b) {
        int d = Fold(u8(*a)) - Fold(u8(*b));
        if (d || !*a) return d;
    }
}

void ReferenceSortNames(List* list) {
    i32 count = List_Entries(list);
    if (count == 0) return;
    ReferenceSort(
        list, 0, count - 1, [](Node* n, const char* pivot) { return CompareNames(n->Name, pivot) < 0; },
        [](Node* n, const char* pivot) { return CompareNames(n->Name, pivot) > 0; }, [](Node* n) { return n->Name; });
}

void ReferenceSortLess(List* list, int (*less)(Node*, Node*)) {
    i32 count = List_Entries(list);
    if (count == 0) return;
    ReferenceSort(
        list, 0, count - 1, [=](Node* n, Node* pivot) { return less(n, pivot) != 0; },
        [=](Node* n, Node* pivot) { return less(pivot, n) != 0; }, [](Node* n) { return n; });
}

int LighterFirst(Node* a, Node* b) { return EntryOf(a)->weight < EntryOf(b)->weight; }

// A predicate that keeps no order at all, but always answers alike.
int Whimsical(Node* a, Node* b) { return ((EntryOf(a)->serial * 7 + EntryOf(b)->serial * 13) ^ 5) % 3 == 0; }

class Sort : public kqtest::KQTest {
protected:
    // Sorts the same entries by `ours` and `reference`.
    template <class Ours, class Reference>
    void Compare(std::vector<Entry>& entries, Ours ours, Reference reference) {
        List list;
        Build(&list, entries);
        reference(&list);
        std::vector<i32> expected = Order(&list);
        Build(&list, entries);
        ours(&list);
        ASSERT_EQ(Order(&list), expected);
    }

    std::mt19937 random{20260101};   // the seed of every list below
};

// Names of a small alphabet in both cases, so that equal ones abound, behind a common head or not.
std::string RandomName(std::mt19937& random, const std::string& head) {
    static const char letters[] = "aAbBzZ_[\xC3\xE4.0";
    std::string name = head;
    size_t length = random() % (random() % 4 ? 4 : 20);
    for (size_t i = 0; i < length; ++i) name += letters[random() % (sizeof letters - 1)];
    return name;
}

TEST_F(Sort, NamesComeInTheOrderOfTheDescribedSteps) {
    for (int round = 0; round < 4000; ++round) {
        size_t count = random() % (round % 50 ? 24 : 200);
        std::string head = round % 3 == 0 ? "" : round % 3 == 1 ? "Shot" : "a rather long head ";
        std::vector<std::string> names(count);
        std::vector<Entry> entries(count);
        for (size_t i = 0; i < count; ++i) {
            names[i] = RandomName(random, head);
            entries[i].node.Name = names[i].data();
        }
        Compare(entries, Sort_List, ReferenceSortNames);
        if (HasFatalFailure()) FAIL() << "round " << round;
    }
}

TEST_F(Sort, NodesComeInTheOrderOfTheDescribedSteps) {
    for (int round = 0; round < 4000; ++round) {
        std::vector<Entry> entries(random() % (round % 50 ? 24 : 200));
        u32 values = 1 + random() % 30;
        for (Entry& entry : entries) entry.weight = i32(random() % values);
        Compare(
            entries, [](List* list) { SortListKQ(list, LighterFirst); },
            [](List* list) { ReferenceSortLess(list, LighterFirst); });
        if (HasFatalFailure()) FAIL() << "round " << round;
    }
}

TEST_F(Sort, WithoutMemoryForTheArrayTheOrderIsTheSame) {
    for (int round = 0; round < 1000; ++round) {
        size_t count = 2 + random() % 40;
        std::vector<std::string> names(count);
        std::vector<Entry> entries(count);
        for (size_t i = 0; i < count; ++i) {
            names[i] = RandomName(random, "x");
            entries[i].node.Name = names[i].data();
            entries[i].weight = i32(random() % 8);
        }
        kq::allocationFaults.Set(1, false);
        Compare(entries, Sort_List, ReferenceSortNames);
        Compare(
            entries, [](List* list) { SortListKQ(list, LighterFirst); },
            [](List* list) { ReferenceSortLess(list, LighterFirst); });
        EXPECT_EQ(kq::allocationFaults.failures, 2);
        kq::allocationFaults.Clear();
        if (HasFatalFailure()) FAIL() << "round " << round;
    }
}

TEST_F(Sort, APredicateWithoutOrderGivesTheDescribedOrder) {
    for (int round = 0; round < 500; ++round) {
        std::vector<Entry> entries(random() % 60);
        Compare(
            entries, [](List* list) { SortListKQ(list, Whimsical); },
            [](List* list) { ReferenceSortLess(list, Whimsical); });
    }
}

TEST_F(Sort, ThreeOneTwoIsSorted) {
    std::vector<Entry> entries(3);
    i32 weights[] = {3, 1, 2};
    for (int i = 0; i < 3; ++i) entries[size_t(i)].weight = weights[i];
    List list;
    Build(&list, entries);
    SortListKQ(&list, LighterFirst);
    EXPECT_EQ(Order(&list), (std::vector<i32>{1, 2, 0}));
}

TEST_F(Sort, ANullPredicateDoesNothing) {
    std::vector<Entry> entries(3);
    List list;
    Build(&list, entries);
    SortListKQ(&list, nullptr);
    EXPECT_EQ(Order(&list), (std::vector<i32>{0, 1, 2}));
}

TEST_F(Sort, ListsOfMinNodesSortByPredicate) {
    struct Small {
        MinNode node;
        i32 value;
    };
    std::vector<Small> nodes(50);
    List list;
    NewList(&list);
    for (Small& node : nodes) {
        node.value = i32(random() % 100);
        AddTail(&list, &node.node);
    }
    for (i64 failAt : {0, 1}) {
        kq::allocationFaults.Set(failAt, true);
        SortListKQ(&list, [](Node* a, Node* b) {
            return int(reinterpret_cast<Small*>(a)->value < reinterpret_cast<Small*>(b)->value);
        });
        for (Node* n = list.Head; n->Succ->Succ; n = n->Succ)
            EXPECT_LE(reinterpret_cast<Small*>(n)->value, reinterpret_cast<Small*>(n->Succ)->value);
    }
    kq::allocationFaults.Clear();
}

TEST_F(Sort, ErrorIsLeftAloneWhenTheArrayCannotBeHad) {
    std::vector<Entry> entries(3);
    List list;
    Build(&list, entries);
    KQEnv->Error = KQERR_DISKFULL;
    kq::allocationFaults.Set(1, true);
    SortListKQ(&list, LighterFirst);
    kq::allocationFaults.Clear();
    EXPECT_EQ(GetErrorKQ(), u32(KQERR_DISKFULL));
}

// Each pass splits one element off the right: the middle of what is left is always the largest. Recursion on the long
// left part would go as deep as there are nodes.
TEST_F(Sort, WorstCaseOrderDoesNotExhaustTheStack) {
    i32 count = 20000;
    std::vector<Entry> entries{size_t(count)};
    std::vector<i32> places(static_cast<size_t>(count));
    for (i32 i = 0; i < count; ++i) places[size_t(i)] = i;
    // Backward: the pass over 0 .. hi takes the middle for its largest and exchanges it with the one at hi.
    for (i32 hi = count - 1; hi >= 1; --hi) {
        i32 middle = hi / 2;
        entries[size_t(places[size_t(middle)])].weight = hi;
        std::swap(places[size_t(middle)], places[size_t(hi)]);
    }
    entries[size_t(places[0])].weight = 0;
    List list;
    Build(&list, entries);
    SortListKQ(&list, LighterFirst);
    for (Node* n = list.Head; n->Succ->Succ; n = n->Succ) ASSERT_LT(EntryOf(n)->weight, EntryOf(n->Succ)->weight);
}

}   // namespace
