#include "tcrypto/error.h"

namespace {

struct error_text {
    int code;
    const char *text;
};

constexpr error_text ERROR_TEXTS[] = {
    {TCRYPTO_OK, "no tcrypto error"},
    {TCRYPTO_E_PARAMETERS, "invalid parameters"},
    {TCRYPTO_E_MEMORY, "failed to allocate memory"},
    {TCRYPTO_E_NO_ENTRY, "no entry found"},
    {TCRYPTO_E_EXISTS, "entry already exists"},
    {TCRYPTO_E_IO, "I/O error"},
    {TCRYPTO_E_LIBRARY, "library error"},
    {TCRYPTO_E_FILE, "file operation error"},
    {TCRYPTO_E_UNSUPPORTED, "algorithm not supported"},
    {TCRYPTO_E_NOT_INITIALIZED, "library not initialized"},
    {TCRYPTO_E_INIT, "library initialization failed"},
    {TCRYPTO_E_INCOMPATIBLE, "plugin incompatible with library"},
    {TCRYPTO_E_CONFIG_LOAD, "config file loading failed"},
    {TCRYPTO_E_CONFIG, "invalid configuration"},
    {TCRYPTO_E_PLUGIN_LOAD, "plugin dll load failed"},
    {TCRYPTO_E_PLUGIN, "invalid plugin"},
    {TCRYPTO_E_PLUGIN_LOADED, "plugin already loaded"},
    {TCRYPTO_E_KEY, "invalid key object"},
    {TCRYPTO_E_KEY_PARAMETERS, "invalid key parameters"},
    {TCRYPTO_E_KEY_SIZE, "invalid key size"},
    {TCRYPTO_E_KEY_FORMAT, "invalid key format"},
    {TCRYPTO_E_KEY_TYPE, "invalid key type"},
    {TCRYPTO_E_KEY_LENGTH, "invalid key length"},
    {TCRYPTO_E_NO_ALGORITHM, "algorithm not found"},
    {TCRYPTO_E_ALGORITHM_TYPE, "invalid algorithm type"},
    {TCRYPTO_E_NO_FUNCTION, "algorithm doesn't support this function"},
    {TCRYPTO_E_INTERNAL, "algorithm encountered an internal error"},
    {TCRYPTO_E_IV, "invalid iv"},
    {TCRYPTO_E_IV_LENGTH, "iv length invalid"},
    {TCRYPTO_E_TAG, "invalid tag"},
    {TCRYPTO_E_TAG_LENGTH, "tag length invalid"},
    {TCRYPTO_E_DIGEST_LENGTH, "digest length invalid"},
    {TCRYPTO_E_SIGNATURE_LENGTH, "signature length invalid"},
    {TCRYPTO_E_SIGNATURE_PADDING, "invalid padding mode"},
    {TCRYPTO_E_SALT_LENGTH, "invalid salt length"},
    {TCRYPTO_E_STATE, "invalid operation in current algorithm state"},
    {TCRYPTO_E_UNIT_SIZE, "invalid unit size"},
    {TCRYPTO_E_CRYPT_SIZE, "invalid encrypt/decrypt size"},
    {TCRYPTO_E_BLOCK_MULTIPLE, "cipher input is not multiple of block size"},
    {TCRYPTO_E_CIPHER_ACTION, "invalid cipher action"},
    {TCRYPTO_E_DECRYPTION, "bad decryption"},
    {TCRYPTO_E_PADDING_BUFFER, "padding buffer size too short"},
    {TCRYPTO_E_PADDING, "invalid padding detected"},
    {TCRYPTO_E_PADDING_MODE, "invalid padding mode"},
    {TCRYPTO_E_X509, "invalid x509 object"},
    {TCRYPTO_E_X509_FORMAT, "invalid x509 format"},
    {TCRYPTO_E_X509_SERIAL, "invalid x509 serial"},
    {TCRYPTO_E_X509_ISSUER, "invalid x509 issuer"},
    {TCRYPTO_E_X509_SUBJECT, "invalid x509 subject"},
    {TCRYPTO_E_X509_PUBLIC_KEY, "invalid x509 public key"},
    {TCRYPTO_E_X509_PRIVATE_KEY, "invalid x509 private key"},
    {TCRYPTO_E_X509_VALIDITY, "invalid x509 validity"},
    {TCRYPTO_E_X509_DIGEST, "invalid x509 digest algorithm"},
    {TCRYPTO_E_X509_EXTENSION_OID, "invalid x509 extension oid"},
    {TCRYPTO_E_X509_EXTENSION_DATA, "invalid x509 extension data"},
};

}  // namespace

const char *tcrypto_strerror(int code) {
    for (const error_text &entry : ERROR_TEXTS) {
        if (entry.code == code)
            return entry.text;
    }
    return "unknown tcrypto error";
}
