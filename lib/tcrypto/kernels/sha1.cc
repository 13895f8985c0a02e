// SHA-1 (FIPS 180-4, section 6.1) on the SHA instructions; see sha_pair.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/sha_pair.h"

namespace {

using sha_pair::chaining;
using sha_pair::lane;

struct sha1 {
    static constexpr std::size_t SIZE = 20;
    static constexpr std::size_t ROUNDS = 80;

    // Section 5.3.1, in the order d c b a, and e.
    static constexpr chaining START = {
        {{0x10325476, 0x98badcfe, 0xefcdab89, 0x67452301}, {0, 0, 0, 0xc3d2e1f0}}};

    // The words of four rounds are reversed, the first in the highest place.
    SHA_INLINE static __m128i word_order() { return _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f); }

    // In the rounds state[1] is what state[0] was four rounds ago, from which the
    // instructions derive e.  Function and constant change every twenty rounds.
    template <std::size_t Q>
    SHA_INLINE static void four_rounds(lane &x) {
        __m128i &w = x.w[Q % 4];
        if constexpr (Q >= 4) {
            w = _mm_xor_si128(_mm_sha1msg1_epu32(w, x.w[(Q + 1) % 4]), x.w[(Q + 2) % 4]);
            w = _mm_sha1msg2_epu32(w, x.w[(Q + 3) % 4]);
        }
        const __m128i ew = Q == 0 ? _mm_add_epi32(x.state[1], w) : _mm_sha1nexte_epu32(x.state[1], w);
        x.state[1] = x.state[0];
        x.state[0] = _mm_sha1rnds4_epu32(x.state[0], ew, Q / 5);
    }

    SHA_INLINE static void add_before(lane &x, const chaining &before) {
        x.state[0] = _mm_add_epi32(x.state[0], sha_pair::load(before.words[0]));
        x.state[1] = _mm_sha1nexte_epu32(x.state[1], sha_pair::load(before.words[1]));
    }

    static void write(const chaining &x, std::uint8_t *out) {
        const auto &[dcba, e] = x.words;
        for (const std::uint32_t word : {dcba[3], dcba[2], dcba[1], dcba[0], e[3]}) {
            store_big_endian(out, word);
            out += sizeof word;
        }
    }
};

}  // namespace

constinit const digest_kernel sha1_sha_x2 = {
    .digest = "sha1",
    .needs = &cpu_sha,
    .lanes = sha_pair::engine<sha1>::LANES,
    .hash = sha_pair::hash<sha1>,
};

#endif
