#include "support/failing_calls.h"
#include "support/test.h"
#include "talg/bitmap.h"
#include "talg/lru_cache.h"
#include "talg/memalign.h"
#include "talg/slab.h"
#include "talg/workers.h"
#include <barrier>
#include <pthread.h>

static bool lock_fails = false, unlock_fails = false, signals_fail = false;
static std::atomic<int> live = 0;  // mutexes, conditions and attributes

// clang-format off
FAILING(void *, _ZnamRKSt9nothrow_t, nullptr, (std::size_t size, const std::nothrow_t &tag), size, tag)
FAILING(void *, calloc, nullptr, (std::size_t count, std::size_t size), count, size)
FAILING(int, mprotect, -1, (void *memory, std::size_t size, int protection), memory, size, protection)
FAILING(int, pthread_mutexattr_init, EAGAIN, (pthread_mutexattr_t * kind), (++live, kind))
FAILING(int, pthread_mutexattr_settype, EINVAL, (pthread_mutexattr_t * kind, int type), kind, type)
FAILING(int, pthread_mutex_init, EAGAIN, (pthread_mutex_t * mutex, const pthread_mutexattr_t *kind), (++live, mutex), kind)
FAILING(int, pthread_create, EAGAIN, (pthread_t * a, const pthread_attr_t *b, void *(*c)(void *), void *d), a, b, c, d)
FAILING_IF(signals_fail, int, pthread_sigmask, EINVAL, (int a, const sigset_t *b, sigset_t *c), a, b, c)
FAILING_IF((--live, false), int, pthread_mutexattr_destroy, 0, (pthread_mutexattr_t * kind), kind)
FAILING_IF((--live, false), int, pthread_mutex_destroy, 0, (pthread_mutex_t * mutex), mutex)
FAILING_IF((--live, false), int, pthread_cond_destroy, 0, (pthread_cond_t * condition), condition)
FAILING_IF(lock_fails, int, pthread_mutex_lock, EAGAIN, (pthread_mutex_t * mutex), mutex)
FAILING_IF(unlock_fails, int, pthread_mutex_unlock, EPERM, (pthread_mutex_t * mutex), mutex)
// clang-format on

