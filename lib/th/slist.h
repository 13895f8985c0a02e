// A singly linked list of machine words (integers or pointers).
//
// Complete interface of the list; mktfs uses it in the logger only.
//
// The caller owns list and data, the list its nodes.  Every function that takes
// a node tests that the node belongs to the list.  A list serves one thread at a
// time.
//
// Functions of type int return 0 or an error number, which is also in errno
// then; a null argument is EINVAL unless it is optional or says otherwise.
#pragma once

#include <cstdint>

struct th_slist;
struct th_slist_node;

// A pointer as the data word of a node or of a key.
[[nodiscard]] inline std::uint64_t th_slist_word(const void *pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

// 0 for a match; for sorting, above 0 when the node is greater than the key.
// `key` points at a word of the same shape as a node's data.
using th_slist_compare = int (*)(const th_slist_node *node, const std::uint64_t *key);
// Called before a node is freed, to release what its data refers to; null
// releases nothing.
using th_slist_release = void (*)(th_slist_node *node);
// A nonzero result ends the walk.
using th_slist_callback = int (*)(th_slist_node *node, void *context);

[[nodiscard]] int th_slist_create(th_slist **list);

// Adding, O(1) except th_slist_insert_before, which scans for the predecessor.
// `created` (optional) receives the new node, null on failure.  ENOMEM; EINVAL
// also for a node that is not in the list.
int th_slist_append(th_slist *list, const std::uint64_t *data, th_slist_node **created = nullptr);
int th_slist_prepend(th_slist *list, const std::uint64_t *data, th_slist_node **created = nullptr);
int th_slist_insert_after(th_slist *list, const std::uint64_t *data, th_slist_node *node,
                          th_slist_node **created = nullptr);
int th_slist_insert_before(th_slist *list, const std::uint64_t *data, th_slist_node *node,
                           th_slist_node **created = nullptr);

// Moves all nodes of `*other` to the end, O(1), frees its record and sets it to
// null.  The moved nodes keep their old owner: they cannot be named in calls on
// this list, but are found, walked, sorted, removed by data and freed with it.
// EINVAL also for a list and itself.
int th_slist_merge(th_slist *list, th_slist **other);

// Searches behind `*cursor`, from the head when that is null, and stores the
// node found.  ENOENT leaves the cursor alone; EINVAL also for a cursor that is
// not in the list.
int th_slist_find(const th_slist *list, const std::uint64_t *key, th_slist_compare compare,
                  th_slist_node **cursor);

// Unlink and free one node after a scan.  ENOENT when there is none.
int th_slist_remove(th_slist *list, th_slist_node *node, th_slist_release release);
int th_slist_remove_data(th_slist *list, const std::uint64_t *key, th_slist_compare compare,
                         th_slist_release release);
int th_slist_remove_all(th_slist *list, th_slist_release release);
// Frees the nodes and the list and sets `*list` to null.  Takes null; keeps errno.
void th_slist_destroy(th_slist **list, th_slist_release release);

// Calls back for each node in order until a result is nonzero, and returns that
// result, with errno set to it.  The callback may free its node.
int th_slist_foreach(th_slist *list, th_slist_callback callback, void *context);

// Sorts the data in place, ascending: quadratic time, no allocation.  The order
// of equal elements is not kept.
int th_slist_sort(th_slist *list, th_slist_compare compare);

// Accessors; a null list or node gives 0 or null.  th_slist_get_previous scans,
// and gives null for a node of another list.
[[nodiscard]] std::uint64_t th_slist_get_count(const th_slist *list);
[[nodiscard]] th_slist_node *th_slist_get_first(const th_slist *list);
[[nodiscard]] th_slist_node *th_slist_get_last(const th_slist *list);
[[nodiscard]] th_slist_node *th_slist_get_next(const th_slist_node *node);
[[nodiscard]] th_slist_node *th_slist_get_previous(const th_slist *list, const th_slist_node *node);
[[nodiscard]] const std::uint64_t *th_slist_get_data(const th_slist_node *node);
[[nodiscard]] void *th_slist_get_data_vp(const th_slist_node *node);
[[nodiscard]] std::uint32_t th_slist_get_data_u32(const th_slist_node *node);  // the low 32 bits
[[nodiscard]] std::uint64_t th_slist_get_data_u64(const th_slist_node *node);
int th_slist_set_data(th_slist_node *node, const std::uint64_t *data);

// Compare functions for integers and pointers, and a release function that calls
// free on the data pointer.  The list knows them and does not call them.
[[nodiscard]] int th_slist_compare_u32_data(const th_slist_node *node, const std::uint64_t *key);
[[nodiscard]] int th_slist_compare_u64_data(const th_slist_node *node, const std::uint64_t *key);
[[nodiscard]] int th_slist_compare_vp_data(const th_slist_node *node, const std::uint64_t *key);
void th_slist_free_vp(th_slist_node *node);
