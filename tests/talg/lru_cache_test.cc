#include "talg/keyed_record.h"
#include "talg/lru_cache.h"

#include <cerrno>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/null_arguments.h"

namespace {

key_list destroyed;

void note_and_delete(talg_hash_node *node, void *) {
    destroyed.push_back(record_of(node)->key);
    delete record_of(node);
}

class LruCache : public testing::Test {
protected:
    void create(std::size_t capacity, unsigned order) {
        talg_lru_cache_destroy(cache);
        destroyed.clear();
        ASSERT_EQ(
            talg_lru_cache_create(&cache, masked_hash, compare_keys, note_and_delete, order, capacity, 0), 0);
    }
    int set(keyed_record *r) { return talg_lru_cache_set(cache, &r->entry, &r->key); }
    keyed_record *get(std::uint32_t key) {
        talg_list_node stale, *node = &stale;
        const int err = talg_lru_cache_get(cache, &node, &key);
        EXPECT_EQ(err, node ? 0 : ENOENT);
        EXPECT_TRUE(!node || record_of(node)->key == key);
        return node ? record_of(node) : nullptr;
    }
    key_list order() {
        key_list keys;
        talg_lru_cache_foreach(cache, collect_key, &keys);
        return keys;
    }
    void TearDown() override { talg_lru_cache_destroy(cache); }

    talg_lru_cache *cache = nullptr;
    keyed_record outsider{1};
};

}  // namespace

TEST_F(LruCache, FailedSetLeavesTheEntryAndTheCacheAlone) {
    EXPECT_THAT(answers_to_null(talg_lru_cache_create, &cache, masked_hash, compare_keys, nullptr, 0, 1, 0),
                testing::Each(EINVAL));
    EXPECT_EQ(talg_lru_cache_create(&cache, masked_hash, compare_keys, nullptr, 0, 0, 0), EINVAL);
    EXPECT_EQ(talg_lru_cache_create(&cache, masked_hash, compare_keys, nullptr, 33, 1, 0), EINVAL);
    talg_list_node *node = nullptr;
    EXPECT_EQ(set(&outsider) + talg_lru_cache_get(cache, &node, &outsider.key), 2 * EINVAL);
    EXPECT_EQ(talg_lru_cache_foreach(cache, collect_key, nullptr), EINVAL);
    create(1, 32);  // a single bucket, for hash value 0
    EXPECT_EQ(set(new keyed_record{0}), 0);
    EXPECT_EQ(set(&outsider), ERANGE);
    EXPECT_EQ(talg_lru_cache_set(cache, nullptr, &outsider.key), EINVAL);
    EXPECT_EQ(talg_lru_cache_foreach(cache, nullptr, nullptr), EINVAL);
    const auto stop = [](talg_list_node *, void *) { return 9; };
    EXPECT_EQ(talg_lru_cache_foreach(cache, stop, nullptr), 9);
    EXPECT_EQ(order(), key_list{0});
}

TEST_F(LruCache, EvictsTheLeastRecentlyUsedEntry) {
    std::mt19937 random(7);
    for (const std::size_t capacity : {1u, 3u, 8u}) {
        create(capacity, 2);
        key_list model, model_destroyed;
        for (int i = 0; i < 3000; ++i) {
            const auto key = static_cast<std::uint32_t>(random() % 12);
            const bool present = std::erase(model, key) != 0;
            if (random() % 2 == 0) {
                keyed_record *entry = get(key);
                ASSERT_EQ(entry != nullptr, present);
                if (!entry)
                    continue;
                ASSERT_EQ(i % 2 == 0 ? set(entry) : 0, 0);
            } else {
                ASSERT_EQ(set(new keyed_record{key}), 0);
                if (present)
                    model_destroyed.push_back(key);
            }
            model.insert(model.begin(), key);
            if (model.size() > capacity) {
                model_destroyed.push_back(model.back());
                model.pop_back();
            }
            ASSERT_EQ(order(), model);
        }
        ASSERT_EQ(destroyed, model_destroyed);
    }
}
