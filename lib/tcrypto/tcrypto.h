// The callers' side of the crypto library: algorithms are asked for by kind and
// name and answered by whichever provider ("plugin") has them.
//
// Every function returns 0 or one of the negative codes of tcrypto/error.h
// unless said otherwise.  The library is safe to use from several threads; one
// algorithm context or key serves one thread at a time.  A request binds its
// provider on first use, so nothing is loaded before it is needed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tcrypto/error.h"
#include "th/handle.h"

struct tcrypto_ctx;     // an algorithm context; released with tcrypto_release_ctx
struct tcrypto_key;     // key material; released with tcrypto_release_key
struct tcrypto_plugin;  // a registered provider; owned by the library

enum tcrypto_kind : std::uint32_t {
    TCRYPTO_DIGEST = 1,
    TCRYPTO_RNG = 2,
    TCRYPTO_KEYGEN = 3,
    TCRYPTO_CIPHER = 4,
    TCRYPTO_MAC = 5,
    TCRYPTO_KDF = 6,
    TCRYPTO_SIGNATURE = 7,
    TCRYPTO_X509 = 8,
};

// ---- Library, providers, lookup

// Takes a reference; the first one adds the provider "openssl" and binds as
// tcrypto_bind_plugins does for `flags`.  `plugin`: null or "openssl", else
// TCRYPTO_E_UNSUPPORTED.  TCRYPTO_E_INIT when the init mutex fails.  On failure
// the count is unchanged.
[[nodiscard]] int tcrypto_init(std::uint32_t flags, const char *plugin);
// Drops a reference; the last one removes every plugin and frees contexts that
// are still alive, which must not be used or released any more.
int tcrypto_uninit();

// Plugins.  Tags: a comma-separated list; "*" serves every tag, another token with
// a '*' is TCRYPTO_E_CONFIG.  A name that exists already gets the tags added, is
// handed back in `out` and answers TCRYPTO_E_EXISTS.
[[nodiscard]] int tcrypto_add_plugin(const char *name, const char *tags, tcrypto_plugin **out);
// By exact name, else the first that serves `tag` (may be null);
// TCRYPTO_E_NO_ENTRY with a null *out when there is none.
[[nodiscard]] int tcrypto_find_plugin(const char *name, const char *tag, tcrypto_plugin **out);
// Starts the plugin's provider.  TCRYPTO_E_PLUGIN_LOADED: bound already;
// TCRYPTO_E_PLUGIN_LOAD: no provider is linked in for it; TCRYPTO_E_INCOMPATIBLE:
// version; else the provider's own error.  Logs.
[[nodiscard]] int tcrypto_bind_plugin(tcrypto_plugin *plugin);
// Flag value 2: every unbound plugin, with the result of the last attempt; 1: the
// first plugin; neither: none.  Logs each failure.
[[nodiscard]] int tcrypto_bind_plugins(std::uint32_t flags);
// 1 if any plugin is registered, else 0.
[[nodiscard]] int tcrypto_got_plugins();
// Logs every plugin with its algorithms, at info level.
void tcrypto_print_plugins();

// A context of the first plugin that has the algorithm (exact name) and serves
// `plugin` (null: any).  A null `out` only asks whether there is one.  `flags` is
// not used.  On failure *out is null: TCRYPTO_E_NOT_INITIALIZED,
// TCRYPTO_E_NO_ENTRY (no such plugin), TCRYPTO_E_NO_ALGORITHM,
// TCRYPTO_E_ALGORITHM_TYPE (not a kind), or what binding or the provider answers.
[[nodiscard]] int tcrypto_request_algorithm(std::uint32_t kind, const char *name, const char *plugin,
                                            std::uint32_t flags, tcrypto_ctx **out);
// The same of one bound plugin; TCRYPTO_E_PLUGIN when it is not bound.
[[nodiscard]] int tcrypto_get_algorithm(tcrypto_plugin *plugin, std::uint32_t kind, const char *name,
                                        tcrypto_ctx **out);
void tcrypto_release_ctx(tcrypto_ctx *ctx);  // null-safe; wipes the context
// Who served the context, null for a null context; valid until the last uninit.
[[nodiscard]] const char *tcrypto_plugin_name(const tcrypto_ctx *ctx);

using tcrypto_ctx_ptr = th_handle<tcrypto_ctx, tcrypto_release_ctx>;

