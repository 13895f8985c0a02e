#include "talg/lru_cache.h"

#include "talg/mutex.h"

#include <cerrno>
#include <memory>
#include <new>

struct talg_lru_cache {
    talg_mutex mutex;
    talg_hash_table *table = nullptr;  // without a lock of its own
    talg_list recency;                 // most recently used first
    std::size_t capacity = 0;          // entries
    std::size_t count = 0;
};

namespace {

talg_lru_entry &entry_of(talg_list_node *node) {
    return *TALG_RECORD_OF(node, talg_lru_entry, node);
}

talg_lru_entry &entry_of(talg_hash_node *node) {
    return *TALG_RECORD_OF(node, talg_lru_entry, hash_node);
}

void move_to_head(talg_lru_cache &cache, talg_lru_entry &entry) {
    talg_list_remove(cache.recency, entry.node);
    talg_list_push_front(cache.recency, entry.node);
}

// Lets go of an entry.  The list is in order before destroy runs.
void drop(talg_lru_cache &cache, talg_lru_entry &entry) {
    talg_list_remove(cache.recency, entry.node);
    --cache.count;
    talg_hash_table_remove(cache.table, &entry.hash_node);
}

int insert(talg_lru_cache &cache, talg_lru_entry &entry, const void *key) {
    if (const int err = talg_hash_table_set(cache.table, &entry.hash_node, key); err != 0)
        return err;
    talg_list_push_front(cache.recency, entry.node);
    ++cache.count;
    return 0;
}

int set(talg_lru_cache &cache, talg_lru_entry &entry, const void *key) {
    talg_hash_node *present = nullptr;
    const int err = talg_hash_table_get(cache.table, &present, key);
    if (err != 0 && err != ENOENT)
        return err;
    if (present == &entry.hash_node) {
        move_to_head(cache, entry);
        return 0;
    }
    if (present)
        drop(cache, entry_of(present));
    else if (cache.count == cache.capacity)
        drop(cache, entry_of(cache.recency.tail));
    return insert(cache, entry, key);
}

}  // namespace

int talg_lru_cache_create(talg_lru_cache **out, talg_hash_function hash, talg_compare_function compare,
                          talg_destroy_function destroy, unsigned order, std::size_t capacity,
                          unsigned flags) {
    if (!out || !hash || !compare || capacity == 0 || order > TALG_HASH_TABLE_MAX_ORDER)
        return EINVAL;
    std::unique_ptr<talg_lru_cache> cache(new (std::nothrow) talg_lru_cache{});
    if (!cache)
        return ENOMEM;
    cache->capacity = capacity;
    if ((flags & TALG_LRU_CACHE_NO_LOCK) == 0) {
        if (const int err = cache->mutex.init(PTHREAD_MUTEX_RECURSIVE); err != 0)
            return err;
    }
    if (const int err =
            talg_hash_table_create(&cache->table, hash, compare, destroy, order, TALG_HASH_TABLE_NO_LOCK);
        err != 0)
        return err;
    *out = cache.release();
    return 0;
}

int talg_lru_cache_get(talg_lru_cache *cache, talg_list_node **out_entry, const void *key) {
    *out_entry = nullptr;
    if (!cache)
        return EINVAL;
    const th_lock lock(cache->mutex.get());
    if (lock.error() != 0)
        return lock.error();
    talg_hash_node *found = nullptr;
    if (const int err = talg_hash_table_get(cache->table, &found, key); err != 0)
        return err;
    talg_lru_entry &entry = entry_of(found);
    move_to_head(*cache, entry);
    *out_entry = &entry.node;
    return 0;
}

int talg_lru_cache_set(talg_lru_cache *cache, talg_lru_entry *entry, const void *key) {
    if (!cache || !entry)
        return EINVAL;
    const th_lock lock(cache->mutex.get());
    return lock.error() != 0 ? lock.error() : set(*cache, *entry, key);
}

int talg_lru_cache_foreach(talg_lru_cache *cache, talg_lru_visit_function visit, void *argument) {
    if (!cache || !visit)
        return EINVAL;
    const th_lock lock(cache->mutex.get());
    if (lock.error() != 0)
        return lock.error();
    for (talg_list_node *node = cache->recency.head; node; node = node->next) {
        if (const int result = visit(node, argument); result != 0)
            return result;
    }
    return 0;
}

void talg_lru_cache_destroy(talg_lru_cache *cache) noexcept {
    if (!cache)
        return;
    talg_hash_table_destroy(cache->table);
    delete cache;
}
