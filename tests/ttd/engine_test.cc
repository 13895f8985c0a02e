// The engine as a library: superblocks, caches, ranges, single blocks and many
// threads on one image.
#include "support/failing_calls.h"
#include "support/test.h"
#include "talg/workers.h"
#include "ttd/path.h"
#include "ttd/test_image.h"
#include <openssl/evp.h>

// The next digest of these bytes fails, or the call that fails() counts.
static image_bytes fails_on;

static bool digest_fails(const void *data, std::size_t length) {
    if (length != fails_on.size() || length == 0 || std::memcmp(data, fails_on.data(), length) != 0)
        return fails();
    fails_on.clear();
    return true;
}

static pid_t thread_id = 0;  // 0: the real one

// clang-format off
FAILING_IF(thread_id != 0, pid_t, gettid, thread_id, ())
FAILING(void *, _ZnamRKSt9nothrow_t, nullptr, (std::size_t size, const std::nothrow_t &tag), size, tag)
FAILING(int, EVP_DigestInit_ex, 0, (EVP_MD_CTX * a, const EVP_MD *b, ENGINE *c), a, b, c)
FAILING_IF(digest_fails(b, c), int, EVP_DigestUpdate, 0, (EVP_MD_CTX * a, const void *b, size_t c), a, b, c)
FAILING(int, EVP_DigestFinal_ex, 0, (EVP_MD_CTX * a, unsigned char *b, unsigned *c), a, b, c)
// clang-format on

namespace {

// Images of few levels: build_matrix.py.
TEST(Geometry, TreesThatAreRefusedDeepOrWrap) {
    const struct {
        std::uint64_t covered;
        std::uint32_t block, hash;
        int err;
        std::uint64_t tree_size = 0;
        bool exact = false;  // no tree of 2^32 bytes or hashes, no blocks that are counted past 2^32
    } cases[] = {
        // clang-format off
        {0, 4096, 32, EINVAL}, {4096, 0, 32, EINVAL}, {4096, 4096, 0, EINVAL},
        {4096, 16, 32, EINVAL}, {1 << 20, 32, 32, EINVAL},  // no hash or only one in a block
        {512ULL << 32, 512, 32, EINVAL}, {(512ULL << 30) + 512, 512, 64, EINVAL},  // 2^32 blocks, eleven levels
        {512ULL << 30, 512, 64, 0, 78536544768 % (1ULL << 32), false},  // ten levels
        {4095, 4096, 32, 0, 0, true}, {129 * 4096 - 1, 4096, 32, 0, 4096, true},  // only whole blocks count
        {129 * 4096, 4096, 32, 0, 12288, true}, {32ULL << 30, 512, 32, 0, 2290649600, true},
        {68719469056, 512, 32, 0, 286331392, false}, {549755293696, 4096, 32, 0, 33820672, false},
        {500ULL << 30, 4096, 32, 0, 4227334144, true}, {3ULL << 40, 32768, 32, 0, 3224403968, true},
        {2199023255040, 512, 32, 0, 0, false}, {140737488322560, 32768, 32, 0, 0, false},
        // clang-format on
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.covered);
        ttd_info info;
        info.covered_size = c.covered;
        info.block_size = info.hash_block_size = c.block;
        info.hash_size = c.hash;
        info.tree_offset = 1000;
        ASSERT_EQ(ttd_generate_info(&info), c.err);
        if (c.err != 0)
            continue;
        EXPECT_EQ(info.tree_size, c.tree_size);
        EXPECT_EQ(ttd_info_is_exact(info), c.exact);
        std::uint64_t offset = info.tree_offset;
        for (unsigned level = info.levels; level-- > 0; offset += info.level_blocks[level] * c.block)
            EXPECT_EQ(info.level_offset[level], offset) << "the top level comes first, its size in 32 bits";
    }
}

