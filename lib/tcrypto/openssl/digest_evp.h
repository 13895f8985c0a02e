// The digests that OpenSSL has, as operations for a row of the digest table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/provider.h"

// By the row's name.
struct evp_digest {
    static int create(const tcrypto_algorithm *algorithm, void **state);
    static void destroy(void *state);
    static int init(void *state);
    static int update(void *state, const void *data, std::size_t length);
    static int final(void *state, std::uint8_t *out, std::size_t *out_length);
    static int copy(const tcrypto_algorithm *algorithm, const void *state, void **out);
    static std::size_t blocks(void *state, const void *salt, std::size_t salt_length, const void *data,
                              std::size_t length, std::size_t count, std::uint8_t *out);
};
