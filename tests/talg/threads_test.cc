#include "talg/bitmap.h"
#include "talg/keyed_record.h"
#include "talg/lru_cache.h"
#include "talg/slab.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr unsigned THREADS = 4;
constexpr std::uint32_t ROUNDS = 2000;

talg_slab *slab;  // of keyed records
talg_lru_cache *cache;
talg_bitmap *bitmap;

void use_all(unsigned thread) {
    for (std::uint32_t i = 0; i < ROUNDS; ++i) {
        const std::uint32_t key = i * 7 % 50;
        talg_list_node *found = nullptr;
        if (talg_lru_cache_get(cache, &found, &key) != 0) {
            auto *record = new (talg_slab_alloc(slab)) keyed_record{key};
            EXPECT_EQ(talg_lru_cache_set(cache, &record->entry, &record->key), 0);
        }
        key_list keys;
        EXPECT_EQ(talg_lru_cache_foreach(cache, collect_key, &keys), 0);
        EXPECT_LE(keys.size(), 20u);
        const std::uint64_t bit = std::uint64_t{i} * THREADS + thread;
        for (const auto change : {talg_bitmap_set, talg_bitmap_toggle, talg_bitmap_toggle})
            EXPECT_EQ(change(bitmap, bit), 0);
        static_cast<void>(talg_bitmap_isset(bitmap, bit ^ 1));
    }
}

}  // namespace

TEST(Threads, ShareSlabCacheAndBitmap) {
    ASSERT_EQ(talg_slab_create(&slab, sizeof(keyed_record), 1, 0), 0);
    ASSERT_EQ(talg_bitmap_create(&bitmap, std::uint64_t{ROUNDS} * THREADS), 0);
    const auto give_back = [](talg_hash_node *node, void *) { talg_slab_free(slab, record_of(node)); };
    ASSERT_EQ(talg_lru_cache_create(&cache, masked_hash, compare_keys, give_back, 3, 20, 0), 0);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < THREADS; ++t)
        threads.emplace_back(use_all, t);
    for (std::thread &t : threads)
        t.join();
    for (std::uint64_t i = 0; i < talg_bitmap_capacity(bitmap); ++i)
        ASSERT_TRUE(talg_bitmap_isset(bitmap, i));
    talg_lru_cache_destroy(cache);
    EXPECT_EQ(talg_slab_get_lists(slab)->partial.head, nullptr);
    EXPECT_EQ(talg_slab_get_lists(slab)->full.head, nullptr);
    talg_slab_destroy(slab);
    talg_bitmap_destroy(bitmap);
}
