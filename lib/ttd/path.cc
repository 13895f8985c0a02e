#include "ttd/path.h"

#include <algorithm>

ttd_path_step ttd_path_step_at(const ttd_info &info, std::uint32_t block, unsigned level) {
    std::uint32_t below = 0;    // hash blocks of all lower levels
    std::uint64_t covered = 1;  // data blocks under one hash of this level
    for (unsigned lower = 0; lower < level; ++lower) {
        below += info.level_blocks[lower];
        covered *= info.hashes_per_block;
    }
    const auto entry = static_cast<std::uint32_t>(block / covered);
    ttd_path_step step;
    step.local = entry / info.hashes_per_block;
    step.entry = entry % info.hashes_per_block;
    step.global = below + step.local;
    step.offset = static_cast<std::int64_t>(info.level_offset[level] +
                                            std::uint64_t{step.local} * info.hash_block_size);
    return step;
}

std::uint32_t ttd_blocks_within(const ttd_info &info, std::uint64_t image_size) {
    std::uint64_t blocks = std::min<std::uint64_t>(image_size / info.block_size, UINT32_MAX);
    std::uint64_t covered = 1;  // data blocks under one hash block of the level
    for (unsigned level = 0; level < info.levels; ++level) {
        covered *= info.hashes_per_block;
        const std::uint64_t room = image_size - std::min(info.level_offset[level], image_size);
        const std::uint64_t present = room / info.hash_block_size;
        // Compared by division: the product might not fit.
        if (present <= blocks / covered)
            blocks = present * covered;
    }
    return static_cast<std::uint32_t>(blocks);
}
