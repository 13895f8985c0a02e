// A bounded cache that drops its least recently used entry when it is full.  Entries are
// embedded in the caller's records.  Complete interface of such caches; mktfs uses all but
// foreach.
//
// The caller owns a record until it is set; from then on the cache hands it to
// the destroy function: when it is evicted or replaced, or with the cache.
//
// Threads: get, set and foreach hold the cache's recursive mutex, unless the
// cache was created with TALG_LRU_CACHE_NO_LOCK; the caller's functions run
// under it.  The mutex does not protect an entry that get has handed out.
#pragma once

#include "talg/hash_table.h"
#include "talg/list.h"

#include <cstddef>

struct talg_lru_cache;

// The part of a record that the cache links.  A lookup yields `node`, the
// destroy and compare functions are given `hash_node`; step back to the record
// with TALG_RECORD_OF(node, record, entry.node) or (.., entry.hash_node).
struct talg_lru_entry {
    talg_list_node node;
    talg_hash_node hash_node;
};
static_assert(offsetof(talg_lru_entry, hash_node) == sizeof(talg_list_node));

inline constexpr unsigned TALG_LRU_CACHE_NO_LOCK = 0x1;

// A nonzero result ends the walk.
using talg_lru_visit_function = int (*)(talg_list_node *node, void *argument);

// Makes an empty cache of at most `capacity` entries, looked up through a hash
// table of this order; hash, compare and destroy work as in a hash table.
// EINVAL: `out`, `hash` or `compare` is null, capacity is 0, or order is above
// 32; ENOMEM; the error of the mutex or table.  `*out` is set on success only.
[[nodiscard]] int talg_lru_cache_create(talg_lru_cache **out, talg_hash_function hash,
                                        talg_compare_function compare, talg_destroy_function destroy,
                                        unsigned order, std::size_t capacity, unsigned flags);

// Looks `key` up and makes its entry the most recently used.  `*out_entry`, the
// entry's list node, is borrowed until the next set; null on every failure.
// EINVAL: null cache; ENOENT: no such entry; ERANGE: the hash function left the
// table; the mutex's error.
[[nodiscard]] int talg_lru_cache_get(talg_lru_cache *cache, talg_list_node **out_entry, const void *key);

// Makes `entry` the most recently used entry, under `key`.  Another entry of an
// equal key, or the least recently used one of a full cache, goes to destroy.
// The entry must not be in the cache under another key.
// EINVAL: null cache or entry; ERANGE: as above; the mutex's error.  On failure
// the entry stays the caller's and the cache is unchanged.
[[nodiscard]] int talg_lru_cache_set(talg_lru_cache *cache, talg_lru_entry *entry, const void *key);

// Calls `visit` for every entry, the most recently used first, without changing
// the order.  `visit` must not change the cache.
// Returns the first nonzero result of `visit`, else 0; EINVAL: null cache or
// function; the mutex's error.
int talg_lru_cache_foreach(talg_lru_cache *cache, talg_lru_visit_function visit, void *argument);

// Hands every entry to destroy and frees the cache.  Null is allowed.
void talg_lru_cache_destroy(talg_lru_cache *cache) noexcept;
