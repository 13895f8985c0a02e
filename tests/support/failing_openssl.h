// The calls of OpenSSL and libb2 that our code makes, each of which fails when fails()
// says so, with an error in OpenSSL's queue.  CMake's mktfs_fail_openssl() reads the names
// below.
#pragma once

#include <blake2.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "support/failing_calls.h"

using uchar = unsigned char;
using md_name = const char *;
using md_params = const OSSL_PARAM *;

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
FAILING(int, EVP_MD_CTX_copy_ex, 0, (EVP_MD_CTX * a, const EVP_MD_CTX *b), a, b)
FAILING(int, EVP_DigestInit_ex, 0, (EVP_MD_CTX * a, const EVP_MD *b, ENGINE *c), a, b, c)
FAILING(int, EVP_DigestInit_ex2, 0, (EVP_MD_CTX * a, const EVP_MD *b, md_params c), a, b, c)
FAILING(int, EVP_DigestUpdate, 0, (EVP_MD_CTX * a, const void *b, size_t c), a, b, c)
FAILING(int, EVP_DigestFinal_ex, 0, (EVP_MD_CTX * a, uchar *b, unsigned *c), a, b, c)
FAILING(int, blake2s_init, -1, (blake2s_state * a, size_t b), a, b)
FAILING(int, blake2s_update, -1, (blake2s_state * a, const void *b, size_t c), a, b, c)
FAILING(int, blake2s_final, -1, (blake2s_state * a, void *b, size_t c), a, b, c)
FAILING(EVP_PKEY_CTX *, EVP_PKEY_CTX_new, nullptr, (EVP_PKEY * a, ENGINE *b), a, b)
FAILING(int, EVP_PKEY_sign_init, 0, (EVP_PKEY_CTX * a), a)
FAILING(int, EVP_PKEY_verify_init, 0, (EVP_PKEY_CTX * a), a)
FAILING(int, EVP_PKEY_CTX_set_signature_md, 0, (EVP_PKEY_CTX * a, const EVP_MD *b), a, b)
FAILING(int, EVP_PKEY_CTX_set_rsa_padding, 0, (EVP_PKEY_CTX * a, int b), a, b)
FAILING(int, EVP_PKEY_CTX_set_rsa_mgf1_md, 0, (EVP_PKEY_CTX * a, const EVP_MD *b), a, b)
FAILING(int, EVP_PKEY_sign, 0, (EVP_PKEY_CTX * a, uchar *b, size_t *c, const uchar *d, size_t e), a, b, c, d, e)
FAILING(int, EVP_PKEY_verify, -1, (EVP_PKEY_CTX * a, const uchar *b, size_t c, const uchar *d, size_t e), a, b, c, d, e)
FAILING(int, EVP_DigestSignInit, 0, (EVP_MD_CTX * a, EVP_PKEY_CTX **b, const EVP_MD *c, ENGINE *d, EVP_PKEY *e), a, b, c, d, e)
FAILING(int, EVP_DigestVerifyInit, 0, (EVP_MD_CTX * a, EVP_PKEY_CTX **b, const EVP_MD *c, ENGINE *d, EVP_PKEY *e), a, b, c, d, e)
FAILING(int, EVP_DigestSign, 0, (EVP_MD_CTX * a, uchar *b, size_t *c, const uchar *d, size_t e), a, b, c, d, e)
FAILING(EVP_PKEY *, d2i_AutoPrivateKey, nullptr, (EVP_PKEY * *a, const uchar **b, long c), a, b, c)
FAILING(EVP_PKEY *, d2i_PUBKEY, nullptr, (EVP_PKEY * *a, const uchar **b, long c), a, b, c)
FAILING(int, i2d_PUBKEY, -1, (const EVP_PKEY *a, uchar **b), a, b)
FAILING(PKCS8_PRIV_KEY_INFO *, EVP_PKEY2PKCS8, nullptr, (const EVP_PKEY *a), a)
FAILING(BIO *, BIO_new, nullptr, (const BIO_METHOD *a), a)
FAILING(BIO *, BIO_new_mem_buf, nullptr, (const void *a, int b), a, b)
FAILING(int, PEM_write_bio, 0, (BIO * a, md_name b, md_name c, const uchar *d, long e), a, b, c, d, e)
FAILING(void *, CRYPTO_malloc, nullptr, (size_t a, md_name b, int c), a, b, c)
FAILING(void *, CRYPTO_memdup, nullptr, (const void *a, size_t b, md_name c, int d), a, b, c, d)
FAILING(int, OPENSSL_init_crypto, 0, (uint64_t a, const OPENSSL_INIT_SETTINGS *b), a, b)
FAILING(int, RAND_bytes_ex, 0, (OSSL_LIB_CTX * a, uchar *b, size_t c, unsigned d), a, b, c, d)
FAILING(int, RAND_priv_bytes, 0, (uchar * a, int b), a, b)
FAILING(EVP_RAND *, EVP_RAND_fetch, nullptr, (OSSL_LIB_CTX * a, md_name b, md_name c), a, b, c)
FAILING(EVP_RAND_CTX *, EVP_RAND_CTX_new, nullptr, (EVP_RAND * a, EVP_RAND_CTX *b), a, b)
FAILING(int, EVP_RAND_CTX_set_params, 0, (EVP_RAND_CTX * a, md_params b), a, b)
FAILING(int, EVP_RAND_instantiate, 0, (EVP_RAND_CTX * a, unsigned b, int c, const uchar *d, size_t e, md_params f), a, b, c, d, e, f)
FAILING(int, EVP_RAND_reseed, 0, (EVP_RAND_CTX * a, int b, const uchar *c, size_t d, const uchar *e, size_t f), a, b, c, d, e, f)
FAILING(int, EVP_RAND_generate, 0, (EVP_RAND_CTX * a, uchar *b, size_t c, unsigned d, int e, const uchar *f, size_t g), a, b, c, d, e, f, g)
// clang-format on
