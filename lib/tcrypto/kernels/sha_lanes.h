// SHA-1 and SHA-256 of one or more blocks at once on the processor's SHA instructions.
//
// Their time is mostly waiting: each instruction needs the result of the one before it.
// Independent messages fill each other's gaps, until there are no registers left: three
// do that, or four with SHA-1.  AVX lets the other instructions keep their operands.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <immintrin.h>
#include <utility>

#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/rows.h"
#include "tcrypto/kernels/salted_lanes.h"

#define SHA_TARGET __attribute__((target("sha,avx")))
#define SHA_INLINE __attribute__((target("sha,avx"), always_inline)) inline

namespace sha_lanes {

SHA_INLINE __m128i load(const void *from) {
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

SHA_INLINE void store(void *to, __m128i x) {
    _mm_storeu_si128(static_cast<__m128i *>(to), x);
}

// One message in the middle of its rounds.
struct lane {
    __m128i state[2];  // in the order in which the instructions take it
    __m128i w[4];      // the last sixteen words of the message schedule
};

// One message's state between its input blocks, in the same order.
struct chaining {
    std::uint32_t words[2][4];
};

// The engine for salted_lanes.h.  The `DIGEST` gives:
//
//     SIZE          bytes of the digest
//     ROUNDS        a multiple of four
//     START         the start value
//     word_order()  the shuffle that makes four schedule words of sixteen bytes
//     four_rounds<Q>(lane &)     extends the schedule if need be, and makes the
//                                rounds 4 Q to 4 Q + 3
//     add_before(lane &, const chaining &)    adds the state before the input block
//     write(const chaining &, std::uint8_t *out)
template <class DIGEST, std::size_t COUNT>
struct engine : merkle_damgard<64, 8> {
    static constexpr std::size_t LANES = COUNT;
    static constexpr std::size_t DIGEST_SIZE = DIGEST::SIZE;
    struct state {
        chaining lanes[LANES];
    };

    SHA_TARGET static void absorb(state &s, const std::uint8_t *const *lanes, std::size_t blocks,
                                  std::uint64_t /*before*/) {
        for (std::size_t offset = 0; offset != blocks * INPUT_BLOCK; offset += INPUT_BLOCK) {
            lane x[LANES];
            for (std::size_t i = 0; i < LANES; ++i)
                begin(x[i], s.lanes[i], lanes[i] + offset);
            all_rounds(x, std::make_index_sequence<DIGEST::ROUNDS / 4>());
            for (std::size_t i = 0; i < LANES; ++i)
                end(x[i], s.lanes[i]);
        }
    }

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t blocks, std::uint64_t total,
                       std::uint8_t *out) {
        absorb(s, tails, blocks, total);
        for (const chaining &x : s.lanes) {
            DIGEST::write(x, out);
            out += DIGEST_SIZE;
        }
    }

private:
    SHA_INLINE static void begin(lane &x, const chaining &before, const std::uint8_t *block) {
        x.state[0] = load(before.words[0]);
        x.state[1] = load(before.words[1]);
        for (int i = 0; i < 4; ++i)
            x.w[i] = _mm_shuffle_epi8(load(block + 16 * i), DIGEST::word_order());
    }

    // The lanes take turns, so that none waits for its own last result.
    template <std::size_t Q>
    SHA_INLINE static void four_rounds(lane (&x)[LANES]) {
        for (lane &each : x)
            DIGEST::template four_rounds<Q>(each);
    }

    template <std::size_t... Q>
    SHA_INLINE static void all_rounds(lane (&x)[LANES], std::index_sequence<Q...>) {
        (four_rounds<Q>(x), ...);
    }

    SHA_INLINE static void end(lane &x, chaining &to) {
        DIGEST::add_before(x, to);
        store(to.words[0], x.state[0]);
        store(to.words[1], x.state[1]);
    }
};

// digest_kernel::hash.
template <class DIGEST, std::size_t COUNT>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    cpu_clear_upper_halves();
    typename engine<DIGEST, COUNT>::state start;
    std::fill_n(start.lanes, COUNT, DIGEST::START);
    hash_salted<engine<DIGEST, COUNT>>(start, salt, salt_length, data, length, count, out);
}

}  // namespace sha_lanes
