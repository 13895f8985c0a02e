// What every digest's `blocks` operation begins with.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/kernels/kernel.h"

// Equally long blocks, one after the other; their results are packed at `out`.
struct block_run {
    const std::uint8_t *salt = nullptr;
    std::size_t salt_length = 0;  // bytes
    const std::uint8_t *data = nullptr;
    std::size_t length = 0;  // bytes a block
    std::size_t count = 0;   // blocks
    std::uint8_t *out = nullptr;
    std::size_t digest_size = 0;  // bytes a result

    // Steps over the first `blocks` blocks and results.
    void advance(std::size_t blocks);
};

// Hashes the largest multiple of the kernel's lanes and steps over it; without a
// kernel (null) the run stays whole.
void hash_lanes(const digest_kernel *kernel, block_run &run);
