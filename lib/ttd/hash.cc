#include "ttd/hash.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ttd/engine_log.h"

namespace {

int request_digest(const ttd_ctx &ctx, tcrypto_ctx **out) {
    if (tcrypto_digest_request(ctx.crypto.hash_name, ctx.crypto.plugin, 0, out) == TCRYPTO_OK)
        return 0;
    return TTD_FAIL(ENOENT, "failed to retrieve crypto hash algorithm '%s'\n", ctx.crypto.hash_name);
}

// Early exit at the first byte that is not zero.
bool is_zero(const std::uint8_t *block, std::size_t length) {
    return block[0] == 0 && std::memcmp(block, block + 1, length - 1) == 0;
}

// Blocks from `first` on that are all zero, or all not, up to `count`.
std::size_t run_length(const std::uint8_t *data, std::size_t length, std::size_t first, std::size_t count,
                       bool zero) {
    std::size_t end = first + 1;
    while (end < count && is_zero(data + end * length, length) == zero)
        ++end;
    return end - first;
}

// How a failing step is named in the log, in the order of tcrypto_digest_step.
struct step_texts {
    const char *operation;
    const char *outcome;
};
constexpr step_texts steps[] = {
    {"reset", "hash algorithm init failed\n"},
    {"update", "salt hashing failed\n"},
    {"update", "data hashing failed\n"},
    {"finalize", "hash generation failed\n"},
};

int fail_operation(tcrypto_digest_step step, int err) {
    return TTD_FAIL(ENXIO, "failed to %s digest algorithm (%s)\n", steps[step].operation,
                    tcrypto_strerror(err));
}

int fail_step(tcrypto_digest_step step, int err) {
    return TTD_FAIL(err, "%s", steps[step].outcome);
}

int hash_run(const ttd_info &info, const ttd_block_run &run, tcrypto_ctx *digest, std::uint8_t *out,
             ttd_hash_failure &failure) {
    tcrypto_block_failure at;
    const int err = tcrypto_digest_blocks(digest, {info.salt.data(), info.salt.size()}, run, out, &at);
    if (err == TCRYPTO_OK)
        return 0;
    failure = {.block = at.block, .step = at.step, .err = err};
    return ENXIO;
}

}  // namespace

int ttd_tcrypto_init(ttd_ctx *ctx) {
    ttd_crypto &crypto = ctx->crypto;
    crypto.signature = ttd_sig_row(ctx->superblock.sigtype);
    if (!crypto.signature)
        return TTD_FAIL(EINVAL, "invalid crypto signature algorithm in superblock '%d'\n",
                        static_cast<int>(ctx->superblock.sigtype));
    crypto.hash_name = ttd_hash_name(ctx->superblock.hashtype);
    if (!crypto.hash_name)
        return TTD_FAIL(EINVAL, "invalid crypto hash algorithm in superblock '%d'\n",
                        static_cast<int>(ctx->superblock.hashtype));
    if (const int err = tcrypto_init(0, nullptr); err != TCRYPTO_OK)
        return TTD_FAIL(EOPNOTSUPP, "failed to initialize crypto library (%s)\n", tcrypto_strerror(err));
    crypto.started = true;

    tcrypto_ctx *digest = nullptr;
    if (const int err = ttd_hash_init(ctx, &digest); err != 0)
        return err;
    ttd_log(TTD_LOG_INFO, "digest algorithm '%s' from plugin '%s'\n", crypto.hash_name,
            tcrypto_plugin_name(digest));
    ctx->info.hash_size = static_cast<std::uint32_t>(tcrypto_digestsize(digest));
    ttd_hash_done(digest);
    return 0;
}

void ttd_tcrypto_uninit(ttd_ctx *ctx) {
    ttd_crypto &crypto = ctx->crypto;
    if (!crypto.started)
        return;
    for (tcrypto_ctx *&slot : crypto.slots) {
        tcrypto_release_ctx(slot);
        slot = nullptr;
    }
    tcrypto_uninit();
    crypto.started = false;
}

