#include "tcrypto/openssl/digest_blocks.h"

std::size_t hash_lanes(const digest_kernel *kernel, const void *salt, std::size_t salt_length,
                       const void *data, std::size_t length, std::size_t count, std::uint8_t *out) {
    const std::size_t blocks = kernel ? count - count % kernel->lanes : 0;
    if (blocks != 0)
        kernel->hash(static_cast<const std::uint8_t *>(salt), salt_length,
                     static_cast<const std::uint8_t *>(data), length, blocks, out);
    return blocks;
}
