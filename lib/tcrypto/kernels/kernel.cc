#include "tcrypto/kernels/kernel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tcrypto/kernels/rows.h"

namespace {

#if defined(__x86_64__)
// Of several for one digest the first is the fastest.
constinit const digest_kernel *const KERNELS[] = {
    &sha1_sha_x2,        &sha224_sha_x2,      &sha256_sha_x2,      &sha224_avx2_x8,
    &sha256_avx2_x8,     &sha384_avx2_x4,     &sha512_avx2_x4,     &sha512_256_avx2_x4,
    &blake2b512_avx2_x4, &blake2b256_avx2_x4, &blake2s256_avx2_x8,
#if defined(BLAKE3_HAS_HASH_MANY)
    &blake3_many_x8,
#endif
};
#else
constinit const std::span<const digest_kernel *const> KERNELS;
#endif

// Whether the list, names separated by commas, holds `name`.
bool holds(std::string_view list, std::string_view name) {
    const std::size_t end = std::min(list.find(','), list.size());
    return list.substr(0, end) == name || (end != list.size() && holds(list.substr(end + 1), name));
}

bool is_allowed(const instruction_set &set) {
    const char *allowed = std::getenv("TCRYPTO_KERNELS");
    return !allowed || *allowed == '\0' || holds(allowed, set.name);
}

}  // namespace

std::span<const digest_kernel *const> digest_kernels() {
    return KERNELS;
}

const digest_kernel *digest_kernel_for(const char *digest) {
    for (const digest_kernel *kernel : digest_kernels())
        if (std::strcmp(kernel->digest, digest) == 0 && is_allowed(*kernel->needs) &&
            kernel->needs->present())
            return kernel;
    return nullptr;
}