int ttd_hash_init(ttd_ctx *ctx, tcrypto_ctx **out) {
    *out = nullptr;
    const auto thread = static_cast<std::uint32_t>(gettid());
    if (thread >= TTD_DIGEST_SLOTS)
        return request_digest(*ctx, out);
    tcrypto_ctx *&slot = ctx->crypto.slots[thread];
    if (!slot)
        if (const int err = request_digest(*ctx, &slot); err != 0)
            return err;
    *out = slot;
    return 0;
}

void ttd_hash_done(tcrypto_ctx *digest) {
    if (static_cast<std::uint32_t>(gettid()) >= TTD_DIGEST_SLOTS)
        tcrypto_release_ctx(digest);
}

int ttd_hash_reset(tcrypto_ctx *digest) {
    const int err = tcrypto_digest_init(digest);
    return err == TCRYPTO_OK ? 0 : fail_operation(TCRYPTO_STEP_INIT, err);
}

int ttd_hash_update(tcrypto_ctx *digest, const void *data, std::size_t length) {
    const int err = tcrypto_digest_update(digest, data, length);
    return err == TCRYPTO_OK ? 0 : fail_operation(TCRYPTO_STEP_DATA, err);
}

int ttd_hash_final(tcrypto_ctx *digest, std::uint8_t *out) {
    const int err = tcrypto_digest_final(digest, out, nullptr);
    return err == TCRYPTO_OK ? 0 : fail_operation(TCRYPTO_STEP_FINAL, err);
}

int ttd_hash_block(const ttd_ctx *ctx, const void *data, std::size_t length, tcrypto_ctx *digest,
                   std::uint8_t *out) {
    if (const int err = ttd_hash_reset(digest); err != 0)
        return fail_step(TCRYPTO_STEP_INIT, err);
    if (const int err = ttd_hash_update(digest, ctx->info.salt.data(), ctx->info.salt.size()); err != 0)
        return fail_step(TCRYPTO_STEP_SALT, err);
    if (data)
        if (const int err = ttd_hash_update(digest, data, length); err != 0)
            return fail_step(TCRYPTO_STEP_DATA, err);
    if (const int err = ttd_hash_final(digest, out); err != 0)
        return fail_step(TCRYPTO_STEP_FINAL, err);
    return 0;
}

int ttd_hash_blocks(const ttd_ctx *ctx, const ttd_block_run &run, tcrypto_ctx *digest, std::uint8_t *out,
                    ttd_hash_failure *failure) {
    const ttd_info &info = ctx->info;
    if (!info.zero_hash || run.length != info.block_size)
        return hash_run(info, run, digest, out, *failure);

    const auto *blocks = static_cast<const std::uint8_t *>(run.data);
    for (std::size_t first = 0, count = 0; first < run.count; first += count) {
        const std::uint8_t *data = blocks + first * run.length;
        const bool zero = is_zero(data, run.length);
        count = run_length(blocks, run.length, first, run.count, zero);
        if (zero) {
            for (std::size_t i = first; i < first + count; ++i)
                std::memcpy(out + i * info.hash_size, info.zero_hash.data(), info.hash_size);
            continue;
        }
        const ttd_block_run part = {.data = data, .length = run.length, .count = count};
        if (const int err = hash_run(info, part, digest, out + first * info.hash_size, *failure); err != 0) {
            failure->block += first;
            return err;
        }
    }
    return 0;
}

int ttd_hash_report(const ttd_hash_failure &failure) {
    return fail_step(failure.step, fail_operation(failure.step, failure.err));
}

int ttd_hash_zero_block(ttd_ctx *ctx, tcrypto_ctx *digest) {
    ttd_bytes &hash = ctx->info.zero_hash;
    ttd_bytes block;
    if (!block.allocate(ctx->info.block_size) || !hash.allocate(ctx->info.hash_size))
        return TTD_FAIL(ENOMEM, "failed to allocate memory for the zero block hash\n");
    if (const int err = ttd_hash_block(ctx, block.data(), block.size(), digest, hash.data()); err != 0) {
        hash.clear();
        return err;
    }
    return 0;
}
