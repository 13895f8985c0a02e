// The digests that OpenSSL lacks, as operations for a row of the digest table: short
// BLAKE2, where the length is a parameter of the digest and not a truncation, and
// BLAKE3.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/provider.h"

struct blake2s_record;  // libb2, any digest size up to 32 bytes
struct blake2b_record;  // libb2, any digest size up to 64 bytes
struct blake3_record;   // the BLAKE3 reference library

// A digest whose whole running state is one record.
template <class Hasher>
struct record_digest {
    static int create(const tcrypto_algorithm *algorithm, void **state);
    static void destroy(void *state);
    static int init(void *state);
    static int update(void *state, const void *data, std::size_t length);
    static int final(void *state, std::uint8_t *out, std::size_t *out_length);
    static int copy(const tcrypto_algorithm *algorithm, const void *state, void **out);
    static std::size_t blocks(void *state, const void *salt, std::size_t salt_length, const void *data,
                              std::size_t length, std::size_t count, std::uint8_t *out);
};

extern template struct record_digest<blake2s_record>;
extern template struct record_digest<blake2b_record>;
extern template struct record_digest<blake3_record>;
