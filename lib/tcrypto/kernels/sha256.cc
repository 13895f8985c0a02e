// SHA-256 and SHA-224 (FIPS 180-4, sections 6.2 and 6.3), on the SHA instructions
// or else eight blocks at once; see sha_pair.h and sha2.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/sha2.h"
#include "tcrypto/kernels/sha_pair.h"

namespace {

using sha_pair::chaining;
using sha_pair::lane;

// Section 4.2.2: the first 32 bits of the fractional parts of the cube roots of
// the first 64 primes.
constexpr std::uint32_t ROUND_CONSTANTS[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

// Sections 5.3.2 and 5.3.3.
constexpr std::uint32_t START_224[8] = {0xc1059ed8, 0x367cd507, 0x3070dd17, 0xf70e5939,
                                        0xffc00b31, 0x68581511, 0x64f98fa7, 0xbefa4fa4};
constexpr std::uint32_t START_256[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                        0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

// The SHA instructions take the state in the order f e b a, h g d c.
constexpr chaining pair_order(const std::uint32_t (&s)[8]) {
    return {{{s[5], s[4], s[1], s[0]}, {s[7], s[6], s[3], s[2]}}};
}

struct sha256_pair {
    static constexpr std::size_t SIZE = 32;
    static constexpr std::size_t ROUNDS = 64;

    static constexpr chaining START = pair_order(START_256);

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
        const __m128i wk = _mm_add_epi32(w, sha_pair::load(ROUND_CONSTANTS + 4 * Q));
        x.state[1] = _mm_sha256rnds2_epu32(x.state[1], x.state[0], wk);
        x.state[0] = _mm_sha256rnds2_epu32(x.state[0], x.state[1], _mm_shuffle_epi32(wk, 0x0e));
    }

    SHA_INLINE static void add_before(lane &x, const chaining &before) {
        x.state[0] = _mm_add_epi32(x.state[0], sha_pair::load(before.words[0]));
        x.state[1] = _mm_add_epi32(x.state[1], sha_pair::load(before.words[1]));
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

struct sha224_pair : sha256_pair {
    static constexpr std::size_t SIZE = 28;
    static constexpr chaining START = pair_order(START_224);

    static void write(const chaining &x, std::uint8_t *out) { write_words<7>(x, out); }
};

struct sha256 : avx2::words32 {
    static constexpr const word (&CONSTANTS)[64] = ROUND_CONSTANTS;
    static constexpr std::size_t LENGTH_FIELD = 8;
    static constexpr sha2::sigma BIG_SIGMA_0 = {2, 13, 22};
    static constexpr sha2::sigma BIG_SIGMA_1 = {6, 11, 25};
    static constexpr sha2::sigma SMALL_SIGMA_0 = {7, 18, 3};
    static constexpr sha2::sigma SMALL_SIGMA_1 = {17, 19, 10};
};

}  // namespace

constinit const digest_kernel sha224_sha_x2 = {
    .digest = "sha224",
    .needs = &cpu_sha,
    .lanes = sha_pair::engine<sha224_pair>::LANES,
    .hash = sha_pair::hash<sha224_pair>,
};

constinit const digest_kernel sha256_sha_x2 = {
    .digest = "sha256",
    .needs = &cpu_sha,
    .lanes = sha_pair::engine<sha256_pair>::LANES,
    .hash = sha_pair::hash<sha256_pair>,
};

constinit const digest_kernel sha224_avx2_x8 = {
    .digest = "sha224",
    .needs = &cpu_avx2,
    .lanes = sha256::LANES,
    .hash = sha2::hash<sha256, 28, START_224>,
};

constinit const digest_kernel sha256_avx2_x8 = {
    .digest = "sha256",
    .needs = &cpu_avx2,
    .lanes = sha256::LANES,
    .hash = sha2::hash<sha256, 32, START_256>,
};

#endif
