#include "support/failing_calls.h"

#include "talg/bitmap.h"
#include "talg/keyed_record.h"
#include "talg/lru_cache.h"
#include "talg/slab.h"

#include <cerrno>

#include <pthread.h>

static bool lock_fails = false;
static bool unlock_fails = false;

// clang-format off
FAILING(void *, _ZnamRKSt9nothrow_t, nullptr, (std::size_t size, const std::nothrow_t &tag), size, tag)
FAILING(void *, calloc, nullptr, (std::size_t count, std::size_t size), count, size)
FAILING(int, mprotect, -1, (void *memory, std::size_t size, int protection), memory, size, protection)
FAILING(int, pthread_mutex_init, EAGAIN, (pthread_mutex_t * mutex, const pthread_mutexattr_t *kind), mutex, kind)
FAILING_IF(lock_fails, int, pthread_mutex_lock, EAGAIN, (pthread_mutex_t * mutex), mutex)
FAILING_IF(unlock_fails, int, pthread_mutex_unlock, EPERM, (pthread_mutex_t * mutex), mutex)
// clang-format on

namespace {

template <class T>
bool works(int (*create)(T **), void (*destroy)(T *) noexcept) {
    T *object = nullptr;
    const int err = create(&object);
    EXPECT_EQ(err == 0, object != nullptr);
    destroy(object);
    return err == 0;
}

int make_cache(talg_lru_cache **out) {
    return talg_lru_cache_create(out, masked_hash, compare_keys, nullptr, 4, 1, 0);
}
int make_table(talg_hash_table **out) {
    return talg_hash_table_create(out, masked_hash, compare_keys, nullptr, 4, 0);
}
int make_slab(talg_slab **out) {
    return talg_slab_create(out, 64, 1, 0);
}

}  // namespace

TEST(FailingCalls, FailedCreationLeavesNothing) {
    const auto make_bitmap = [](talg_bitmap **out) { return talg_bitmap_create(out, 9); };
    EXPECT_GE(fail_each_call([&] { return works<talg_bitmap>(make_bitmap, talg_bitmap_destroy); }), 2);
    EXPECT_GE(fail_each_call([] { return works(make_cache, talg_lru_cache_destroy); }), 4);
    EXPECT_GE(fail_each_call([] { return works(make_table, talg_hash_table_destroy); }), 3);
    EXPECT_GE(fail_each_call([] { return works(make_slab, talg_slab_destroy); }), 4);
}

TEST(FailingCalls, AFailedGrowthCanBeRepeated) {
    talg_slab *slab = nullptr;
    ASSERT_EQ(make_slab(&slab), 0);
    for (int i = 0; i < 63; ++i)
        EXPECT_NE(talg_slab_alloc(slab), nullptr);
    for (const int call : {1, 2}) {
        testing::internal::CaptureStderr();
        fails_at = call;
        EXPECT_EQ(talg_slab_alloc(slab), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "failed to allocate slab block\n");
    }
    EXPECT_NE(talg_slab_alloc(slab), nullptr);
    talg_slab_destroy(slab);
}

TEST(FailingCallsDeathTest, MutexFailuresAreErrorsOfTablesAndAbortSlabs) {
    const auto run_slab = [](bool &fails) {
        talg_slab *slab = nullptr;
        static_cast<void>(make_slab(&slab));
        fails = true;
        static_cast<void>(talg_slab_alloc(slab));
    };
    EXPECT_DEATH(run_slab(lock_fails), "^slab mutex lock failed\n");
    EXPECT_DEATH(run_slab(unlock_fails), "^slab mutex unlock failed\n");
    keyed_record record{1};
    talg_lru_cache *cache = nullptr;
    talg_hash_table *table = nullptr;
    talg_list_node *entry = nullptr;
    talg_hash_node *node = nullptr;
    ASSERT_EQ(make_cache(&cache), 0);
    ASSERT_EQ(make_table(&table), 0);
    lock_fails = true;
    EXPECT_EQ(talg_lru_cache_set(cache, &record.entry, &record.key), EAGAIN);
    EXPECT_EQ(talg_lru_cache_get(cache, &entry, &record.key), EAGAIN);
    EXPECT_EQ(talg_lru_cache_foreach(cache, collect_key, nullptr), EAGAIN);
    EXPECT_EQ(talg_hash_table_set(table, &record.entry.hash_node, &record.key), EAGAIN);
    EXPECT_EQ(talg_hash_table_get(table, &node, &record.key), EAGAIN);
    EXPECT_EQ(talg_hash_table_foreach(table, collect_key, nullptr), EAGAIN);
    lock_fails = false;
    talg_lru_cache_destroy(cache);
    talg_hash_table_destroy(table);
}
