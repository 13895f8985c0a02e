// SHA-512 and SHA-512/256 (FIPS 180-4, sections 6.4 and 6.7) of four blocks at
// once: each vector holds one 64-bit word of four messages.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include <algorithm>
#include <utility>

#include "tcrypto/kernels/avx2.h"
#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/salted_lanes.h"

namespace {

// Section 4.2.3: the first 64 bits of the fractional parts of the cube roots of
// the first 80 primes.
constexpr std::uint64_t ROUND_CONSTANTS[80] = {
    0x428a2f98d728ae22, 0x7137449123ef65cd, 0xb5c0fbcfec4d3b2f, 0xe9b5dba58189dbbc, 0x3956c25bf348b538,
    0x59f111f1b605d019, 0x923f82a4af194f9b, 0xab1c5ed5da6d8118, 0xd807aa98a3030242, 0x12835b0145706fbe,
    0x243185be4ee4b28c, 0x550c7dc3d5ffb4e2, 0x72be5d74f27b896f, 0x80deb1fe3b1696b1, 0x9bdc06a725c71235,
    0xc19bf174cf692694, 0xe49b69c19ef14ad2, 0xefbe4786384f25e3, 0x0fc19dc68b8cd5b5, 0x240ca1cc77ac9c65,
    0x2de92c6f592b0275, 0x4a7484aa6ea6e483, 0x5cb0a9dcbd41fbd4, 0x76f988da831153b5, 0x983e5152ee66dfab,
    0xa831c66d2db43210, 0xb00327c898fb213f, 0xbf597fc7beef0ee4, 0xc6e00bf33da88fc2, 0xd5a79147930aa725,
    0x06ca6351e003826f, 0x142929670a0e6e70, 0x27b70a8546d22ffc, 0x2e1b21385c26c926, 0x4d2c6dfc5ac42aed,
    0x53380d139d95b3df, 0x650a73548baf63de, 0x766a0abb3c77b2a8, 0x81c2c92e47edaee6, 0x92722c851482353b,
    0xa2bfe8a14cf10364, 0xa81a664bbc423001, 0xc24b8b70d0f89791, 0xc76c51a30654be30, 0xd192e819d6ef5218,
    0xd69906245565a910, 0xf40e35855771202a, 0x106aa07032bbd1b8, 0x19a4c116b8d2d0c8, 0x1e376c085141ab53,
    0x2748774cdf8eeb99, 0x34b0bcb5e19b48a8, 0x391c0cb3c5c95a63, 0x4ed8aa4ae3418acb, 0x5b9cca4f7763e373,
    0x682e6ff3d6b2b8a3, 0x748f82ee5defb2fc, 0x78a5636f43172f60, 0x84c87814a1f0ab72, 0x8cc702081a6439ec,
    0x90befffa23631e28, 0xa4506cebde82bde9, 0xbef9a3f7b2c67915, 0xc67178f2e372532b, 0xca273eceea26619c,
    0xd186b8c721c0c207, 0xeada7dd6cde0eb1e, 0xf57d4f7fee6ed178, 0x06f067aa72176fba, 0x0a637dc5a2c898a6,
    0x113f9804bef90dae, 0x1b710b35131c471b, 0x28db77f523047d84, 0x32caab7b40c72493, 0x3c9ebe0a15c9bebc,
    0x431d67c49c100d4c, 0x4cc5d4becb3e42b6, 0x597f299cfc657e2a, 0x5fcb6fab3ad6faec, 0x6c44198c4a475817,
};

// Sections 5.3.5 and 5.3.6.2.
constexpr std::uint64_t START_512[8] = {
    0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b, 0xa54ff53a5f1d36f1,
    0x510e527fade682d1, 0x9b05688c2b3e6c1f, 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179,
};
constexpr std::uint64_t START_512_256[8] = {
    0x22312194fc2bf72c, 0x9f555fa3c84c64c2, 0x2393b86b6f53b151, 0x963877195940eabd,
    0x96283ee2a88effe3, 0xbe5e1e2553863992, 0x2b0199fc2c85b8aa, 0x0eb72ddc81c52ca2,
};

constexpr std::size_t LANES_512 = 4;

AVX2_INLINE __m256i add(__m256i x, __m256i y) {
    return _mm256_add_epi64(x, y);
}
AVX2_INLINE __m256i exor(__m256i x, __m256i y) {
    return _mm256_xor_si256(x, y);
}

// The functions of section 4.1.3 by their names there.
AVX2_INLINE __m256i choose(__m256i e, __m256i f, __m256i g) {
    return exor(g, _mm256_and_si256(e, exor(f, g)));
}
template <int A, int B, int C>
AVX2_INLINE __m256i big_sigma(__m256i x) {
    return exor(exor(avx2::rotate64<A>(x), avx2::rotate64<B>(x)), avx2::rotate64<C>(x));
}
template <int A, int B, int C>
AVX2_INLINE __m256i small_sigma(__m256i x) {
    return exor(exor(avx2::rotate64<A>(x), avx2::rotate64<B>(x)), _mm256_srli_epi64(x, C));
}

struct registers {
    __m256i v[8];     // the working variables: a is v[0] in round 0, v[7] in round 1 ...
    __m256i a_xor_b;  // of the round before, where it was b xor c
    __m256i w[16];    // the last sixteen words of the message schedule
};

// Sixteen rounds change the variables' places twice around, so that round R and
// round R + 16 are the same code.  Only the first sixteen take the words as they
// were loaded.
template <std::size_t R, bool FIRST>
AVX2_INLINE void one_round(registers &x, const std::uint64_t *constants) {
    __m256i &w = x.w[R];
    if constexpr (!FIRST)
        w = add(add(w, small_sigma<1, 8, 7>(x.w[(R + 1) % 16])),
                add(x.w[(R + 9) % 16], small_sigma<19, 61, 6>(x.w[(R + 14) % 16])));
    const __m256i &a = x.v[(16 - R) % 8];
    const __m256i &b = x.v[(17 - R) % 8];
    __m256i &d = x.v[(19 - R) % 8];
    const __m256i &e = x.v[(20 - R) % 8];
    const __m256i &f = x.v[(21 - R) % 8];
    const __m256i &g = x.v[(22 - R) % 8];
    __m256i &h = x.v[(23 - R) % 8];

    const __m256i wk = add(w, _mm256_set1_epi64x(static_cast<long long>(constants[R])));
    const __m256i t1 = add(add(add(h, wk), choose(e, f, g)), big_sigma<14, 18, 41>(e));
    const __m256i b_xor_c = x.a_xor_b;
    x.a_xor_b = exor(a, b);
    const __m256i majority = exor(b, _mm256_and_si256(x.a_xor_b, b_xor_c));
    d = add(d, t1);
    h = add(add(t1, majority), big_sigma<28, 34, 39>(a));
}

template <bool FIRST, std::size_t... R>
AVX2_INLINE void sixteen_rounds(registers &x, const std::uint64_t *constants, std::index_sequence<R...>) {
    (one_round<R, FIRST>(x, constants), ...);
}

AVX2_INLINE void load_block(registers &x, const std::uint8_t *const *lanes, std::size_t offset) {
    const __m256i swap = _mm256_setr_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f,  //
                                            0x0001020304050607, 0x08090a0b0c0d0e0f);
    for (std::size_t i = 0; i < 16; i += 4) {
        __m256i four[4];
        avx2::load_words64(four, lanes, offset + 8 * i);
        for (std::size_t j = 0; j < 4; ++j)
            x.w[i + j] = _mm256_shuffle_epi8(four[j], swap);
    }
}

