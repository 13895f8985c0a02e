// BLAKE2 (RFC 7693) of several blocks at once: each vector holds one word of as
// many messages as it has lanes.  BLAKE2b and BLAKE2s differ in word size, number
// of rounds and rotations, which the `FLAVOUR` gives:
//
//     word, LANES, ROUNDS, START (the start value's eight words)
//     load_block(__m256i (&)[16], lanes, offset), set1(word), add(x, y)
//     rotate_1(v) ... rotate_4(v)    by the rotation constants R1 to R4
//
// all of them inlined into functions of the AVX2 target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "tcrypto/kernels/avx2.h"
#include "tcrypto/kernels/salted_lanes.h"

namespace blake2 {

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
    __m256i v[16];
    __m256i m[16];
};

AVX2_INLINE __m256i exor(__m256i x, __m256i y) { return _mm256_xor_si256(x, y); }

// Half of the mixing function G (section 3.1) for four columns, or diagonals, at
// once, step by step, so that the four run side by side.  D is the place of the
// diagonal's turn: 0 for columns.  M is the schedule's index of the first word.
template <class FLAVOUR, std::size_t ROUND, std::size_t M, std::size_t D, bool SECOND, std::size_t... I>
AVX2_INLINE void half_mix(registers &x, std::index_sequence<I...>) {
    constexpr const std::uint8_t *ORDER = SCHEDULE[ROUND % 10] + M + (SECOND ? 1 : 0);
    constexpr auto B = [](std::size_t i) constexpr { return 4 + (i + D) % 4; };
    constexpr auto C = [](std::size_t i) constexpr { return 8 + (i + 2 * D) % 4; };
    constexpr auto DD = [](std::size_t i) constexpr { return 12 + (i + 3 * D) % 4; };
    ((x.v[I] = FLAVOUR::add(x.v[I], x.m[ORDER[2 * I]])), ...);
    ((x.v[I] = FLAVOUR::add(x.v[I], x.v[B(I)])), ...);
    ((x.v[DD(I)] = exor(x.v[DD(I)], x.v[I])), ...);
    ((x.v[DD(I)] = SECOND ? FLAVOUR::rotate_3(x.v[DD(I)]) : FLAVOUR::rotate_1(x.v[DD(I)])), ...);
    ((x.v[C(I)] = FLAVOUR::add(x.v[C(I)], x.v[DD(I)])), ...);
    ((x.v[B(I)] = exor(x.v[B(I)], x.v[C(I)])), ...);
    ((x.v[B(I)] = SECOND ? FLAVOUR::rotate_4(x.v[B(I)]) : FLAVOUR::rotate_2(x.v[B(I)])), ...);
}

template <class FLAVOUR, std::size_t ROUND>
AVX2_INLINE void one_round(registers &x) {
    constexpr std::make_index_sequence<4> FOUR;
    half_mix<FLAVOUR, ROUND, 0, 0, false>(x, FOUR);
    half_mix<FLAVOUR, ROUND, 0, 0, true>(x, FOUR);
    half_mix<FLAVOUR, ROUND, 8, 1, false>(x, FOUR);
    half_mix<FLAVOUR, ROUND, 8, 1, true>(x, FOUR);
}

template <class FLAVOUR, std::size_t... ROUND>
AVX2_INLINE void all_rounds(registers &x, std::index_sequence<ROUND...>) {
    (one_round<FLAVOUR, ROUND>(x), ...);
}

// The engine for salted_lanes.h.  SIZE: bytes of the digest.
template <class FLAVOUR, std::size_t SIZE>
struct engine {
    using word = typename FLAVOUR::word;
    static constexpr std::size_t LANES = FLAVOUR::LANES;
    static constexpr std::size_t INPUT_BLOCK = 16 * sizeof(word);
    static constexpr std::size_t TAIL_BLOCKS = 1;
    static constexpr std::size_t DIGEST_SIZE = SIZE;
    static constexpr bool HOLDS_LAST = true;

    struct state {
        alignas(32) word words[8][LANES];
    };

    // The parameter block's first word says: SIZE bytes, no key, no tree.
    static state start() {
        state s;
        for (std::size_t i = 0; i < 8; ++i)
            std::fill_n(s.words[i], LANES, FLAVOUR::START[i]);
        for (word &first : s.words[0])
            first ^= static_cast<word>(0x01010000U ^ SIZE);
        return s;
    }

    AVX2_TARGET static void absorb(state &s, const std::uint8_t *const *lanes, std::size_t blocks,
                                   std::uint64_t before) {
        for (std::size_t i = 0; i < blocks; ++i)
            compress(s, lanes, i * INPUT_BLOCK, before + (i + 1) * INPUT_BLOCK, false);
    }

    static std::size_t pad(std::uint8_t *tail, std::size_t used, std::uint64_t /*total*/) {
        std::memset(tail + used, 0, INPUT_BLOCK - used);
        return 1;
    }

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t /*blocks*/,
                       std::uint64_t total, std::uint8_t *out) {
        compress(s, tails, 0, total, true);
        for (std::size_t lane = 0; lane < LANES; ++lane)
            for (std::size_t i = 0; i < SIZE / sizeof(word); ++i, out += sizeof(word))
                std::memcpy(out, &s.words[i][lane], sizeof(word));
    }

  private:
    // `counter`: bytes of the message up to the end of this input block.
    AVX2_TARGET static void compress(state &s, const std::uint8_t *const *lanes, std::size_t offset,
                                     std::uint64_t counter, bool last) {
        // The counter takes two words.
        const word counter_low = static_cast<word>(counter);
        const word counter_high = sizeof(word) == 8 ? 0 : static_cast<word>(counter >> 32);
        registers x;
        FLAVOUR::load_block(x.m, lanes, offset);
        for (std::size_t i = 0; i < 8; ++i) {
            x.v[i] = avx2::load(s.words[i]);
            x.v[8 + i] = FLAVOUR::set1(FLAVOUR::START[i]);
        }
        x.v[12] = exor(x.v[12], FLAVOUR::set1(counter_low));
        x.v[13] = exor(x.v[13], FLAVOUR::set1(counter_high));
        x.v[14] = exor(x.v[14], FLAVOUR::set1(last ? static_cast<word>(~word{0}) : word{0}));
        all_rounds<FLAVOUR>(x, std::make_index_sequence<FLAVOUR::ROUNDS>());
        for (std::size_t i = 0; i < 8; ++i)
            avx2::store(s.words[i], exor(avx2::load(s.words[i]), exor(x.v[i], x.v[8 + i])));
    }
};

}  // namespace blake2