TEST(Caches, OptionTexts) {
    const struct {
        std::uint32_t total;
        const char *text;
        int err;
        std::size_t slots;
    } cases[] = {
        {10000, nullptr, 0, 500}, {300, "max", 0, 300},     {300, "0", 0, 0},     {300, "1000", 0, 300},
        {300, "10%", 0, 30},      {300, "101%", EINVAL, 0}, {300, "", EINVAL, 0}, {300, "5%%", EINVAL, 0},
    };
    for (const auto &c : cases) {
        ttd_ctx ctx;
        ctx.info.hash_blocks = c.total;
        std::size_t slots = 0;
        EXPECT_EQ(ttd_cache_option(&ctx, c.text, &slots), c.err) << c.slots;
        EXPECT_EQ(slots, c.slots);
    }
}

TEST(Caches, KeepPinnedBuffersAndGiveTheOthersBack) {
    talg_slab *slab = nullptr;
    ttd_lru_cache *cache = nullptr;
    ASSERT_EQ(talg_slab_create(&slab, 32, 1, 0) + ttd_lru_cache_create(&cache, 1), 0);
    const auto fresh = [&] { return static_cast<std::uint8_t *>(ttd_slab_alloc(slab)); };
    std::uint8_t *const first = fresh(), *const second = fresh();
    ttd_cache_entry *one = nullptr, *two = nullptr, *again = nullptr, *none = nullptr;
    ASSERT_EQ(ttd_lru_cache_add(cache, 1, first, slab, &one), 0);
    ASSERT_EQ(ttd_lru_cache_get(cache, 1, &again), 0);
    EXPECT_TRUE(again == one && !ttd_cache_is_proven(one));
    ttd_cache_unpin(again);
    ttd_cache_set_proven(one);
    EXPECT_TRUE(ttd_cache_is_proven(one));
    ASSERT_EQ(ttd_lru_cache_add(cache, 2, second, slab, &two), 0) << "which takes the place of 1";
    none = two;
    EXPECT_EQ(ttd_lru_cache_get(cache, 1, &none), ENOENT);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(ttd_cache_buffer(one), first) << "still pinned";
    std::uint8_t *const third = fresh();
    EXPECT_NE(third, first);
    ttd_cache_unpin(one);
    EXPECT_EQ(fresh(), first) << "given back";
    ttd_cache_unpin(two);
    EXPECT_NE(fresh(), second) << "the cache has it";
    EXPECT_TRUE(ttd_lru_cache_hits(cache) == 1 && ttd_lru_cache_slots(cache) == 1);
    fails_at = 1;
    EXPECT_EQ(ttd_lru_cache_add(cache, 3, third, slab, &none), ENOMEM);
    EXPECT_EQ(ttd_lru_cache_get(cache, 2, &two), 0) << "stays";
    ttd_cache_unpin(two);
    ttd_lru_cache_destroy(cache);
    EXPECT_EQ(fresh(), second);
    talg_slab_destroy(slab);
}

// No more slots than the blocks that are there can need, whatever the superblock says.
TEST(Caches, AreMadeWholeOrNotAtAll) {
    engine_image image;
    ttd_ctx &ctx = image.ctx;
    ctx.info.present_blocks = 160;
    image.begin(1000);
    for (const auto *cache : {ctx.block_cache, ctx.hash_cache})
        EXPECT_EQ(ttd_lru_cache_slots(cache), 2U * 10 + TTD_MAX_LEVELS);
    EXPECT_TRUE(talg_slab_elemsize(ctx.hash_slab) == 32 && talg_slab_elemsize(ctx.block_slab) == 512);
    const auto forget = [&] { ttd_free_caches(&ctx), ttd_free_slabs(&ctx); };
    forget();
    const int calls = fail_each_call([&] {
        const bool slabs = ttd_create_slabs(&ctx, 3) == 0, made = slabs && ttd_create_caches(&ctx, 3) == 0;
        EXPECT_TRUE(!!ctx.hash_slab == slabs && !!ctx.block_slab == slabs);
        EXPECT_TRUE(!!ctx.hash_cache == made && !!ctx.block_cache == made);
        forget();
        return made;
    });
    EXPECT_GE(calls, 10);
    ASSERT_EQ(ttd_create_slabs(&ctx, 3), 0);
}

