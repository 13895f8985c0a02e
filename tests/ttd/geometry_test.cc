#include "support/test.h"
#include "ttd/geometry.h"

namespace {

ttd_info geometry_input(std::uint64_t covered, std::uint32_t block, std::uint32_t hash) {
    ttd_info info;
    info.covered_size = covered;
    info.block_size = info.hash_block_size = block;
    info.hash_size = hash;
    return info;
}

TEST(Geometry, LevelsTreeSizeAndWaste) {
    const struct {
        const char *name;
        std::uint64_t covered;
        std::uint32_t block;
        std::uint32_t hash;
        std::vector<std::uint32_t> levels;
        std::uint64_t tree_size;
        std::uint64_t wasted;
    } cases[] = {
        {"less than a block", 4095, 4096, 32, {0}, 0, 0},
        {"exactly one hash block", 128 * 4096, 4096, 32, {1}, 4096, 0},
        {"one block more adds a level", 129 * 4096, 4096, 32, {2, 1}, 12288, 0},
        {"an incomplete last block is dropped", 129 * 4096 - 1, 4096, 32, {1}, 4096, 0},
        {"digest that does not divide the block", 1048576, 512, 20, {82, 4, 1}, 44544, 1044},
        {"ten levels",
         512ULL << 30,
         512,
         64,
         {1U << 27, 1U << 24, 1U << 21, 1U << 18, 1U << 15, 1U << 12, 512, 64, 8, 1},
         78536544768 % (1ULL << 32),
         0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ttd_info info = geometry_input(c.covered, c.block, c.hash);
        info.tree_offset = 1000;
        ASSERT_EQ(ttd_generate_info(&info), 0);
        EXPECT_EQ(std::vector<std::uint32_t>(info.level_blocks, info.level_blocks + info.levels), c.levels);
        EXPECT_EQ(info.tree_size, c.tree_size);
        EXPECT_EQ(ttd_wasted_space(info), c.wasted);
        std::uint64_t offset = info.tree_offset;
        for (unsigned level = info.levels; level-- > 0; offset += info.level_blocks[level] * c.block)
            EXPECT_EQ(info.level_offset[level], offset) << "the top level comes first, its size in 32 bits";
    }
}

TEST(Geometry, RefusesWhatHasNoTree) {
    const struct {
        const char *name;
        std::uint64_t covered;
        std::uint32_t block, hash;
    } cases[] = {
        {"no data", 0, 4096, 32},
        {"no block size", 4096, 0, 32},
        {"no hash size", 4096, 4096, 0},
        {"hash larger than a hash block", 4096, 16, 32},
        {"one hash a block never ends", 1 << 20, 32, 32},
        {"more than 2^32 - 1 blocks", 512ULL << 32, 512, 32},
        {"eleventh level", (512ULL << 30) + 512, 512, 64},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ttd_info info = geometry_input(c.covered, c.block, c.hash);
        EXPECT_EQ(ttd_generate_info(&info), EINVAL);
    }
}

// A tree of 2^32 bytes or hashes, or blocks that are counted past 2^32.
TEST(Geometry, WhatWrapsIsNotExact) {
    const struct {
        std::uint64_t covered;
        std::uint32_t block;
        bool exact;
    } cases[] = {{32ULL << 30, 512, true},       {68719469056, 512, false},   {549755293696, 4096, false},
                 {500ULL << 30, 4096, true},     {2199023255040, 512, false}, {3ULL << 40, 32768, true},
                 {140737488322560, 32768, false}};
    for (const auto &c : cases) {
        ttd_info info = geometry_input(c.covered, c.block, 32);
        ASSERT_EQ(ttd_generate_info(&info), 0);
        EXPECT_EQ(ttd_info_is_exact(info), c.exact) << c.covered;
    }
}

}  // namespace