namespace {

using numbers = std::vector<std::size_t>;
using byte_list = std::vector<unsigned char>;

struct keyed_record {
    std::uint32_t key = 0;
    talg_lru_entry entry = {};
};

keyed_record *record_of(const talg_hash_node *node) {
    return TALG_RECORD_OF(node, keyed_record, entry.hash_node);
}
keyed_record *record_of(const talg_list_node *node) {
    return TALG_RECORD_OF(node, keyed_record, entry.node);
}
std::uint32_t masked_hash(unsigned order, const void *key) {
    return *static_cast<const std::uint32_t *>(key) &
           static_cast<std::uint32_t>((std::uint64_t{1} << order) - 1);
}
int compare_keys(const talg_hash_node *node, const void *key) {
    return record_of(node)->key == *static_cast<const std::uint32_t *>(key) ? 0 : 1;
}
template <class Node>
int collect_key(Node *node, void *list) {
    static_cast<numbers *>(list)->push_back(record_of(node)->key);
    return 0;
}
numbers destroyed;
void note(talg_hash_node *node, void *) {
    destroyed.push_back(record_of(node)->key);
}

TEST(HashTable, KeepsTheNewestOfAKeyAndAWalkMayRemoveNodes) {
    keyed_record records[5] = {{0}, {1}, {2}, {4}, {6}}, equal{2};
    talg_hash_table *table = nullptr;
    talg_hash_node *found = nullptr;
    const auto set = [&](keyed_record &r) { return talg_hash_table_set(table, &r.entry.hash_node, &r.key); };
    const auto get = [&](std::uint32_t key) { return talg_hash_table_get(table, &found, &key); };
    const auto create = [&](unsigned order) {
        talg_hash_table_destroy(table);
        destroyed.clear();
        return talg_hash_table_create(&table, masked_hash, compare_keys, note, order, 0);
    };
    const int refused[] = {create(33), set(records[0]), get(0),
                           talg_hash_table_foreach(table, collect_key, nullptr)};
    EXPECT_THAT(refused, testing::Each(EINVAL));
    ASSERT_EQ(create(32), 0);  // a single bucket
    EXPECT_EQ(set(records[0]), 0);
    EXPECT_EQ(set(records[1]), ERANGE);
    EXPECT_EQ(get(1), ERANGE);
    ASSERT_EQ(create(2), 0);  // four buckets
    for (keyed_record &record : records)
        EXPECT_EQ(set(record), 0);
    EXPECT_EQ(talg_hash_table_foreach(table, nullptr, nullptr), EINVAL);
    EXPECT_EQ(talg_hash_table_set(table, nullptr, &records[0].key), EINVAL);
    numbers keys;
    EXPECT_EQ(talg_hash_table_foreach(table, collect_key, &keys), 0);
    EXPECT_EQ(keys, (numbers{4, 0, 1, 6, 2}));
    EXPECT_EQ(set(records[2]), 0) << "once more";
    EXPECT_EQ(destroyed, numbers{});
    EXPECT_EQ(set(equal), 0);
    EXPECT_EQ(destroyed, numbers{2});
    EXPECT_EQ(get(10), ENOENT);
    EXPECT_EQ(get(2), 0);
    EXPECT_EQ(found, &equal.entry.hash_node);
    const auto remove_until_one = [](talg_hash_node *node, void *owner) {
        auto *const from = static_cast<talg_hash_table *>(owner);
        talg_hash_node *same = nullptr;
        EXPECT_EQ(talg_hash_table_get(from, &same, &record_of(node)->key), 0) << "a call from within";
        talg_hash_table_remove(from, node);
        return record_of(node)->key == 1 ? 77 : 0;
    };
    EXPECT_EQ(talg_hash_table_foreach(table, remove_until_one, table), 77);
    talg_hash_table_destroy(table);
    EXPECT_EQ(destroyed, (numbers{2, 4, 0, 1, 2, 6}));
}

TEST(LruCache, EvictsTheLeastRecentlyUsedEntryAndAFailedSetChangesNothing) {
    talg_lru_cache *cache = nullptr;
    talg_list_node *node = nullptr;
    keyed_record outsider{1};
    const auto create = [&](std::size_t capacity, unsigned order) {
        talg_lru_cache_destroy(cache);
        destroyed.clear();
        const auto destroy = [](talg_hash_node *gone, void *) {
            note(gone, nullptr), delete record_of(gone);
        };
        return talg_lru_cache_create(&cache, masked_hash, compare_keys, destroy, order, capacity, 0);
    };
    const auto set = [&](keyed_record *r) { return talg_lru_cache_set(cache, &r->entry, &r->key); };
    const auto order = [&] {
        numbers keys;
        EXPECT_EQ(talg_lru_cache_foreach(cache, collect_key, &keys), 0);
        return keys;
    };
    const int refused[] = {create(0, 0), create(1, 33), set(&outsider),
                           talg_lru_cache_get(cache, &node, &outsider.key),
                           talg_lru_cache_foreach(cache, collect_key, nullptr)};
    EXPECT_THAT(refused, testing::Each(EINVAL));
    ASSERT_EQ(create(1, 32), 0);  // a single bucket, for hash value 0
    EXPECT_EQ(set(new keyed_record{0}), 0);
    EXPECT_EQ(set(&outsider), ERANGE);
    EXPECT_EQ(talg_lru_cache_set(cache, nullptr, &outsider.key), EINVAL);
    EXPECT_EQ(talg_lru_cache_foreach(cache, nullptr, nullptr), EINVAL);
    EXPECT_EQ(order(), numbers{0});
    const auto call_again = [](talg_list_node *, void *owner) {
        numbers keys;
        return 9 + talg_lru_cache_foreach(static_cast<talg_lru_cache *>(owner), collect_key, &keys);
    };
    EXPECT_EQ(talg_lru_cache_foreach(cache, call_again, cache), 9);
    std::mt19937 random(7);
    for (const std::size_t capacity : {1u, 3u, 8u}) {
        ASSERT_EQ(create(capacity, 2), 0);
        numbers model, model_destroyed;
        for (int i = 0; i < 2000; ++i) {
            const auto key = static_cast<std::uint32_t>(random() % 12);
            const bool present = std::erase(model, key) != 0;
            if (random() % 2 == 0) {
                talg_list_node stale;
                node = &stale;
                ASSERT_EQ(talg_lru_cache_get(cache, &node, &key), present ? 0 : ENOENT);
                ASSERT_EQ(node != nullptr, present);
                if (!node)
                    continue;
                ASSERT_EQ(record_of(node)->key, key);
                ASSERT_EQ(i % 2 == 0 ? set(record_of(node)) : 0, 0);
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
    talg_lru_cache_destroy(cache);
}

TEST(Bitmap, WholeWordsAreReadableAndTheCapacityIsOutOfRange) {
    for (const auto &[bits, size] : {std::pair<std::size_t, std::size_t>{0, 0}, {64, 8}, {65, 16}}) {
        talg_bitmap *bitmap = nullptr;
        ASSERT_EQ(talg_bitmap_create(&bitmap, bits), 0);
        const auto bytes = [map = bitmap] {
            byte_list all(talg_bitmap_size(map));
            talg_bitmap_read(map, all.data());
            return all;
        };
        EXPECT_EQ(bytes(), byte_list(size)) << bits;
        for (const auto change : {talg_bitmap_set, talg_bitmap_unset, talg_bitmap_toggle})
            EXPECT_EQ(change(bitmap, talg_bitmap_capacity(bitmap)), ERANGE);
        talg_bitmap_set_all(bitmap);
        EXPECT_EQ(bytes(), byte_list(size, 0xFF));
        talg_bitmap_write(bitmap, byte_list(size, 0xA5).data());
        EXPECT_EQ(bytes(), byte_list(size, 0xA5));
        for (std::size_t i = 0; i < bits; ++i) {
            ASSERT_EQ(talg_bitmap_isset(bitmap, i), (0xA5 >> i % 8 & 1) != 0);
            ASSERT_EQ(talg_bitmap_unset(bitmap, i), 0);
        }
        EXPECT_TRUE(bits == 65 || bytes() == byte_list(size));
        talg_bitmap_set_all(bitmap);
        talg_bitmap_clear(bitmap);
        EXPECT_EQ(bytes(), byte_list(size));
        talg_bitmap_destroy(bitmap);
    }
    talg_bitmap *none = nullptr;
    EXPECT_EQ(talg_bitmap_create(&none, ~0ULL), ENOMEM);
    EXPECT_EQ(talg_bitmap_create(nullptr, 1), EINVAL);
}

struct SlabDeathTest : testing::Test {
    int create(std::size_t element_size, std::size_t initial_count = 1) {
        talg_slab_destroy(slab);
        slab = nullptr;
        return talg_slab_create(&slab, element_size, initial_count, 0);
    }
    numbers lengths() {
        static numbers seen;
        seen.clear();
        const talg_slab_lists *lists = talg_slab_get_lists(slab);
        for (const talg_list *list : {&lists->empty, &lists->partial, &lists->full}) {
            seen.push_back(0);
            EXPECT_EQ(talg_slab_iterate(list, [](talg_slab_header *) { return ++seen.back(), 0; }), 0);
        }
        return seen;
    }
    void TearDown() override { talg_slab_destroy(slab); }

    talg_slab *slab = nullptr;
};

TEST_F(SlabDeathTest, KeepsTheBytesOfEveryElementAndGrowsOnlyWhenFull) {
    constexpr std::size_t huge = std::size_t{1} << 57;
    EXPECT_EQ(create(0), EINVAL);
    EXPECT_EQ(talg_slab_create(nullptr, 1, 1, 0), EINVAL);
    EXPECT_EQ(create(huge), EOVERFLOW);
    const numbers refused[] = {{16, huge}, {16, SIZE_MAX / 16}, {16, SIZE_MAX}, {huge - 1, 1}};
    for (const numbers &c : refused)
        EXPECT_EQ(stderr_of([&] { EXPECT_EQ(create(c[0], c[1]), ENOMEM); }),
                  "failed to allocate slab block\n");
    std::mt19937 random(11);
    const std::size_t cases[][4] = {// size, first count, slabs of the first growth and of the next ones
                                    {1, 1, 64, 64},  {32, 124, 2, 2}, {32, 125, 2, 2},
                                    {32, 128, 4, 2}, {64, 64, 2, 1},  {4096, 63, 1, 1}};
    for (const auto &[size, first_count, slabs, more] : cases) {
        ASSERT_EQ(create(size, first_count), 0);
        EXPECT_EQ(lengths(), (numbers{slabs, 0, 0})) << "of elements of " << size;
        EXPECT_EQ(talg_slab_elemsize(slab), size);
        std::vector<std::pair<void *, byte_list>> live;
        std::size_t peak = 0;
        for (int i = 0; i < 2000; ++i) {
            if (live.empty() || random() % 10 < (i < 1000 ? 6 : 4)) {
                live.emplace_back(talg_slab_alloc(slab), byte_list(size, random() & 0xFF));
                std::memcpy(live.back().first, live.back().second.data(), size);
                peak = std::max(peak, live.size());
                continue;
            }
            std::swap(live[random() % live.size()], live.back());
            ASSERT_EQ(std::memcmp(live.back().first, live.back().second.data(), size), 0);
            talg_slab_free(slab, live.back().first);
            live.pop_back();
        }
        for (auto &[element, bytes] : live)
            talg_slab_free(slab, element);
        const std::size_t elements = size == 1 ? 16 : size == 32 ? 62 : 63;  // of a slab
        std::size_t needed = slabs;
        while (needed * elements < peak)
            needed += more;
        EXPECT_EQ(lengths(), (numbers{needed, 0, 0}));
    }
    ASSERT_EQ(create(32), 0);
    void *last = nullptr;
    for (int i = 0; i < 62; ++i)
        last = talg_slab_alloc(slab);
    EXPECT_EQ(lengths(), (numbers{1, 0, 1}));
    talg_slab_free(slab, last);
    EXPECT_EQ(lengths(), (numbers{1, 1, 0}));
    testing::internal::CaptureStdout();
    talg_slab_print(slab);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::ContainsRegex("^slab allocator 0x[0-9a-f]+: 62 elements of 32 bytes per slab of .*\n"
                                       "partly used slabs:\n  0x[0-9a-f]+: 1 free .mask 0x2000000000000000.\n"
                                       "full slabs:\n$"));
    EXPECT_EQ(talg_slab_alloc(slab), last);
}

TEST_F(SlabDeathTest, AbortsOnWhatIsNoElementInUse) {
    talg_slab *other = nullptr;
    ASSERT_EQ(talg_slab_create(&other, 32, 1, 0), 0);
    ASSERT_EQ(create(32), 0);
    auto *element = static_cast<char *>(talg_slab_alloc(slab));
    for (void *wrong : {talg_slab_alloc(other), static_cast<void *>(element + 1),
                        static_cast<void *>(element - 48), static_cast<void *>(element + 32)})
        EXPECT_DEATH(talg_slab_free(slab, wrong), "^free'ing invalid slab pointer 0x[0-9a-f]+\n");
    talg_slab_free(slab, nullptr);
    talg_slab_destroy(other);
}

TEST(MemalignDeathTest, GivesZeroedPagesAtTheAlignmentOrWhyNot) {
    const std::size_t cases[][4] = {
        // size, alignment, the one found, errno
        {1, 0, 4096, 0},   {4097, 32768, 32768, 0},  {4096, 1 << 20, 1 << 20, 0},       {1, 4097, 0, EINVAL},
        {0, 1, 0, EINVAL}, {SIZE_MAX, 1, 0, ENOMEM}, {SIZE_MAX - 4095, 8192, 0, ENOMEM}};
    for (const auto &[size, alignment, found, error] : cases) {
        errno = 0;
        auto *memory = static_cast<unsigned char *>(talg_memalign_alloc(size, alignment));
        EXPECT_EQ(static_cast<std::size_t>(errno), error) << size << " at " << alignment;
        ASSERT_EQ(memory == nullptr, error != 0);
        if (memory == nullptr)
            continue;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % found, 0u);
        const std::size_t length = (size + 4095) / 4096 * 4096;
        EXPECT_EQ(memory[0] | memory[length - 1], 0);
        std::memset(memory, 0xA5, length);
        talg_memalign_free(memory, size);
        EXPECT_DEATH(memory[length - 1] = 1, "") << "all of it is unmapped";
    }
    alignas(2) char unaligned[2];
    EXPECT_DEATH(talg_memalign_free(unaligned + 1, 1), "^talg_memalign_free: failed to munmap \\(22\\)\n");
}

template <class T>
int calls_failed(int (*create)(T **), void (*destroy)(T *) noexcept) {
    return fail_each_call([=] {
        T *object = nullptr;
        const int err = create(&object);
        EXPECT_EQ(err == 0, object != nullptr);
        destroy(object);
        return err == 0;
    });
}

TEST(FailingCallsDeathTest, FailTheirCallerOrAbortWhenALockFails) {
    live = 0;
    const auto make_bitmap = [](talg_bitmap **out) { return talg_bitmap_create(out, 9); };
    const auto make_slab = [](talg_slab **out) { return talg_slab_create(out, 64, 1, 0); };
    const auto make_table = [](talg_hash_table **out) {
        return talg_hash_table_create(out, masked_hash, compare_keys, nullptr, 4, 0);
    };
    const auto make_cache = [](talg_lru_cache **out) {
        return talg_lru_cache_create(out, masked_hash, compare_keys, nullptr, 4, 1, 0);
    };
    EXPECT_EQ(calls_failed<talg_bitmap>(make_bitmap, talg_bitmap_destroy), 2);
    EXPECT_EQ(calls_failed<talg_lru_cache>(make_cache, talg_lru_cache_destroy), 6);
    EXPECT_EQ(calls_failed<talg_hash_table>(make_table, talg_hash_table_destroy), 5);
    stderr_of([&] { EXPECT_EQ(calls_failed<talg_slab>(make_slab, talg_slab_destroy), 6); });
    EXPECT_EQ(live, 0) << "mutexes";
    talg_slab *slab = nullptr;
    ASSERT_EQ(make_slab(&slab), 0);
    for (int i = 0; i < 63; ++i)
        EXPECT_NE(talg_slab_alloc(slab), nullptr);
    for (const int call : {1, 2, 0}) {
        const auto grow = [&] { EXPECT_EQ(talg_slab_alloc(slab) == nullptr, call != 0); };
        fails_at = call;
        EXPECT_EQ(stderr_of(grow), call ? "failed to allocate slab block\n" : "");
        EXPECT_EQ(errno, ENOMEM);
    }
    const auto alloc_when = [=](bool &failing) { failing = true, static_cast<void>(talg_slab_alloc(slab)); };
    EXPECT_DEATH(alloc_when(lock_fails), "^slab mutex lock failed\n");
    EXPECT_DEATH(alloc_when(unlock_fails), "^slab mutex unlock failed\n");
    talg_slab_destroy(slab);
    keyed_record record{1};
    talg_lru_cache *cache = nullptr;
    talg_list_node *entry = nullptr;
    ASSERT_EQ(make_cache(&cache), 0);
    lock_fails = true;
    const int answers[] = {talg_lru_cache_set(cache, &record.entry, &record.key),
                           talg_lru_cache_get(cache, &entry, &record.key),
                           talg_lru_cache_foreach(cache, collect_key, nullptr)};
    lock_fails = false;
    EXPECT_THAT(answers, testing::Each(EAGAIN));
    talg_lru_cache_destroy(cache);
}

// Every worker waits for the others in a piece of its own, so all of them have to be there.
struct worker_round {
    explicit worker_round(unsigned count) : all_there(count) {}
    std::barrier<> all_there;
    std::mutex lock;
    std::set<std::size_t> pieces, workers;
    sigset_t blocked{};
};
void take_piece(void *arg, std::size_t piece, unsigned worker) {
    auto &round = *static_cast<worker_round *>(arg);
    round.all_there.arrive_and_wait();
    const std::lock_guard guard(round.lock);
    round.pieces.insert(piece);
    round.workers.insert(worker);
    if (worker != 0)
        pthread_sigmask(SIG_BLOCK, nullptr, &round.blocked);
}

TEST(Workers, TakeEveryPieceOnceAllOfThem) {
    // Workers wanted, the call that fails (memory, then a thread), and workers there.
    const unsigned rows[][3] = {{0, 0, 1}, {1, 0, 1}, {2, 0, 2},  {4, 4, 3},
                                {2, 2, 1}, {2, 1, 1}, {2, 99, 1}, {1000, 0, TALG_MAX_WORKERS}};
    for (const auto &[wanted, failing, there] : rows) {
        SCOPED_TRACE(std::to_string(wanted) + ", failing " + std::to_string(failing));
        fails_at = static_cast<int>(failing);
        signals_fail = failing == 99;
        talg_workers *const workers = talg_workers_create(wanted);
        fails_at = signals_fail = false;
        EXPECT_EQ(workers == nullptr, wanted < 2 || failing == 1);
        live = workers ? 3 : 0;
        for (int i = 0; i < 3; ++i) {
            worker_round round(there);
            talg_workers_run(workers, take_piece, &round, there);
            for (const auto &found : {round.pieces, round.workers})
                EXPECT_TRUE(found.size() == there && *found.rbegin() == there - 1);
            for (const int signal : {SIGINT, SIGTERM, SIGXFSZ, SIGSEGV, SIGBUS})
                EXPECT_EQ(sigismember(&round.blocked, signal),
                          there > 1 && (signal == SIGINT || signal == SIGTERM));
        }
        sigset_t now;
        EXPECT_EQ(pthread_sigmask(SIG_BLOCK, nullptr, &now) + sigismember(&now, SIGINT), 0);
        talg_workers_destroy(workers);
        EXPECT_EQ(live, 0);
    }
    std::size_t sum = 0;
    const auto add = [](void *to, std::size_t piece, unsigned) { *static_cast<std::size_t *>(to) += piece; };
    talg_workers_run(nullptr, add, &sum, 10);
    EXPECT_EQ(sum, 45U) << "alone";
}

}  // namespace