TEST(Range, CutsAtTheDataEndAndAtTheMaximum) {
    engine_image image({.size = 5120});
    const struct {
        std::int64_t offset;
        std::uint64_t length, maximum;
        std::uint32_t first, end;
        std::uint64_t skip, count;
    } cases[] = {
        {1000, 100, 5120, 1, 3, 488, 100}, {5000, 1000, 5120, 9, 10, 392, 120},
        {700, 4000, 1024, 1, 3, 188, 836}, {0, 4000, 700, 0, 2, 0, 700},
        {700, 10, 0, 1, 1, 188, 0},
    };
    for (const auto &c : cases) {
        ttd_range range;
        ASSERT_EQ(ttd_setup_verify(&image.ctx, c.offset, c.length, c.maximum, &range), 0);
        EXPECT_EQ(std::tuple(range.first, range.end, range.skip, range.count),
                  std::tuple(c.first, c.end, c.skip, c.count));
        EXPECT_EQ(range.aligned_offset, std::uint64_t{c.first} * 512);
        EXPECT_EQ(range.aligned_length, std::min(c.maximum, std::uint64_t{c.end - c.first} * 512));
    }
    ttd_range untouched = {.first = 7, .end = 7, .count = 7};
    EXPECT_EQ(ttd_setup_verify(&image.ctx, 5120, 1, 1, &untouched), 0);
    EXPECT_EQ(untouched.count, 0U);
    EXPECT_EQ(ttd_setup_verify(&image.ctx, 700, 0, 1, &untouched), 0);
    EXPECT_EQ(untouched.first, 7U);
    EXPECT_EQ(ttd_setup_verify(&image.ctx, -1, 1, 1, &untouched), EINVAL);
    image.ctx.superblock.fssize = UINT64_MAX;
    EXPECT_EQ(ttd_setup_verify(&image.ctx, 512LL << 32, 1, 1, &untouched), EINVAL);
}

struct way {
    const char *name;
    std::size_t slots;
    int verbosity;
    bool in_one_call = true, caller_data = false;
};
constexpr way ways[] = {{"block by block", 0, 0, false},
                        {"block by block, cached", 100, 0, false},
                        {"in one call", 0, 0},
                        {"one slot", 1, 0},
                        {"cached", 100, 0},
                        {"traced", 0, 3},
                        {"data given", 0, 0, true, true}};

int verify_all(engine_image &image, const way &w) {
    const std::uint32_t count = image.ctx.info.raw_blocks;
    image.ctx.verbosity = w.verbosity;
    image.begin(w.slots);
    image.reports.clear();
    if (w.in_one_call)
        return image.verify(0, count, w.caller_data ? image.bytes.data() : nullptr);
    bool good = true;
    for (std::uint32_t block = 0; block < count; ++block)
        good &= image.verify_block(block) == 0;
    return good ? 0 : EIO;
}

// A block of the image, data or hash, and what lies beneath it.
struct part {
    int level;  // -1: data
    std::uint32_t index, first, end;
    std::int64_t offset;
};

// 70 blocks of 512 bytes with 8 hashes a block: levels of 9, 2 and 1.
constexpr std::uint32_t FEW = 70;
constexpr image_shape few = {.size = FEW * 512, .digest = 3, .hash_size = 64};

std::vector<part> parts_of_few() {
    std::vector<part> parts;
    std::int64_t place = 0;
    for (std::uint32_t block = 0; block < FEW; ++block, place += 512)
        parts.push_back({-1, block, block, block + 1, place});
    for (int level = 2; level >= 0; --level)
        for (std::uint32_t i = 0, span = 8U << 3 * level; i * span < FEW; ++i, place += 512)
            parts.push_back({level, i, i * span, std::min(FEW, (i + 1) * span), place});
    return parts;
}

constexpr const char *REASON = " digest algorithm (algorithm encountered an internal error)\n";
const std::string NOT_HASHED = std::string("failed to update") + REASON + "data hashing failed\n";

// What happens to a block before the image is verified, and what is logged for each
// block beneath that fails.
struct fault {
    const char *name;
    int bad_reads;
    std::string text;
    bool once;
};
const fault faults[] = {{"changed", 0, "", false},
                        {"never read", 1000000, "", false},
                        {"not read once", 1, "", true},
                        {"not hashed once", 0, NOT_HASHED, true}};

