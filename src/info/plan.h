// The calculator: size and shape of an image before it is built.
#pragma once

#include <cstdint>
#include <cstdio>

#include "ttd/geometry.h"

struct ttdinfo_plan {
    // Inputs.
    std::uint64_t size = 0;        // inner image, bytes
    std::uint64_t partition = 0;   // bytes, 0: none
    std::uint32_t block_size = 0;  // of data and hash blocks, bytes
    std::uint32_t hashtype = 0;    // digest code
    // Results.
    ttd_info info;
    std::uint64_t image_size = 0;          // bytes
    bool fits = true;                      // the inner image into the partition
    std::uint64_t max_partition_size = 0;  // largest inner image that fits, built for the partition
    std::uint64_t max_plain_size = 0;      // and built for itself
    // The cost of reading 4096 bytes at a multiple of 4096 with nothing cached.
    unsigned read_data_blocks = 0;
    unsigned read_hash_blocks = 0;
    std::uint64_t read_bytes = 0;
};

// Fills the results.  EINVAL or EFBIG for sizes that give no image, with the reason on
// standard error; ENOSPC when the inner image does not fit (the results are then there).
[[nodiscard]] int ttdinfo_make_plan(ttdinfo_plan *plan);

void ttdinfo_print_plan(const ttdinfo_plan &plan, std::FILE *out);
void ttdinfo_print_plan_json(const ttdinfo_plan &plan, std::FILE *out);
