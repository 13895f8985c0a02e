// Keys: loading, deriving, generating and exporting them.  A key is used by one thread at
// a time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "th/handle.h"

struct tcrypto_ctx;
struct tcrypto_key;

enum tcrypto_key_type : std::uint32_t {
    TCRYPTO_KEY_SYMMETRIC = 1,
    TCRYPTO_KEY_PUBLIC = 2,
    TCRYPTO_KEY_PRIVATE = 3,
};

enum tcrypto_key_format : std::uint32_t {
    TCRYPTO_FORMAT_RAW = 1,  // symmetric keys only
    TCRYPTO_FORMAT_DER = 2,
    TCRYPTO_FORMAT_PEM = 3,  // never with a pass phrase
};

// See tcrypto_request_algorithm; _supported only asks.
[[nodiscard]] int tcrypto_keygen_request(const char *name, const char *plugin, std::uint32_t flags,
                                         tcrypto_ctx **out);
[[nodiscard]] int tcrypto_keygen_supported(const char *name, const char *plugin, std::uint32_t flags);

// Loading.  `type` and `format` are of the enumerations above; `out` receives a key that
// the caller releases.  A file, which may be a pipe, is read to its end (1 MiB at most)
// and its bytes are wiped from memory; nobody is asked for a pass phrase.  On failure
// *out is null: TCRYPTO_E_FILE or _IO (the file), _KEY (no bytes, or a key of another
// generator), _KEY_TYPE, _KEY_FORMAT, TCRYPTO_E_INTERNAL (not such a key, or encrypted).
// Logs.
[[nodiscard]] int tcrypto_load_key_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path,
                                             std::uint32_t type, std::uint32_t format);
[[nodiscard]] int tcrypto_key_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path);
[[nodiscard]] int tcrypto_pubkey_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path,
                                           std::uint32_t format);
[[nodiscard]] int tcrypto_privkey_from_file(tcrypto_ctx *keygen, tcrypto_key **out, const char *path,
                                            std::uint32_t format);
[[nodiscard]] int tcrypto_load_key_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes,
                                            std::size_t length, std::uint32_t type, std::uint32_t format);
[[nodiscard]] int tcrypto_key_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes,
                                       std::size_t length);
[[nodiscard]] int tcrypto_pubkey_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes,
                                          std::size_t length, std::uint32_t format);
[[nodiscard]] int tcrypto_privkey_from_mem(tcrypto_ctx *keygen, tcrypto_key **out, const void *bytes,
                                           std::size_t length, std::uint32_t format);
// The public half of a private key.
[[nodiscard]] int tcrypto_pubkey_from_privkey(tcrypto_ctx *keygen, const tcrypto_key *private_key,
                                              tcrypto_key **out);
// A random symmetric key of `bits` bits, a multiple of 8; TCRYPTO_E_KEY_SIZE for
// another number.
[[nodiscard]] int tcrypto_generate_key(tcrypto_ctx *keygen, std::size_t bits, tcrypto_key **out);

// Exports.  *_to_mem: with a null `out` the needed size is stored in `length`;
// otherwise `length` is the room on entry and the size written on return, or the
// size needed with TCRYPTO_E_KEY_LENGTH.
// *_to_file creates or replaces the file, readable by its owner only.  TCRYPTO_E_KEY
// for a null key, TCRYPTO_E_KEY_TYPE for one of another type than the function's.
[[nodiscard]] int tcrypto_key_to_mem(const tcrypto_key *key, void *out, std::size_t *length);
[[nodiscard]] int tcrypto_pubkey_to_mem(const tcrypto_key *key, void *out, std::size_t *length,
                                        std::uint32_t format);
[[nodiscard]] int tcrypto_privkey_to_mem(const tcrypto_key *key, void *out, std::size_t *length,
                                         std::uint32_t format);
[[nodiscard]] int tcrypto_key_to_file(const tcrypto_key *key, const char *path);
[[nodiscard]] int tcrypto_pubkey_to_file(const tcrypto_key *key, const char *path, std::uint32_t format);
[[nodiscard]] int tcrypto_privkey_to_file(const tcrypto_key *key, const char *path, std::uint32_t format);

[[nodiscard]] bool tcrypto_key_is_symmetric(const tcrypto_key *key);
[[nodiscard]] bool tcrypto_key_is_public(const tcrypto_key *key);
[[nodiscard]] bool tcrypto_key_is_private(const tcrypto_key *key);
void tcrypto_release_key(tcrypto_key *key);  // null-safe; wipes the material

using tcrypto_key_ptr = th_handle<tcrypto_key, tcrypto_release_key>;
