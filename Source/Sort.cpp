// Sorting of lists: a quicksort on the middle element whose exchanges, and with them the order of equal nodes, are
// part of the interface.
//
// The nodes are lifted into an array, sorted there and linked again once. When memory for the array is short the same
// steps run on the links. Both forms share one quicksort over a sequence that offers
//
//     Pivot    what is kept of the middle element, by value, since the exchanges move it
//     Before   whether the element at an index comes before the pivot; After: behind it
//     Exchange of the elements at two indices
//
// For names the array holds eight folded bytes of each name beside the node, taken behind what all names have in
// common, so that nearly all comparisons are one of two words.
#define KQ_MODULE "Source/Sort"
#include <cstring>
#include <utility>

#include "Source/Alloc.h"
#include "Source/Text.h"
#include "kq/environment.h"

namespace {

using LessFunction = int (*)(Node* a, Node* b);

// The left part is for recursion and the right part for the loop, or the other way round: they share no element, so
// the order does not show, and going on with the larger one bounds the stack at the logarithm of the count.
template <class Sequence>
void Quicksort(Sequence& sequence, i32 lo, i32 hi) {
    while (lo < hi) {
        auto pivot = sequence.Pivot(i32((i64(lo) + hi) / 2), lo, hi);
        i32 i = lo, j = hi;
        while (i <= j) {
            while (i < hi && sequence.Before(i, pivot)) ++i;
            while (j > lo && sequence.After(j, pivot)) --j;
            if (i > j) break;
            sequence.Exchange(i++, j--);
        }
        if (j - lo < hi - i) {
            Quicksort(sequence, lo, j);
            lo = i;
        } else {
            Quicksort(sequence, i, hi);
            hi = j;
        }
    }
}

// A node with the part of its name that decides nearly every comparison.
struct KeyedNode {
    u64 key;   // folded bytes as a big-endian number, 0 behind the end of the name
    Node* node;
};

class KeyedSequence {
public:
    KeyedSequence(KeyedNode* nodes, size_t keyed) : nodes_(nodes), keyed_(keyed) {}

    KeyedNode Pivot(i32 middle, i32, i32) const { return nodes_[middle]; }

    bool Before(i32 index, const KeyedNode& pivot) const { return Comes(nodes_[index], pivot); }

    bool After(i32 index, const KeyedNode& pivot) const { return Comes(pivot, nodes_[index]); }

    void Exchange(i32 a, i32 b) { std::swap(nodes_[a], nodes_[b]); }

private:
    bool Comes(const KeyedNode& a, const KeyedNode& b) const {
        if (a.key != b.key) return a.key < b.key;
        bool ends = (a.key & 0xFF) == 0;   // then both names are told whole
        return !ends && kq::CompareFolded(a.node->Name + keyed_, b.node->Name + keyed_) < 0;
    }

    KeyedNode* nodes_;
    size_t keyed_;   // bytes at the start of every name that the keys and their common head tell
};

// Nodes lie anywhere in memory, so the ones that the walks come to are asked for ahead; in front of the first and
// behind the last node the array has as many empty places.
class LessSequence {
public:
    static constexpr i32 kAhead = 8;

    LessSequence(Node** nodes, LessFunction less) : nodes_(nodes), less_(less) {}

    Node* Pivot(i32 middle, i32, i32) const { return nodes_[middle]; }

    bool Before(i32 index, Node* pivot) const {
        __builtin_prefetch(nodes_[index + kAhead]);
        return less_(nodes_[index], pivot) != 0;
    }

    bool After(i32 index, Node* pivot) const {
        __builtin_prefetch(nodes_[index - kAhead]);
        return less_(pivot, nodes_[index]) != 0;
    }

    void Exchange(i32 a, i32 b) { std::swap(nodes_[a], nodes_[b]); }

private:
    Node** nodes_;
    LessFunction less_;
};

// Exchanges two nodes of a list, adjacent or not, by their links. A link of one that pointed at the other points at
// the node itself in its new place; sentinels are updated like nodes.
void ExchangeNodes(Node* a, Node* b) {
    if (a == b) return;
    Node *succA = a->Succ, *predA = a->Pred, *succB = b->Succ, *predB = b->Pred;
    a->Succ = succB == a ? b : succB;
    a->Pred = predB == a ? b : predB;
    b->Succ = succA == b ? a : succA;
    b->Pred = predA == b ? a : predA;
    a->Succ->Pred = a;
    a->Pred->Succ = a;
    b->Succ->Pred = b;
    b->Pred->Succ = b;
}

// Names by their pointers, as a pivot that moves keeps its name.
struct NameOrder {
    bool operator()(Node* a, Node* b) const { return kq::CompareFolded(a->Name, b->Name) < 0; }
};

struct LessOrder {
    LessFunction less;

