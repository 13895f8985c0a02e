// BLAKE2b with 64 and 32 bytes of digest, four blocks at once; see blake2.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/blake2.h"

namespace {

struct blake2b {
    using word = std::uint64_t;
    static constexpr std::size_t LANES = 4;
    static constexpr std::size_t ROUNDS = 12;
    static constexpr word START[8] = {
        0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b, 0xa54ff53a5f1d36f1,
        0x510e527fade682d1, 0x9b05688c2b3e6c1f, 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179,
    };

    AVX2_INLINE static void load_block(__m256i (&m)[16], const std::uint8_t *const *lanes,
                                       std::size_t offset) {
        for (std::size_t i = 0; i < 16; i += 4)
            avx2::load_words64(m + i, lanes, offset + 8 * i);
    }
    AVX2_INLINE static __m256i set1(word w) { return _mm256_set1_epi64x(static_cast<long long>(w)); }
    AVX2_INLINE static __m256i add(__m256i x, __m256i y) { return _mm256_add_epi64(x, y); }
    AVX2_INLINE static __m256i rotate_1(__m256i v) { return avx2::rotate64<32>(v); }
    AVX2_INLINE static __m256i rotate_2(__m256i v) { return avx2::rotate64<24>(v); }
    AVX2_INLINE static __m256i rotate_3(__m256i v) { return avx2::rotate64<16>(v); }
    AVX2_INLINE static __m256i rotate_4(__m256i v) { return avx2::rotate64<63>(v); }
};

template <std::size_t SIZE>
void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    using engine = blake2::engine<blake2b, SIZE>;
    hash_salted<engine>(engine::start(), salt, salt_length, data, length, count, out);
}

}  // namespace

constinit const digest_kernel blake2b512_avx2_x4 = {
    .digest = "blake2b512",
    .name = "AVX2 x4",
    .lanes = blake2b::LANES,
    .usable = cpu_has_avx2,
    .hash = hash<64>,
};

constinit const digest_kernel blake2b256_avx2_x4 = {
    .digest = "blake2b256",
    .name = "AVX2 x4",
    .lanes = blake2b::LANES,
    .usable = cpu_has_avx2,
    .hash = hash<32>,
};

#endif
