// A record under a number, for hash tables and LRU caches.
#pragma once

#include "talg/lru_cache.h"

#include <vector>

struct keyed_record {
    std::uint32_t key = 0;
    talg_lru_entry entry = {};
};
using key_list = std::vector<std::uint32_t>;

inline std::uint32_t key_of(const void *key) {
    return *static_cast<const std::uint32_t *>(key);
}
inline keyed_record *record_of(const talg_hash_node *node) {
    return TALG_RECORD_OF(node, keyed_record, entry.hash_node);
}
inline keyed_record *record_of(const talg_list_node *node) {
    return TALG_RECORD_OF(node, keyed_record, entry.node);
}
inline std::uint32_t masked_hash(unsigned order, const void *key) {
    return key_of(key) & static_cast<std::uint32_t>((std::uint64_t{1} << order) - 1);
}
inline int compare_keys(const talg_hash_node *node, const void *key) {
    return record_of(node)->key == key_of(key) ? 0 : 1;
}
// Visits a node: appends its key to the key_list.
template <class Node>
int collect_key(Node *node, void *list) {
    static_cast<key_list *>(list)->push_back(record_of(node)->key);
    return 0;
}
