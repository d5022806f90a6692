// Sorting lists of 100,000 nodes against std::sort on a vector of pointers with the same comparison, then relinking.
#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/Bench.h"
#include "kq/environment.h"
#include "kq/lists.h"

namespace {

constexpr size_t kCount = 100000;

int Fold(int c) { return c >= 'A' && c <= 'Z' ? c + 'a' - 'A' : c; }

int CompareNames(const char* a, const char* b) {
    for (;; ++a, ++b) {
        int d = Fold(u8(*a)) - Fold(u8(*b));
        if (d || !*a) return d;
    }
}

int NameLess(Node* a, Node* b) { return CompareNames(a->Name, b->Name) < 0; }

int IdLess(Node* a, Node* b) { return a->ID < b->ID; }

struct Names {
    explicit Names(const char* format) {
        NewList(&list);
        std::mt19937 random(1);
        std::vector<u32> numbers(kCount);
        for (size_t i = 0; i < kCount; ++i) numbers[i] = u32(i);
        std::shuffle(numbers.begin(), numbers.end(), random);
        for (u32 number : numbers) {
            char name[64];
            std::snprintf(name, sizeof name, format, number, unsigned(random()));
            Node* node = Add_Node(&list, name);
            node->ID = random();
            order.push_back(node);
        }
    }

    ~Names() { Free_List(&list); }

    // The shuffled order again: its cost is in every contender alike.
    void Restore() {
        NewList(&list);
        for (Node* node : order) AddTail(&list, node);
    }

    template <class Less>
    void StandardSort(Less less) {
        Restore();
        std::vector<Node*> nodes;
        nodes.reserve(kCount);
        for (Node* n = list.Head; n->Succ; n = n->Succ) nodes.push_back(n);
        std::sort(nodes.begin(), nodes.end(), less);
        NewList(&list);
        for (Node* node : nodes) AddTail(&list, node);
    }

    List list;
    std::vector<Node*> order;
};

void NameRow(const char* title, const char* format) {
    Names names(format);
    bench::Row(title, kCount, "call",
               {{"Sort_List", [&] { names.Restore(), Sort_List(&names.list); }},
                {"std::sort of pointers, relink",
                 [&] { names.StandardSort([](Node* a, Node* b) { return CompareNames(a->Name, b->Name) < 0; }); }},
                {"the shuffled order alone", [&] { names.Restore(); }}},
               {{1, 1.0}});
}

void LessRow(const char* title, int (*less)(Node*, Node*)) {
    Names names("%2$08x file %1$u.tga");
    bench::Row(title, kCount, "call",
               {{"SortListKQ", [&] { names.Restore(), SortListKQ(&names.list, less); }},
                {"std::sort of pointers, relink", [&] { names.StandardSort(less); }},
                {"the shuffled order alone", [&] { names.Restore(); }}},
               {{1, 1.0}});
}

}   // namespace

int main() {
    TagItem tags[] = {{KQTAG_InitNoWindow, 0}, {KQTAG_End, 0}};
    if (!InitKQ(nullptr, nullptr, nullptr, nullptr, nullptr, tags)) return 1;
    NameRow("Sort_List, 100,000 names that differ early (ns a node)", "%2$08x file %1$u.tga");
    NameRow("Sort_List, 100,000 names of a sequence (ns a node)", "Sequence of Frames.%1$06u.tga");
    LessRow("SortListKQ, 100,000 nodes by name (ns a node)", NameLess);
    LessRow("SortListKQ, 100,000 nodes by ID (ns a node)", IdLess);
    CleanUpKQ();
    return 0;
}
