// The padding of the SHA-1 and SHA-2 families (FIPS 180-4, section 5.1): a one
// bit, zeros up to the end of an input block, and in its last bytes the message
// length in bits, big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// What an engine of salted_lanes.h says about its digest's padding.
// LENGTH_FIELD: bytes of the length in bits, 8 or 16.
template <std::size_t BLOCK, std::size_t LENGTH_FIELD>
struct merkle_damgard {
    static constexpr std::size_t INPUT_BLOCK = BLOCK;
    static constexpr std::size_t TAIL_BLOCKS = 2;
    static constexpr bool HOLDS_LAST = false;

    static std::size_t pad(std::uint8_t *tail, std::size_t used, std::uint64_t total) {
        const std::size_t blocks = used + 1 + LENGTH_FIELD <= BLOCK ? 1 : 2;
        std::memset(tail + used, 0, blocks * BLOCK - used);
        tail[used] = 0x80;
        // The length in bits can take three bits more than `total` has room for.
        std::uint8_t *last = tail + blocks * BLOCK - 1;
        *last-- = static_cast<std::uint8_t>(total << 3);
        total >>= 5;
        for (std::size_t i = 1; i < LENGTH_FIELD && total != 0; ++i, total >>= 8)
            *last-- = static_cast<std::uint8_t>(total);
        return blocks;
    }
};

// Writes `word` big-endian.
template <class WORD>
void store_big_endian(std::uint8_t *out, WORD word) {
    for (std::size_t i = sizeof word; i-- > 0; word >>= 8)
        out[i] = static_cast<std::uint8_t>(word);
}
