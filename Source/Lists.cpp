// Doubly linked lists with folded sentinels. A list's address serves as the head sentinel and the address of its Tail
// field as the tail sentinel; the casts between List and Node here are that trick and stand nowhere else.
#define KQ_MODULE "Source/Lists"
#include "kq/lists.h"

#include <cstring>

#include "Source/Alloc.h"
#include "Source/Text.h"

namespace {

Node* HeadSentinel(List* list) { return reinterpret_cast<Node*>(list); }

Node* TailSentinel(List* list) { return reinterpret_cast<Node*>(&list->Tail); }

List* ListOfTail(Node* tail) { return reinterpret_cast<List*>(reinterpret_cast<u8*>(tail) - offsetof(List, Tail)); }

void LinkBetween(Node* before, Node* node, Node* after) {
    node->Succ = after;
    node->Pred = before;
    before->Succ = node;
    after->Pred = node;
}

void Unlink(Node* node) {
    node->Pred->Succ = node->Succ;
    node->Succ->Pred = node->Pred;
}

}   // namespace

void NewList(List* list) {
    list->Head = TailSentinel(list);
    list->Tail = nullptr;
    list->TailPred = HeadSentinel(list);
}

void AddHead(List* list, Node* node) { LinkBetween(HeadSentinel(list), node, list->Head); }

void AddTail(List* list, Node* node) { LinkBetween(list->TailPred, node, TailSentinel(list)); }

void Insert(List* list, Node* node, Node* after) {
    if (!after) return AddHead(list, node);
    LinkBetween(after, node, after->Succ);
}

void InsertBefore(List* list, Node* node, Node* before) {
    if (!before) return AddTail(list, node);
    LinkBetween(before->Pred, node, before);
}

void Remove(Node* node) {
    Unlink(node);
    node->Succ = nullptr;
    node->Pred = nullptr;
}

Node* RemHead(List* list) {
    if (List_Empty(list)) return nullptr;
    Node* node = list->Head;
    Unlink(node);
    return node;
}

Node* RemTail(List* list) {
    if (List_Empty(list)) return nullptr;
    Node* node = list->TailPred;
    Unlink(node);
    return node;
}

int List_Empty(const List* list) { return list->TailPred == reinterpret_cast<const Node*>(list); }

i32 List_Entries(const List* list) {
    i32 count = 0;
    for (const Node* node = list->Head; node->Succ; node = node->Succ) ++count;
    return count;
}

Node* List_Entry(const List* list, i32 index) {
    if (index < 0) return nullptr;
    Node* node = list->Head;
    for (; node->Succ; node = node->Succ)
        if (index-- == 0) return node;
    return nullptr;
}

List* GetList(Node* node) {
    while (node->Pred) node = node->Pred;
    return reinterpret_cast<List*>(node);
}

Node* FindNodeID(const List* list, u32 id) {
    for (Node* node = list->Head; node->Succ; node = node->Succ)
        if (node->ID == id) return node;
    return nullptr;
}

i32 Find_IndexID(const List* list, u32 id) {
    i32 index = 0;
    for (const Node* node = list->Head; node->Succ; node = node->Succ, ++index)
        if (node->ID == id) return index;
    return -1;
}

Node* Find_Name(const List* list, const char* name) {
    for (Node* node = list->Head; node->Succ; node = node->Succ)
        if (kq::CompareFolded(node->Name, name) == 0) return node;
    return nullptr;
}

i32 Find_Index(const List* list, const char* name) {
    i32 index = 0;
    for (const Node* node = list->Head; node->Succ; node = node->Succ, ++index)
        if (kq::CompareFolded(node->Name, name) == 0) return index;
    return -1;
}

char* AddName(Node* node, const char* name) {
    KQ_FREE(node->Name);
    node->Name = nullptr;
    if (!name) return nullptr;
    size_t size = std::strlen(name) + 1;
    node->Name = static_cast<char*>(KQ_ALLOC(size, 0));
    if (node->Name) std::memcpy(node->Name, name, size);
    return node->Name;
}

namespace {

Node* NamedNode(const char* name) {
    Node* node = KQ_NEW(Node);
    if (!node) return nullptr;
    if (AddName(node, name) || !name) return node;
    KQ_FREE(node);
    return nullptr;
}

}   // namespace

Node* Add_Node(List* list, const char* name) {
    Node* node = NamedNode(name);
    if (node) AddTail(list, node);
    return node;
}

Node* Insert_Node(List* list, const char* name, i32 index) {
    Node* node = NamedNode(name);
    if (node)
        InsertBefore(list, node, index <= 0 ? (List_Empty(list) ? nullptr : list->Head) : List_Entry(list, index));
    return node;
}

void FreeNode(Node* node) {
    Remove(node);
    KQ_FREE(node->Name);
    KQ_FREE(node);
}

void FreeNode(MinNode* node) {
    Remove(node);
    KQ_FREE(node);
}

void Free_List(List* list) {
    if (!list || !list->Head) return;
    while (Node* node = RemHead(list)) {
        KQ_FREE(node->Name);
        KQ_FREE(node);
    }
}

Node* NextNodeWrap(Node* node) {
    if (node->Succ->Succ) return node->Succ;
    return ListOfTail(node->Succ)->Head;
}

Node* PrevNodeWrap(Node* node) {
    if (node->Pred->Pred) return node->Pred;
    return reinterpret_cast<List*>(node->Pred)->TailPred;
}

namespace {

// The list that holds `node` is a field of a parent, `offset` bytes behind its start.
Node* ParentOf(List* children, ptrdiff_t offset) {
    return reinterpret_cast<Node*>(reinterpret_cast<u8*>(children) - offset);
}

List* ChildrenOf(Node* parent, ptrdiff_t offset) {
    return reinterpret_cast<List*>(reinterpret_cast<u8*>(parent) + offset);
}

}   // namespace

Node* NextNodeListWrap(Node* node, ptrdiff_t offset) {
    Node* next = node->Succ;
    while (!next->Succ) next = ChildrenOf(NextNodeWrap(ParentOf(ListOfTail(next), offset)), offset)->Head;
    return next;
}

Node* PrevNodeListWrap(Node* node, ptrdiff_t offset) {
    Node* previous = node->Pred;
    while (!previous->Pred)
        previous = ChildrenOf(PrevNodeWrap(ParentOf(reinterpret_cast<List*>(previous), offset)), offset)->TailPred;
    return previous;
}
