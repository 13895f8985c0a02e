#include "talg/bitmap.h"
#include "talg/keyed_record.h"
#include "talg/lru_cache.h"
#include "talg/slab.h"

#include <cerrno>
#include <new>

#include <gtest/gtest.h>
#include <pthread.h>

namespace {

int obtain_fails_at = 0;  // counts down to the failing call; 0: none fails
bool lock_fails = false;
bool unlock_fails = false;

bool obtain_fails() {
    return obtain_fails_at != 0 && --obtain_fails_at == 0;
}

template <class T>
int fail_each_call(int (*create)(T **), void (*destroy)(T *) noexcept) {
    for (int n = 1;; ++n) {
        T *object = nullptr;
        obtain_fails_at = n;
        const int err = create(&object);
        const bool failed = obtain_fails_at == 0;
        obtain_fails_at = 0;
        EXPECT_TRUE(failed ? err != 0 && !object : err == 0 && object) << "call " << n;
        destroy(object);
        if (!failed)
            return n - 1;
    }
}

}  // namespace

#define WRAP(result, name, failure, parameters, ...)                                                         \
    extern "C" result __real_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters {                                                             \
        return failure : __real_##name(__VA_ARGS__);                                                         \
    }
WRAP(void *, _ZnwmRKSt9nothrow_t, obtain_fails() ? nullptr, (std::size_t n, const std::nothrow_t &t), n, t)
WRAP(void *, _ZnamRKSt9nothrow_t, obtain_fails() ? nullptr, (std::size_t n, const std::nothrow_t &t), n, t)
WRAP(void *, calloc, obtain_fails() ? nullptr, (std::size_t n, std::size_t size), n, size)
WRAP(int, mprotect, obtain_fails() ? -1, (void *m, std::size_t n, int p), m, n, p)
WRAP(int, pthread_mutex_init, obtain_fails() ? EAGAIN, (pthread_mutex_t * m, const pthread_mutexattr_t *a), m, a)
WRAP(int, pthread_mutex_lock, lock_fails ? EAGAIN, (pthread_mutex_t * m), m)
WRAP(int, pthread_mutex_unlock, unlock_fails ? EPERM, (pthread_mutex_t * m), m)

TEST(FailingCalls, FailedCreationLeavesNothing) {
    EXPECT_GE(
        fail_each_call<talg_bitmap>([](auto out) { return talg_bitmap_create(out, 9); }, talg_bitmap_destroy),
        2);
    EXPECT_GE(
        fail_each_call<talg_lru_cache>(
            [](auto out) { return talg_lru_cache_create(out, masked_hash, compare_keys, nullptr, 4, 1, 0); },
            talg_lru_cache_destroy),
        4);
    EXPECT_GE(
        fail_each_call<talg_hash_table>(
            [](auto out) { return talg_hash_table_create(out, masked_hash, compare_keys, nullptr, 4, 0); },
            talg_hash_table_destroy),
        3);
    EXPECT_GE(fail_each_call<talg_slab>([](auto out) { return talg_slab_create(out, 64, 1, 0); },
                                        talg_slab_destroy),
              4);
}

TEST(FailingCalls, AFailedGrowthCanBeRepeated) {
    talg_slab *slab = nullptr;
    ASSERT_EQ(talg_slab_create(&slab, 64, 1, 0), 0);
    for (int i = 0; i < 63; ++i)
        EXPECT_NE(talg_slab_alloc(slab), nullptr);
    for (const int call : {1, 2}) {
        testing::internal::CaptureStderr();
        obtain_fails_at = call;
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
        static_cast<void>(talg_slab_create(&slab, 64, 1, 0));
        fails = true;
        static_cast<void>(talg_slab_alloc(slab));
    };
    EXPECT_DEATH(run_slab(lock_fails), "^slab mutex lock failed\n");
    EXPECT_DEATH(run_slab(unlock_fails), "^slab mutex unlock failed\n");
    keyed_record record{1};
    for (const unsigned flags : {0u, TALG_LRU_CACHE_NO_LOCK}) {
        talg_lru_cache *cache = nullptr;
        ASSERT_EQ(talg_lru_cache_create(&cache, masked_hash, compare_keys, nullptr, 1, 1, flags), 0);
        lock_fails = true;
        EXPECT_EQ(talg_lru_cache_set(cache, &record.entry, &record.key), flags == 0 ? EAGAIN : 0);
        talg_list_node *found = nullptr;
        EXPECT_EQ(talg_lru_cache_get(cache, &found, &record.key), flags == 0 ? EAGAIN : 0);
        key_list keys;
        EXPECT_EQ(talg_lru_cache_foreach(cache, collect_key, &keys), flags == 0 ? EAGAIN : 0);
        lock_fails = false;
        talg_lru_cache_destroy(cache);
    }
    talg_hash_table *table = nullptr;
    talg_hash_node *node = nullptr;
    ASSERT_EQ(talg_hash_table_create(&table, masked_hash, compare_keys, nullptr, 1, 0), 0);
    lock_fails = true;
    EXPECT_EQ(talg_hash_table_set(table, &record.entry.hash_node, &record.key), EAGAIN);
    EXPECT_EQ(talg_hash_table_get(table, &node, &record.key), EAGAIN);
    EXPECT_EQ(talg_hash_table_foreach(table, collect_key, nullptr), EAGAIN);
    lock_fails = false;
    talg_hash_table_destroy(table);
}
