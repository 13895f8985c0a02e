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

int hash_data_blocks(const ttd_ctx &ctx, const std::uint8_t *data, std::size_t length, std::size_t count,
                     tcrypto_ctx *digest, std::uint8_t *out) {
    const int err =
        tcrypto_digest_blocks(digest, ctx.info.salt.data(), ctx.info.salt.size(), data, length, count, out);
    return err == TCRYPTO_OK ? 0 : ENXIO;
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
    if (const int err = tcrypto_digest_init(digest); err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to reset digest algorithm (%s)\n", tcrypto_strerror(err));
    return 0;
}

int ttd_hash_update(tcrypto_ctx *digest, const void *data, std::size_t length) {
    if (const int err = tcrypto_digest_update(digest, data, length); err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to update digest algorithm (%s)\n", tcrypto_strerror(err));
    return 0;
}

int ttd_hash_final(tcrypto_ctx *digest, std::uint8_t *out) {
    if (const int err = tcrypto_digest_final(digest, out, nullptr); err != TCRYPTO_OK)
        return TTD_FAIL(ENXIO, "failed to finalize digest algorithm (%s)\n", tcrypto_strerror(err));
    return 0;
}

int ttd_hash_block(ttd_ctx *ctx, const void *data, std::size_t length, tcrypto_ctx *digest,
                   std::uint8_t *out) {
    if (const int err = ttd_hash_reset(digest); err != 0)
        return TTD_FAIL(err, "hash algorithm init failed\n");
    if (const int err = ttd_hash_update(digest, ctx->info.salt.data(), ctx->info.salt.size()); err != 0)
        return TTD_FAIL(err, "salt hashing failed\n");
    if (data)
        if (const int err = ttd_hash_update(digest, data, length); err != 0)
            return TTD_FAIL(err, "data hashing failed\n");
    if (const int err = ttd_hash_final(digest, out); err != 0)
        return TTD_FAIL(err, "hash generation failed\n");
    return 0;
}

int ttd_hash_blocks(ttd_ctx *ctx, const void *data, std::size_t length, std::size_t count,
                    tcrypto_ctx *digest, std::uint8_t *out) {
    if (const int err = ttd_hash_blocks_quietly(ctx, data, length, count, digest, out); err != 0)
        return TTD_FAIL(err, "hash generation failed\n");
    return 0;
}

int ttd_hash_blocks_quietly(ttd_ctx *ctx, const void *data, std::size_t length, std::size_t count,
                            tcrypto_ctx *digest, std::uint8_t *out) {
    const auto *bytes = static_cast<const std::uint8_t *>(data);
    if (!ctx->zero_hash || length != ctx->info.block_size)
        return hash_data_blocks(*ctx, bytes, length, count, digest, out);

    const std::size_t hash_size = ctx->info.hash_size;
    for (std::size_t first = 0, run = 0; first < count; first += run) {
        const bool zero = is_zero(bytes + first * length, length);
        run = run_length(bytes, length, first, count, zero);
        if (zero)
            for (std::size_t i = first; i < first + run; ++i)
                std::memcpy(out + i * hash_size, ctx->zero_hash.data(), hash_size);
        else if (const int err = hash_data_blocks(*ctx, bytes + first * length, length, run, digest,
                                                  out + first * hash_size);
                 err != 0)
            return err;
    }
    return 0;
}

int ttd_hash_zero_block(ttd_ctx *ctx, tcrypto_ctx *digest) {
    ttd_bytes block;
    if (!block.allocate(ctx->info.block_size) || !ctx->zero_hash.allocate(ctx->info.hash_size))
        return TTD_FAIL(ENOMEM, "failed to allocate memory for the zero block hash\n");
    const int err = ttd_hash_block(ctx, block.data(), block.size(), digest, ctx->zero_hash.data());
    if (err != 0)
        ctx->zero_hash.clear();
    return err;
}
