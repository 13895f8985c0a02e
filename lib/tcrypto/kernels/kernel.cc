#include "tcrypto/kernels/kernel.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tcrypto/kernels/rows.h"

namespace {

#if defined(__x86_64__)
// Of several for one digest the first is the fastest.
constinit const std::span<const digest_kernel> *const KERNELS[] = {
    &sha_ni_kernels,
    &avx512_kernels,
    &avx2_kernels,
#if defined(BLAKE3_HAS_HASH_MANY)
    &blake3_kernels,
#endif
};
#else
constinit const std::span<const std::span<const digest_kernel> *const> KERNELS;
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

std::span<const std::span<const digest_kernel> *const> digest_kernels() {
    return KERNELS;
}

kernel_choice digest_kernels_for(const char *digest) {
    kernel_choice choice;
    std::size_t count = 0;
    for (const auto *kernels : digest_kernels())
        for (const digest_kernel &kernel : *kernels)
            if (count < choice.fastest_first.size() && std::strcmp(kernel.digest, digest) == 0 &&
                is_allowed(*kernel.needs) && kernel.needs->present())
                choice.fastest_first[count++] = &kernel;
    return choice;
}

std::size_t kernel_choice::hash(const void *salt, std::size_t salt_length, const void *data,
                                std::size_t length, std::size_t count, std::uint8_t *out) const {
    const auto *block = static_cast<const std::uint8_t *>(data);
    std::size_t left = count;
    for (const digest_kernel *kernel : fastest_first) {
        if (!kernel)
            break;
        const std::size_t taken = left - left % kernel->lanes;
        if (taken != 0)
            kernel->hash(static_cast<const std::uint8_t *>(salt), salt_length, block, length, taken, out);
        block += taken * length;
        out += taken * kernel->digest_size;
        left -= taken;
    }
    return count - left;
}
