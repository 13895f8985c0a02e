// BLAKE2b with 64 and 32 bytes of digest, four blocks at once; see blake2.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/blake2.h"

namespace {

struct blake2b : avx2::words64 {
    static constexpr std::size_t ROUNDS = 12;
    static constexpr word START[8] = {
        0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b, 0xa54ff53a5f1d36f1,
        0x510e527fade682d1, 0x9b05688c2b3e6c1f, 0x1f83d9abfb41bd6b, 0x5be0cd19137e2179,
    };
    static constexpr int R1 = 32, R2 = 24, R3 = 16, R4 = 63;
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
    .needs = &cpu_avx2,
    .lanes = blake2b::LANES,
    .hash = hash<64>,
};

constinit const digest_kernel blake2b256_avx2_x4 = {
    .digest = "blake2b256",
    .needs = &cpu_avx2,
    .lanes = blake2b::LANES,
    .hash = hash<32>,
};

#endif
