// The vectors that the SHA-2 and BLAKE2 kernels work on.  A vector holds the same
// word of every lane.
//
// Whoever includes this says how wide they are: VECTOR_BITS is 256 (AVX2) or 512
// (AVX-512).  A target attribute cannot come from a template argument, so the
// code of each width is compiled in a source of its own, in a namespace of its
// own.  Everything here is inlined into functions of the same target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

#if VECTOR_BITS == 512
#define VECTORS avx512
#define VECTOR_TARGET __attribute__((target("avx512f,avx512bw")))
#define VECTOR_INLINE __attribute__((target("avx512f,avx512bw"), always_inline)) inline
#define VECTOR_OP(name) _mm512_##name
#else
#define VECTORS avx2
#define VECTOR_TARGET __attribute__((target("avx2")))
#define VECTOR_INLINE __attribute__((target("avx2"), always_inline)) inline
#define VECTOR_OP(name) _mm256_##name
#endif

namespace VECTORS {

VECTOR_INLINE __m128i load_part(const std::uint8_t *from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

#if VECTOR_BITS == 512

using vector = __m512i;

VECTOR_INLINE vector load(const void *from) {
    return _mm512_loadu_si512(from);
}

VECTOR_INLINE void store(void *to, vector v) {
    _mm512_storeu_si512(to, v);
}

VECTOR_INLINE vector exor(vector x, vector y) {
    return _mm512_xor_si512(x, y);
}

VECTOR_INLINE vector exor(vector x, vector y, vector z) {
    return _mm512_ternarylogic_epi64(x, y, z, 0x96);
}

// FIPS 180-4, section 4.1, as is majority().
VECTOR_INLINE vector choose(vector e, vector f, vector g) {
    return _mm512_ternarylogic_epi64(e, f, g, 0xca);
}

VECTOR_INLINE vector majority(vector a, vector b, vector c, vector & /*a_xor_b*/) {
    return _mm512_ternarylogic_epi64(a, b, c, 0xe8);
}

// Puts the bytes of each sixteen in the order that `high` and `low` give, from the highest down.
VECTOR_INLINE vector shuffle(vector v, long long high, long long low) {
    return _mm512_shuffle_epi8(v, _mm512_set_epi64(high, low, high, low, high, low, high, low));
}

// Sixteen bytes at `offset` of each of four lanes, STEP apart.
template <std::size_t STEP>
VECTOR_INLINE vector load_parts(const std::uint8_t *const *lanes, std::size_t offset) {
    vector v = _mm512_castsi128_si512(load_part(lanes[0] + offset));
    v = _mm512_inserti32x4(v, load_part(lanes[STEP] + offset), 1);
    v = _mm512_inserti32x4(v, load_part(lanes[2 * STEP] + offset), 2);
    return _mm512_inserti32x4(v, load_part(lanes[3 * STEP] + offset), 3);
}

#else

using vector = __m256i;

VECTOR_INLINE vector load(const void *from) {
    return _mm256_loadu_si256(static_cast<const __m256i *>(from));
}

VECTOR_INLINE void store(void *to, vector v) {
    _mm256_storeu_si256(static_cast<__m256i *>(to), v);
}

VECTOR_INLINE vector exor(vector x, vector y) {
    return _mm256_xor_si256(x, y);
}

VECTOR_INLINE vector exor(vector x, vector y, vector z) {
    return exor(exor(x, y), z);
}

// FIPS 180-4, section 4.1, as is majority().
VECTOR_INLINE vector choose(vector e, vector f, vector g) {
    return exor(g, _mm256_and_si256(e, exor(f, g)));
}

// `a_xor_b` is that of the round before, where it was b xor c.
VECTOR_INLINE vector majority(vector a, vector b, vector /*c*/, vector &a_xor_b) {
    const vector b_xor_c = a_xor_b;
    a_xor_b = exor(a, b);
    return exor(b, _mm256_and_si256(a_xor_b, b_xor_c));
}

// Puts the bytes of each sixteen in the order that `high` and `low` give, from the highest down.
VECTOR_INLINE vector shuffle(vector v, long long high, long long low) {
    return _mm256_shuffle_epi8(v, _mm256_setr_epi64x(low, high, low, high));
}

// Sixteen bytes at `offset` of each of two lanes, STEP apart.
template <std::size_t STEP>
VECTOR_INLINE vector load_parts(const std::uint8_t *const *lanes, std::size_t offset) {
    return _mm256_inserti128_si256(_mm256_castsi128_si256(load_part(lanes[0] + offset)),
                                   load_part(lanes[STEP] + offset), 1);
}

#endif

// What a vector does with its words, for code that serves words of either size:
//
//     word, LANES
//     set1(word), add(x, y)
//     shift<N>(v), rotate<N>(v)  right by N bits
//     swap_bytes(v)
//     load_words(w, lanes, offset)
//                                four words at `offset` bytes of each lane: w[i] is word i
struct words64 {
    using word = std::uint64_t;
    static constexpr std::size_t LANES = VECTOR_BITS / 64;

    VECTOR_INLINE static vector add(vector x, vector y) { return VECTOR_OP(add_epi64)(x, y); }
    VECTOR_INLINE static vector swap_bytes(vector v) {
        return shuffle(v, 0x08090a0b0c0d0e0f, 0x0001020304050607);
    }
    template <int N>
    VECTOR_INLINE static vector shift(vector v) {
        return VECTOR_OP(srli_epi64)(v, N);
    }

#if VECTOR_BITS == 512
    VECTOR_INLINE static vector set1(word w) {
        return _mm512_set1_epi64(static_cast<long long>(w));
    }
    template <int N>
    VECTOR_INLINE static vector rotate(vector v) {
        return _mm512_ror_epi64(v, N);
    }
#else
    VECTOR_INLINE static vector set1(word w) {
        return _mm256_set1_epi64x(static_cast<long long>(w));
    }
    template <int N>
    VECTOR_INLINE static vector rotate(vector v) {
        if constexpr (N == 32)
            return _mm256_shuffle_epi32(v, 0xb1);
        else if constexpr (N == 24)
            return shuffle(v, 0x0a09080f0e0d0c0b, 0x0201000706050403);
        else if constexpr (N == 16)
            return shuffle(v, 0x09080f0e0d0c0b0a, 0x0100070605040302);
        else if constexpr (N == 8)
            return shuffle(v, 0x080f0e0d0c0b0a09, 0x0007060504030201);
        else if constexpr (N == 63)
            return exor(shift<63>(v), add(v, v));
        else
            return exor(shift<N>(v), _mm256_slli_epi64(v, 64 - N));
    }
#endif

    VECTOR_INLINE static void load_words(vector *w, const std::uint8_t *const *lanes, std::size_t offset) {
        for (int i = 0; i < 4; i += 2, offset += 16) {
            const vector even = load_parts<2>(lanes, offset);
            const vector odd = load_parts<2>(lanes + 1, offset);
            w[i] = VECTOR_OP(unpacklo_epi64)(even, odd);
            w[i + 1] = VECTOR_OP(unpackhi_epi64)(even, odd);
        }
    }
};

struct words32 {
    using word = std::uint32_t;
    static constexpr std::size_t LANES = VECTOR_BITS / 32;

    VECTOR_INLINE static vector set1(word w) { return VECTOR_OP(set1_epi32)(static_cast<int>(w)); }
    VECTOR_INLINE static vector add(vector x, vector y) { return VECTOR_OP(add_epi32)(x, y); }
    VECTOR_INLINE static vector swap_bytes(vector v) {
        return shuffle(v, 0x0c0d0e0f08090a0b, 0x0405060700010203);
    }
    template <int N>
    VECTOR_INLINE static vector shift(vector v) {
        return VECTOR_OP(srli_epi32)(v, N);
    }

    template <int N>
    VECTOR_INLINE static vector rotate(vector v) {
#if VECTOR_BITS == 512
        return _mm512_ror_epi32(v, N);
#else
        if constexpr (N == 16)
            return shuffle(v, 0x0d0c0f0e09080b0a, 0x0504070601000302);
        else if constexpr (N == 8)
            return shuffle(v, 0x0c0f0e0d080b0a09, 0x0407060500030201);
        else
            return exor(shift<N>(v), _mm256_slli_epi32(v, 32 - N));
#endif
    }

    VECTOR_INLINE static void load_words(vector *w, const std::uint8_t *const *lanes, std::size_t offset) {
        const vector lanes_0 = load_parts<4>(lanes, offset);
        const vector lanes_1 = load_parts<4>(lanes + 1, offset);
        const vector lanes_2 = load_parts<4>(lanes + 2, offset);
        const vector lanes_3 = load_parts<4>(lanes + 3, offset);
        const vector words_01_even = VECTOR_OP(unpacklo_epi32)(lanes_0, lanes_1);
        const vector words_23_even = VECTOR_OP(unpackhi_epi32)(lanes_0, lanes_1);
        const vector words_01_odd = VECTOR_OP(unpacklo_epi32)(lanes_2, lanes_3);
        const vector words_23_odd = VECTOR_OP(unpackhi_epi32)(lanes_2, lanes_3);
        w[0] = VECTOR_OP(unpacklo_epi64)(words_01_even, words_01_odd);
        w[1] = VECTOR_OP(unpackhi_epi64)(words_01_even, words_01_odd);
        w[2] = VECTOR_OP(unpacklo_epi64)(words_23_even, words_23_odd);
        w[3] = VECTOR_OP(unpackhi_epi64)(words_23_even, words_23_odd);
    }
};

}  // namespace VECTORS
