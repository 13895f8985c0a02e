// The engine as a library: superblocks, caches, ranges, single blocks and many
// threads on one image.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "engine_image.h"
#include "support/log_capture.h"

namespace {

// The engine's messages while it lives.
class captured_log : public log_capture {
public:
    captured_log() { ttd_register_log_fct(mktfs_log); }
    ~captured_log() { ttd_register_log_fct(ignore_message); }
};

// More in hostile_test.cc.
TEST(Superblock, RefusesWhatContradictsTheFormat) {
    const struct {
        const char *name;
        void (*spoil)(ttd_superblock &);
        const char *message;
    } cases[] = {
        {"salt shorter than the hash", [](ttd_superblock &sb) { sb.saltsize = 31; },
         "invalid salt size '31'\n"},
        {"salt of 129", [](ttd_superblock &sb) { sb.saltsize = 129; }, "invalid salt size '129'\n"},
        {"hash block of 2^31", [](ttd_superblock &sb) { sb.hblksize = 1U << 31; }, nullptr},
        {"2^32 blocks", [](ttd_superblock &sb) { sb.fssize = 512ULL << 32; }, nullptr},
        {"tree of 2^32 bytes", [](ttd_superblock &sb) { sb.fssize = 68719469056; }, nullptr},
        {"tree offset that wraps", [](ttd_superblock &sb) { sb.offset = UINT64_MAX - 100; }, nullptr},
    };
    engine_image good(4, 512);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ttd_superblock sb = good.ctx.superblock;
        c.spoil(sb);
        ttd_info info;
        info.hash_size = 32;
        captured_log log;
        EXPECT_EQ(ttd_superblock2info(&sb, &info), EINVAL);
        EXPECT_EQ(log.text(), c.message ? c.message : "failed to generate merkle geometry info");
        EXPECT_FALSE(info.salt);
    }
}

TEST(Superblock, CodesOutsideTheTablesMeanNothing) {
    for (const std::uint32_t code : {0U, 9U, UINT32_MAX})
        EXPECT_EQ(ttd_hash_name(code), nullptr) << code;
    for (const std::uint32_t code : {0U, 5U, UINT32_MAX})
        EXPECT_EQ(ttd_sig_row(code), nullptr) << code;
    EXPECT_EQ(ttd_hash_type("sha-256") + ttd_hash_type(nullptr) + ttd_sig_type(nullptr), 0U);
}

TEST(Superblock, FitsAnImageOnlyWhole) {
    engine_image good(4, 512);
    ttd_superblock sb = good.ctx.superblock;
    const std::uint64_t size = good.image.size(), beyond = size - TTD_SUPERBLOCK_SIZE + 1;
    EXPECT_TRUE(ttd_superblock_fits(sb, good.ctx.info, size));
    for (const std::uint64_t less : {size - 1, std::uint64_t{100}})
        EXPECT_FALSE(ttd_superblock_fits(sb, good.ctx.info, less));
    sb.fssize = beyond;
    EXPECT_FALSE(ttd_superblock_fits(sb, good.ctx.info, size));
    good.ctx.info.tree_offset = beyond;
    EXPECT_FALSE(ttd_superblock_fits(good.ctx.superblock, good.ctx.info, size));
}

// What is refused: tests/cli/cases/ttdinfo.case.
TEST(Superblock, RollbackAcceptsVersionsFromTheMinimumOn) {
    ttd_superblock sb{};
    sb.rollback = 5;
    EXPECT_EQ(ttd_check_rollback(&sb, "5"), 0);
    sb.rollback = 4;
    EXPECT_EQ(ttd_check_rollback(&sb, "5"), EINVAL);
}

TEST(Superblock, DumpAndInfoPrintALineACall) {
    engine_image good(4, 512);
    captured_log log;
    ttd_print_superblock(&good.ctx.superblock);
    EXPECT_EQ(log.lines().size(), 13U);
    EXPECT_EQ(log.lines()[1], (log_line{0, "magic:     0xc5c6c7c8"}));
    log.clear();
    ttd_print_info(&good.ctx.info, 1);
    EXPECT_EQ(log.lines()[0], (log_line{0, "TTD Merkle Tree Meta Data Statistics"}));
    EXPECT_TRUE(log.has(0, "total space:        2048 bytes")) << log.text();
}

