// BLAKE2 (RFC 7693) of several blocks at once: each vector holds one word of as
// many messages as it has lanes.  BLAKE2b and BLAKE2s differ in word size, number
// of rounds and rotations, which the `FLAVOUR` gives:
//
//     what words64 and words32 have
//     ROUNDS, START (the start value's eight words)
//     R1 to R4 (the rotation constants)
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "tcrypto/kernels/salted_lanes.h"
#include "tcrypto/kernels/vectors.h"

namespace VECTORS::blake2 {

// Section 2.7: the order in which a round takes the message words.  Rounds 10 and
// 11 (of BLAKE2b) are as 0 and 1.
inline constexpr std::uint8_t SCHEDULE[10][16] = {
    {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15},
    {14, 10, 4, 8, 9, 15, 13, 6, 1, 12, 0, 2, 11, 7, 5, 3},
    {11, 8, 12, 0, 5, 2, 15, 13, 10, 14, 3, 6, 7, 1, 9, 4},
    {7, 9, 3, 1, 13, 12, 11, 14, 2, 6, 5, 10, 4, 0, 15, 8},
    {9, 0, 5, 7, 2, 4, 10, 15, 14, 1, 11, 12, 6, 8, 3, 13},
    {2, 12, 6, 10, 0, 11, 8, 3, 4, 13, 7, 5, 15, 14, 1, 9},
    {12, 5, 1, 15, 14, 13, 4, 10, 0, 7, 6, 3, 9, 2, 8, 11},
    {13, 11, 7, 14, 12, 1, 3, 9, 5, 0, 15, 4, 8, 6, 2, 10},
    {6, 15, 14, 9, 11, 3, 0, 8, 12, 2, 13, 7, 1, 4, 10, 5},
    {10, 2, 8, 4, 7, 6, 1, 5, 15, 11, 9, 14, 3, 12, 13, 0},
};

struct registers {
    vector v[16];
    vector m[16];
};

// The mixing function G of section 3.1.
template <class FLAVOUR>
VECTOR_INLINE void mix(vector &a, vector &b, vector &c, vector &d, const vector &x, const vector &y) {
    a = FLAVOUR::add(FLAVOUR::add(a, x), b);
    d = FLAVOUR::template rotate<FLAVOUR::R1>(exor(d, a));
    c = FLAVOUR::add(c, d);
    b = FLAVOUR::template rotate<FLAVOUR::R2>(exor(b, c));
    a = FLAVOUR::add(FLAVOUR::add(a, y), b);
    d = FLAVOUR::template rotate<FLAVOUR::R3>(exor(d, a));
    c = FLAVOUR::add(c, d);
    b = FLAVOUR::template rotate<FLAVOUR::R4>(exor(b, c));
}

// One round of section 3.2: the columns, then the diagonals.
template <class FLAVOUR, std::size_t ROUND>
VECTOR_INLINE void one_round(registers &x) {
    constexpr const std::uint8_t(&S)[16] = SCHEDULE[ROUND % 10];
    vector(&v)[16] = x.v;
    const vector(&m)[16] = x.m;
    mix<FLAVOUR>(v[0], v[4], v[8], v[12], m[S[0]], m[S[1]]);
    mix<FLAVOUR>(v[1], v[5], v[9], v[13], m[S[2]], m[S[3]]);
    mix<FLAVOUR>(v[2], v[6], v[10], v[14], m[S[4]], m[S[5]]);
    mix<FLAVOUR>(v[3], v[7], v[11], v[15], m[S[6]], m[S[7]]);
    mix<FLAVOUR>(v[0], v[5], v[10], v[15], m[S[8]], m[S[9]]);
    mix<FLAVOUR>(v[1], v[6], v[11], v[12], m[S[10]], m[S[11]]);
    mix<FLAVOUR>(v[2], v[7], v[8], v[13], m[S[12]], m[S[13]]);
    mix<FLAVOUR>(v[3], v[4], v[9], v[14], m[S[14]], m[S[15]]);
}

template <class FLAVOUR, std::size_t... ROUND>
VECTOR_INLINE void all_rounds(registers &x, std::index_sequence<ROUND...>) {
    (one_round<FLAVOUR, ROUND>(x), ...);
}

// What the engines of one flavour share.
template <class FLAVOUR>
struct lanes {
    using word = typename FLAVOUR::word;
    static constexpr std::size_t LANES = FLAVOUR::LANES;
    static constexpr std::size_t INPUT_BLOCK = 16 * sizeof(word);

