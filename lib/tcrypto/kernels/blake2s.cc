// BLAKE2s with 32 bytes of digest, eight blocks at once; see blake2.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/blake2.h"

namespace {

struct blake2s {
    using word = std::uint32_t;
    static constexpr std::size_t LANES = 8;
    static constexpr std::size_t ROUNDS = 10;
    static constexpr word START[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

    AVX2_INLINE static void load_block(__m256i (&m)[16], const std::uint8_t *const *lanes,
                                       std::size_t offset) {
        for (std::size_t i = 0; i < 16; i += 4)
            avx2::load_words32(m + i, lanes, offset + 4 * i);
    }
    AVX2_INLINE static __m256i set1(word w) { return _mm256_set1_epi32(static_cast<int>(w)); }
    AVX2_INLINE static __m256i add(__m256i x, __m256i y) { return _mm256_add_epi32(x, y); }
    AVX2_INLINE static __m256i rotate_1(__m256i v) { return avx2::rotate32<16>(v); }
    AVX2_INLINE static __m256i rotate_2(__m256i v) { return avx2::rotate32<12>(v); }
    AVX2_INLINE static __m256i rotate_3(__m256i v) { return avx2::rotate32<8>(v); }
    AVX2_INLINE static __m256i rotate_4(__m256i v) { return avx2::rotate32<7>(v); }
};

void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    using engine = blake2::engine<blake2s, 32>;
    hash_salted<engine>(engine::start(), salt, salt_length, data, length, count, out);
}

}  // namespace

constinit const digest_kernel blake2s256_avx2_x8 = {
    .digest = "blake2s256",
    .name = "AVX2 x8",
    .lanes = blake2s::LANES,
    .usable = cpu_has_avx2,
    .hash = hash,
};

#endif
