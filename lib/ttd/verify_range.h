// Inside of the verification engine: positions of hash blocks, shared by the walk
// of a single block and the faster way through long ranges.
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

[[nodiscard]] ttd_path_step ttd_path_step_at(const ttd_info &info, std::uint32_t block, unsigned level);