    bool operator()(Node* a, Node* b) const { return less(a, b) != 0; }
};

// The list itself, reached by index through two fingers that follow the walks from both ends.
template <class Order>
class LinkedSequence {
public:
    LinkedSequence(List* list, Order order) : order_(order), front_{list->Head, 0}, back_{list->Head, 0} {}

    // Every pass starts here, from fingers that the last pass left on live nodes.
    Node* Pivot(i32 middle, i32 lo, i32 hi) {
        Move(back_, hi);
        Node* pivot = Move(front_, middle);
        Move(front_, lo);
        return pivot;
    }

    bool Before(i32 index, Node* pivot) { return order_(Move(front_, index), pivot); }

    bool After(i32 index, Node* pivot) { return order_(pivot, Move(back_, index)); }

    void Exchange(i32 a, i32 b) {
        Node* first = Move(front_, a);
        Node* second = Move(back_, b);
        ExchangeNodes(first, second);
        front_.node = second;
        back_.node = first;
    }

private:
    struct Finger {
        Node* node;
        i32 index;
    };

    static Node* Move(Finger& finger, i32 index) {
        for (; finger.index < index; ++finger.index) finger.node = finger.node->Succ;
        for (; finger.index > index; --finger.index) finger.node = finger.node->Pred;
        return finger.node;
    }

    Order order_;
    Finger front_, back_;
};

template <class Order>
void SortLinks(List* list, i32 count, Order order) {
    LinkedSequence<Order> sequence(list, order);
    Quicksort(sequence, 0, count - 1);
}

// Bytes at the start of all names that are equal when folded.
size_t CommonHead(const List* list) {
    const char* first = list->Head->Name;
    size_t common = std::strlen(first);
    for (const Node* node = list->Head->Succ; node->Succ; node = node->Succ) {
        size_t i = 0;
        while (i < common && kq::FoldLower(u8(first[i])) == kq::FoldLower(u8(node->Name[i]))) ++i;
        common = i;
    }
    return common;
}

u64 KeyOf(const char* text) {
    u64 key = 0;
    for (int shift = 56; shift >= 0 && *text; shift -= 8) key |= u64(kq::FoldLower(u8(*text++))) << shift;
    return key;
}

// Links the nodes of an array of `count` above 0 in its order.
template <class Element, class NodeOf>
void Relink(List* list, const Element* elements, i32 count, NodeOf nodeOf) {
    Node* before = reinterpret_cast<Node*>(list);
    for (i32 i = 0; i < count; ++i) {
        Node* node = nodeOf(elements[i]);
        node->Pred = before;
        before->Succ = node;
        before = node;
    }
    before->Succ = reinterpret_cast<Node*>(&list->Tail);
    list->TailPred = before;
}

}   // namespace

void Sort_List(List* list) {
    i32 count = List_Entries(list);
    if (count < 2) return;
    u32 error = KQEnv->Error;
    KeyedNode* nodes = static_cast<KeyedNode*>(KQ_ALLOC(size_t(count) * sizeof(KeyedNode), 0));
    if (!nodes) {
        KQEnv->Error = error;
        SortLinks(list, count, NameOrder{});
        return;
    }
    size_t common = CommonHead(list);
    KeyedNode* at = nodes;
    for (Node* node = list->Head; node->Succ; node = node->Succ) *at++ = {KeyOf(node->Name + common), node};
    KeyedSequence sequence(nodes, common + sizeof(u64));
    Quicksort(sequence, 0, count - 1);
    Relink(list, nodes, count, [](const KeyedNode& keyed) { return keyed.node; });
    KQ_FREE(nodes);
}

void SortListKQ(List* list, LessFunction less) {
    i32 count = less ? List_Entries(list) : 0;
    if (count < 2) return;
    u32 error = KQEnv->Error;
    constexpr i32 kAhead = LessSequence::kAhead;
    Node** places = static_cast<Node**>(KQ_ALLOC((size_t(count) + 2 * kAhead) * sizeof(Node*), KQMEM_Clear));
    if (!places) {
        KQEnv->Error = error;
        SortLinks(list, count, LessOrder{less});
        return;
    }
    Node **nodes = places + kAhead, **at = nodes;
    for (Node* node = list->Head; node->Succ; node = node->Succ) *at++ = node;
    LessSequence sequence(nodes, less);
    Quicksort(sequence, 0, count - 1);
    Relink(list, nodes, count, [](Node* node) { return node; });
    KQ_FREE(places);
}
