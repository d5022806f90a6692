// Doubly linked lists whose head and tail sentinels are folded into a three-word header.
//
// A record that wants to stand in a list starts with a Node or a MinNode. A node knows no list. The header is both
// sentinels at once: Head and Tail form a node whose Succ is the first node and whose Pred (Tail) is null; Tail and
// TailPred form a node whose Succ (Tail) is null and whose Pred is the last node. A walk therefore reads
//
//     for (Node* n = list.Head; n->Succ; n = n->Succ) ...
//
// and walking back stops where Pred is null. Lists are not locked: each belongs to the thread or lock of its owner.
#pragma once

#include "kq/types.h"

struct MinNode {
    MinNode* Succ;   // next node, or the tail sentinel
    MinNode* Pred;   // previous node, or the head sentinel
};

struct Node {
    Node* Succ;   // next node, or the tail sentinel
    Node* Pred;   // previous node, or the head sentinel
    u32 ID;       // the application's identifier, for FindNodeID and Find_IndexID
    char* Name;   // owned name or null; freed by FreeNode and Free_List
};

struct List {
    Node* Head;       // first node, or the address of Tail
    Node* Tail;       // always null
    Node* TailPred;   // last node, or the address of the list
};

// Makes `list` empty.
KQ_API void NewList(List* list);

// Links `node` at the front of `list`.
KQ_API void AddHead(List* list, Node* node);

// Links `node` at the end of `list`.
KQ_API void AddTail(List* list, Node* node);

// Links `node` behind `after`; a null `after` links at the head.
KQ_API void Insert(List* list, Node* node, Node* after);

// Links `node` in front of `before`; a null `before` links at the tail.
KQ_API void InsertBefore(List* list, Node* node, Node* before);

// Unlinks `node` from whatever list it stands in and nulls its links.
KQ_API void Remove(Node* node);

// Unlinks and returns the first node, or null when the list is empty. The links of the returned node stay as they
// were, unlike with Remove.
KQ_API Node* RemHead(List* list);

// Unlinks and returns the last node, or null when the list is empty. Its links stay as they were.
KQ_API Node* RemTail(List* list);

// Non-zero when `list` holds no node.
KQ_API int List_Empty(const List* list);

// The count of nodes, by a walk.
KQ_API i32 List_Entries(const List* list);

// The node at `index`, counted from 0; null when `index` is negative or the list has fewer nodes.
KQ_API Node* List_Entry(const List* list, i32 index);

// The list that `node` stands in, found by following Pred to the head sentinel. Given a list it returns that list.
KQ_API List* GetList(Node* node);

// The first node with this ID, or null.
KQ_API Node* FindNodeID(const List* list, u32 id);

// The index of the first node with this ID, or -1.
KQ_API i32 Find_IndexID(const List* list, u32 id);

// The first node whose Name equals `name` without regard to case, or null. Every node of the list must have a Name.
KQ_API Node* Find_Name(const List* list, const char* name);

// The index of the node that Find_Name gives, or -1.
KQ_API i32 Find_Index(const List* list, const char* name);

// Replaces the node's Name by a copy of `name` (null: none). Returns the new Name; null for a null `name` or when
// out of memory, with Name null and `Error` 1.
KQ_API char* AddName(Node* node, const char* name);

// Allocates a cleared node with a copy of `name` and links it at the end. Null when out of memory. The list's owner
// frees it with FreeNode or Free_List.
KQ_API Node* Add_Node(List* list, const char* name);

// As Add_Node, but in front of the node at `index`: 0 or below puts it first, one past the end or more last.
KQ_API Node* Insert_Node(List* list, const char* name, i32 index);

// Removes `node`, then frees its Name and the node itself.
KQ_API void FreeNode(Node* node);

// Frees all nodes with their names; the list stays valid and empty. A null list, or one that was never made (its
// Head is null), is left alone.
KQ_API void Free_List(List* list);

// Sorts by Name, bytes folded to lower case, with a quicksort on the middle node. Every node must have a Name. Nodes
// are relinked, never copied: pointers to nodes stay valid. Not stable: equal names come in the order that the
// quicksort on the middle element leaves. O(n log n) on average; O(n^2)
// for a list that is made against it.
KQ_API void Sort_List(List* list);

// Sorts by `less`, which returns non-zero when its first node comes before its second; the same quicksort with the
// pivot node itself. A null `less` does nothing.
KQ_API void SortListKQ(List* list, int (*less)(Node* a, Node* b));

// The next node in the ring: the Succ of `node`, or the first node when `node` is the last.
KQ_API Node* NextNodeWrap(Node* node);

// The previous node in the ring, or the last node when `node` is the first.
KQ_API Node* PrevNodeWrap(Node* node);

// The next node in the ring of all members of all child lists of a list of parents. Each parent starts with a Node
// and holds its child List `offset` bytes behind its start. `node` must be a member of one of the child lists.
KQ_API Node* NextNodeListWrap(Node* node, ptrdiff_t offset);

// The mirror of NextNodeListWrap.
KQ_API Node* PrevNodeListWrap(Node* node, ptrdiff_t offset);

// The same operations for a MinNode; Name and ID are touched by none of them.
inline Node* KQNodeOf(MinNode* node) { return reinterpret_cast<Node*>(node); }

inline MinNode* KQMinNodeOf(Node* node) { return reinterpret_cast<MinNode*>(node); }

// MinNode form of AddHead.
inline void AddHead(List* list, MinNode* node) { AddHead(list, KQNodeOf(node)); }

// MinNode form of AddTail.
inline void AddTail(List* list, MinNode* node) { AddTail(list, KQNodeOf(node)); }

// MinNode form of Insert. A literal null `after` is given as (MinNode*)nullptr or through the Node form.
inline void Insert(List* list, MinNode* node, MinNode* after) { Insert(list, KQNodeOf(node), KQNodeOf(after)); }

// MinNode form of InsertBefore.
inline void InsertBefore(List* list, MinNode* node, MinNode* before) {
    InsertBefore(list, KQNodeOf(node), KQNodeOf(before));
}

// MinNode form of Remove.
inline void Remove(MinNode* node) { Remove(KQNodeOf(node)); }

// MinNode form of FreeNode: removes and frees the node; it has no name to free.
KQ_API void FreeNode(MinNode* node);

// MinNode form of NextNodeWrap.
inline MinNode* NextNodeWrap(MinNode* node) { return KQMinNodeOf(NextNodeWrap(KQNodeOf(node))); }

// MinNode form of PrevNodeWrap.
inline MinNode* PrevNodeWrap(MinNode* node) { return KQMinNodeOf(PrevNodeWrap(KQNodeOf(node))); }

// MinNode form of NextNodeListWrap.
inline MinNode* NextNodeListWrap(MinNode* node, ptrdiff_t offset) {
    return KQMinNodeOf(NextNodeListWrap(KQNodeOf(node), offset));
}

// MinNode form of PrevNodeListWrap.
inline MinNode* PrevNodeListWrap(MinNode* node, ptrdiff_t offset) {
    return KQMinNodeOf(PrevNodeListWrap(KQNodeOf(node), offset));
}