std::string errors_in(const log_capture &log) {
    std::string all;
    for (const log_line &line : log.lines())
        all += line.level == TTD_LOG_ERROR ? line.text : "";
    return all;
}

TEST(Verify, EveryWayFailsWhatIsBeneathAndTellsTheSame) {
    engine_image image(few);
    for (const part &at : parts_of_few())
        for (const fault &f : faults)
            for (const way &w : ways) {
                const bool is_zero = at.index % 5 == 2;
                if (at.level < 0 && ((w.caller_data && f.bad_reads != 0) || (is_zero && !f.text.empty())))
                    continue;  // which is not read, or not hashed
                SCOPED_TRACE(std::string(f.name) + ", " + w.name + ", " + std::to_string(at.offset));
                const image_bytes good = image.bytes;
                const auto place = image.bytes.begin() + at.offset;
                const bool changed = f.bad_reads == 0 && !f.once;
                place[7] ^= changed ? 1 : 0;
                if (!f.text.empty())
                    fails_on.assign(place, place + 512);
                image.bad_place = at.offset;
                image.bad_reads = f.bad_reads;
                EXPECT_EQ(verify_all(image, w), EIO);
                image.bytes = good;
                image.bad_reads = 0;
                EXPECT_TRUE(fails_on.empty());
                std::string bits(FEW, '.'), texts;
                std::vector<std::tuple<std::uint32_t, int, std::uint32_t, std::int64_t>> expected, told;
                const int level = std::max(at.level, 0);
                const std::uint32_t hash_block = at.level < 0 ? 0 : at.index;
                for (std::uint32_t block = at.first; block < (f.once ? at.first + 1 : at.end); ++block) {
                    bits[block] = 'X';
                    texts += f.text;
                    if (!changed)
                        continue;
                    texts += "Hash mismatch for data block " + std::to_string(block) + " (hash block " +
                             std::to_string(hash_block) + ") at level " + std::to_string(level) +
                             " (offset: " + std::to_string(at.offset) + ")\n";
                    expected.emplace_back(block, level, hash_block, at.offset);
                }
                for (const ttd_mismatch &report : image.reports)
                    told.emplace_back(report.data_block, report.level, report.hash_block, report.offset);
                EXPECT_EQ(image.bits(), bits);
                EXPECT_EQ(errors_in(image.log), texts);
                EXPECT_EQ(told, expected);
            }
    for (const way &w : ways) {
        EXPECT_EQ(verify_all(image, w), 0) << w.name;
        for (const char *part :
             {"hash block index (lvl 0, nblk 9, lhblk 1): 1 (disk offset: ", "hblk: ", "data: ",
              "hashing disk block 9 (disk offset: 4608)\n", "disk hash: ", "calc hash: "})
            EXPECT_EQ(image.log.text().find(part) != std::string::npos, w.verbosity > 2) << part;
        EXPECT_EQ(image.bits(), std::string(FEW, '.')) << w.name;
    }
}

// Whatever step of a digest fails, a run of blocks tells it as a single block does.
TEST(Hash, AFailingStepIsNamedWithItsBlock) {
    engine_image image(few);
    const std::pair<const char *, const char *> steps[] = {{"reset", "hash algorithm init"},
                                                           {"update", "salt hashing"},
                                                           {"update", "data hashing"},
                                                           {"finalize", "hash generation"}};
    image_bytes hashes(5 * 64);
    const auto expect_told = [&](int step, int err) {
        EXPECT_NE(err, 0);
        const auto &[verb, name] = steps[step];
        EXPECT_EQ(errors_in(image.log), std::string("failed to ") + verb + REASON + name + " failed\n");
        image.log.clear();
    };
    ASSERT_EQ(ttd_hash_zero_block(&image.ctx, image.digest), 0);  // block 2 is one
    for (int call = 0; call < 16; ++call) {
        ttd_hash_failure failure;
        const ttd_block_run run = {image.bytes.data(), 512, 5};
        fails_at = call + 1;
        EXPECT_EQ(ttd_hash_blocks(&image.ctx, run, image.digest, hashes.data(), &failure), ENXIO);
        EXPECT_EQ(failure.block, call / 4 + (call >= 8 ? 1 : 0));
        expect_told(call % 4, ttd_hash_report(failure));
        fails_at = call % 4 + 1;
        expect_told(call % 4, ttd_hash_block(&image.ctx, run.data, run.length, image.digest, hashes.data()));
    }
}

