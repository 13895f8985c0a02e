// SHA-1, SHA-256 and SHA-224 (FIPS 180-4) on the SHA instructions; see sha_lanes.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/sha2_constants.h"
#include "tcrypto/kernels/sha_lanes.h"

namespace {

using namespace sha2_constants;
using sha_lanes::chaining;
using sha_lanes::lane;

// Section 6.1.
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
        x.state[0] = _mm_add_epi32(x.state[0], sha_lanes::load(before.words[0]));
        x.state[1] = _mm_sha1nexte_epu32(x.state[1], sha_lanes::load(before.words[1]));
    }

    static void write(const chaining &x, std::uint8_t *out) {
        const auto &[dcba, e] = x.words;
        for (const std::uint32_t word : {dcba[3], dcba[2], dcba[1], dcba[0], e[3]}) {
            store_big_endian(out, word);
            out += sizeof word;
        }
    }
};

// Section 6.2, for which the instructions take the state in the order f e b a, h g d c.
constexpr chaining instruction_order(const std::uint32_t (&s)[8]) {
    return {{{s[5], s[4], s[1], s[0]}, {s[7], s[6], s[3], s[2]}}};
}

struct sha256 {
    static constexpr std::size_t SIZE = 32;
    static constexpr std::size_t ROUNDS = 64;

    static constexpr chaining START = instruction_order(START_256.words);

    SHA_INLINE static __m128i word_order() { return _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203); }

    template <std::size_t Q>
    SHA_INLINE static void four_rounds(lane &x) {
        __m128i &w = x.w[Q % 4];
        if constexpr (Q >= 4) {
            const __m128i &last = x.w[(Q + 3) % 4];
            const __m128i seven_ago = _mm_alignr_epi8(last, x.w[(Q + 2) % 4], 4);
            w = _mm_add_epi32(_mm_sha256msg1_epu32(w, x.w[(Q + 1) % 4]), seven_ago);
            w = _mm_sha256msg2_epu32(w, last);
        }
        // After two rounds what was a b e f is c d g h, so that the halves swap.
        const __m128i wk = _mm_add_epi32(w, sha_lanes::load(ROUNDS_256.words + 4 * Q));
        x.state[1] = _mm_sha256rnds2_epu32(x.state[1], x.state[0], wk);
        x.state[0] = _mm_sha256rnds2_epu32(x.state[0], x.state[1], _mm_shuffle_epi32(wk, 0x0e));
    }

    SHA_INLINE static void add_before(lane &x, const chaining &before) {
        x.state[0] = _mm_add_epi32(x.state[0], sha_lanes::load(before.words[0]));
        x.state[1] = _mm_add_epi32(x.state[1], sha_lanes::load(before.words[1]));
    }

    static void write(const chaining &x, std::uint8_t *out) { write_words<8>(x, out); }

protected:
    template <std::size_t WORDS>
    static void write_words(const chaining &x, std::uint8_t *out) {
        const auto &[feba, hgdc] = x.words;
        const std::uint32_t words[8] = {feba[3], feba[2], hgdc[3], hgdc[2],
                                        feba[1], feba[0], hgdc[1], hgdc[0]};
        for (std::size_t i = 0; i < WORDS; ++i)
            store_big_endian(out + i * sizeof words[i], words[i]);
    }
};

// Section 6.3.
struct sha224 : sha256 {
    static constexpr std::size_t SIZE = 28;
    static constexpr chaining START = instruction_order(START_224.words);

    static void write(const chaining &x, std::uint8_t *out) { write_words<7>(x, out); }
};

template <class DIGEST, std::size_t COUNT>
constexpr digest_kernel row(const char *digest) {
    return {digest, &cpu_sha, DIGEST::SIZE, COUNT, sha_lanes::hash<DIGEST, COUNT>};
}

constexpr digest_kernel ROWS[] = {
    row<sha1, 4>("sha1"),     row<sha1, 1>("sha1"),     row<sha224, 3>("sha224"), row<sha224, 1>("sha224"),
    row<sha256, 3>("sha256"), row<sha256, 2>("sha256"), row<sha256, 1>("sha256"),
};

}  // namespace

constinit const std::span<const digest_kernel> sha_ni_kernels = ROWS;

#endif
