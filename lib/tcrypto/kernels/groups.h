// The walk over the blocks, as many at a time as the kernel has lanes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

// Bytes of each block that are fetched while the blocks before are hashed.  The
// lanes read from as many places at once, each for a short while: too short for
// the processor to see for itself where they go on.
inline constexpr std::size_t PREFETCH_SIZE = 512;
inline constexpr std::size_t CACHE_LINE = 64;

template <std::size_t LANES>
void prefetch_group(const std::uint8_t *data, std::size_t length) {
    for (std::size_t lane = 0; lane < LANES; ++lane, data += length)
        for (std::size_t i = 0; i < std::min(length, PREFETCH_SIZE); i += CACHE_LINE)
            __builtin_prefetch(data + i);
}

// `lanes.hash(data, out)` hashes LANES blocks of `length` bytes to LANES digests.
template <std::size_t LANES, std::size_t DIGEST_SIZE, class HASHER>
void hash_groups(HASHER &lanes, const std::uint8_t *data, std::size_t length, std::size_t count,
                 std::uint8_t *out) {
    for (std::size_t left = count / LANES; left != 0; --left) {
        if (left != 1)
            prefetch_group<LANES>(data + LANES * length, length);
        lanes.hash(data, out);
        data += LANES * length;
        out += LANES * DIGEST_SIZE;
    }
}
