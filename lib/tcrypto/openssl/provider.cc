#include "tcrypto/openssl/provider.h"

#include <openssl/crypto.h>

#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/ossl.h"

namespace {

constexpr int (*FAMILIES[])() = {
    ossl_register_digests, ossl_register_rngs, ossl_register_aes_ciphers, ossl_register_keygens,
    ossl_register_macs,    ossl_register_kdfs, ossl_register_signatures,  ossl_register_x509,
};

constexpr std::uint64_t START_STEPS[] = {
    OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
    OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS,
};

// A library that did not start, for lack of memory, crashes at its first fetch.
// Its default context, which OpenSSL would make only then, can fail on its own.
bool start_openssl() {
    for (const std::uint64_t step : START_STEPS) {
        if (OPENSSL_init_crypto(step, nullptr) != 1)
            return false;
    }
    return OSSL_LIB_CTX_get0_global_default() != nullptr;
}

}  // namespace

int tcrypto_openssl_init() {
    if (!start_openssl())
        return ossl_fail(TCRYPTO_E_INTERNAL, "OpenSSL initialization failed\n");
    for (const auto register_family : FAMILIES) {
        if (const int err = register_family(); err != TCRYPTO_OK)
            return err;
    }
    return TCRYPTO_OK;
}

void tcrypto_openssl_uninit() {}

const char *tcrypto_openssl_get_description() {
    return OpenSSL_version(OPENSSL_VERSION);
}

constinit const tcrypto_provider tcrypto_openssl_provider = {
    .version = TCRYPTO_ABI_VERSION,
    .init = tcrypto_openssl_init,
    .uninit = tcrypto_openssl_uninit,
    .get_description = tcrypto_openssl_get_description,
};
