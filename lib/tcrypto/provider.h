// What a provider hands to the library: algorithm descriptors, one static record
// an algorithm, and the provider's own table.
//
// An operation that a provider leaves null makes the library answer
// TCRYPTO_E_NO_FUNCTION (-402).  Operations get the private state that their
// descriptor's ctx_create made; the library has already checked kind, presence
// and context state, and null data with a nonzero length.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/tcrypto.h"

inline constexpr std::uint32_t TCRYPTO_ABI_VERSION = 1;

struct tcrypto_algorithm;

struct tcrypto_digest_ops {
    std::uint32_t digest_size = 0;  // bytes
    std::uint32_t block_size = 0;   // bytes
    int (*init)(void *state) = nullptr;
    int (*update)(void *state, const void *data, std::size_t length) = nullptr;
    // Writes digest_size bytes; `out_length` may be null.
    int (*final)(void *state, std::uint8_t *out, std::size_t *out_length) = nullptr;
    // Makes a new state in *out with a copy of the running one.
    int (*copy)(const tcrypto_algorithm *algorithm, const void *state, void **out) = nullptr;
    // Optional: hashes as many of the leading blocks as it can hash faster than one
    // by one, and returns their number; it cannot fail.  See tcrypto_digest_blocks.
    std::size_t (*blocks)(void *state, const void *salt, std::size_t salt_length, const void *data,
                          std::size_t length, std::size_t count, std::uint8_t *out) = nullptr;
};

struct tcrypto_rng_ops {
    std::uint32_t strength = 0;  // bits
    int (*instantiate)(void *state, const void *personalisation, std::size_t length) = nullptr;
    int (*reseed)(void *state, const void *additional, std::size_t length) = nullptr;
    int (*generate)(void *state, void *out, std::size_t length) = nullptr;
};

// Key material as the library keeps it: public keys as DER SubjectPublicKeyInfo,
// private keys as DER PKCS#8.  `bytes` is owned and wiped on release.
struct tcrypto_key_record {
    std::uint32_t type = 0;  // tcrypto_key_type
    std::uint32_t id = 0;    // key algorithm id
    std::uint8_t *bytes = nullptr;
    std::size_t length = 0;
};

struct tcrypto_key {
    const tcrypto_algorithm *keygen = nullptr;
    tcrypto_key_record record;
};

struct tcrypto_keygen_ops {
    std::uint32_t id = 0;  // key algorithm id
    int (*generate_symmetric)(void *state, std::size_t bits, tcrypto_key_record *out) = nullptr;
    int (*keypair_init)(void *state, const char *parameters_path) = nullptr;
    int (*keypair_init_mem)(void *state, const void *parameters, std::size_t length) = nullptr;
    int (*keypair_generate)(void *state, tcrypto_key_record *private_out,
                            tcrypto_key_record *public_out) = nullptr;
    int (*public_from_private)(const tcrypto_algorithm *algorithm, const tcrypto_key_record *private_key,
                               tcrypto_key_record *out) = nullptr;
    int (*import)(const tcrypto_algorithm *algorithm, const void *bytes, std::size_t length,
                  std::uint32_t type, std::uint32_t format, tcrypto_key_record *out) = nullptr;
    int (*export_)(const tcrypto_key_record *key, std::uint32_t format, void *out,
                   std::size_t *length) = nullptr;
    void (*release)(tcrypto_key_record *key) = nullptr;
    int openssl_type = 0;  // the key type that a loaded key must have
};

struct tcrypto_signature_ops {
    std::uint32_t fixed_size = 0;  // bytes; 0: the size comes from the key
    int (*init)(void *state, const tcrypto_key_record *key, const tcrypto_signature_params *params) = nullptr;
    int (*update)(void *state, const void *data, std::size_t length) = nullptr;
    int (*sign)(void *state, std::uint8_t *signature, std::size_t *signature_length) = nullptr;
    int (*sign_oneshot)(void *state, const void *data, std::size_t length, std::uint8_t *signature,
                        std::size_t *signature_length) = nullptr;
    int (*sign_without_digest)(void *state, const void *digest, std::size_t length, std::uint8_t *signature,
                               std::size_t *signature_length) = nullptr;
    int (*verify)(void *state, const std::uint8_t *signature, std::size_t signature_length,
                  int *result) = nullptr;
    int (*verify_oneshot)(void *state, const void *data, std::size_t length, const std::uint8_t *signature,
                          std::size_t signature_length, int *result) = nullptr;
    int (*verify_without_digest)(void *state, const void *digest, std::size_t length,
                                 const std::uint8_t *signature, std::size_t signature_length,
                                 int *result) = nullptr;
    std::size_t (*signature_size)(const void *state) = nullptr;
    const char *digest_name = nullptr;  // null for algorithms without a separate digest
};

// One algorithm.  Only the part that belongs to `kind` is used.
struct tcrypto_algorithm {
    char name[32] = {};
    std::uint32_t kind = 0;
    tcrypto_digest_ops digest{};
    tcrypto_rng_ops rng{};
    tcrypto_keygen_ops keygen{};
    tcrypto_signature_ops signature{};
    int (*ctx_create)(const tcrypto_algorithm *algorithm, void **state) = nullptr;
    void (*ctx_destroy)(void *state) = nullptr;  // null-safe; wipes and frees
    std::uintptr_t parameter = 0;                // the provider's own word
};

struct tcrypto_provider {
    std::uint32_t version = TCRYPTO_ABI_VERSION;
    int (*init)() = nullptr;  // registers every algorithm
    void (*uninit)() = nullptr;
    const char *(*get_description)() = nullptr;
};

// Appends a descriptor (static, borrowed) to its kind's list.  Called by a
// provider from its init, and later only while it is the one bound last.  -1 for
// an unusable descriptor (logged), -2 for memory, -100 while none is bound.
[[nodiscard]] int register_algorithm(const tcrypto_algorithm *algorithm);
