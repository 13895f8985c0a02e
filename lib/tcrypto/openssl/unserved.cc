// Families that can be looked up but offer no operation: asking one of their
// contexts for anything answers TCRYPTO_E_NO_FUNCTION.
#include <array>

#include "tcrypto/openssl/descriptor.h"
#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/ossl.h"

namespace {

template <std::uint32_t Kind, std::size_t N>
consteval std::array<tcrypto_algorithm, N> rows(const std::string_view (&names)[N]) {
    std::array<tcrypto_algorithm, N> algorithms;
    for (std::size_t i = 0; i < N; ++i)
        algorithms[i] = ossl_stateless_descriptor(Kind, names[i]);
    return algorithms;
}

// XTS is not defined for 192-bit keys.
constinit const auto AES_CIPHERS = rows<TCRYPTO_CIPHER>(
    {"aes-128-ecb", "aes-192-ecb", "aes-256-ecb", "aes-128-cbc", "aes-192-cbc", "aes-256-cbc",
     "aes-128-cfb", "aes-192-cfb", "aes-256-cfb", "aes-128-ofb", "aes-192-ofb", "aes-256-ofb",
     "aes-128-ctr", "aes-192-ctr", "aes-256-ctr", "aes-128-xts", "aes-256-xts", "aes-128-gcm",
     "aes-192-gcm", "aes-256-gcm", "aes-128-ccm", "aes-192-ccm", "aes-256-ccm"});

constinit const auto MACS = rows<TCRYPTO_MAC>(
    {"hmac-md5", "hmac-sha1", "hmac-sha224", "hmac-sha256", "hmac-sha384", "hmac-sha512", "hmac-sha512-224",
     "hmac-sha512-256", "hmac-sha3-224", "hmac-sha3-256", "hmac-sha3-384", "hmac-sha3-512",
     "cmac-aes-128-cbc", "cmac-aes-192-cbc", "cmac-aes-256-cbc"});

constinit const auto KDFS = rows<TCRYPTO_KDF>(
    {"hkdf-sha1", "hkdf-sha256", "hkdf-sha512", "pbkdf2-sha1", "pbkdf2-sha256", "pbkdf2-sha512"});

constinit const auto CERTIFICATES = rows<TCRYPTO_X509>({"x509"});

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