struct four_lanes : merkle_damgard<128, 16> {
    static constexpr std::size_t LANES = LANES_512;
    struct state {
        alignas(32) std::uint64_t words[8][LANES];
    };

    AVX2_TARGET static void absorb(state &s, const std::uint8_t *const *lanes, std::size_t blocks,
                                   std::uint64_t /*before*/) {
        constexpr std::make_index_sequence<16> ROUNDS;
        for (std::size_t offset = 0; offset != blocks * INPUT_BLOCK; offset += INPUT_BLOCK) {
            registers x;
            load_block(x, lanes, offset);
            for (std::size_t i = 0; i < 8; ++i)
                x.v[i] = avx2::load(s.words[i]);
            x.a_xor_b = exor(x.v[1], x.v[2]);
            sixteen_rounds<true>(x, ROUND_CONSTANTS, ROUNDS);
            for (std::size_t round = 16; round < 80; round += 16)
                sixteen_rounds<false>(x, ROUND_CONSTANTS + round, ROUNDS);
            for (std::size_t i = 0; i < 8; ++i)
                avx2::store(s.words[i], add(x.v[i], avx2::load(s.words[i])));
        }
    }
};

template <std::size_t SIZE>
struct engine : four_lanes {
    static constexpr std::size_t DIGEST_SIZE = SIZE;

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t blocks, std::uint64_t total,
                       std::uint8_t *out) {
        absorb(s, tails, blocks, total);
        for (std::size_t lane = 0; lane < LANES; ++lane)
            for (std::size_t i = 0; i < SIZE / 8; ++i, out += 8)
                store_big_endian(out, s.words[i][lane]);
    }
};

template <std::size_t SIZE, const std::uint64_t (&START)[8]>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    typename engine<SIZE>::state start;
    for (std::size_t i = 0; i < 8; ++i)
        std::fill_n(start.words[i], LANES_512, START[i]);
    hash_salted<engine<SIZE>>(start, salt, salt_length, data, length, count, out);
}

}  // namespace

constinit const digest_kernel sha512_avx2_x4 = {
    .digest = "sha512",
    .name = "AVX2 x4",
    .lanes = LANES_512,
    .usable = cpu_has_avx2,
    .hash = hash<64, START_512>,
};

constinit const digest_kernel sha512_256_avx2_x4 = {
    .digest = "sha512-256",
    .name = "AVX2 x4",
    .lanes = LANES_512,
    .usable = cpu_has_avx2,
    .hash = hash<32, START_512_256>,
};

#endif
