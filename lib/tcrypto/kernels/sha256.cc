// SHA-256 (FIPS 180-4, section 6.2) of two blocks at once on the processor's SHA
// instructions.
//
// The instructions' time is mostly waiting: each pair of rounds needs the result
// of the pair before it.  Two independent messages fill each other's gaps.  More
// than two would need more than the sixteen registers there are.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <utility>

#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/salted_lanes.h"

#define SHA_TARGET __attribute__((target("sha,sse4.1,ssse3")))
#define SHA_INLINE __attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline

namespace {

// Section 4.2.2: the first 32 bits of the fractional parts of the cube roots of
// the first 64 primes.
alignas(16) constexpr std::uint32_t ROUND_CONSTANTS[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

// The state words in the order in which the instructions take them.
struct chaining {
    alignas(16) std::uint32_t feba[4];
    alignas(16) std::uint32_t hgdc[4];
};

// Section 5.3.3.
constexpr chaining START = {{0x9b05688c, 0x510e527f, 0xbb67ae85, 0x6a09e667},
                            {0x5be0cd19, 0x1f83d9ab, 0xa54ff53a, 0x3c6ef372}};

struct lane {
    __m128i feba;
    __m128i hgdc;
    __m128i w[4];  // the last sixteen words of the message schedule
};

SHA_INLINE __m128i load(const void *from) { return _mm_loadu_si128(static_cast<const __m128i *>(from)); }

SHA_INLINE void load_words(lane &x, const std::uint8_t *block) {
    const __m128i swap = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
    for (int i = 0; i < 4; ++i)
        x.w[i] = _mm_shuffle_epi8(load(block + 16 * i), swap);
}

// Rounds 4 Q to 4 Q + 3, after the four schedule words that they take.
template <std::size_t Q>
SHA_INLINE void four_rounds(lane &x) {
    __m128i &w = x.w[Q % 4];
    if constexpr (Q >= 4) {
        const __m128i &w_7 = x.w[(Q + 2) % 4];  // four words, of which the last three
        const __m128i &w_4 = x.w[(Q + 3) % 4];  // and the first of these are W[t-7]
        w = _mm_add_epi32(_mm_sha256msg1_epu32(w, x.w[(Q + 1) % 4]), _mm_alignr_epi8(w_4, w_7, 4));
        w = _mm_sha256msg2_epu32(w, w_4);
    }
    const __m128i wk = _mm_add_epi32(w, load(ROUND_CONSTANTS + 4 * Q));
    x.hgdc = _mm_sha256rnds2_epu32(x.hgdc, x.feba, wk);
    x.feba = _mm_sha256rnds2_epu32(x.feba, x.hgdc, _mm_shuffle_epi32(wk, 0x0e));
}

template <std::size_t... Q>
SHA_INLINE void all_rounds(lane &x, lane &y, std::index_sequence<Q...>) {
    ((four_rounds<Q>(x), four_rounds<Q>(y)), ...);
}

SHA_INLINE void load_state(lane &x, const chaining &from) {
    x.feba = load(from.feba);
    x.hgdc = load(from.hgdc);
}

SHA_INLINE void add_state(chaining &to, const lane &x) {
    _mm_store_si128(reinterpret_cast<__m128i *>(to.feba), _mm_add_epi32(x.feba, load(to.feba)));
    _mm_store_si128(reinterpret_cast<__m128i *>(to.hgdc), _mm_add_epi32(x.hgdc, load(to.hgdc)));
}

void store_digest(const chaining &x, std::uint8_t *out) {
    const std::uint32_t words[8] = {x.feba[3], x.feba[2], x.hgdc[3], x.hgdc[2],
                                    x.feba[1], x.feba[0], x.hgdc[1], x.hgdc[0]};
    for (const std::uint32_t word : words) {
        store_big_endian(out, word);
        out += sizeof word;
    }
}

struct engine : merkle_damgard<64, 8> {
    static constexpr std::size_t LANES = 2;
    static constexpr std::size_t DIGEST_SIZE = 32;
    struct state {
        chaining lanes[LANES];
    };

    SHA_TARGET static void absorb(state &s, const std::uint8_t *const *lanes, std::size_t blocks,
                                  std::uint64_t /*before*/) {
        const std::uint8_t *from_x = lanes[0];
        const std::uint8_t *from_y = lanes[1];
        for (; blocks != 0; --blocks, from_x += INPUT_BLOCK, from_y += INPUT_BLOCK) {
            lane x;
            lane y;
            load_state(x, s.lanes[0]);
            load_state(y, s.lanes[1]);
            load_words(x, from_x);
            load_words(y, from_y);
            all_rounds(x, y, std::make_index_sequence<16>());
            add_state(s.lanes[0], x);
            add_state(s.lanes[1], y);
        }
    }

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t blocks, std::uint64_t total,
                       std::uint8_t *out) {
        absorb(s, tails, blocks, total);
        for (const chaining &x : s.lanes) {
            store_digest(x, out);
            out += DIGEST_SIZE;
        }
    }
};

void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    cpu_clear_upper_halves();
    hash_salted<engine>({{START, START}}, salt, salt_length, data, length, count, out);
}

}  // namespace

constinit const digest_kernel sha256_sha_x2 = {
    .digest = "sha256",
    .name = "SHA instructions x2",
    .lanes = engine::LANES,
    .usable = cpu_has_sha,
    .hash = hash,
};

#endif
