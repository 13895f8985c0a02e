// Where the hash blocks above a data block lie.
#pragma once

#include <cstdint>

#include "ttd/geometry.h"

// The hash block of one level on a data block's path.
struct ttd_path_step {
    std::uint32_t local = 0;   // index within its level
    std::uint32_t global = 0;  // index in the tree, level 0 first: the caches' key
    std::uint32_t entry = 0;   // slot in it of the hash that leads down to the data block
    std::int64_t offset = 0;   // in the image, bytes
};

// The step of a data block's path at a level of a derived geometry.
[[nodiscard]] ttd_path_step ttd_path_step_at(const ttd_info &info, std::uint32_t block, unsigned level);

// How many data blocks, counted from the first, lie within an image of this size together
// with all hash blocks of their paths.  Every later block lacks one.
[[nodiscard]] std::uint32_t ttd_blocks_within(const ttd_info &info, std::uint64_t image_size);
