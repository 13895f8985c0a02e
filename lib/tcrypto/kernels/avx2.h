// Small steps that the AVX2 kernels share.  A vector holds the same word of
// every lane.  Everything here is inlined into functions of the same target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

#define AVX2_TARGET __attribute__((target("avx2")))
#define AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline

namespace avx2 {

AVX2_INLINE __m256i load(const void *from) {
    return _mm256_loadu_si256(static_cast<const __m256i *>(from));
}

AVX2_INLINE void store(void *to, __m256i v) {
    _mm256_storeu_si256(static_cast<__m256i *>(to), v);
}

// Two times sixteen bytes, from `low` and from `high`, in one vector.
AVX2_INLINE __m256i load_halves(const std::uint8_t *low, const std::uint8_t *high) {
    return _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i *>(low))),
        _mm_loadu_si128(reinterpret_cast<const __m128i *>(high)), 1);
}

AVX2_INLINE __m256i exor(__m256i x, __m256i y) {
    return _mm256_xor_si256(x, y);
}

// Puts the bytes of each half in the order that `high` and `low` give, from the highest down.
AVX2_INLINE __m256i shuffle_halves(__m256i v, long long high, long long low) {
    return _mm256_shuffle_epi8(v, _mm256_setr_epi64x(low, high, low, high));
}

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
    static constexpr std::size_t LANES = 4;

    AVX2_INLINE static __m256i set1(word w) { return _mm256_set1_epi64x(static_cast<long long>(w)); }
    AVX2_INLINE static __m256i add(__m256i x, __m256i y) { return _mm256_add_epi64(x, y); }
    AVX2_INLINE static __m256i swap_bytes(__m256i v) {
        return shuffle_halves(v, 0x08090a0b0c0d0e0f, 0x0001020304050607);
    }
    template <int N>
    AVX2_INLINE static __m256i shift(__m256i v) {
        return _mm256_srli_epi64(v, N);
    }

    template <int N>
    AVX2_INLINE static __m256i rotate(__m256i v) {
        if constexpr (N == 32)
            return _mm256_shuffle_epi32(v, 0xb1);
        else if constexpr (N == 24)
            return shuffle_halves(v, 0x0a09080f0e0d0c0b, 0x0201000706050403);
        else if constexpr (N == 16)
            return shuffle_halves(v, 0x09080f0e0d0c0b0a, 0x0100070605040302);
        else if constexpr (N == 8)
            return shuffle_halves(v, 0x080f0e0d0c0b0a09, 0x0007060504030201);
        else if constexpr (N == 63)
            return exor(_mm256_srli_epi64(v, 63), _mm256_add_epi64(v, v));
        else
            return exor(_mm256_srli_epi64(v, N), _mm256_slli_epi64(v, 64 - N));
    }

    AVX2_INLINE static void load_words(__m256i *w, const std::uint8_t *const *lanes, std::size_t offset) {
        const __m256i low_02 = load_halves(lanes[0] + offset, lanes[2] + offset);
        const __m256i low_13 = load_halves(lanes[1] + offset, lanes[3] + offset);
        const __m256i high_02 = load_halves(lanes[0] + offset + 16, lanes[2] + offset + 16);
        const __m256i high_13 = load_halves(lanes[1] + offset + 16, lanes[3] + offset + 16);
        w[0] = _mm256_unpacklo_epi64(low_02, low_13);
        w[1] = _mm256_unpackhi_epi64(low_02, low_13);
        w[2] = _mm256_unpacklo_epi64(high_02, high_13);
        w[3] = _mm256_unpackhi_epi64(high_02, high_13);
    }
};

struct words32 {
    using word = std::uint32_t;
    static constexpr std::size_t LANES = 8;

    AVX2_INLINE static __m256i set1(word w) { return _mm256_set1_epi32(static_cast<int>(w)); }
    AVX2_INLINE static __m256i add(__m256i x, __m256i y) { return _mm256_add_epi32(x, y); }
    AVX2_INLINE static __m256i swap_bytes(__m256i v) {
        return shuffle_halves(v, 0x0c0d0e0f08090a0b, 0x0405060700010203);
    }
    template <int N>
    AVX2_INLINE static __m256i shift(__m256i v) {
        return _mm256_srli_epi32(v, N);
    }

    template <int N>
    AVX2_INLINE static __m256i rotate(__m256i v) {
        if constexpr (N == 16)
            return shuffle_halves(v, 0x0d0c0f0e09080b0a, 0x0504070601000302);
        else if constexpr (N == 8)
            return shuffle_halves(v, 0x0c0f0e0d080b0a09, 0x0407060500030201);
        else
            return exor(_mm256_srli_epi32(v, N), _mm256_slli_epi32(v, 32 - N));
    }

    AVX2_INLINE static void load_words(__m256i *w, const std::uint8_t *const *lanes, std::size_t offset) {
        const __m256i lanes_04 = load_halves(lanes[0] + offset, lanes[4] + offset);
        const __m256i lanes_15 = load_halves(lanes[1] + offset, lanes[5] + offset);
        const __m256i lanes_26 = load_halves(lanes[2] + offset, lanes[6] + offset);
        const __m256i lanes_37 = load_halves(lanes[3] + offset, lanes[7] + offset);
        const __m256i words_01_even = _mm256_unpacklo_epi32(lanes_04, lanes_15);
        const __m256i words_23_even = _mm256_unpackhi_epi32(lanes_04, lanes_15);
        const __m256i words_01_odd = _mm256_unpacklo_epi32(lanes_26, lanes_37);
        const __m256i words_23_odd = _mm256_unpackhi_epi32(lanes_26, lanes_37);
        w[0] = _mm256_unpacklo_epi64(words_01_even, words_01_odd);
        w[1] = _mm256_unpackhi_epi64(words_01_even, words_01_odd);
        w[2] = _mm256_unpacklo_epi64(words_23_even, words_23_odd);
        w[3] = _mm256_unpackhi_epi64(words_23_even, words_23_odd);
    }
};

}  // namespace avx2
