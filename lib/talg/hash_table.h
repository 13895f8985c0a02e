// A chained hash table of nodes that are embedded in the caller's records.  Complete
// interface of such tables; mktfs uses all but foreach, through the LRU cache.
//
// The table owns its bucket array only.  A record belongs to its caller until
// it is set; from then on the destroy function decides what becomes of it.
//
// Threads: get, set and foreach hold the table's recursive mutex, unless the
// table was created with TALG_HASH_TABLE_NO_LOCK; the caller's functions run
// under it and may call the table again.  remove and destroy take no lock.
#pragma once

#include "talg/list.h"

#include <cstdint>

struct talg_hash_table;

// A node knows the link that points to it, so that it can leave its bucket
// without a search.  Its fields belong to the table while it is in one.
struct talg_hash_node {
    talg_hash_node *next = nullptr;
    talg_hash_node **link = nullptr;
};

inline constexpr unsigned TALG_HASH_TABLE_NO_LOCK = 0x1;
inline constexpr unsigned TALG_HASH_TABLE_MAX_ORDER = 32;

// The bucket index of `key` in a table of this order.
using talg_hash_function = std::uint32_t (*)(unsigned order, const void *key);
// 0 when the node's record holds `key`.
using talg_compare_function = int (*)(const talg_hash_node *node, const void *key);
// Takes over a node that has just left the table; `argument` is null.
using talg_destroy_function = void (*)(talg_hash_node *node, void *argument);
// A nonzero result ends the walk.
using talg_visit_function = int (*)(talg_hash_node *node, void *argument);

// Makes an empty table of 2^(order mod 32) buckets, so that order 32 gives a single one.
// `destroy` may be null: nodes are then only unlinked.
// EINVAL: `out`, `hash` or `compare` is null, or order is above 32; ENOMEM; the
// mutex's error.  `*out` is set on success only.
[[nodiscard]] int talg_hash_table_create(talg_hash_table **out, talg_hash_function hash,
                                         talg_compare_function compare, talg_destroy_function destroy,
                                         unsigned order, unsigned flags);

// Finds the first node of the key's bucket that compares equal; `*out_node` is
// borrowed, and set on success only.
// EINVAL: null table; ERANGE: the hash function left the bucket array; ENOENT:
// no such node; the mutex's error.
[[nodiscard]] int talg_hash_table_get(talg_hash_table *table, talg_hash_node **out_node, const void *key);

// Puts `node` at the head of its bucket.  Another node with an equal key is
// unlinked and handed to destroy first; the same node again changes nothing.
// The node must not be in the table under another key.
// EINVAL: null table or node; ERANGE: as above; the mutex's error.  On failure
// the node stays the caller's.
[[nodiscard]] int talg_hash_table_set(talg_hash_table *table, talg_hash_node *node, const void *key);

// Unlinks a node of this table and hands it to destroy.  Takes no lock: the
// caller sees to it that no other thread uses the table meanwhile.
void talg_hash_table_remove(talg_hash_table *table, talg_hash_node *node);

// Calls `visit` for every node, bucket by bucket, the newest of a bucket first.
// `visit` may free the node it is given (when the table is not used afterwards)
// or remove it, but no other.
// Returns the first nonzero result of `visit`, else 0; EINVAL: null table or
// function; the mutex's error.
int talg_hash_table_foreach(talg_hash_table *table, talg_visit_function visit, void *argument);

// Hands every node to destroy and frees the table.  Null is allowed.
void talg_hash_table_destroy(talg_hash_table *table) noexcept;
