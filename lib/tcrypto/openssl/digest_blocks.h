// What the digests' `blocks` operations share.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/kernels/kernel.h"

// Hashes the largest multiple of the kernel's lanes and returns that number of
// blocks; 0 without a kernel (null).
[[nodiscard]] std::size_t hash_lanes(const digest_kernel *kernel, const void *salt, std::size_t salt_length,
                                     const void *data, std::size_t length, std::size_t count,
                                     std::uint8_t *out);
