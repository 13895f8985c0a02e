#include "ttd/format.h"

#include <cstring>

namespace {

// Row i holds code i + 1.
constexpr const char *hash_names[] = {
    "sha1", "sha256", "sha512", "sha512-256", "blake2s256", "blake2b256", "blake2b512", "blake3",
};

constexpr ttd_signature_row signature_rows[] = {
    {.option = "rsa-sha256", .signature = "rsa-with-sha256", .key = "rsa", .pure = false},
    {.option = "ecdsa-sha256", .signature = "ecdsa-with-sha256", .key = "ec", .pure = false},
    {.option = "eddsa-25519", .signature = "eddsa-pure", .key = "ed25519", .pure = true},
    {.option = "eddsa-448", .signature = "eddsa-pure", .key = "ed448", .pure = true},
};

}  // namespace

std::uint32_t ttd_hash_type(const char *name) {
    for (std::uint32_t i = 0; name && i < std::size(hash_names); ++i)
        if (std::strcmp(name, hash_names[i]) == 0)
            return i + 1;
    return 0;
}

const char *ttd_hash_name(std::uint32_t code) {
    return code >= 1 && code <= std::size(hash_names) ? hash_names[code - 1] : nullptr;
}

std::uint32_t ttd_sig_type(const char *name) {
    for (std::uint32_t i = 0; name && i < std::size(signature_rows); ++i)
        if (std::strcmp(name, signature_rows[i].option) == 0)
            return i + 1;
    return 0;
}

const ttd_signature_row *ttd_sig_row(std::uint32_t code) {
    return code >= 1 && code <= std::size(signature_rows) ? &signature_rows[code - 1] : nullptr;
}

bool ttd_sig_is_pure(std::uint32_t code) {
    const ttd_signature_row *row = ttd_sig_row(code);
    return row && row->pure;
}
