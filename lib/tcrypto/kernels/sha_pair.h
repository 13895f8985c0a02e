// SHA-1 and SHA-256 of two blocks at once on the processor's SHA instructions.
//
// Their time is mostly waiting: each instruction needs the result of the one
// before it.  Two independent messages fill each other's gaps.  More than two
// would need more than the sixteen registers there are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <immintrin.h>
#include <utility>

#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/rows.h"
#include "tcrypto/kernels/salted_lanes.h"

#define SHA_TARGET __attribute__((target("sha,sse4.1,ssse3")))
#define SHA_INLINE __attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline

namespace sha_pair {

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
template <class DIGEST>
struct engine : merkle_damgard<64, 8> {
    static constexpr std::size_t LANES = 2;
    static constexpr std::size_t DIGEST_SIZE = DIGEST::SIZE;
    struct state {
        chaining lanes[LANES];
    };

    SHA_TARGET static void absorb(state &s, const std::uint8_t *const *lanes, std::size_t blocks,
                                  std::uint64_t /*before*/) {
        for (std::size_t offset = 0; offset != blocks * INPUT_BLOCK; offset += INPUT_BLOCK) {
            lane x;
            lane y;
            begin(x, s.lanes[0], lanes[0] + offset);
            begin(y, s.lanes[1], lanes[1] + offset);
            all_rounds(x, y, std::make_index_sequence<DIGEST::ROUNDS / 4>());
            end(x, s.lanes[0]);
            end(y, s.lanes[1]);
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

    template <std::size_t... Q>
    SHA_INLINE static void all_rounds(lane &x, lane &y, std::index_sequence<Q...>) {
        ((DIGEST::template four_rounds<Q>(x), DIGEST::template four_rounds<Q>(y)), ...);
    }

    SHA_INLINE static void end(lane &x, chaining &to) {
        DIGEST::add_before(x, to);
        store(to.words[0], x.state[0]);
        store(to.words[1], x.state[1]);
    }
};

// digest_kernel::hash.
template <class DIGEST>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    cpu_clear_upper_halves();
    hash_salted<engine<DIGEST>>({{DIGEST::START, DIGEST::START}}, salt, salt_length, data, length, count,
                                out);
}

}  // namespace sha_pair