    struct state {
        alignas(vector) word words[8][LANES];
    };

    // `counter`: bytes of the message up to the end of this input block.
    VECTOR_TARGET static void compress(state &s, const std::uint8_t *const *data, std::size_t offset,
                                       std::uint64_t counter, bool last) {
        // The counter takes two words.
        const word counter_low = static_cast<word>(counter);
        const word counter_high = sizeof(word) == 8 ? 0 : static_cast<word>(counter >> 32);
        registers x;
        for (std::size_t i = 0; i < 16; i += 4)
            FLAVOUR::load_words(x.m + i, data, offset + i * sizeof(word));
        for (std::size_t i = 0; i < 8; ++i) {
            x.v[i] = load(s.words[i]);
            x.v[8 + i] = FLAVOUR::set1(FLAVOUR::START[i]);
        }
        x.v[12] = exor(x.v[12], FLAVOUR::set1(counter_low));
        x.v[13] = exor(x.v[13], FLAVOUR::set1(counter_high));
        x.v[14] = exor(x.v[14], FLAVOUR::set1(last ? static_cast<word>(~word{0}) : word{0}));
        all_rounds<FLAVOUR>(x, std::make_index_sequence<FLAVOUR::ROUNDS>());
        for (std::size_t i = 0; i < 8; ++i)
            store(s.words[i], exor(load(s.words[i]), x.v[i], x.v[8 + i]));
    }
};

// The engine for salted_lanes.h.  SIZE: bytes of the digest.
template <class FLAVOUR, std::size_t SIZE>
struct engine : lanes<FLAVOUR> {
    using typename lanes<FLAVOUR>::state;
    using typename lanes<FLAVOUR>::word;
    using lanes<FLAVOUR>::INPUT_BLOCK;
    using lanes<FLAVOUR>::LANES;
    static constexpr std::size_t TAIL_BLOCKS = 1;
    static constexpr std::size_t DIGEST_SIZE = SIZE;
    static constexpr bool HOLDS_LAST = true;

    // The parameter block's first word says: SIZE bytes, no key, no tree.
    static state start() {
        state s;
        for (std::size_t i = 0; i < 8; ++i)
            std::fill_n(s.words[i], LANES, FLAVOUR::START[i]);
        for (word &first : s.words[0])
            first ^= static_cast<word>(0x01010000U ^ SIZE);
        return s;
    }

    static void absorb(state &s, const std::uint8_t *const *data, std::size_t blocks, std::uint64_t before) {
        for (std::size_t i = 0; i < blocks; ++i)
            engine::compress(s, data, i * INPUT_BLOCK, before + (i + 1) * INPUT_BLOCK, false);
    }

    static std::size_t pad(std::uint8_t *tail, std::size_t used, std::uint64_t /*total*/) {
        std::memset(tail + used, 0, INPUT_BLOCK - used);
        return 1;
    }

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t /*blocks*/,
                       std::uint64_t total, std::uint8_t *out) {
        engine::compress(s, tails, 0, total, true);
        for (std::size_t lane = 0; lane < LANES; ++lane)
            for (std::size_t i = 0; i < SIZE / sizeof(word); ++i, out += sizeof(word))
                std::memcpy(out, &s.words[i][lane], sizeof(word));
    }
};

// digest_kernel::hash.
template <class FLAVOUR, std::size_t SIZE>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    hash_salted<engine<FLAVOUR, SIZE>>(engine<FLAVOUR, SIZE>::start(), salt, salt_length, data, length, count,
                                       out);
}

}  // namespace VECTORS::blake2
