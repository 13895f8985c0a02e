#include "tcrypto/rng.h"

#include "tcrypto/context.h"

namespace {

template <auto Operation>
int check(const tcrypto_ctx *ctx, std::uint32_t state) {
    return tcrypto_check_algorithm(ctx, TCRYPTO_RNG, ctx && ctx->algorithm->rng.*Operation, state);
}

}  // namespace

int tcrypto_rng_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_RNG, name, plugin, flags, out);
}

int tcrypto_rng_supported(const char *name, const char *plugin, std::uint32_t flags) {
    return tcrypto_request_algorithm(TCRYPTO_RNG, name, plugin, flags, nullptr);
}

int tcrypto_rng_instantiate(tcrypto_ctx *ctx, const void *personalisation, std::size_t length) {
    if (const int err = check<&tcrypto_rng_ops::instantiate>(ctx, TCRYPTO_STATE_ANY); err != TCRYPTO_OK)
        return err;
    if (tcrypto_is_missing(personalisation, length))
        return TCRYPTO_E_PARAMETERS;
    if (const int err = ctx->algorithm->rng.instantiate(ctx->private_state, personalisation, length);
        err != TCRYPTO_OK)
        return err;
    ctx->state = TCRYPTO_STATE_INITIALISED;
    return TCRYPTO_OK;
}

int tcrypto_rng_reseed(tcrypto_ctx *ctx, const void *additional, std::size_t length) {
    if (const int err = check<&tcrypto_rng_ops::reseed>(ctx, TCRYPTO_STATE_INITIALISED); err != TCRYPTO_OK)
        return err;
    if (tcrypto_is_missing(additional, length))
        return TCRYPTO_E_PARAMETERS;
    return ctx->algorithm->rng.reseed(ctx->private_state, additional, length);
}

int tcrypto_rng_generate(tcrypto_ctx *ctx, void *out, std::size_t length) {
    if (const int err = check<&tcrypto_rng_ops::generate>(ctx, TCRYPTO_STATE_INITIALISED); err != TCRYPTO_OK)
        return err;
    if (tcrypto_is_missing(out, length))
        return TCRYPTO_E_PARAMETERS;
    return ctx->algorithm->rng.generate(ctx->private_state, out, length);
}

std::uint32_t tcrypto_rng_strength(const tcrypto_ctx *ctx) {
    return ctx && ctx->algorithm->kind == TCRYPTO_RNG ? ctx->algorithm->rng.strength : 0;
}
