#include "ttd/signature.h"

#include <cerrno>

#include "tcrypto/tcrypto.h"
#include "ttd/engine_log.h"

namespace {

// What both directions need, released key first.
struct signing_session {
    tcrypto_ctx_ptr keygen;
    tcrypto_ctx_ptr signature;
    tcrypto_key_ptr key;
};

using key_loader = int (*)(tcrypto_ctx *keygen, tcrypto_key **out, const char *path, std::uint32_t format);

// How the two directions differ in loading their key.
struct direction {
    tcrypto_signature_operation operation;
    key_loader load_key;
    const char *message_end;  // a key that does not load for signing is reported without a line end
};

constexpr direction signing = {TCRYPTO_SIGN, tcrypto_privkey_from_file, ""};
constexpr direction verifying = {TCRYPTO_VERIFY, tcrypto_pubkey_from_file, "\n"};

int load_key(const ttd_signature_row &row, const direction &way, const char *key_path,
             signing_session &session) {
    if (tcrypto_keygen_request(row.key, nullptr, 0, th_out(session.keygen)) != TCRYPTO_OK)
        return TTD_FAIL(ENOENT, "failed to retrieve crypto key algorithm '%s'\n", row.key);
    ttd_log(TTD_LOG_INFO, "crypto key algorithm '%s' from plugin '%s'\n", row.key,
            tcrypto_plugin_name(session.keygen.get()));
    const int err = way.load_key(session.keygen.get(), th_out(session.key), key_path, TCRYPTO_FORMAT_PEM);
    if (err != TCRYPTO_OK)
        return TTD_FAIL(EINVAL, "failed to load key (%s)%s", tcrypto_strerror(err), way.message_end);
    return 0;
}

int init_signature(const ttd_signature_row &row, const direction &way, signing_session &session) {
    int err = tcrypto_signature_request(row.signature, nullptr, 0, th_out(session.signature));
    if (err != TCRYPTO_OK)
        return TTD_FAIL(ENOENT, "failed to retrieve crypto signature algorithm '%s' (%s)\n", row.signature,
                        tcrypto_strerror(err));
    ttd_log(TTD_LOG_INFO, "signature algorithm '%s' from plugin '%s'\n", row.signature,
            tcrypto_plugin_name(session.signature.get()));
    const tcrypto_signature_params params = {.operation = way.operation};
    err = tcrypto_signature_init(session.signature.get(), session.key.get(), &params);
    if (err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to init sig algorithm (%s)\n", tcrypto_strerror(err));
    return 0;
}

int open_session(const ttd_superblock &superblock, const direction &way, const char *key_path,
                 signing_session &session) {
    const ttd_signature_row *row = ttd_sig_row(superblock.sigtype);
    if (!row)
        return EINVAL;
    if (const int err = load_key(*row, way, key_path, session); err != 0)
        return err;
    return init_signature(*row, way, session);
}

}  // namespace

int ttd_sign_superblock(ttd_superblock *superblock, const char *key_path) {
    signing_session session;
    superblock->sigsize = 0;
    if (const int err = open_session(*superblock, signing, key_path, session); err != 0)
        return err;
    const auto message = ttd_signed_bytes(*superblock);
    std::size_t length = TTD_MAX_SIGNATURE;
    const int err = tcrypto_signature_sign_oneshot(session.signature.get(), message.data(), message.size(),
                                                   superblock->sig, &length);
    if (err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to sign ttd header (%s)\n", tcrypto_strerror(err));
    superblock->sigsize = static_cast<std::uint32_t>(length);
    return 0;
}

int ttd_verify_superblock(const ttd_superblock *superblock, const char *key_path) {
    if (superblock->sigsize < 1 || superblock->sigsize > TTD_MAX_SIGNATURE)
        return TTD_FAIL(EINVAL, "invalid superblock signature length\n");
    signing_session session;
    if (const int err = open_session(*superblock, verifying, key_path, session); err != 0)
        return err;
    const auto message = ttd_signed_bytes(*superblock);
    int matches = 0;
    const int err = tcrypto_signature_verify_oneshot(session.signature.get(), message.data(), message.size(),
                                                     superblock->sig, superblock->sigsize, &matches);
    if (err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to verify header signature (%s)\n", tcrypto_strerror(err));
    return matches ? 0 : EINVAL;
}
