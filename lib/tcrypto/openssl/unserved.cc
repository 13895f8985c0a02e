// Families that can be looked up but offer no operation: asking one of their
// contexts for anything answers TCRYPTO_E_NO_FUNCTION.
#include "tcrypto/openssl/descriptor.h"
#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/ossl.h"

namespace {

int create_nothing(const tcrypto_algorithm *, void **) {
    return TCRYPTO_OK;
}

void destroy_nothing(void *) {}

consteval tcrypto_algorithm row(std::uint32_t kind, std::string_view name) {
    tcrypto_algorithm algorithm = ossl_descriptor(kind, name);
    algorithm.ctx_create = create_nothing;
    algorithm.ctx_destroy = destroy_nothing;
    return algorithm;
}

// XTS is not defined for 192-bit keys.
constinit const tcrypto_algorithm AES_CIPHERS[] = {
    row(TCRYPTO_CIPHER, "aes-128-ecb"), row(TCRYPTO_CIPHER, "aes-192-ecb"),
    row(TCRYPTO_CIPHER, "aes-256-ecb"), row(TCRYPTO_CIPHER, "aes-128-cbc"),
    row(TCRYPTO_CIPHER, "aes-192-cbc"), row(TCRYPTO_CIPHER, "aes-256-cbc"),
    row(TCRYPTO_CIPHER, "aes-128-cfb"), row(TCRYPTO_CIPHER, "aes-192-cfb"),
    row(TCRYPTO_CIPHER, "aes-256-cfb"), row(TCRYPTO_CIPHER, "aes-128-ofb"),
    row(TCRYPTO_CIPHER, "aes-192-ofb"), row(TCRYPTO_CIPHER, "aes-256-ofb"),
    row(TCRYPTO_CIPHER, "aes-128-ctr"), row(TCRYPTO_CIPHER, "aes-192-ctr"),
    row(TCRYPTO_CIPHER, "aes-256-ctr"), row(TCRYPTO_CIPHER, "aes-128-xts"),
    row(TCRYPTO_CIPHER, "aes-256-xts"), row(TCRYPTO_CIPHER, "aes-128-gcm"),
    row(TCRYPTO_CIPHER, "aes-192-gcm"), row(TCRYPTO_CIPHER, "aes-256-gcm"),
    row(TCRYPTO_CIPHER, "aes-128-ccm"), row(TCRYPTO_CIPHER, "aes-192-ccm"),
    row(TCRYPTO_CIPHER, "aes-256-ccm"),
};

constinit const tcrypto_algorithm MACS[] = {
    row(TCRYPTO_MAC, "hmac-md5"),         row(TCRYPTO_MAC, "hmac-sha1"),
    row(TCRYPTO_MAC, "hmac-sha224"),      row(TCRYPTO_MAC, "hmac-sha256"),
    row(TCRYPTO_MAC, "hmac-sha384"),      row(TCRYPTO_MAC, "hmac-sha512"),
    row(TCRYPTO_MAC, "hmac-sha512-224"),  row(TCRYPTO_MAC, "hmac-sha512-256"),
    row(TCRYPTO_MAC, "hmac-sha3-224"),    row(TCRYPTO_MAC, "hmac-sha3-256"),
    row(TCRYPTO_MAC, "hmac-sha3-384"),    row(TCRYPTO_MAC, "hmac-sha3-512"),
    row(TCRYPTO_MAC, "cmac-aes-128-cbc"), row(TCRYPTO_MAC, "cmac-aes-192-cbc"),
    row(TCRYPTO_MAC, "cmac-aes-256-cbc"),
};

constinit const tcrypto_algorithm KDFS[] = {
    row(TCRYPTO_KDF, "hkdf-sha1"),   row(TCRYPTO_KDF, "hkdf-sha256"),   row(TCRYPTO_KDF, "hkdf-sha512"),
    row(TCRYPTO_KDF, "pbkdf2-sha1"), row(TCRYPTO_KDF, "pbkdf2-sha256"), row(TCRYPTO_KDF, "pbkdf2-sha512"),
};

constinit const tcrypto_algorithm CERTIFICATES[] = {row(TCRYPTO_X509, "x509")};

}  // namespace

int ossl_register_aes_ciphers() {
    return ossl_register_all(AES_CIPHERS);
}

int ossl_register_macs() {
    return ossl_register_all(MACS);
}

int ossl_register_kdfs() {
    return ossl_register_all(KDFS);
}

int ossl_register_x509() {
    return ossl_register_all(CERTIFICATES);
}
