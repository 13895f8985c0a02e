// SHA-2 (FIPS 180-4, section 6) of several blocks at once: each vector holds one
// word of as many messages as it has lanes.  The digests of 32-bit and of 64-bit
// words differ in their constants, which the `FLAVOUR` gives:
//
//     what avx2::words32 and words64 have
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

#include "tcrypto/kernels/avx2.h"
#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/salted_lanes.h"

namespace sha2 {

using avx2::exor;
using sigma = int[3];  // bits

// The functions of section 4.1 by their names there.
AVX2_INLINE __m256i choose(__m256i e, __m256i f, __m256i g) {
    return exor(g, _mm256_and_si256(e, exor(f, g)));
}
template <class FLAVOUR, const sigma &N>
AVX2_INLINE __m256i big_sigma(__m256i x) {
    return exor(exor(FLAVOUR::template rotate<N[0]>(x), FLAVOUR::template rotate<N[1]>(x)),
                FLAVOUR::template rotate<N[2]>(x));
}
template <class FLAVOUR, const sigma &N>
AVX2_INLINE __m256i small_sigma(__m256i x) {
    return exor(exor(FLAVOUR::template rotate<N[0]>(x), FLAVOUR::template rotate<N[1]>(x)),
                FLAVOUR::template shift<N[2]>(x));
}

template <class FLAVOUR>
AVX2_INLINE __m256i sum(__m256i x, __m256i y, __m256i z) {
    return FLAVOUR::add(FLAVOUR::add(x, y), z);
}

struct registers {
    __m256i v[8];     // the working variables: a is v[0] in round 0, v[7] in round 1 ...
    __m256i a_xor_b;  // of the round before, where it was b xor c
    __m256i w[16];    // the last sixteen words of the message schedule
};

// Sixteen rounds change the variables' places twice around, so that round R and
// round R + 16 are the same code.  Only the first sixteen take the words as they
// were loaded.
template <class FLAVOUR, std::size_t R, bool FIRST>
AVX2_INLINE void one_round(registers &x, const typename FLAVOUR::word *constants) {
    __m256i &w = x.w[R];
    if constexpr (!FIRST)
        w = FLAVOUR::add(sum<FLAVOUR>(w, x.w[(R + 9) % 16],
                                      small_sigma<FLAVOUR, FLAVOUR::SMALL_SIGMA_0>(x.w[(R + 1) % 16])),
                         small_sigma<FLAVOUR, FLAVOUR::SMALL_SIGMA_1>(x.w[(R + 14) % 16]));
    const __m256i &a = x.v[(16 - R) % 8];
    const __m256i &b = x.v[(17 - R) % 8];
    __m256i &d = x.v[(19 - R) % 8];
    const __m256i &e = x.v[(20 - R) % 8];
    const __m256i &f = x.v[(21 - R) % 8];
    const __m256i &g = x.v[(22 - R) % 8];
    __m256i &h = x.v[(23 - R) % 8];

    const __m256i hwk = sum<FLAVOUR>(h, w, FLAVOUR::set1(constants[R]));
    const __m256i t1 = sum<FLAVOUR>(hwk, choose(e, f, g), big_sigma<FLAVOUR, FLAVOUR::BIG_SIGMA_1>(e));
    const __m256i b_xor_c = x.a_xor_b;
    x.a_xor_b = exor(a, b);
    const __m256i majority = exor(b, _mm256_and_si256(x.a_xor_b, b_xor_c));
    d = FLAVOUR::add(d, t1);
    h = sum<FLAVOUR>(t1, majority, big_sigma<FLAVOUR, FLAVOUR::BIG_SIGMA_0>(a));
}

template <class FLAVOUR, bool FIRST, std::size_t... R>
AVX2_INLINE void sixteen_rounds(registers &x, const typename FLAVOUR::word *constants,
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
        alignas(32) word words[8][LANES];
    };

    AVX2_TARGET static void absorb(state &s, const std::uint8_t *const *data, std::size_t blocks,
                                   std::uint64_t /*before*/) {
        constexpr std::make_index_sequence<16> ROUNDS;
        for (std::size_t offset = 0; offset != blocks * INPUT_BLOCK; offset += INPUT_BLOCK) {
            registers x;
            load_block(x, data, offset);
            for (std::size_t i = 0; i < 8; ++i)
                x.v[i] = avx2::load(s.words[i]);
            x.a_xor_b = exor(x.v[1], x.v[2]);
            sixteen_rounds<FLAVOUR, true>(x, FLAVOUR::CONSTANTS, ROUNDS);
            for (std::size_t round = 16; round < std::size(FLAVOUR::CONSTANTS); round += 16)
                sixteen_rounds<FLAVOUR, false>(x, FLAVOUR::CONSTANTS + round, ROUNDS);
            for (std::size_t i = 0; i < 8; ++i)
                avx2::store(s.words[i], FLAVOUR::add(x.v[i], avx2::load(s.words[i])));
        }
    }

private:
    AVX2_INLINE static void load_block(registers &x, const std::uint8_t *const *data, std::size_t offset) {
        for (std::size_t i = 0; i < 16; i += 4) {
            __m256i four[4];
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
template <class FLAVOUR, std::size_t SIZE, const typename FLAVOUR::word (&START)[8]>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    typename engine<FLAVOUR, SIZE>::state start;
    for (std::size_t i = 0; i < 8; ++i)
        std::fill_n(start.words[i], FLAVOUR::LANES, START[i]);
    hash_salted<engine<FLAVOUR, SIZE>>(start, salt, salt_length, data, length, count, out);
}

}  // namespace sha2
