#include "talg/hash_table.h"

#include "talg/mutex.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

namespace {

struct free_memory {
    void operator()(void *memory) const noexcept { std::free(memory); }
};

}  // namespace

struct talg_hash_table {
    talg_mutex mutex;
    // From calloc, so that a large table costs only the pages it uses.
    std::unique_ptr<talg_hash_node *[], free_memory> buckets;
    talg_hash_function hash = nullptr;
    talg_compare_function compare = nullptr;
    talg_destroy_function destroy = nullptr;  // may be null
    unsigned order = 0;
};

namespace {

std::size_t bucket_count(unsigned order) {
    return std::size_t{1} << order % 32;
}

// The head of the key's bucket, or null when the hash lies outside.
talg_hash_node **bucket_of(const talg_hash_table &table, const void *key) {
    const std::uint32_t index = table.hash(table.order, key);
    return index < bucket_count(table.order) ? &table.buckets[index] : nullptr;
}

talg_hash_node *find(const talg_hash_table &table, talg_hash_node *node, const void *key) {
    while (node && table.compare(node, key) != 0)
        node = node->next;
    return node;
}

void link_at_head(talg_hash_node *&head, talg_hash_node &node) {
    node.next = head;
    node.link = &head;
    if (head)
        head->link = &node.next;
    head = &node;
}

void unlink(talg_hash_node &node) {
    *node.link = node.next;
    if (node.next)
        node.next->link = node.link;
    node = {};
}

int visit_all(talg_hash_table &table, talg_visit_function visit, void *argument) {
    for (std::size_t i = 0; i < bucket_count(table.order); ++i) {
        for (talg_hash_node *node = table.buckets[i], *next = nullptr; node; node = next) {
            next = node->next;
            if (const int result = visit(node, argument); result != 0)
                return result;
        }
    }
    return 0;
}

}  // namespace

int talg_hash_table_create(talg_hash_table **out, talg_hash_function hash, talg_compare_function compare,
                           talg_destroy_function destroy, unsigned order, unsigned flags) {
    if (!out || !hash || !compare || order > TALG_HASH_TABLE_MAX_ORDER)
        return EINVAL;
    std::unique_ptr<talg_hash_table> table(new (std::nothrow) talg_hash_table{});
    if (!table)
        return ENOMEM;
    table->hash = hash;
    table->compare = compare;
    table->destroy = destroy;
    table->order = order;
    table->buckets.reset(
        static_cast<talg_hash_node **>(std::calloc(bucket_count(order), sizeof(talg_hash_node *))));
    if (!table->buckets)
        return ENOMEM;
    if ((flags & TALG_HASH_TABLE_NO_LOCK) == 0) {
        if (const int err = table->mutex.init(PTHREAD_MUTEX_RECURSIVE); err != 0)
            return err;
    }
    *out = table.release();
    return 0;
}

int talg_hash_table_get(talg_hash_table *table, talg_hash_node **out_node, const void *key) {
    if (!table)
        return EINVAL;
    const th_lock lock(table->mutex.get());
    if (lock.error() != 0)
        return lock.error();
    talg_hash_node **bucket = bucket_of(*table, key);
    if (!bucket)
        return ERANGE;
    talg_hash_node *node = find(*table, *bucket, key);
    if (!node)
        return ENOENT;
    *out_node = node;
    return 0;
}

int talg_hash_table_set(talg_hash_table *table, talg_hash_node *node, const void *key) {
    if (!table || !node)
        return EINVAL;
    const th_lock lock(table->mutex.get());
    if (lock.error() != 0)
        return lock.error();
    talg_hash_node **bucket = bucket_of(*table, key);
    if (!bucket)
        return ERANGE;
    talg_hash_node *present = find(*table, *bucket, key);
    if (present == node)
        return 0;
    if (present)
        talg_hash_table_remove(table, present);
    link_at_head(*bucket, *node);
    return 0;
}

void talg_hash_table_remove(talg_hash_table *table, talg_hash_node *node) {
    unlink(*node);
    if (table->destroy)
        table->destroy(node, nullptr);
}

int talg_hash_table_foreach(talg_hash_table *table, talg_visit_function visit, void *argument) {
    if (!table || !visit)
        return EINVAL;
    const th_lock lock(table->mutex.get());
    return lock.error() != 0 ? lock.error() : visit_all(*table, visit, argument);
}

void talg_hash_table_destroy(talg_hash_table *table) noexcept {
    if (!table)
        return;
    const talg_visit_function remove = [](talg_hash_node *node, void *owner) {
        talg_hash_table_remove(static_cast<talg_hash_table *>(owner), node);
        return 0;
    };
    // Straight to the walk: a mutex that fails must not keep nodes alive.
    visit_all(*table, remove, table);
    delete table;
}
