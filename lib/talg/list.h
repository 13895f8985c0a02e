// A doubly linked list of nodes that live inside their records.  The list owns
// nothing and takes no lock.
#pragma once

#include <cstddef>
#include <cstdint>

// The record of type `type` whose member `member` is the object at `pointer`.
// `type` is a standard-layout record; `member` may name a part of a member.
#define TALG_RECORD_OF(pointer, type, member)                                                                \
    (reinterpret_cast<type *>(reinterpret_cast<std::uintptr_t>(pointer) - offsetof(type, member)))

struct talg_list_node {
    talg_list_node *next = nullptr;
    talg_list_node *previous = nullptr;
};

struct talg_list {
    talg_list_node *head = nullptr;
    talg_list_node *tail = nullptr;
};

// `node` is on no list.
inline void talg_list_push_front(talg_list &list, talg_list_node &node) {
    node = {.next = list.head, .previous = nullptr};
    (list.head ? list.head->previous : list.tail) = &node;
    list.head = &node;
}

// `node` is on `list`; afterwards its links are null.
inline void talg_list_remove(talg_list &list, talg_list_node &node) {
    (node.previous ? node.previous->next : list.head) = node.next;
    (node.next ? node.next->previous : list.tail) = node.previous;
    node = {};
}
