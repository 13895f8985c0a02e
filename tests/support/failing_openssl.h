// The calls of OpenSSL and libb2 that our code makes, each of which fails when fails()
// says so, with an error in OpenSSL's queue.  CMake's mktfs_fail_openssl() reads the names
// below.
#pragma once

#include <blake2.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include "support/failing_calls.h"

using uchar = unsigned char;
using md_name = const char *;

inline bool fails_with_reason() {
    const bool failing = fails();
    if (failing)
        ERR_raise(ERR_LIB_USER, 7);
    return failing;
}
#undef FAILING
#define FAILING(...) FAILING_IF(fails_with_reason(), __VA_ARGS__)

// A line each, as CMake reads them.
// clang-format off
FAILING(EVP_MD *, EVP_MD_fetch, nullptr, (OSSL_LIB_CTX * a, md_name b, md_name c), a, b, c)
FAILING(EVP_MD_CTX *, EVP_MD_CTX_new, nullptr, ())
FAILING(int, EVP_DigestInit_ex, 0, (EVP_MD_CTX * a, const EVP_MD *b, ENGINE *c), a, b, c)
FAILING(int, EVP_DigestUpdate, 0, (EVP_MD_CTX * a, const void *b, size_t c), a, b, c)
FAILING(int, EVP_DigestFinal_ex, 0, (EVP_MD_CTX * a, uchar *b, unsigned *c), a, b, c)
FAILING(int, EVP_DigestSignInit, 0, (EVP_MD_CTX * a, EVP_PKEY_CTX **b, const EVP_MD *c, ENGINE *d, EVP_PKEY *e), a, b, c, d, e)
FAILING(int, EVP_DigestVerifyInit, 0, (EVP_MD_CTX * a, EVP_PKEY_CTX **b, const EVP_MD *c, ENGINE *d, EVP_PKEY *e), a, b, c, d, e)
FAILING(int, EVP_DigestSign, 0, (EVP_MD_CTX * a, uchar *b, size_t *c, const uchar *d, size_t e), a, b, c, d, e)
FAILING(EVP_PKEY *, d2i_AutoPrivateKey, nullptr, (EVP_PKEY * *a, const uchar **b, long c), a, b, c)
FAILING(EVP_PKEY *, d2i_PUBKEY, nullptr, (EVP_PKEY * *a, const uchar **b, long c), a, b, c)
FAILING(int, i2d_PUBKEY, -1, (const EVP_PKEY *a, uchar **b), a, b)
FAILING(PKCS8_PRIV_KEY_INFO *, EVP_PKEY2PKCS8, nullptr, (const EVP_PKEY *a), a)
FAILING(BIO *, BIO_new_mem_buf, nullptr, (const void *a, int b), a, b)
FAILING(int, OPENSSL_init_crypto, 0, (uint64_t a, const OPENSSL_INIT_SETTINGS *b), a, b)
FAILING(int, RAND_bytes_ex, 0, (OSSL_LIB_CTX * a, uchar *b, size_t c, unsigned d), a, b, c, d)
// clang-format on