// ---- Digests
//
// init (any time), update, final; an operation out of this order is
// TCRYPTO_E_STATE.  final ends the digest whether it succeeds or not.  On every
// operation: TCRYPTO_E_ALGORITHM_TYPE for a context of another kind,
// TCRYPTO_E_NO_FUNCTION for an operation that the provider lacks,
// TCRYPTO_E_INTERNAL when the provider fails (logs).

[[nodiscard]] int tcrypto_digest_request(const char *name, const char *plugin, std::uint32_t flags,
                                         tcrypto_ctx **out);
[[nodiscard]] int tcrypto_digest_supported(const char *name, const char *plugin, std::uint32_t flags);
[[nodiscard]] int tcrypto_digest_init(tcrypto_ctx *ctx);
[[nodiscard]] int tcrypto_digest_update(tcrypto_ctx *ctx, const void *data, std::size_t length);
// Writes tcrypto_digestsize() bytes; `out_length` may be null.
[[nodiscard]] int tcrypto_digest_final(tcrypto_ctx *ctx, std::uint8_t *out, std::size_t *out_length);
// init, update and final in one call.
[[nodiscard]] int tcrypto_digest(tcrypto_ctx *ctx, const void *data, std::size_t length, std::uint8_t *out,
                                 std::size_t *out_length);
// A context of its own that goes on from here; *out is null on failure.
[[nodiscard]] int tcrypto_digest_copy(tcrypto_ctx *ctx, tcrypto_ctx **out);
// Bytes that the digest produces; 0 for a context of another kind.
[[nodiscard]] std::size_t tcrypto_digestsize(const tcrypto_ctx *ctx);

enum tcrypto_digest_step {
    TCRYPTO_STEP_INIT,
    TCRYPTO_STEP_SALT,
    TCRYPTO_STEP_DATA,
    TCRYPTO_STEP_FINAL,
};

// Where tcrypto_digest_blocks stopped.
struct tcrypto_block_failure {
    std::size_t block = 0;  // index of the block; the results before it are there
    tcrypto_digest_step step = TCRYPTO_STEP_INIT;
};

// Digests of many blocks at once: out[i] = digest(salt || block i) for `count`
// blocks of `length` bytes that lie one after the other at `data`; the results
// are packed at `out`, tcrypto_digestsize() bytes each.  The result equals init,
// update(salt), update(block), final for every block; the context is left in
// state 2.  Uses the processor's widest kernel for this digest where there is one.
// Stops at the first failure, which `failure` (optional) then describes.
[[nodiscard]] int tcrypto_digest_blocks(tcrypto_ctx *ctx, const void *salt, std::size_t salt_length,
                                        const void *data, std::size_t length, std::size_t count,
                                        std::uint8_t *out, tcrypto_block_failure *failure = nullptr);

// ---- Random generators
//
// instantiate (any time; again to start afresh), then reseed and generate, which
// are TCRYPTO_E_STATE before it.  Other errors as for digests.

[[nodiscard]] int tcrypto_rng_request(const char *name, const char *plugin, std::uint32_t flags,
                                      tcrypto_ctx **out);
[[nodiscard]] int tcrypto_rng_supported(const char *name, const char *plugin, std::uint32_t flags);
[[nodiscard]] int tcrypto_rng_instantiate(tcrypto_ctx *ctx, const void *personalisation, std::size_t length);
[[nodiscard]] int tcrypto_rng_reseed(tcrypto_ctx *ctx, const void *additional, std::size_t length);
[[nodiscard]] int tcrypto_rng_generate(tcrypto_ctx *ctx, void *out, std::size_t length);
// Security strength in bits; 0 for a context of another kind.
[[nodiscard]] std::uint32_t tcrypto_rng_strength(const tcrypto_ctx *ctx);

// Fills `out` from the process-wide cryptographic generator (no context and no
// tcrypto_init needed).  TCRYPTO_E_INTERNAL when the generator fails.
[[nodiscard]] int tcrypto_random_bytes(void *out, std::size_t length);

// ---- Keys

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

[[nodiscard]] int tcrypto_keygen_request(const char *name, const char *plugin, std::uint32_t flags,
                                         tcrypto_ctx **out);
[[nodiscard]] int tcrypto_keygen_supported(const char *name, const char *plugin, std::uint32_t flags);
// The key generator with a numeric key algorithm id.  `plugin` on entry names
// the only provider to ask (or points at null for any); on success it points at
// the name of the provider that answered.
[[nodiscard]] int tcrypto_find_keygen_by_alg(std::uint32_t id, tcrypto_ctx **out, const char **plugin);

