// The geometry record: the shape of an image's hash tree.  Builder, calculator
// and readers derive it with the same function from the same four inputs.
#pragma once

#include <libdivide.h>

#include <cstdint>

#include "ttd/bytes.h"
#include "ttd/format.h"

struct ttd_info {
    // Inputs.
    std::uint64_t covered_size = 0;     // bytes of the image that the tree proves
    std::uint32_t block_size = 0;       // bytes
    std::uint32_t hash_block_size = 0;  // bytes
    std::uint32_t hash_size = 0;        // digest length, bytes
    // Derived.
    std::uint8_t levels = 0;                          // 1..10
    std::uint32_t raw_blocks = 0;                     // data blocks covered
    std::uint32_t hashes_per_block = 0;               // hash slots in a hash block
    std::uint32_t total_hashes = 0;                   // hash slots in the tree, used or not
    std::uint32_t hash_blocks = 0;                    // in the whole tree
    std::uint32_t level_blocks[TTD_MAX_LEVELS] = {};  // hash blocks per level, level 0 above the data
    std::uint64_t tree_offset = 0;                    // input where level offsets are wanted, bytes
    std::uint64_t level_offset[TTD_MAX_LEVELS] = {};  // of each level's first hash block, bytes
    std::uint64_t tree_size = 0;                      // bytes, without the superblock
    libdivide::libdivide_u64_t by_block_size{};       // divides by block_size; set by readers only
    // Owned by the record.
    ttd_bytes root_hash;   // hash_size bytes
    ttd_bytes salt;        // fed to the digest before every block
    ttd_bytes empty_hash;  // digest(salt), hash_size bytes
    ttd_bytes zero_hash;   // digest(salt || zero data block), see ttd_hash_zero_block
    // Set by readers that know the image's size, see ttd_blocks_within: data blocks from
    // this one on are not read; they count as failed reads.
    std::uint32_t present_blocks = UINT32_MAX;
};

// Derives every derived field from the inputs.  EINVAL when an input is 0, the
// data has more than 2^32 - 1 blocks, a hash block holds no hash, or the tree has
// more than 10 levels.  Counts and the tree size are computed in 32 bits, as every
// reader of the format does; see ttd_info_is_exact.  Does not log.
[[nodiscard]] int ttd_generate_info(ttd_info *info);

// True when no 32-bit count or product of the derived record wrapped, so that a
// tree of this shape can really be laid out.
[[nodiscard]] bool ttd_info_is_exact(const ttd_info &info);

// Frees the record's buffers and zeroes it.  Null is ignored.
void ttd_clean_info(ttd_info *info);

// Sizes that the statistics print and partition mode enforces, bytes.
[[nodiscard]] std::uint64_t ttd_meta_data_size(const ttd_info &info);  // tree and superblock
[[nodiscard]] std::uint64_t ttd_wasted_space(const ttd_info &info);    // zero tails of the hash blocks

// Hands the record, line by line and without line ends, to `sink`; `partition` adds
// the largest inner image and counts the partition as the total space.
using ttd_line_sink = void (*)(const char *line);
void ttd_describe_info(const ttd_info &info, bool partition, ttd_line_sink sink);

// Prints the record through the engine log at level 0, one call per line, without
// line ends.  Bit 0 of `flags`: as a partition.
void ttd_print_info(const ttd_info *info, std::uint32_t flags);
