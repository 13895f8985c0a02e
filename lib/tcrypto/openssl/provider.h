// The "openssl" provider: algorithms of OpenSSL, and of libb2 and BLAKE3 where
// OpenSSL lacks a digest.
#pragma once

#include "tcrypto/provider.h"

// Starts OpenSSL and registers every family.  TCRYPTO_E_INTERNAL when OpenSSL
// does not start (logs), else what register_algorithm answers.
[[nodiscard]] int tcrypto_openssl_init();
// Does nothing: OpenSSL cleans up after itself at exit.
void tcrypto_openssl_uninit();
// OpenSSL's version text.
[[nodiscard]] const char *tcrypto_openssl_get_description();

extern const tcrypto_provider tcrypto_openssl_provider;