// 300 blocks of 512 bytes with 16 hashes a block: levels of 19, 2 and 1.
constexpr std::uint32_t BLOCKS = 300;

TEST(Verify, ReadsTheTreeOnce) {
    const struct {
        std::size_t slots;
        std::uint32_t first, end;
        std::uint64_t once, again, singly;  // hash blocks read
    } cases[] = {
        {0, 0, BLOCKS, 22, 22, 900}, {1, 0, BLOCKS, 22, 22, 900}, {100, 0, BLOCKS, 22, 0, 22},
        {0, 15, 17, 4, 4, 6},        {100, 15, 17, 4, 0, 4},      {100, 16, 32, 3, 0, 3},
    };
    engine_image image;
    for (const auto &c : cases) {
        SCOPED_TRACE(&c - cases);
        image.begin(c.slots);
        EXPECT_EQ(image.verify(c.first, c.end), 0);
        EXPECT_EQ(image.tree_blocks, c.once);
        EXPECT_EQ(image.verify(c.first, c.end), 0);
        EXPECT_EQ(image.tree_blocks, c.once + c.again);
        image.begin(c.slots);
        for (std::uint32_t block = c.first; block < c.end; ++block)
            EXPECT_EQ(image.verify_block(block), 0);
        EXPECT_EQ(image.tree_blocks, c.singly);
    }
}

TEST(Verify, TheIndexBehindTheLastBlockIsWalked) {
    for (const bool full : {false, true}) {  // at 256 blocks it lies under no hash block
        const std::uint32_t count = full ? 256 : BLOCKS;
        engine_image image({.size = std::uint64_t{count} * 512});
        EXPECT_EQ(image.verify_block(count), EIO);
        EXPECT_EQ(image.reports.size(), 1U);
        EXPECT_EQ(image.verify(0, count + 1), EIO);
        EXPECT_EQ(image.reports.size(), 2U);
        EXPECT_EQ(image.bits(), std::string(count, '.'));
        image.log.clear();
        EXPECT_EQ(image.verify_block(count + 1), EINVAL);
        EXPECT_EQ(image.log.text(), "");
    }
}

TEST(Verify, WhatIsNotThereIsCounted) {
    engine_image image;
    const std::uint64_t tree = BLOCKS * 512;
    // clang-format off
    for (const auto &[size, present] : {std::pair{image.bytes.size(), BLOCKS + 30}, {tree + 22 * 512, BLOCKS + 4},
             {tree + 21 * 512, 288}, {tree + 4 * 512, 16}, {tree + 3 * 512, 0}, {tree - 1, 0}})
        // clang-format on
        EXPECT_EQ(ttd_blocks_within(image.ctx.info, size), present) << size;
    image.ctx.info.present_blocks = 288;
    image.begin(0);
    EXPECT_EQ(image.verify(0, UINT32_MAX, image.bytes.data()), EIO);
    EXPECT_EQ(talg_bitmap_capacity(image.ctx.verified), 288U);
    EXPECT_EQ(image.bits(), std::string(288, '.') + std::string(BLOCKS - 288, 'X'));
    EXPECT_TRUE(image.reports.empty());
}

// The last block begins in front of the tree and ends in it.
TEST(Verify, ABlockSharedWithTheTreeIsNotProven) {
    engine_image image({.size = 49152, .block = 8192, .partition = 65536});
    EXPECT_EQ(image.ctx.superblock.offset, 53248U);
    EXPECT_EQ(image.verify(0, 6), 0);
    EXPECT_EQ(image.verify(0, 7), EIO);
    EXPECT_EQ(image.bits(), "......XX");
}

