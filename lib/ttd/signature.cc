#include "ttd/signature.h"

#include <cerrno>

#include "ttd/engine_log.h"

namespace {

using key_loader = int (*)(tcrypto_ctx *keygen, tcrypto_key **out, const char *path, std::uint32_t format);

// `message_end`: a key that does not load for signing is reported without a line end.
int load_key(std::uint32_t sigtype, const char *path, key_loader load, const char *message_end,
             ttd_key &out) {
    const ttd_signature_row *row = ttd_sig_row(sigtype);
    if (!row)
        return EINVAL;
    if (tcrypto_keygen_request(row->key, nullptr, 0, th_out(out.keygen)) != TCRYPTO_OK)
        return TTD_FAIL(ENOENT, "failed to retrieve crypto key algorithm '%s'\n", row->key);
    ttd_log(TTD_LOG_INFO, "crypto key algorithm '%s' from plugin '%s'\n", row->key,
            tcrypto_plugin_name(out.keygen.get()));
    if (const int err = load(out.keygen.get(), th_out(out.key), path, TCRYPTO_FORMAT_PEM); err != TCRYPTO_OK)
        return TTD_FAIL(EINVAL, "failed to load key (%s)%s", tcrypto_strerror(err), message_end);
    return 0;
}

int open_signature(std::uint32_t sigtype, tcrypto_signature_operation operation, const ttd_key &key,
                   tcrypto_ctx_ptr &signature) {
    const ttd_signature_row *row = ttd_sig_row(sigtype);
    if (!row)
        return EINVAL;
    if (const int err = tcrypto_signature_request(row->signature, nullptr, 0, th_out(signature));
        err != TCRYPTO_OK)
        return TTD_FAIL(ENOENT, "failed to retrieve crypto signature algorithm '%s' (%s)\n", row->signature,
                        tcrypto_strerror(err));
    ttd_log(TTD_LOG_INFO, "signature algorithm '%s' from plugin '%s'\n", row->signature,
            tcrypto_plugin_name(signature.get()));
    const tcrypto_signature_params params = {.operation = operation};
    if (const int err = tcrypto_signature_init(signature.get(), key.key.get(), &params); err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to init sig algorithm (%s)\n", tcrypto_strerror(err));
    return 0;
}

int check_length(const ttd_superblock &superblock) {
    if (superblock.sigsize < 1 || superblock.sigsize > TTD_MAX_SIGNATURE)
        return TTD_FAIL(EINVAL, "invalid superblock signature length\n");
    return 0;
}

}  // namespace

int ttd_load_private_key(std::uint32_t sigtype, const char *path, ttd_key *out) {
    return load_key(sigtype, path, tcrypto_privkey_from_file, "", *out);
}

int ttd_load_public_key(std::uint32_t sigtype, const char *path, ttd_key *out) {
    return load_key(sigtype, path, tcrypto_pubkey_from_file, "\n", *out);
}

int ttd_public_key_of(const ttd_key &private_key, ttd_key *out) {
    const int err =
        tcrypto_pubkey_from_privkey(private_key.keygen.get(), private_key.key.get(), th_out(out->key));
    return err == TCRYPTO_OK ? 0 : TTD_FAIL(EINVAL, "failed to load key (%s)\n", tcrypto_strerror(err));
}

int ttd_sign_with_key(ttd_superblock *superblock, const ttd_key &key) {
    superblock->sigsize = 0;
    tcrypto_ctx_ptr signature;
    if (const int err = open_signature(superblock->sigtype, TCRYPTO_SIGN, key, signature); err != 0)
        return err;
    const auto message = ttd_signed_bytes(*superblock);
    std::size_t length = TTD_MAX_SIGNATURE;
    if (const int err = tcrypto_signature_sign_oneshot(signature.get(), message.data(), message.size(),
                                                       superblock->sig, &length);
        err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to sign ttd header (%s)\n", tcrypto_strerror(err));
    superblock->sigsize = static_cast<std::uint32_t>(length);
    return 0;
}

int ttd_verify_with_key(const ttd_superblock *superblock, const ttd_key &key) {
    if (const int err = check_length(*superblock); err != 0)
        return err;
    tcrypto_ctx_ptr signature;
    if (const int err = open_signature(superblock->sigtype, TCRYPTO_VERIFY, key, signature); err != 0)
        return err;
    const auto message = ttd_signed_bytes(*superblock);
    int matches = 0;
    if (const int err = tcrypto_signature_verify_oneshot(signature.get(), message.data(), message.size(),
                                                         superblock->sig, superblock->sigsize, &matches);
        err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to verify header signature (%s)\n", tcrypto_strerror(err));
    return matches ? 0 : EINVAL;
}

int ttd_signed_digest(const ttd_superblock &superblock, std::span<std::uint8_t, TTD_SIGNED_DIGEST_SIZE> out) {
    tcrypto_ctx_ptr digest;
    if (tcrypto_digest_request("sha256", nullptr, 0, th_out(digest)) != TCRYPTO_OK)
        return ENOENT;
    const auto message = ttd_signed_bytes(superblock);
    const int err = tcrypto_digest(digest.get(), message.data(), message.size(), out.data(), nullptr);
    return err == TCRYPTO_OK ? 0 : ENXIO;
}

int ttd_sign_superblock(ttd_superblock *superblock, const char *key_path) {
    superblock->sigsize = 0;
    ttd_key key;
    if (const int err = ttd_load_private_key(superblock->sigtype, key_path, &key); err != 0)
        return err;
    return ttd_sign_with_key(superblock, key);
}

int ttd_verify_superblock(const ttd_superblock *superblock, const char *key_path) {
    if (const int err = check_length(*superblock); err != 0)
        return err;
    ttd_key key;
    if (const int err = ttd_load_public_key(superblock->sigtype, key_path, &key); err != 0)
        return err;
    return ttd_verify_with_key(superblock, key);
}
