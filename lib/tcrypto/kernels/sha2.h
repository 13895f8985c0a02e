// SHA-2 (FIPS 180-4, section 6) of several blocks at once: each vector holds one
// word of as many messages as it has lanes.  The digests of 32-bit and of 64-bit
// words differ in their constants, which the `FLAVOUR` gives:
//
//     what words32 and words64 have
//     CONSTANTS, one a round
//     LENGTH_FIELD (bytes of the message length)
//     BIG_SIGMA_0, BIG_SIGMA_1 (three rotations each)
//     SMALL_SIGMA_0, SMALL_SIGMA_1 (two rotations and a shift each)
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/salted_lanes.h"
#include "tcrypto/kernels/vectors.h"

namespace VECTORS::sha2 {

using sigma = int[3];  // bits

// The functions of section 4.1 by their names there.
template <class FLAVOUR, const sigma &N>
VECTOR_INLINE vector big_sigma(vector x) {
    return exor(FLAVOUR::template rotate<N[0]>(x), FLAVOUR::template rotate<N[1]>(x),
                FLAVOUR::template rotate<N[2]>(x));
}
template <class FLAVOUR, const sigma &N>
VECTOR_INLINE vector small_sigma(vector x) {
    return exor(FLAVOUR::template rotate<N[0]>(x), FLAVOUR::template rotate<N[1]>(x),
                FLAVOUR::template shift<N[2]>(x));
}

template <class FLAVOUR>
VECTOR_INLINE vector sum(vector x, vector y, vector z) {
    return FLAVOUR::add(FLAVOUR::add(x, y), z);
}

struct registers {
    vector v[8];     // the working variables: a is v[0] in round 0, v[7] in round 1 ...
    vector a_xor_b;  // for majority()
    vector w[16];    // the last sixteen words of the message schedule
};

// Sixteen rounds change the variables' places twice around, so that round R and
// round R + 16 are the same code.  Only the first sixteen take the words as they
// were loaded.
template <class FLAVOUR, std::size_t R, bool FIRST>
VECTOR_INLINE void one_round(registers &x, const typename FLAVOUR::word *constants) {
    vector &w = x.w[R];
    if constexpr (!FIRST)
        w = FLAVOUR::add(sum<FLAVOUR>(w, x.w[(R + 9) % 16],
                                      small_sigma<FLAVOUR, FLAVOUR::SMALL_SIGMA_0>(x.w[(R + 1) % 16])),
                         small_sigma<FLAVOUR, FLAVOUR::SMALL_SIGMA_1>(x.w[(R + 14) % 16]));
    const vector &a = x.v[(16 - R) % 8];
    const vector &b = x.v[(17 - R) % 8];
    const vector &c = x.v[(18 - R) % 8];
    vector &d = x.v[(19 - R) % 8];
    const vector &e = x.v[(20 - R) % 8];
    const vector &f = x.v[(21 - R) % 8];
    const vector &g = x.v[(22 - R) % 8];
    vector &h = x.v[(23 - R) % 8];

    const vector hwk = sum<FLAVOUR>(h, w, FLAVOUR::set1(constants[R]));
    const vector t1 = sum<FLAVOUR>(hwk, choose(e, f, g), big_sigma<FLAVOUR, FLAVOUR::BIG_SIGMA_1>(e));
    d = FLAVOUR::add(d, t1);
    h = sum<FLAVOUR>(t1, majority(a, b, c, x.a_xor_b), big_sigma<FLAVOUR, FLAVOUR::BIG_SIGMA_0>(a));
}

template <class FLAVOUR, bool FIRST, std::size_t... R>
VECTOR_INLINE void sixteen_rounds(registers &x, const typename FLAVOUR::word *constants,
                                  std::index_sequence<R...>) {
    (one_round<FLAVOUR, R, FIRST>(x, constants), ...);
}

// What the engines of one flavour share.
template <class FLAVOUR>
struct lanes : merkle_damgard<16 * sizeof(typename FLAVOUR::word), FLAVOUR::LENGTH_FIELD> {
    using word = typename FLAVOUR::word;
    using lanes::merkle_damgard::INPUT_BLOCK;
    static constexpr std::size_t LANES = FLAVOUR::LANES;

    struct state {
        alignas(vector) word words[8][LANES];
    };

    VECTOR_TARGET static void absorb(state &s, const std::uint8_t *const *data, std::size_t blocks,
                                     std::uint64_t /*before*/) {
        constexpr std::make_index_sequence<16> ROUNDS;
        for (std::size_t offset = 0; offset != blocks * INPUT_BLOCK; offset += INPUT_BLOCK) {
            registers x;
            load_block(x, data, offset);
            for (std::size_t i = 0; i < 8; ++i)
                x.v[i] = load(s.words[i]);
            x.a_xor_b = exor(x.v[1], x.v[2]);
            sixteen_rounds<FLAVOUR, true>(x, FLAVOUR::CONSTANTS, ROUNDS);
            for (std::size_t round = 16; round < std::size(FLAVOUR::CONSTANTS); round += 16)
                sixteen_rounds<FLAVOUR, false>(x, FLAVOUR::CONSTANTS + round, ROUNDS);
            for (std::size_t i = 0; i < 8; ++i)
                store(s.words[i], FLAVOUR::add(x.v[i], load(s.words[i])));
        }
    }

private:
    VECTOR_INLINE static void load_block(registers &x, const std::uint8_t *const *data, std::size_t offset) {
        for (std::size_t i = 0; i < 16; i += 4) {
            vector four[4];
            FLAVOUR::load_words(four, data, offset + i * sizeof(word));
            for (std::size_t j = 0; j < 4; ++j)
                x.w[i + j] = FLAVOUR::swap_bytes(four[j]);
        }
    }
};

// The engine for salted_lanes.h.  SIZE: bytes of the digest.
template <class FLAVOUR, std::size_t SIZE>
struct engine : lanes<FLAVOUR> {
    using typename lanes<FLAVOUR>::state;
    using typename lanes<FLAVOUR>::word;
    static constexpr std::size_t DIGEST_SIZE = SIZE;

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t blocks, std::uint64_t total,
                       std::uint8_t *out) {
        engine::absorb(s, tails, blocks, total);
        for (std::size_t lane = 0; lane < engine::LANES; ++lane)
            for (std::size_t i = 0; i < SIZE / sizeof(word); ++i, out += sizeof(word))
                store_big_endian(out, s.words[i][lane]);
    }
};

// digest_kernel::hash.
template <class FLAVOUR, std::size_t SIZE, const auto &START>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    typename engine<FLAVOUR, SIZE>::state start;
    for (std::size_t i = 0; i < 8; ++i)
        std::fill_n(start.words[i], FLAVOUR::LANES, START[i]);
    hash_salted<engine<FLAVOUR, SIZE>>(start, salt, salt_length, data, length, count, out);
}

}  // namespace VECTORS::sha2
