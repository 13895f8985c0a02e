#include "tcrypto/kernels/kernel.h"

#include <cstdlib>
#include <cstring>

#include "tcrypto/kernels/rows.h"

namespace {

#if defined(__x86_64__)
constinit const digest_kernel *const KERNELS[] = {
    &sha1_sha_x2,        &sha256_sha_x2,      &sha512_avx2_x4,     &sha512_256_avx2_x4,
    &blake2b512_avx2_x4, &blake2b256_avx2_x4, &blake2s256_avx2_x8,
#if defined(BLAKE3_HAS_HASH_MANY)
    &blake3_many_x8,
#endif
};
#else
constinit const std::span<const digest_kernel *const> KERNELS;
#endif

bool switched_off() {
    static const bool off = [] {
        const char *value = std::getenv("TCRYPTO_KERNELS");
        return value && std::strcmp(value, "off") == 0;
    }();
    return off;
}

}  // namespace

std::span<const digest_kernel *const> digest_kernels() {
    return KERNELS;
}

const digest_kernel *digest_kernel_for(const char *digest) {
    if (switched_off())
        return nullptr;
    for (const digest_kernel *kernel : digest_kernels())
        if (std::strcmp(kernel->digest, digest) == 0 && kernel->usable())
            return kernel;
    return nullptr;
}
