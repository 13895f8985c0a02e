// What a provider hands to the library: algorithm descriptors, one static record for each
// algorithm, and the provider's own table.
//
// An operation that a provider leaves null makes the library answer TCRYPTO_E_NO_FUNCTION
// (-402).  Operations get the private state that their descriptor's ctx_create made, and
// return TCRYPTO_OK or a negative code: TCRYPTO_E_MEMORY, TCRYPTO_E_INTERNAL, or what their
// comment names.  The library has already checked kind, presence and context state, and
// refused null data of a nonzero length.  Data is borrowed for the call; lengths are bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/tcrypto.h"

inline constexpr std::uint32_t TCRYPTO_ABI_VERSION = 1;

struct tcrypto_algorithm;

struct tcrypto_digest_ops {
    std::uint32_t digest_size = 0;  // bytes
    std::uint32_t block_size = 0;   // bytes
    // Starts or restarts the digest; called at any time.
    int (*init)(void *state) = nullptr;
    // Takes data; called after init only.
    int (*update)(void *state, const void *data, std::size_t length) = nullptr;
    // Writes digest_size bytes to `out`; `out_length`, which may be null, receives that
    // number.
    int (*final)(void *state, std::uint8_t *out, std::size_t *out_length) = nullptr;
    // Makes a new state in *out, as ctx_create does, with a copy of the running one.
    int (*copy)(const tcrypto_algorithm *algorithm, const void *state, void **out) = nullptr;
    // Optional: hashes as many of the first blocks as it can hash faster than one by one,
    // and returns their number; it cannot fail.  `length` is of each block, `count` the
    // number of blocks.  See tcrypto_digest_blocks.
    std::size_t (*blocks)(void *state, const void *salt, std::size_t salt_length, const void *data,
                          std::size_t length, std::size_t count, std::uint8_t *out) = nullptr;
};

struct tcrypto_rng_ops {
    std::uint32_t strength = 0;  // bits
    // Seeds the generator, also one that runs already; the text may be empty.
    int (*instantiate)(void *state, const void *personalisation, std::size_t length) = nullptr;
    // Both after instantiate only.  generate fills all of `out`.
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
    // A key that is stored in an out record is the caller's, to be given to release;
    // nothing is stored on failure.  Sizes are in bits; TCRYPTO_E_KEY_SIZE for a bad one.
    int (*generate_symmetric)(void *state, std::size_t bits, tcrypto_key_record *out) = nullptr;
    int (*keypair_init)(void *state, const char *parameters_path) = nullptr;
    int (*keypair_init_mem)(void *state, const void *parameters, std::size_t length) = nullptr;
    int (*keypair_generate)(void *state, tcrypto_key_record *private_out,
                            tcrypto_key_record *public_out) = nullptr;
    // The public half.  TCRYPTO_E_KEY_FORMAT for a key of another id, TCRYPTO_E_KEY_TYPE
    // for one that is not private.
    int (*public_from_private)(const tcrypto_algorithm *algorithm, const tcrypto_key_record *private_key,
                               tcrypto_key_record *out) = nullptr;
    // Reads a key of a type (tcrypto_key_type) in a format (tcrypto_key_format) and
    // re-encodes it.  TCRYPTO_E_KEY_TYPE, _KEY_FORMAT, _KEY (of another generator),
    // _KEY_LENGTH, TCRYPTO_E_INTERNAL (not a key).  Never asks for a pass phrase.
    int (*import)(const tcrypto_algorithm *algorithm, const void *bytes, std::size_t length,
                  std::uint32_t type, std::uint32_t format, tcrypto_key_record *out) = nullptr;
    // `length`: the room at `out` on entry, the size needed on return; a null `out`
    // only asks for it.  TCRYPTO_E_KEY_LENGTH: no room.
    int (*export_)(const tcrypto_key_record *key, std::uint32_t format, void *out,
                   std::size_t *length) = nullptr;
    // Wipes and frees the bytes and empties the record.
    void (*release)(tcrypto_key_record *key) = nullptr;
    int openssl_type = 0;  // the type that OpenSSL must see in a loaded key
};

struct tcrypto_signature_ops {
    std::uint32_t fixed_size = 0;  // bytes; 0: the size comes from the key
    // Takes a copy of the key; called at any time.  TCRYPTO_E_SIGNATURE_PADDING leaves
    // the state as it was, every other failure leaves no key.
    int (*init)(void *state, const tcrypto_key_record *key, const tcrypto_signature_params *params) = nullptr;
    int (*update)(void *state, const void *data, std::size_t length) = nullptr;
    // Signing: `signature_length` is the room on entry, the bytes written on return;
    // TCRYPTO_E_SIGNATURE_LENGTH: no room.  After any of these, or of the verify
    // operations, only init follows.  "oneshot" takes the last data first,
    // "without_digest" a digest's value in the place of all data.
    int (*sign)(void *state, std::uint8_t *signature, std::size_t *signature_length) = nullptr;
    int (*sign_oneshot)(void *state, const void *data, std::size_t length, std::uint8_t *signature,
                        std::size_t *signature_length) = nullptr;
    int (*sign_without_digest)(void *state, const void *digest, std::size_t length, std::uint8_t *signature,
                               std::size_t *signature_length) = nullptr;
    // Verifying: *result (0 on entry) becomes 1 when the signature matches; one that does
    // not match is no failure.
    int (*verify)(void *state, const std::uint8_t *signature, std::size_t signature_length,
                  int *result) = nullptr;
    int (*verify_oneshot)(void *state, const void *data, std::size_t length, const std::uint8_t *signature,
                          std::size_t signature_length, int *result) = nullptr;
    int (*verify_without_digest)(void *state, const void *digest, std::size_t length,
                                 const std::uint8_t *signature, std::size_t signature_length,
                                 int *result) = nullptr;
    // The largest size of a signature of the key; 0 without a key.
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
    // Makes the private state of a context; *state is null on failure.
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
