#include "tcrypto/signature.h"

#include "tcrypto/context.h"

namespace {

// The guard for one operation of the signature part.
template <auto Operation>
int check(const tcrypto_ctx *ctx, std::uint32_t state) {
    return tcrypto_check_algorithm(ctx, TCRYPTO_SIGNATURE, ctx && ctx->algorithm->signature.*Operation,
                                   state);
}

// An operation after which, however it ends, only an initialisation may follow.
template <auto Operation, class... Arguments>
int conclude(tcrypto_ctx *ctx, bool arguments_missing, Arguments... arguments) {
    if (const int err = check<Operation>(ctx, TCRYPTO_STATE_INITIALISED); err != TCRYPTO_OK)
        return err;
    ctx->state = TCRYPTO_STATE_FINALISED;
    if (arguments_missing)
        return TCRYPTO_E_PARAMETERS;
    return (ctx->algorithm->signature.*Operation)(ctx->private_state, arguments...);
}

// As conclude, for a signature of `length` bytes that may turn out not to match.
template <auto Operation, class... Arguments>
int conclude_verify(tcrypto_ctx *ctx, bool arguments_missing, int *result, Arguments... arguments) {
    if (result)
        *result = 0;
    return conclude<Operation>(ctx, arguments_missing || !result, arguments..., result);
}

}  // namespace

int tcrypto_signature_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_SIGNATURE, name, plugin, flags, out);
}

int tcrypto_signature_supported(const char *name, const char *plugin, std::uint32_t flags) {
    return tcrypto_request_algorithm(TCRYPTO_SIGNATURE, name, plugin, flags, nullptr);
}

int tcrypto_signature_init(tcrypto_ctx *ctx, const tcrypto_key *key, const tcrypto_signature_params *params) {
    if (const int err = check<&tcrypto_signature_ops::init>(ctx, TCRYPTO_STATE_ANY); err != TCRYPTO_OK)
        return err;
    if (!key)
        return TCRYPTO_E_KEY;
    if (!params)
        return TCRYPTO_E_PARAMETERS;
    const int err = ctx->algorithm->signature.init(ctx->private_state, &key->record, params);
    if (err != TCRYPTO_E_SIGNATURE_PADDING)
        ctx->state = err == TCRYPTO_OK ? TCRYPTO_STATE_INITIALISED : TCRYPTO_STATE_NEW;
    return err;
}

int tcrypto_signature_update(tcrypto_ctx *ctx, const void *data, std::size_t length) {
    if (const int err = check<&tcrypto_signature_ops::update>(ctx, TCRYPTO_STATE_INITIALISED);
        err != TCRYPTO_OK)
        return err;
    if (tcrypto_is_missing(data, length))
        return TCRYPTO_E_PARAMETERS;
    return ctx->algorithm->signature.update(ctx->private_state, data, length);
}

int tcrypto_signature_sign(tcrypto_ctx *ctx, std::uint8_t *signature, std::size_t *signature_length) {
    return conclude<&tcrypto_signature_ops::sign>(ctx, !signature || !signature_length, signature,
                                                  signature_length);
}

int tcrypto_signature_sign_oneshot(tcrypto_ctx *ctx, const void *data, std::size_t length,
                                   std::uint8_t *signature, std::size_t *signature_length) {
    const bool missing = tcrypto_is_missing(data, length) || !signature || !signature_length;
    return conclude<&tcrypto_signature_ops::sign_oneshot>(ctx, missing, data, length, signature,
                                                          signature_length);
}

int tcrypto_signature_sign_without_digest(tcrypto_ctx *ctx, const void *digest, std::size_t length,
                                          std::uint8_t *signature, std::size_t *signature_length) {
    const bool missing = tcrypto_is_missing(digest, length) || !signature || !signature_length;
    return conclude<&tcrypto_signature_ops::sign_without_digest>(ctx, missing, digest, length, signature,
                                                                 signature_length);
}

int tcrypto_signature_verify(tcrypto_ctx *ctx, const std::uint8_t *signature, std::size_t signature_length,
                             int *result) {
    return conclude_verify<&tcrypto_signature_ops::verify>(ctx, !signature, result, signature,
                                                           signature_length);
}

int tcrypto_signature_verify_oneshot(tcrypto_ctx *ctx, const void *data, std::size_t length,
                                     const std::uint8_t *signature, std::size_t signature_length,
                                     int *result) {
    const bool missing = tcrypto_is_missing(data, length) || !signature;
    return conclude_verify<&tcrypto_signature_ops::verify_oneshot>(ctx, missing, result, data, length,
                                                                   signature, signature_length);
}

int tcrypto_signature_verify_without_digest(tcrypto_ctx *ctx, const void *digest, std::size_t length,
                                            const std::uint8_t *signature, std::size_t signature_length,
                                            int *result) {
    const bool missing = tcrypto_is_missing(digest, length) || !signature;
    return conclude_verify<&tcrypto_signature_ops::verify_without_digest>(
        ctx, missing, result, digest, length, signature, signature_length);
}

std::size_t tcrypto_signature_sigsize(const tcrypto_ctx *ctx) {
    if (tcrypto_check_algorithm(ctx, TCRYPTO_SIGNATURE, true, TCRYPTO_STATE_ANY) != TCRYPTO_OK)
        return 0;
    const tcrypto_signature_ops &operations = ctx->algorithm->signature;
    if (operations.fixed_size != 0)
        return operations.fixed_size;
    const bool has_key = ctx->state != TCRYPTO_STATE_NEW && operations.signature_size;
    return has_key ? operations.signature_size(ctx->private_state) : 0;
}
