// Key records of this provider as OpenSSL keys.
#pragma once

#include <cstdint>

#include "tcrypto/openssl/ossl.h"

// Key algorithm ids, as key generators and key records carry them.
enum ossl_key_id : std::uint32_t {
    OSSL_KEY_SYMMETRIC = 1,
    OSSL_KEY_RSA = 2,
    OSSL_KEY_DSA = 3,
    OSSL_KEY_DH = 4,
    OSSL_KEY_EC = 5,
    OSSL_KEY_ED25519 = 6,
    OSSL_KEY_ED448 = 7,
};

// Decodes a public or private record into `out`.  TCRYPTO_E_INTERNAL when OpenSSL
// cannot (`out` is empty then).  Logs.
[[nodiscard]] int ossl_decode_key(const tcrypto_key_record &record, evp_pkey_ptr &out);