TEST(Verify, AContextServesOneImageAfterTheOther) {
    engine_image image;
    ASSERT_EQ(ttd_hash_zero_block(&image.ctx, image.digest), 0);
    image.ctx.info.present_blocks = 1;
    image.close();
    image.open({.size = 40960, .block = 1024, .digest = 3, .hash_size = 64, .salt_byte = 1});
    EXPECT_EQ(image.verify(0, 40), 0);
    EXPECT_EQ(image.bits(), std::string(40, '.'));
}

TEST(Verify, KnownBlocksAreNotReadAgain) {
    engine_image image({.size = 20 * 512});
    talg_bitmap *known = nullptr;
    ASSERT_EQ(talg_bitmap_create(&known, 20), 0);
    talg_bitmap_set(known, 3);
    ASSERT_EQ(image.verify(0, 20), 0);
    std::ranges::fill(image.bytes, std::uint8_t{0});
    for (const auto &[first, block, err] :
         {std::tuple{2U, 5U, 0}, {0U, 3U, 0}, {0U, 4U, EIO}, {1U, 4U, EIO}}) {
        const ttd_range range = {.first = first, .end = 20, .bitmap = known};  // at last known, not proven
        EXPECT_EQ(image.verify_block(block, &range), err) << first;
    }
    EXPECT_EQ(image.bits(), "....X...............");
    talg_bitmap_destroy(known);
}

TEST(Hash, ThreadsOfSmallIdsKeepTheirDigestUntilTheEnd) {
    thread_id = TTD_DIGEST_SLOTS - 1;
    {
        engine_image image;
        for (int round = 0; round < 2; ++round) {
            tcrypto_ctx *again = nullptr;
            EXPECT_EQ(ttd_hash_init(&image.ctx, &again), 0);
            EXPECT_EQ(again, image.digest);
            ttd_hash_done(again);
            EXPECT_EQ(image.verify(0, 20), 0);
            image.close();
            EXPECT_EQ(image.ctx.crypto.slots[thread_id], nullptr);
            image.open({});
        }
    }
    thread_id = 0;
}

// What the workers do in common is what the caller does alone, where he finds no memory for them.
TEST(Verify, WorkersShareARangeOfManyPieces) {
    static constexpr std::uint32_t FIRST = 7, COUNT = 1300;  // of 4096 bytes, in pieces of 512
    struct told_blocks {
        std::atomic<int> hashed[COUNT] = {};
        std::uint32_t passed = FIRST;
    };
    engine_image image({.size = COUNT * 4096, .block = 4096});
    talg_workers *const workers = talg_workers_create(3);
    std::string bits = std::string(FIRST, 'X') + std::string(COUNT - FIRST, '.');
    for (const std::uint32_t damaged : {511U, 512U, 900U, 1299U}) {
        image.bytes[std::size_t{damaged} * 4096] ^= 1;
        bits[damaged] = 'X';
    }
    for (const auto &[call, given] :
         {std::pair{0, true}, {0, false}, {1, false}, {2, true}, {3, false}, {5, false}}) {
        SCOPED_TRACE(call);
        told_blocks told;
        ttd_range range = {
            .first = FIRST, .end = COUNT, .passed_arg = &told, .workers = workers, .worker_count = 3};
        range.hashed = [](void *arg, std::uint32_t first, std::uint32_t count) {
            for (std::uint32_t i = first; i < first + count; ++i)
                ++static_cast<told_blocks *>(arg)->hashed[i];
        };
        range.passed = [](void *arg, std::uint32_t first, std::uint32_t count) {
            EXPECT_EQ(std::exchange(static_cast<told_blocks *>(arg)->passed, first + count), first);
        };
        image.begin(0);
        fails_at = call;
        const std::uint8_t *data = given ? &image.bytes[FIRST * 4096] : nullptr;
        EXPECT_EQ(ttd_verify_range(&image.ctx, &range, image.digest, data, nullptr, nullptr), EIO);
        EXPECT_EQ(std::exchange(fails_at, 0), 0);
        EXPECT_EQ(told.passed, COUNT);
        EXPECT_EQ(std::count(told.hashed, told.hashed + COUNT, 1), COUNT - FIRST);
        EXPECT_EQ(image.bits(), bits);
    }
    talg_workers_destroy(workers);
}

}  // namespace
