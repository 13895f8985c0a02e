// BLAKE2s with 32 bytes of digest, eight blocks at once; see blake2.h.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include "tcrypto/kernels/blake2.h"

namespace {

struct blake2s : avx2::words32 {
    static constexpr std::size_t ROUNDS = 10;
    static constexpr word START[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                      0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    static constexpr int R1 = 16, R2 = 12, R3 = 8, R4 = 7;
};

void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    using engine = blake2::engine<blake2s, 32>;
    hash_salted<engine>(engine::start(), salt, salt_length, data, length, count, out);
}

}  // namespace

constinit const digest_kernel blake2s256_avx2_x8 = {
    .digest = "blake2s256",
    .needs = &cpu_avx2,
    .lanes = blake2s::LANES,
    .hash = hash,
};

#endif