TEST(Caches, OptionTexts) {
    const struct {
        std::uint32_t total;
        const char *text;
        int err;
        std::size_t slots;
    } cases[] = {
        {7, nullptr, 0, 7},      {401, nullptr, 0, 20}, {10000, nullptr, 0, 500},
        {300, "max", 0, 300},    {300, "0", 0, 0},      {300, "1000", 0, 300},
        {300, "10%", 0, 30},     {300, "100%", 0, 300}, {300, "101%", EINVAL, 0},
        {300, "5%%", EINVAL, 0}, {300, "", EINVAL, 0},  {300, "18446744073709551616", ERANGE, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(none)");
        ttd_ctx ctx;
        ctx.info.hash_blocks = c.total;
        std::size_t slots = 0;
        EXPECT_EQ(ttd_cache_option(&ctx, c.text, &slots), c.err);
        EXPECT_EQ(slots, c.slots);
    }
}

TEST(Caches, APinOutlivesEviction) {
    talg_slab *slab = nullptr;
    ttd_lru_cache *cache = nullptr;
    ASSERT_EQ(talg_slab_create(&slab, 32, 1, 0), 0);
    ASSERT_EQ(ttd_lru_cache_create(&cache, 1), 0);
    const auto add = [&](std::uint32_t key) {
        auto *buffer = static_cast<std::uint8_t *>(ttd_slab_alloc(slab));
        buffer[0] = static_cast<std::uint8_t>(key);
        ttd_cache_entry *pin = nullptr;
        EXPECT_EQ(ttd_lru_cache_add(cache, key, buffer, slab, &pin), 0);
        return ttd_cache_pin(pin);
    };
    ttd_cache_pin first = add(1), second = add(2);
    ttd_cache_entry *missing = nullptr;
    EXPECT_EQ(ttd_lru_cache_get(cache, 1, &missing), ENOENT);
    EXPECT_EQ(ttd_cache_buffer(first.get())[0], 1);
    ttd_lru_cache_destroy(cache);
    EXPECT_EQ(ttd_cache_buffer(second.get())[0], 2);
    first.reset();
    second.reset();
    talg_slab_destroy(slab);
}

TEST(Range, CutsAtTheDataEndAndAtTheMaximum) {
    engine_image image(10, 512);
    const struct {
        const char *name;
        std::int64_t offset;
        std::uint64_t length, maximum;
        std::uint32_t first, end;
        std::uint64_t skip, count;
    } cases[] = {
        {"inside one block", 700, 100, 5120, 1, 2, 188, 100},
        {"across two", 1000, 100, 5120, 1, 3, 488, 100},
        {"over the end", 5000, 1000, 5120, 9, 10, 392, 120},
        {"cut to the maximum", 700, 4000, 1024, 1, 3, 188, 836},
        {"maximum not a multiple", 0, 4000, 700, 0, 2, 0, 700},
        {"no room at all", 700, 10, 0, 1, 1, 188, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ttd_range range;
        ASSERT_EQ(ttd_setup_verify(&image.ctx, c.offset, c.length, c.maximum, &range), 0);
        EXPECT_EQ(range.first, c.first);
        EXPECT_EQ(range.end, c.end);
        EXPECT_EQ(range.skip, c.skip);
        EXPECT_EQ(range.count, c.count);
    }
    ttd_range untouched = {.first = 7, .end = 7, .count = 7};
    EXPECT_EQ(ttd_setup_verify(&image.ctx, 5120, 1, 1, &untouched), 0);
    EXPECT_EQ(untouched.first, 7U);
    EXPECT_EQ(untouched.count, 0U);
    EXPECT_EQ(ttd_setup_verify(&image.ctx, 700, 0, 1, &untouched), 0);
    EXPECT_EQ(untouched.first, 7U);
    EXPECT_EQ(ttd_setup_verify(&image.ctx, -1, 1, 1, &untouched), EINVAL);
    image.ctx.superblock.fssize = UINT64_MAX;
    EXPECT_EQ(ttd_setup_verify(&image.ctx, 512LL << 32, 1, 1, &untouched), EINVAL);
}

void collect(void *arg, const ttd_mismatch *report) {
    static_cast<std::vector<ttd_mismatch> *>(arg)->push_back(*report);
}

struct way {
    const char *name;
    std::size_t cache_slots;
    bool caller_data;
};
constexpr way ways[] = {
    {"no cache", 0, false}, {"one slot", 1, false}, {"many", 100, false}, {"data given", 0, true}};

// 300 blocks of 512 bytes with 16 hashes a block: levels of 19, 2 and 1.
constexpr std::uint32_t BLOCKS = 300;

TEST(Verify, ProvesInEveryWayAndNamesTheHighestLevelThatDisagrees) {
    const std::int64_t tree = std::int64_t{BLOCKS} * 512;
    const struct {
        const char *name;
        std::uint32_t digest;
        std::int64_t damage;
        std::uint8_t level;
        std::uint32_t hash_block;
        std::int64_t offset;
        std::uint32_t first, count;  // data blocks that fail
    } cases[] = {
        {"data, digests of 20 bytes", 1, 17 * 512 + 3, 0, 0, 17 * 512, 17, 1},
        {"data", 2, 17 * 512 + 3, 0, 0, 17 * 512, 17, 1},
        {"data, digests of 64 bytes", 3, 17 * 512 + 3, 0, 0, 17 * 512, 17, 1},
        {"level 0", 2, tree + 3 * 512 + 18 * 512, 0, 18, tree + 21 * 512, 288, 12},
        {"level 1", 2, tree + 512 + 511, 1, 0, tree + 512, 0, 256},
        {"top", 2, tree, 2, 0, tree, 0, BLOCKS},
    };
    for (const auto &c : cases)
        for (const way &w : ways) {
            SCOPED_TRACE(std::string(c.name) + ", " + w.name);
            engine_image image(BLOCKS, 512, c.digest);
            ASSERT_EQ(ttd_create_caches(&image.ctx, w.cache_slots), 0);
            const thread_digest digest(image.ctx);
            const ttd_range all = image.range(0, UINT64_MAX);
            const void *data = w.caller_data ? image.image.data() : nullptr;
            EXPECT_EQ(ttd_verify_range(&image.ctx, &all, digest, data, nullptr, nullptr), 0);
            for (std::uint32_t block = 0; block < BLOCKS; ++block) {
                EXPECT_TRUE(image.is_verified(block));
                EXPECT_EQ(ttd_verify_block(&image.ctx, block, nullptr, digest, nullptr, nullptr, nullptr), 0);
            }
            EXPECT_EQ(ttd_verify_block(&image.ctx, BLOCKS + 1, nullptr, digest, nullptr, nullptr, nullptr),
                      EINVAL);
            ttd_free_caches(&image.ctx);
            ASSERT_EQ(ttd_create_caches(&image.ctx, w.cache_slots), 0);

            image.image[static_cast<std::size_t>(c.damage)] ^= 1;
            std::vector<ttd_mismatch> reports;
            EXPECT_EQ(ttd_verify_range(&image.ctx, &all, digest, data, collect, &reports), EIO);
            ASSERT_EQ(reports.size(), c.count);
            for (std::uint32_t i = 0; i < c.count; ++i) {
                EXPECT_EQ(reports[i].data_block, c.first + i);
                EXPECT_EQ(reports[i].level, c.level);
                EXPECT_EQ(reports[i].hash_block, c.hash_block);
                EXPECT_EQ(reports[i].offset, c.offset);
            }
            for (std::uint32_t block = 0; block < BLOCKS; ++block)
                EXPECT_EQ(image.is_verified(block), block < c.first || block >= c.first + c.count) << block;
        }
}

// Counts what is read of the tree, and lets the read of one place fail, once or always.
struct counted_io {
    explicit counted_io(engine_image &image) : image_(image) {
        io.read = [](ttd_io *self, std::int64_t offset, void *buffer, std::uint64_t length) {
            return static_cast<counted_io *>(self->handle)->read(offset, buffer, length);
        };
        io.handle = this;
        image.ctx.data_io = image.ctx.hash_io = &io;
    }
    int read(std::int64_t offset, void *buffer, std::uint64_t length) {
        tree_bytes += offset >= static_cast<std::int64_t>(image_.ctx.superblock.fssize) ? length : 0;
        if (offset == bad && failures != 0 && failures-- != 0)
            return EIO;
        ttd_io plain = {.handle = &image_.image};
        return read_bytes(&plain, offset, buffer, length);
    }

    ttd_io io;
    std::uint64_t tree_bytes = 0;
    std::int64_t bad = -1;
    int failures = 0;

private:
    engine_image &image_;
};

TEST(Verify, ReadsTheTreeOnce) {
    const struct {
        std::size_t slots;
        std::uint32_t first, count;
        std::uint64_t once, again;  // hash blocks read
    } cases[] = {
        {0, 0, BLOCKS, 22, 22}, {1, 0, BLOCKS, 22, 22}, {100, 0, BLOCKS, 22, 0},
        {0, 15, 2, 4, 4},       {100, 15, 2, 4, 0},     {100, 16, 16, 3, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.slots) + " slots, " + std::to_string(c.count) + " blocks");
        engine_image image(BLOCKS, 512);
        ASSERT_EQ(ttd_create_caches(&image.ctx, c.slots), 0);
        counted_io io(image);
        const thread_digest digest(image.ctx);
        const ttd_range range = {.first = c.first, .end = c.first + c.count};
        EXPECT_EQ(ttd_verify_range(&image.ctx, &range, digest, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(io.tree_bytes, c.once * 512);
        io.tree_bytes = 0;
        EXPECT_EQ(ttd_verify_range(&image.ctx, &range, digest, nullptr, nullptr, nullptr), 0);
        EXPECT_EQ(io.tree_bytes, c.again * 512);
    }
}

// A read that fails once counts for the block whose turn it is, and for no other.
TEST(Verify, AReadThatFailsOnceFailsOneBlock) {
    const std::int64_t tree = std::int64_t{BLOCKS} * 512;
    const struct {
        std::int64_t bad;
        std::uint32_t block;
    } cases[] = {{17 * 512, 17}, {tree + 3 * 512, 0}, {tree + 8 * 512, 80}, {tree + 2 * 512, 256}, {tree, 0}};
    for (const auto &c : cases)
        for (const int verbosity : {0, 3})
            for (const std::size_t slots : {0UL, 100UL}) {
                SCOPED_TRACE(std::to_string(c.bad) + " " + std::to_string(verbosity));
                engine_image image(BLOCKS, 512);
                image.ctx.verbosity = verbosity;
                ASSERT_EQ(ttd_create_caches(&image.ctx, slots), 0);
                counted_io io(image);
                io.bad = c.bad;
                io.failures = 1;
                const thread_digest digest(image.ctx);
                const ttd_range all = image.range(0, UINT64_MAX);
                EXPECT_EQ(ttd_verify_range(&image.ctx, &all, digest, nullptr, nullptr, nullptr), EIO);
                for (std::uint32_t block = 0; block < BLOCKS; ++block)
                    EXPECT_EQ(image.is_verified(block), block != c.block) << block;
            }
}

TEST(Verify, WhatIsNotThereIsCounted) {
    engine_image image(BLOCKS, 512);
    const std::uint64_t tree = BLOCKS * 512;
    const struct {
        std::uint64_t size;
        std::uint32_t present;
    } cases[] = {{image.image.size(), BLOCKS + 30},
                 {tree + 22 * 512, BLOCKS + 4},
                 {tree + 21 * 512, 288},
                 {tree + 4 * 512, 16},
                 {tree + 3 * 512, 0},
                 {tree - 1, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(ttd_blocks_within(image.ctx.info, c.size), c.present) << c.size;

    image.ctx.info.present_blocks = 288;
    const thread_digest digest(image.ctx);
    const ttd_range all = {.first = 0, .end = UINT32_MAX};
    EXPECT_EQ(ttd_verify_range(&image.ctx, &all, digest, image.image.data(), nullptr, nullptr), EIO);
    for (std::uint32_t block = 0; block < BLOCKS; ++block)
        EXPECT_EQ(image.is_verified(block), block < 288) << block;
}

TEST(Verify, KnownBlocksAreNotReadAgain) {
    engine_image image(20, 512);
    const thread_digest digest(image.ctx);
    talg_bitmap *known = nullptr;
    ASSERT_EQ(talg_bitmap_create(&known, 20), 0);
    ttd_range all = image.range(0, UINT64_MAX);
    all.bitmap = known;
    ASSERT_EQ(ttd_verify_range(&image.ctx, &all, digest, nullptr, nullptr, nullptr), 0);
    std::ranges::fill(image.image, std::uint8_t{0});
    talg_bitmap_set(known, 3);
    ttd_range from_2 = all;
    from_2.first = 2;
    EXPECT_EQ(ttd_verify_block(&image.ctx, 5, &from_2, digest, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(ttd_verify_block(&image.ctx, 3, &all, digest, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(ttd_verify_block(&image.ctx, 4, &all, digest, nullptr, nullptr, nullptr), EIO);
    EXPECT_FALSE(image.is_verified(4));
    talg_bitmap_set(known, 4);  // but not proven
    EXPECT_EQ(ttd_verify_block(&image.ctx, 4, &all, digest, nullptr, nullptr, nullptr), EIO);
    talg_bitmap_destroy(known);
}

TEST(Verify, TheZeroHashIsForZeroDataBlocksOnly) {
    engine_image image(4, 512);
    const thread_digest digest(image.ctx);
    ASSERT_EQ(ttd_hash_zero_block(&image.ctx, digest), 0);
    for (const std::size_t length : {512U, 1024U})
        for (const std::size_t other : {0UL, length / 2, length - 1, length}) {  // the last: none
            std::vector<std::uint8_t> block(length + 1), fast(32), plain(32);
            block[other] = 1;
            ttd_hash_failure failure;
            ASSERT_EQ(ttd_hash_blocks(&image.ctx, {block.data(), length, 1}, digest, fast.data(), &failure),
                      0);
            ASSERT_EQ(ttd_hash_block(&image.ctx, block.data(), length, digest, plain.data()), 0);
            EXPECT_EQ(fast, plain) << other << " of " << length;
        }
}

TEST(Verify, ReadErrorsFailTheirBlocksOnly) {
    static std::int64_t bad;
    const auto read = [](ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
        const auto end = offset + static_cast<std::int64_t>(length);
        return offset <= bad && bad < end ? EIO : read_bytes(io, offset, buffer, length);
    };
    const struct {
        const char *name;
        std::int64_t bad;
        std::uint32_t first, end;  // data blocks that fail
    } cases[] = {{"data", 5 * 512, 5, 6}, {"level 0", 41 * 512, 0, 16}, {"top", 40 * 512, 0, 40}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        engine_image image(40, 512);
        const thread_digest digest(image.ctx);
        ttd_io broken = {.read = read, .destroy = nullptr, .handle = &image.image};
        image.ctx.data_io = image.ctx.hash_io = &broken;
        bad = c.bad;
        const ttd_range all = image.range(0, UINT64_MAX);
        EXPECT_EQ(ttd_verify_range(&image.ctx, &all, digest, nullptr, nullptr, nullptr), EIO);
        for (std::uint32_t block = 0; block < 40; ++block)
            EXPECT_EQ(image.is_verified(block), block < c.first || block >= c.end) << block;
    }
}

// Another program reads on demand: threads with random ranges, some of them over
// damage, on one context.
TEST(Verify, ThreadsShareOneContext) {
    for (const std::size_t slots : {0UL, 1UL, 8UL, 100UL}) {
        SCOPED_TRACE(slots);
        engine_image image(BLOCKS, 512);
        ASSERT_EQ(ttd_create_caches(&image.ctx, slots), 0);
        constexpr std::uint32_t damaged = 150;
        image.image[damaged * 512] ^= 1;
        std::atomic<int> wrong = 0;
        const auto reader = [&](unsigned seed) {
            std::mt19937 random(seed);
            const thread_digest digest(image.ctx);
            for (int i = 0; i < 150; ++i) {
                const auto start = static_cast<std::uint32_t>(random() % BLOCKS);
                ttd_range range;
                range.first = start;
                range.end = std::min(BLOCKS, start + static_cast<std::uint32_t>(random() % 40));
                const bool bad = range.first <= damaged && damaged < range.end;
                wrong += ttd_verify_range(&image.ctx, &range, digest, nullptr, nullptr, nullptr) !=
                         (bad ? EIO : 0);
            }
        };
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < 4; ++i)
            threads.emplace_back(reader, i);
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(wrong, 0);
        EXPECT_FALSE(image.is_verified(damaged));
    }
}

}  // namespace
