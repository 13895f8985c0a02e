#include "tcrypto/digest.h"

#include "tcrypto/context.h"
#include "tcrypto/registry.h"

namespace {

// The guard for one operation of the digest part.
template <auto Operation>
int check(const tcrypto_ctx *ctx, std::uint32_t state) {
    return tcrypto_check_algorithm(ctx, TCRYPTO_DIGEST, ctx && ctx->algorithm->digest.*Operation, state);
}

// `step` is the one that ran last.
int hash_block(tcrypto_ctx &ctx, const tcrypto_bytes &salt, const tcrypto_bytes &block, std::uint8_t *out,
               tcrypto_digest_step &step) {
    step = TCRYPTO_STEP_INIT;
    if (const int err = tcrypto_digest_init(&ctx); err != TCRYPTO_OK)
        return err;
    step = TCRYPTO_STEP_SALT;
    if (const int err = tcrypto_digest_update(&ctx, salt.data, salt.length); err != TCRYPTO_OK)
        return err;
    step = TCRYPTO_STEP_DATA;
    if (const int err = tcrypto_digest_update(&ctx, block.data, block.length); err != TCRYPTO_OK)
        return err;
    step = TCRYPTO_STEP_FINAL;
    return tcrypto_digest_final(&ctx, out, nullptr);
}

}  // namespace

int tcrypto_digest_request(const char *name, const char *plugin, std::uint32_t flags, tcrypto_ctx **out) {
    return tcrypto_request_algorithm(TCRYPTO_DIGEST, name, plugin, flags, out);
}

int tcrypto_digest_supported(const char *name, const char *plugin, std::uint32_t flags) {
    return tcrypto_request_algorithm(TCRYPTO_DIGEST, name, plugin, flags, nullptr);
}

int tcrypto_digest_init(tcrypto_ctx *ctx) {
    if (const int err = check<&tcrypto_digest_ops::init>(ctx, TCRYPTO_STATE_ANY); err != TCRYPTO_OK)
        return err;
    if (const int err = ctx->algorithm->digest.init(ctx->private_state); err != TCRYPTO_OK)
        return err;
    ctx->state = TCRYPTO_STATE_INITIALISED;
    return TCRYPTO_OK;
}

int tcrypto_digest_update(tcrypto_ctx *ctx, const void *data, std::size_t length) {
    if (const int err = check<&tcrypto_digest_ops::update>(ctx, TCRYPTO_STATE_INITIALISED); err != TCRYPTO_OK)
        return err;
    if (tcrypto_is_missing(data, length))
        return TCRYPTO_E_PARAMETERS;
    return ctx->algorithm->digest.update(ctx->private_state, data, length);
}

int tcrypto_digest_final(tcrypto_ctx *ctx, std::uint8_t *out, std::size_t *out_length) {
    if (const int err = check<&tcrypto_digest_ops::final>(ctx, TCRYPTO_STATE_INITIALISED); err != TCRYPTO_OK)
        return err;
    ctx->state = TCRYPTO_STATE_FINALISED;
    if (!out)
        return TCRYPTO_E_PARAMETERS;
    return ctx->algorithm->digest.final(ctx->private_state, out, out_length);
}

int tcrypto_digest(tcrypto_ctx *ctx, const void *data, std::size_t length, std::uint8_t *out,
                   std::size_t *out_length) {
    if (const int err = tcrypto_digest_init(ctx); err != TCRYPTO_OK)
        return err;
    if (const int err = tcrypto_digest_update(ctx, data, length); err != TCRYPTO_OK)
        return err;
    return tcrypto_digest_final(ctx, out, out_length);
}

int tcrypto_digest_copy(tcrypto_ctx *ctx, tcrypto_ctx **out) {
    if (const int err = check<&tcrypto_digest_ops::copy>(ctx, TCRYPTO_STATE_INITIALISED); err != TCRYPTO_OK)
        return err;
    if (!out)
        return TCRYPTO_E_PARAMETERS;
    *out = nullptr;
    tcrypto_ctx_ptr copy;
    if (const int err = tcrypto_new_context(*ctx->plugin, *ctx->algorithm, th_out(copy)); err != TCRYPTO_OK)
        return err;
    const tcrypto_digest_ops &digest = ctx->algorithm->digest;
    if (const int err = digest.copy(ctx->algorithm, ctx->private_state, &copy->private_state);
        err != TCRYPTO_OK)
        return err;
    copy->state = ctx->state;
    *out = copy.release();
    return TCRYPTO_OK;
}

std::size_t tcrypto_digestsize(const tcrypto_ctx *ctx) {
    return ctx && ctx->algorithm->kind == TCRYPTO_DIGEST ? ctx->algorithm->digest.digest_size : 0;
}

int tcrypto_digest_blocks(tcrypto_ctx *ctx, const tcrypto_bytes &salt, const tcrypto_block_run &run,
                          std::uint8_t *out, tcrypto_block_failure *failure) {
    if (const int err = tcrypto_check_algorithm(ctx, TCRYPTO_DIGEST, true, TCRYPTO_STATE_ANY);
        err != TCRYPTO_OK)
        return err;
    ctx->state = TCRYPTO_STATE_FINALISED;
    if (run.count == 0)
        return TCRYPTO_OK;
    if (tcrypto_is_missing(salt.data, salt.length) || tcrypto_is_missing(run.data, run.length) || !out)
        return TCRYPTO_E_PARAMETERS;
    const tcrypto_digest_ops &digest = ctx->algorithm->digest;
    tcrypto_block_failure at;
    if (digest.blocks)
        at.block =
            digest.blocks(ctx->private_state, salt.data, salt.length, run.data, run.length, run.count, out);
    int err = TCRYPTO_OK;
    for (; at.block < run.count; ++at.block) {
        const auto *block = static_cast<const std::uint8_t *>(run.data) + at.block * run.length;
        err = hash_block(*ctx, salt, {block, run.length}, out + at.block * digest.digest_size, at.step);
        if (err != TCRYPTO_OK)
            break;
    }
    ctx->state = TCRYPTO_STATE_FINALISED;
    if (err != TCRYPTO_OK && failure)
        *failure = at;
    return err;
}
