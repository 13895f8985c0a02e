// OpenSSL as the provider uses it: owning handles, the error queue, and whatever
// differs between OpenSSL versions.  OpenSSL 3.0 or later.
#pragma once

#include <cstdint>
#include <span>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/opensslv.h>
#include <openssl/x509.h>

#include "tcrypto/provider.h"
#include "th/handle.h"
#include "th/log.h"

static_assert(OPENSSL_VERSION_NUMBER >= 0x30000000L, "OpenSSL 3.0 or later is needed");

TH_LOG_CONTEXT_DECLARE(tc_openssl_log);  // "tc_openssl"

using evp_md_ptr = th_handle<EVP_MD, EVP_MD_free>;
using evp_md_ctx_ptr = th_handle<EVP_MD_CTX, EVP_MD_CTX_free>;
using evp_pkey_ptr = th_handle<EVP_PKEY, EVP_PKEY_free>;
using evp_pkey_ctx_ptr = th_handle<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using evp_rand_ptr = th_handle<EVP_RAND, EVP_RAND_free>;
using evp_rand_ctx_ptr = th_handle<EVP_RAND_CTX, EVP_RAND_CTX_free>;
using pkcs8_ptr = th_handle<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using bio_ptr = th_handle<BIO, BIO_free_all>;

// Ends a failed step: logs the first queued OpenSSL error, if there is one, then
// `message` (with its line end), both at error level and as of the caller's line;
// empties the queue; returns `code`.
[[nodiscard]] int ossl_fail(int code, const char *message, const char *file = __builtin_FILE(),
                            std::uint32_t line = __builtin_LINE());

// Drops queued errors of a call whose failure is an expected answer.
void ossl_clear_errors();

// Registers the descriptors in order; stops at the first error and returns it.
[[nodiscard]] int ossl_register_all(std::span<const tcrypto_algorithm> algorithms);