// Loading.  The file, which may be a pipe, is read to its end (1 MiB at most) and
// wiped from memory; nobody is asked for a pass phrase.  On failure *out is null: TCRYPTO_E_FILE or _IO (the
// file), _KEY (no bytes, or a key of another generator), _KEY_TYPE, _KEY_FORMAT,
// TCRYPTO_E_INTERNAL (not such a key, or encrypted).  Logs.
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
[[nodiscard]] int tcrypto_pubkey_from_privkey(tcrypto_ctx *keygen, const tcrypto_key *private_key,
                                              tcrypto_key **out);
// A random symmetric key of `bits` bits, a multiple of 8; TCRYPTO_E_KEY_SIZE for
// another number.
[[nodiscard]] int tcrypto_generate_key(tcrypto_ctx *keygen, std::size_t bits, tcrypto_key **out);

// Exports.  *_to_mem: with a null `out` the needed size is stored in `length`;
// otherwise `length` is the room on entry and the size written on return, or the
// size needed with TCRYPTO_E_KEY_LENGTH.
// *_to_file creates or replaces the file, readable by its owner only.
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

// ---- Signatures

enum tcrypto_signature_operation : std::uint32_t {
    TCRYPTO_SIGN = 1,
    TCRYPTO_VERIFY = 2,
};

enum tcrypto_padding : std::uint32_t {
    TCRYPTO_PADDING_PKCS1 = 0,
    TCRYPTO_PADDING_PSS = 1,
};

inline constexpr std::int32_t TCRYPTO_PSS_SALT_DIGEST = -2;  // as long as the digest
inline constexpr std::int32_t TCRYPTO_PSS_SALT_MAX = -3;     // as long as possible

struct tcrypto_signature_params {
    std::uint32_t operation = TCRYPTO_SIGN;  // any value but TCRYPTO_SIGN verifies
    std::uint32_t padding = TCRYPTO_PADDING_PKCS1;
    std::int32_t pss_salt_length = 0;  // bytes, or one of the two settings above
};

[[nodiscard]] int tcrypto_signature_request(const char *name, const char *plugin, std::uint32_t flags,
                                            tcrypto_ctx **out);
[[nodiscard]] int tcrypto_signature_supported(const char *name, const char *plugin, std::uint32_t flags);
[[nodiscard]] int tcrypto_signature_init(tcrypto_ctx *ctx, const tcrypto_key *key,
                                         const tcrypto_signature_params *params);
[[nodiscard]] int tcrypto_signature_update(tcrypto_ctx *ctx, const void *data, std::size_t length);
// `signature_length`: the room at `signature` on entry, the bytes written on return.
[[nodiscard]] int tcrypto_signature_sign(tcrypto_ctx *ctx, std::uint8_t *signature,
                                         std::size_t *signature_length);
[[nodiscard]] int tcrypto_signature_sign_oneshot(tcrypto_ctx *ctx, const void *data, std::size_t length,
                                                 std::uint8_t *signature, std::size_t *signature_length);
[[nodiscard]] int tcrypto_signature_sign_without_digest(tcrypto_ctx *ctx, const void *digest,
                                                        std::size_t length, std::uint8_t *signature,
                                                        std::size_t *signature_length);
// `result`: 1 when the signature matches, else 0; 0 is returned for both answers.
[[nodiscard]] int tcrypto_signature_verify(tcrypto_ctx *ctx, const std::uint8_t *signature,
                                           std::size_t signature_length, int *result);
[[nodiscard]] int tcrypto_signature_verify_oneshot(tcrypto_ctx *ctx, const void *data, std::size_t length,
                                                   const std::uint8_t *signature,
                                                   std::size_t signature_length, int *result);
[[nodiscard]] int tcrypto_signature_verify_without_digest(tcrypto_ctx *ctx, const void *digest,
                                                          std::size_t length, const std::uint8_t *signature,
                                                          std::size_t signature_length, int *result);
[[nodiscard]] std::size_t tcrypto_signature_sigsize(const tcrypto_ctx *ctx);

// ---- The remaining kinds: lookup only; no operation of theirs is offered yet.

[[nodiscard]] int tcrypto_cipher_request(const char *name, const char *plugin, std::uint32_t flags,
                                         tcrypto_ctx **out);
[[nodiscard]] int tcrypto_mac_request(const char *name, const char *plugin, std::uint32_t flags,
                                      tcrypto_ctx **out);
[[nodiscard]] int tcrypto_kdf_request(const char *name, const char *plugin, std::uint32_t flags,
                                      tcrypto_ctx **out);
[[nodiscard]] int tcrypto_x509_request(const char *name, const char *plugin, std::uint32_t flags,
                                       tcrypto_ctx **out);
