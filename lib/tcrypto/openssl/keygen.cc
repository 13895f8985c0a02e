// The key generators: raw keys in and out, and the two DER forms in which
// asymmetric keys are kept.
//
// Key material lies in OpenSSL's heap.  Pairs are not generated here: that is the
// business of the openssl command, so the pair operations stay empty.
#include <climits>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/rand.h>

#include "tcrypto/openssl/descriptor.h"
#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/keygen.h"

namespace {

using byte_span = std::span<const std::uint8_t>;

constexpr std::size_t MAX_SYMMETRIC_BITS = std::size_t{1} << 20;

// ---- Parsing

// Never asks: OpenSSL's own callback would prompt, or read standard input, and a build
// could wait forever.  An encrypted key simply fails to parse.
int refuse_pass_phrase(char *, int, int, void *) {
    return -1;
}

evp_pkey_ptr parse_public_der(byte_span bytes) {
    const unsigned char *at = bytes.data();
    return evp_pkey_ptr(d2i_PUBKEY(nullptr, &at, static_cast<long>(bytes.size())));
}

evp_pkey_ptr parse_private_der(byte_span bytes) {
    const unsigned char *at = bytes.data();
    return evp_pkey_ptr(d2i_AutoPrivateKey(nullptr, &at, static_cast<long>(bytes.size())));
}

bio_ptr read_only_bio(byte_span bytes) {
    return bio_ptr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

// By block name: OpenSSL's public key reader would take other blocks as well, and
// which ones depends on its version.
evp_pkey_ptr parse_public_pem(byte_span bytes) {
    const bio_ptr bio = read_only_bio(bytes);
    unsigned char *der = nullptr;
    long length = 0;
    if (!bio || PEM_bytes_read_bio(&der, &length, nullptr, PEM_STRING_PUBLIC, bio.get(), refuse_pass_phrase,
                                   nullptr) != 1)
        return nullptr;
    evp_pkey_ptr key = parse_public_der({der, static_cast<std::size_t>(length)});
    OPENSSL_free(der);
    return key;
}

evp_pkey_ptr parse_private_pem(byte_span bytes) {
    const bio_ptr bio = read_only_bio(bytes);
    return evp_pkey_ptr(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, refuse_pass_phrase, nullptr)
                            : nullptr);
}

// How a key of one type and format is parsed: null, with queued errors, for anything else.
struct key_parser {
    std::uint32_t type = 0;
    std::uint32_t format = 0;
    evp_pkey_ptr (*parse)(byte_span bytes) = nullptr;
};

constinit const key_parser KEY_PARSERS[] = {
    {.type = TCRYPTO_KEY_PUBLIC, .format = TCRYPTO_FORMAT_DER, .parse = parse_public_der},
    {.type = TCRYPTO_KEY_PUBLIC, .format = TCRYPTO_FORMAT_PEM, .parse = parse_public_pem},
    {.type = TCRYPTO_KEY_PRIVATE, .format = TCRYPTO_FORMAT_DER, .parse = parse_private_der},
    {.type = TCRYPTO_KEY_PRIVATE, .format = TCRYPTO_FORMAT_PEM, .parse = parse_private_pem},
};

const key_parser *find_parser(std::uint32_t type, std::uint32_t format) {
    for (const key_parser &parser : KEY_PARSERS)
        if (parser.type == type && parser.format == format)
            return &parser;
    return nullptr;
}

bool is_pair_type(std::uint32_t type) {
    return type == TCRYPTO_KEY_PUBLIC || type == TCRYPTO_KEY_PRIVATE;
}

int bad_key_type() {
    return ossl_fail(TCRYPTO_E_KEY_TYPE, "invalid key type\n");
}

int bad_key_format() {
    return ossl_fail(TCRYPTO_E_KEY_FORMAT, "invalid key format\n");
}

// ---- Re-encoding

// Takes over an encoder's buffer, or reports that it failed.
int store_encoding(unsigned char *der, int length, std::uint32_t type, std::uint32_t id,
                   tcrypto_key_record &out) {
    if (length <= 0)
        return ossl_fail(TCRYPTO_E_INTERNAL,
                         "failed to convert private key into internal PKCS8 DER format\n");
    out = {.type = type, .id = id, .bytes = der, .length = static_cast<std::size_t>(length)};
    return TCRYPTO_OK;
}

int store_public(const EVP_PKEY *key, std::uint32_t id, tcrypto_key_record &out) {
    unsigned char *der = nullptr;
    const int length = i2d_PUBKEY(key, &der);
    return store_encoding(der, length, TCRYPTO_KEY_PUBLIC, id, out);
}

int store_private(const EVP_PKEY *key, std::uint32_t id, tcrypto_key_record &out) {
    const pkcs8_ptr info(EVP_PKEY2PKCS8(key));
    unsigned char *der = nullptr;
    const int length = info ? i2d_PKCS8_PRIV_KEY_INFO(info.get(), &der) : -1;
    return store_encoding(der, length, TCRYPTO_KEY_PRIVATE, id, out);
}

int check_openssl_type(const EVP_PKEY *key, int expected) {
    const int type = EVP_PKEY_get_id(key);
    if (type == expected)
        return TCRYPTO_OK;
    TH_LOG(tc_openssl_log, TH_LOG_ERROR, "extracted key type '%d' is not the expected type '%d'!\n", type,
           expected);
    return TCRYPTO_E_KEY;
}

// ---- Operations of pairs

int pair_import(const tcrypto_algorithm *algorithm, const void *bytes, std::size_t length, std::uint32_t type,
                std::uint32_t format, tcrypto_key_record *out) {
    ossl_clear_errors();
    if (!is_pair_type(type))
        return bad_key_type();
    const key_parser *parser = find_parser(type, format);
    if (parser == nullptr)
        return bad_key_format();
    if (length > INT_MAX)
        return TCRYPTO_E_KEY_LENGTH;
    const evp_pkey_ptr key = parser->parse({static_cast<const std::uint8_t *>(bytes), length});
    if (!key)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to convert raw key into EVP_PKEY\n");
    const tcrypto_keygen_ops &keygen = algorithm->keygen;
    if (const int err = check_openssl_type(key.get(), keygen.openssl_type); err != TCRYPTO_OK)
        return err;
    return (type == TCRYPTO_KEY_PUBLIC ? store_public : store_private)(key.get(), keygen.id, *out);
}

int pair_public_from_private(const tcrypto_algorithm *algorithm, const tcrypto_key_record *private_key,
                             tcrypto_key_record *out) {
    ossl_clear_errors();
    if (private_key->id != algorithm->keygen.id)
        return TCRYPTO_E_KEY_FORMAT;
    if (private_key->type != TCRYPTO_KEY_PRIVATE)
        return TCRYPTO_E_KEY_TYPE;
    evp_pkey_ptr key;
    if (const int err = ossl_decode_key(*private_key, key); err != TCRYPTO_OK)
        return err;
    return store_public(key.get(), private_key->id, *out);
}

// ---- Export

int hand_out(byte_span bytes, void *out, std::size_t *length) {
    const std::size_t room = std::exchange(*length, bytes.size());
    if (out == nullptr)
        return TCRYPTO_OK;
    if (room < bytes.size())
        return TCRYPTO_E_KEY_LENGTH;
    std::memcpy(out, bytes.data(), bytes.size());
    return TCRYPTO_OK;
}

// The records are what the PEM blocks of these names wrap.
int hand_out_pem(const tcrypto_key_record &key, void *out, std::size_t *length) {
    const bio_ptr bio(BIO_new(BIO_s_mem()));  // wiped when freed
    if (!bio)
        return ossl_fail(TCRYPTO_E_MEMORY, "failed to allocate key text\n");
    const char *name = key.type == TCRYPTO_KEY_PUBLIC ? PEM_STRING_PUBLIC : PEM_STRING_PKCS8INF;
    if (PEM_write_bio(bio.get(), name, "", key.bytes, static_cast<long>(key.length)) <= 0)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to convert key into PEM format\n");
    char *text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return hand_out({reinterpret_cast<const std::uint8_t *>(text), static_cast<std::size_t>(size)}, out,
                    length);
}

int pair_export(const tcrypto_key_record *key, std::uint32_t format, void *out, std::size_t *length) {
    ossl_clear_errors();
    if (format == TCRYPTO_FORMAT_DER)
        return hand_out({key->bytes, key->length}, out, length);
    if (format == TCRYPTO_FORMAT_PEM)
        return hand_out_pem(*key, out, length);
    return bad_key_format();
}

// ---- Operations of symmetric keys

int symmetric_import(const tcrypto_algorithm *, const void *bytes, std::size_t length, std::uint32_t type,
                     std::uint32_t format, tcrypto_key_record *out) {
    ossl_clear_errors();
    if (type != TCRYPTO_KEY_SYMMETRIC)
        return bad_key_type();
    if (format != TCRYPTO_FORMAT_RAW)
        return bad_key_format();
    auto *copy = static_cast<std::uint8_t *>(OPENSSL_memdup(bytes, length));
    if (copy == nullptr)
        return ossl_fail(TCRYPTO_E_MEMORY, "failed to allocate symmetric key\n");
    *out = {.type = type, .id = OSSL_KEY_SYMMETRIC, .bytes = copy, .length = length};
    return TCRYPTO_OK;
}

int symmetric_export(const tcrypto_key_record *key, std::uint32_t format, void *out, std::size_t *length) {
    ossl_clear_errors();
    return format == TCRYPTO_FORMAT_RAW ? hand_out({key->bytes, key->length}, out, length) : bad_key_format();
}

void release_key(tcrypto_key_record *key) {
    if (key->bytes != nullptr)
        explicit_bzero(key->bytes, key->length);
    OPENSSL_free(key->bytes);
    *key = {};
}

int symmetric_generate(void *, std::size_t bits, tcrypto_key_record *out) {
    ossl_clear_errors();
    if (bits == 0 || bits % CHAR_BIT != 0 || bits > MAX_SYMMETRIC_BITS)
        return TCRYPTO_E_KEY_SIZE;
    const std::size_t length = bits / CHAR_BIT;
    auto *bytes = static_cast<std::uint8_t *>(OPENSSL_malloc(length));
    if (bytes == nullptr)
        return ossl_fail(TCRYPTO_E_MEMORY, "failed to allocate symmetric key\n");
    *out = {.type = TCRYPTO_KEY_SYMMETRIC, .id = OSSL_KEY_SYMMETRIC, .bytes = bytes, .length = length};
    if (RAND_priv_bytes(bytes, static_cast<int>(length)) == 1)
        return TCRYPTO_OK;
    release_key(out);
    return ossl_fail(TCRYPTO_E_INTERNAL, "failed to generate symmetric key\n");
}

// ---- Descriptors

consteval tcrypto_algorithm keygen_row(std::string_view name, const tcrypto_keygen_ops &operations) {
    tcrypto_algorithm algorithm = ossl_stateless_descriptor(TCRYPTO_KEYGEN, name);
    algorithm.keygen = operations;
    return algorithm;
}

consteval tcrypto_algorithm pair_row(std::string_view name, ossl_key_id id, int openssl_type) {
    return keygen_row(name, {.id = id,
                             .public_from_private = pair_public_from_private,
                             .import = pair_import,
                             .export_ = pair_export,
                             .release = release_key,
                             .openssl_type = openssl_type});
}

constinit const tcrypto_algorithm KEY_GENERATORS[] = {
    keygen_row("symmetric", {.id = OSSL_KEY_SYMMETRIC,
                             .generate_symmetric = symmetric_generate,
                             .import = symmetric_import,
                             .export_ = symmetric_export,
                             .release = release_key}),
    pair_row("rsa", OSSL_KEY_RSA, EVP_PKEY_RSA),
    pair_row("dsa", OSSL_KEY_DSA, EVP_PKEY_DSA),
    pair_row("dh", OSSL_KEY_DH, EVP_PKEY_DHX),
    pair_row("ec", OSSL_KEY_EC, EVP_PKEY_EC),
    pair_row("ed25519", OSSL_KEY_ED25519, EVP_PKEY_ED25519),
    pair_row("ed448", OSSL_KEY_ED448, EVP_PKEY_ED448),
};

}  // namespace

int ossl_decode_key(const tcrypto_key_record &record, evp_pkey_ptr &out) {
    const byte_span der(record.bytes, record.length);
    out = record.type == TCRYPTO_KEY_PUBLIC ? parse_public_der(der) : parse_private_der(der);
    return out ? TCRYPTO_OK : ossl_fail(TCRYPTO_E_INTERNAL, "failed to convert internal key into EVP_PKEY\n");
}

int ossl_register_keygens() {
    return ossl_register_all(KEY_GENERATORS);
}
