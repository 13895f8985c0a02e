// Signatures.  RSA, DSA and ECDSA sign the value of a digest that takes the data
// first; EdDSA signs the message itself, in one step.
#include <cstddef>
#include <new>
#include <string_view>

#include <openssl/rsa.h>

#include "tcrypto/openssl/descriptor.h"
#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/keygen.h"

namespace {

struct signature_state {
    const tcrypto_algorithm *algorithm = nullptr;
    evp_md_ptr digest;       // empty for EdDSA
    evp_md_ctx_ptr context;  // the running digest; for EdDSA it holds the key
    evp_pkey_ctx_ptr key;    // empty for EdDSA
    std::size_t size = 0;    // bytes, the most that a signature takes; 0 without a key
    bool signing = false;    // what `context` or `key` was initialised for
};

signature_state &state_of(void *state) {
    return *static_cast<signature_state *>(state);
}

struct eddsa_key {
    std::uint32_t id = 0;
    std::size_t size = 0;  // bytes of a signature
};

constexpr eddsa_key EDDSA_KEYS[] = {
    {.id = OSSL_KEY_ED25519, .size = 64},
    {.id = OSSL_KEY_ED448, .size = 114},
};

// ---- Keys

bool is_signing(const tcrypto_signature_params &params) {
    return params.operation == TCRYPTO_SIGN;
}

void drop_key(signature_state &state) {
    state.key.reset();
    EVP_MD_CTX_reset(state.context.get());
    state.size = 0;
}

// TCRYPTO_E_KEY_FORMAT for a key of another kind, or for the half of a pair that
// the operation cannot use.
int decode_key(const tcrypto_key_record &key, std::uint32_t id, bool signing, evp_pkey_ptr &out) {
    const std::uint32_t type = signing ? TCRYPTO_KEY_PRIVATE : TCRYPTO_KEY_PUBLIC;
    return key.type == type && key.id == id ? ossl_decode_key(key, out) : TCRYPTO_E_KEY_FORMAT;
}

int fail_key_init(bool signing) {
    return ossl_fail(TCRYPTO_E_INTERNAL,
                     signing ? "failed to sign init pkey context\n" : "failed to verify init pkey context\n");
}

int start_key_context(signature_state &state, EVP_PKEY *key) {
    state.key.reset(EVP_PKEY_CTX_new(key, nullptr));
    EVP_PKEY_CTX *context = state.key.get();
    if (context == nullptr ||
        (state.signing ? EVP_PKEY_sign_init(context) : EVP_PKEY_verify_init(context)) != 1)
        return fail_key_init(state.signing);
    if (EVP_PKEY_CTX_set_signature_md(context, state.digest.get()) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to set pkey context digest alg\n");
    return TCRYPTO_OK;
}

// All steps before the padding.
int take_key(signature_state &state, const tcrypto_key_record &record,
             const tcrypto_signature_params &params) {
    drop_key(state);
    state.signing = is_signing(params);
    const auto id = static_cast<std::uint32_t>(state.algorithm->parameter);
    evp_pkey_ptr key;
    if (const int err = decode_key(record, id, state.signing, key); err != TCRYPTO_OK)
        return err;
    state.size = static_cast<std::size_t>(EVP_PKEY_get_size(key.get()));
    return start_key_context(state, key.get());
}

// The last step.
int start_digest(signature_state &state) {
    if (EVP_DigestInit_ex2(state.context.get(), state.digest.get(), nullptr) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to init digest alg\n");
    return TCRYPTO_OK;
}

// Runs `steps`; a failed initialisation leaves no key behind.
template <class Steps>
int initialise(signature_state &state, Steps steps) {
    ossl_clear_errors();
    const int err = steps();
    if (err != TCRYPTO_OK)
        drop_key(state);
    return err;
}

// ---- RSA padding

// The library's setting as OpenSSL's; TCRYPTO_E_SALT_LENGTH when the key has no
// room for that many bytes.
int convert_salt_length(const signature_state &state, std::int32_t wanted, int &out) {
    if (wanted == TCRYPTO_PSS_SALT_DIGEST || wanted == TCRYPTO_PSS_SALT_MAX) {
        out = wanted == TCRYPTO_PSS_SALT_DIGEST ? RSA_PSS_SALTLEN_DIGEST : RSA_PSS_SALTLEN_MAX;
        return TCRYPTO_OK;
    }
    const int key_bytes = (EVP_PKEY_get_bits(EVP_PKEY_CTX_get0_pkey(state.key.get())) + 7) / 8;
    out = wanted;
    return wanted < key_bytes - EVP_MD_get_size(state.digest.get()) - 1 ? TCRYPTO_OK : TCRYPTO_E_SALT_LENGTH;
}

int set_pss(signature_state &state, std::int32_t wanted) {
    int salt_length = 0;
    if (const int err = convert_salt_length(state, wanted, salt_length); err != TCRYPTO_OK)
        return err;
    if (EVP_PKEY_CTX_set_rsa_pss_saltlen(state.key.get(), salt_length) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to set RSA PSS salt length\n");
    if (EVP_PKEY_CTX_set_rsa_mgf1_md(state.key.get(), state.digest.get()) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to set PSS mgf1 alg\n");
    return TCRYPTO_OK;
}

int set_padding(signature_state &state, const tcrypto_signature_params &params) {
    const bool pss = params.padding == TCRYPTO_PADDING_PSS;
    if (EVP_PKEY_CTX_set_rsa_padding(state.key.get(), pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to set pkey context digest alg\n");
    return pss ? set_pss(state, params.pss_salt_length) : TCRYPTO_OK;
}

// ---- Initialisation

// OpenSSL verifies nothing larger, and signing takes minutes there.
int check_modulus(const signature_state &state) {
    const EVP_PKEY *key = EVP_PKEY_CTX_get0_pkey(state.key.get());
    return EVP_PKEY_get_bits(key) <= OPENSSL_RSA_MAX_MODULUS_BITS
               ? TCRYPTO_OK
               : ossl_fail(TCRYPTO_E_KEY_FORMAT, "RSA key has more than 16384 bits\n");
}

int rsa_init(void *opaque, const tcrypto_key_record *key, const tcrypto_signature_params *params) {
    if (params->padding != TCRYPTO_PADDING_PKCS1 && params->padding != TCRYPTO_PADDING_PSS)
        return TCRYPTO_E_SIGNATURE_PADDING;
    signature_state &state = state_of(opaque);
    return initialise(state, [&] {
        if (const int err = take_key(state, *key, *params); err != TCRYPTO_OK)
            return err;
        if (const int err = check_modulus(state); err != TCRYPTO_OK)
            return err;
        if (const int err = set_padding(state, *params); err != TCRYPTO_OK)
            return err;
        return start_digest(state);
    });
}

// DSA and ECDSA.
int dsa_init(void *opaque, const tcrypto_key_record *key, const tcrypto_signature_params *params) {
    signature_state &state = state_of(opaque);
    return initialise(state, [&] {
        if (const int err = take_key(state, *key, *params); err != TCRYPTO_OK)
            return err;
        return start_digest(state);
    });
}

int eddsa_take_key(signature_state &state, const tcrypto_key_record &record) {
    for (const eddsa_key &kind : EDDSA_KEYS) {
        if (record.id != kind.id)
            continue;
        evp_pkey_ptr key;
        if (const int err = decode_key(record, kind.id, state.signing, key); err != TCRYPTO_OK)
            return err;
        const auto start = state.signing ? EVP_DigestSignInit : EVP_DigestVerifyInit;
        if (start(state.context.get(), nullptr, nullptr, nullptr, key.get()) != 1)
            return fail_key_init(state.signing);
        state.size = kind.size;
        return TCRYPTO_OK;
    }
    return TCRYPTO_E_KEY_FORMAT;
}

int eddsa_init(void *opaque, const tcrypto_key_record *key, const tcrypto_signature_params *params) {
    signature_state &state = state_of(opaque);
    drop_key(state);  // also because OpenSSL would keep using the key that a context holds
    state.signing = is_signing(*params);
    return initialise(state, [&] { return eddsa_take_key(state, *key); });
}

// ---- Signing and verifying

int fail_sign() {
    return ossl_fail(TCRYPTO_E_INTERNAL, "failed to sign digest\n");
}

// OpenSSL answers 1 (matches), 0 (does not, often with queued errors) or less (it
// cannot tell, a malformed ECDSA signature for one).
int conclude_verify(int answer, int *result) {
    if (answer < 0)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to verify digest\n");
    ossl_clear_errors();
    *result = answer > 0 ? 1 : 0;
    return TCRYPTO_OK;
}

// The value of the data so far.
class digest_value {
public:
    int take(signature_state &state) {
        if (EVP_DigestFinal_ex(state.context.get(), bytes_, &length_) != 1)
            return ossl_fail(TCRYPTO_E_INTERNAL, "failed to finalize digest\n");
        return TCRYPTO_OK;
    }
    [[nodiscard]] const unsigned char *data() const { return bytes_; }
    [[nodiscard]] std::size_t size() const { return length_; }

private:
    unsigned char bytes_[EVP_MAX_MD_SIZE] = {};
    unsigned length_ = 0;
};

int update(void *opaque, const void *data, std::size_t length) {
    if (EVP_DigestUpdate(state_of(opaque).context.get(), data, length) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "failed to update digest\n");
    return TCRYPTO_OK;
}

int sign_without_digest(void *opaque, const void *digest, std::size_t length, std::uint8_t *signature,
                        std::size_t *signature_length) {
    signature_state &state = state_of(opaque);
    if (*signature_length < state.size)
        return TCRYPTO_E_SIGNATURE_LENGTH;
    const auto *value = static_cast<const unsigned char *>(digest);
    return EVP_PKEY_sign(state.key.get(), signature, signature_length, value, length) == 1 ? TCRYPTO_OK
                                                                                           : fail_sign();
}

int verify_without_digest(void *opaque, const void *digest, std::size_t length, const std::uint8_t *signature,
                          std::size_t signature_length, int *result) {
    const auto *value = static_cast<const unsigned char *>(digest);
    return conclude_verify(
        EVP_PKEY_verify(state_of(opaque).key.get(), signature, signature_length, value, length), result);
}

int sign(void *opaque, std::uint8_t *signature, std::size_t *signature_length) {
    digest_value value;
    if (const int err = value.take(state_of(opaque)); err != TCRYPTO_OK)
        return err;
    return sign_without_digest(opaque, value.data(), value.size(), signature, signature_length);
}

int verify(void *opaque, const std::uint8_t *signature, std::size_t signature_length, int *result) {
    digest_value value;
    if (const int err = value.take(state_of(opaque)); err != TCRYPTO_OK)
        return err;
    return verify_without_digest(opaque, value.data(), value.size(), signature, signature_length, result);
}

int sign_oneshot(void *opaque, const void *data, std::size_t length, std::uint8_t *signature,
                 std::size_t *signature_length) {
    if (const int err = update(opaque, data, length); err != TCRYPTO_OK)
        return err;
    return sign(opaque, signature, signature_length);
}

int verify_oneshot(void *opaque, const void *data, std::size_t length, const std::uint8_t *signature,
                   std::size_t signature_length, int *result) {
    if (const int err = update(opaque, data, length); err != TCRYPTO_OK)
        return err;
    return verify(opaque, signature, signature_length, result);
}

int eddsa_sign_oneshot(void *opaque, const void *data, std::size_t length, std::uint8_t *signature,
                       std::size_t *signature_length) {
    signature_state &state = state_of(opaque);
    if (*signature_length < state.size)
        return TCRYPTO_E_SIGNATURE_LENGTH;
    const auto *message = static_cast<const unsigned char *>(data);
    if (!state.signing ||
        EVP_DigestSign(state.context.get(), signature, signature_length, message, length) != 1)
        return fail_sign();
    return TCRYPTO_OK;
}

int eddsa_verify_oneshot(void *opaque, const void *data, std::size_t length, const std::uint8_t *signature,
                         std::size_t signature_length, int *result) {
    signature_state &state = state_of(opaque);
    const auto *message = static_cast<const unsigned char *>(data);
    const int answer =
        state.signing ? -1
                      : EVP_DigestVerify(state.context.get(), signature, signature_length, message, length);
    return conclude_verify(answer, result);
}

std::size_t signature_size(const void *opaque) {
    return static_cast<const signature_state *>(opaque)->size;
}

// ---- State and descriptors

void destroy_state(void *opaque) {
    delete static_cast<signature_state *>(opaque);
}

// TCRYPTO_E_LIBRARY when OpenSSL does not have the digest.
int create_state(const tcrypto_algorithm *algorithm, void **out) {
    ossl_clear_errors();
    th_handle<signature_state, destroy_state> state(new (std::nothrow) signature_state);
    if (!state)
        return TCRYPTO_E_MEMORY;
    state->algorithm = algorithm;
    state->context.reset(EVP_MD_CTX_new());
    if (!state->context)
        return ossl_fail(TCRYPTO_E_MEMORY, "failed to allocate digest context\n");
    if (const char *name = algorithm->signature.digest_name; name != nullptr) {
        state->digest.reset(EVP_MD_fetch(nullptr, name, nullptr));
        if (!state->digest)
            return ossl_fail(TCRYPTO_E_LIBRARY, "failed to find digest alg\n");
    }
    *out = state.release();
    return TCRYPTO_OK;
}

// `key_id`: of the keys that the algorithm takes; 0: those of EDDSA_KEYS.
consteval tcrypto_algorithm signature_row(std::string_view name, const tcrypto_signature_ops &operations,
                                          std::uintptr_t key_id = 0) {
    tcrypto_algorithm algorithm = ossl_descriptor(TCRYPTO_SIGNATURE, name);
    algorithm.signature = operations;
    algorithm.ctx_create = create_state;
    algorithm.ctx_destroy = destroy_state;
    algorithm.parameter = key_id;
    return algorithm;
}

// Names end in "-with-" and the digest's name.
consteval tcrypto_algorithm digest_row(std::string_view name, decltype(tcrypto_signature_ops::init) init,
                                       ossl_key_id id) {
    constexpr std::string_view SEPARATOR = "-with-";
    return signature_row(name,
                         {.init = init,
                          .update = update,
                          .sign = sign,
                          .sign_oneshot = sign_oneshot,
                          .sign_without_digest = sign_without_digest,
                          .verify = verify,
                          .verify_oneshot = verify_oneshot,
                          .verify_without_digest = verify_without_digest,
                          .signature_size = signature_size,
                          .digest_name = name.data() + name.find(SEPARATOR) + SEPARATOR.size()},
                         id);
}

consteval tcrypto_algorithm rsa_row(const char *name) {
    return digest_row(name, rsa_init, OSSL_KEY_RSA);
}
consteval tcrypto_algorithm dsa_row(const char *name) {
    return digest_row(name, dsa_init, OSSL_KEY_DSA);
}
consteval tcrypto_algorithm ecdsa_row(const char *name) {
    return digest_row(name, dsa_init, OSSL_KEY_EC);
}

constinit const tcrypto_algorithm SIGNATURES[] = {
    rsa_row("rsa-with-sha1"),
    rsa_row("rsa-with-sha224"),
    rsa_row("rsa-with-sha256"),
    rsa_row("rsa-with-sha384"),
    rsa_row("rsa-with-sha512"),
    rsa_row("rsa-with-sha3-224"),
    rsa_row("rsa-with-sha3-256"),
    rsa_row("rsa-with-sha3-384"),
    rsa_row("rsa-with-sha3-512"),
    dsa_row("dsa-with-sha1"),
    dsa_row("dsa-with-sha224"),
    dsa_row("dsa-with-sha256"),
    ecdsa_row("ecdsa-with-sha1"),
    ecdsa_row("ecdsa-with-sha224"),
    ecdsa_row("ecdsa-with-sha256"),
    ecdsa_row("ecdsa-with-sha384"),
    ecdsa_row("ecdsa-with-sha512"),
    signature_row("eddsa-pure", {.init = eddsa_init,
                                 .sign_oneshot = eddsa_sign_oneshot,
                                 .verify_oneshot = eddsa_verify_oneshot,
                                 .signature_size = signature_size}),
};

}  // namespace

int ossl_register_signatures() {
    return ossl_register_all(SIGNATURES);
}
