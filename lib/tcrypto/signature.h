// Signatures: init with a key (any time), update with the data, then one of the signing
// or verifying operations, which end it whether they succeed or not; an operation out of
// this order is TCRYPTO_E_STATE.  Other errors as for digests.
#pragma once

#include <cstddef>
#include <cstdint>

struct tcrypto_ctx;
struct tcrypto_key;

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

// See tcrypto_request_algorithm; _supported only asks.
[[nodiscard]] int tcrypto_signature_request(const char *name, const char *plugin, std::uint32_t flags,
                                            tcrypto_ctx **out);
[[nodiscard]] int tcrypto_signature_supported(const char *name, const char *plugin, std::uint32_t flags);
// Takes a copy of the key: a private one to sign, a public one to verify.
// TCRYPTO_E_KEY_FORMAT for a key that the algorithm or the operation cannot use;
// TCRYPTO_E_SIGNATURE_PADDING for an unknown padding, which leaves the context as it was.
[[nodiscard]] int tcrypto_signature_init(tcrypto_ctx *ctx, const tcrypto_key *key,
                                         const tcrypto_signature_params *params);
[[nodiscard]] int tcrypto_signature_update(tcrypto_ctx *ctx, const void *data, std::size_t length);
// Signing.  `signature_length`: the room at `signature` on entry, the bytes written on
// return; TCRYPTO_E_SIGNATURE_LENGTH when there is no room for the longest one.  "oneshot"
// takes the last data first; "without_digest" signs the value of a digest of the caller's.
[[nodiscard]] int tcrypto_signature_sign(tcrypto_ctx *ctx, std::uint8_t *signature,
                                         std::size_t *signature_length);
[[nodiscard]] int tcrypto_signature_sign_oneshot(tcrypto_ctx *ctx, const void *data, std::size_t length,
                                                 std::uint8_t *signature, std::size_t *signature_length);
[[nodiscard]] int tcrypto_signature_sign_without_digest(tcrypto_ctx *ctx, const void *digest,
                                                        std::size_t length, std::uint8_t *signature,
                                                        std::size_t *signature_length);
// Verifying, in the same three ways.  `result`: 1 when the signature matches, else 0; both
// answers return 0.
[[nodiscard]] int tcrypto_signature_verify(tcrypto_ctx *ctx, const std::uint8_t *signature,
                                           std::size_t signature_length, int *result);
[[nodiscard]] int tcrypto_signature_verify_oneshot(tcrypto_ctx *ctx, const void *data, std::size_t length,
                                                   const std::uint8_t *signature,
                                                   std::size_t signature_length, int *result);
[[nodiscard]] int tcrypto_signature_verify_without_digest(tcrypto_ctx *ctx, const void *digest,
                                                          std::size_t length, const std::uint8_t *signature,
                                                          std::size_t signature_length, int *result);
// Bytes that a signature takes at most; 0 for a context of another kind or without a key.
[[nodiscard]] std::size_t tcrypto_signature_sigsize(const tcrypto_ctx *ctx);
