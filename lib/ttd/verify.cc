#include "ttd/verify.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ttd/caches.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/path.h"

namespace {

// A buffer that goes back to its slab, or a pinned one of a cache.
class block_buffer {
public:
    block_buffer() = default;
    block_buffer(const block_buffer &) = delete;
    block_buffer &operator=(const block_buffer &) = delete;
    ~block_buffer() {
        if (own_)
            ttd_slab_free(slab_, own_);
    }

    // A fresh buffer of the slab; false when memory is out.
    [[nodiscard]] bool allocate(talg_slab *slab) {
        slab_ = slab;
        own_ = static_cast<std::uint8_t *>(ttd_slab_alloc(slab));
        return own_ != nullptr;
    }
    // True when the cache (which may be null) has the key.
    [[nodiscard]] bool find(ttd_lru_cache *cache, std::uint32_t key) {
        return cache && ttd_lru_cache_get(cache, key, th_out(pin_)) == 0;
    }
    // Hands a filled buffer to the cache, if there is one.
    [[nodiscard]] int keep(ttd_lru_cache *cache, std::uint32_t key) {
        if (!cache)
            return 0;
        const int err = ttd_lru_cache_add(cache, key, own_, slab_, th_out(pin_));
        if (err == 0)
            own_ = nullptr;
        return err;
    }
    // The content proves; a cache that has it remembers that.
    void set_proven() {
        if (pin_)
            ttd_cache_set_proven(pin_.get());
    }
    [[nodiscard]] std::uint8_t *data() const { return own_ ? own_ : ttd_cache_buffer(pin_.get()); }

private:
    talg_slab *slab_ = nullptr;
    std::uint8_t *own_ = nullptr;
    ttd_cache_pin pin_;
};

// The proof of one data block.
class block_walk {
public:
    block_walk(ttd_ctx &ctx, std::uint32_t block, tcrypto_ctx *digest, const ttd_listener &listener)
        : ctx_(ctx), block_(block), digest_(digest), listener_(listener), tracing_(ttd_is_tracing(ctx)) {}

    [[nodiscard]] int run(const void *data) {
        if (!expected_.allocate(ctx_.hash_slab))
            return ENOMEM;
        std::memcpy(expected_.data(), ctx_.info.root_hash.data(), ctx_.info.hash_size);
        for (unsigned level = ctx_.info.levels; level-- > 0;)
            if (const int err = prove_level(level); err != 0)
                return err;
        return prove_data(static_cast<const std::uint8_t *>(data));
    }

private:
    // Proves the hash block of this level on the way to the data block and takes
    // the next expected hash from it.
    [[nodiscard]] int prove_level(unsigned level) {
        const ttd_path_step step = ttd_path_step_at(ctx_.info, block_, level);
        block_buffer hash_block;
        if (const int err = load_hash_block(step, hash_block); err != 0)
            return err;
        if (tracing_)
            ttd_log(TTD_LOG_PLAIN, "hash block index (lvl %u, nblk %u, lhblk %u): %u (disk offset: %ld)\n",
                    level, block_, step.local, step.global, step.offset);
        block_buffer computed;
        if (const int err = load_digest(step, hash_block.data(), computed); err != 0)
            return err;
        if (tracing_)
            trace_hashes("hblk", hash_block.data(), computed.data());
        if (!matches(computed.data()))
            return mismatch(computed.data(), static_cast<std::uint8_t>(level), step.local, step.offset);
        hash_block.set_proven();
        const std::size_t entry = std::size_t{step.entry} * ctx_.info.hash_size;
        std::memcpy(expected_.data(), hash_block.data() + entry, ctx_.info.hash_size);
        return 0;
    }

    [[nodiscard]] int load_hash_block(const ttd_path_step &step, block_buffer &hash_block) {
        if (hash_block.find(ctx_.block_cache, step.global))
            return 0;
        if (!hash_block.allocate(ctx_.block_slab))
            return ENOMEM;
        if (ttd_io_read(ctx_.hash_io, step.offset, hash_block.data(), ctx_.info.hash_block_size) != 0)
            return EIO;
        return hash_block.keep(ctx_.block_cache, step.global);
    }

    [[nodiscard]] int load_digest(const ttd_path_step &step, const std::uint8_t *hash_block,
                                  block_buffer &computed) {
        if (computed.find(ctx_.hash_cache, step.global))
            return 0;
        if (!computed.allocate(ctx_.hash_slab))
            return ENOMEM;
        if (ttd_hash_block(&ctx_, hash_block, ctx_.info.hash_block_size, digest_, computed.data()) != 0)
            return EIO;
        return computed.keep(ctx_.hash_cache, step.global);
    }

    [[nodiscard]] int prove_data(const std::uint8_t *data) {
        const auto offset = static_cast<std::int64_t>(std::uint64_t{block_} * ctx_.info.block_size);
        block_buffer computed;
        block_buffer read;
        if (!computed.allocate(ctx_.hash_slab))
            return ENOMEM;
        if (!data) {
            if (!read.allocate(ctx_.block_slab))
                return ENOMEM;
            if (ttd_io_read(ctx_.data_io, offset, read.data(), ctx_.info.block_size) != 0)
                return EIO;
            data = read.data();
        }
        if (tracing_)
            ttd_log(TTD_LOG_PLAIN, "hashing disk block %u (disk offset: %ld)\n", block_, offset);
        if (ttd_hash_block(&ctx_, data, ctx_.info.block_size, digest_, computed.data()) != 0)
            return EIO;
        if (tracing_)
            trace_hashes("data", data, computed.data());
        return matches(computed.data()) ? 0 : mismatch(computed.data(), 0, 0, offset);
    }

    [[nodiscard]] bool matches(const std::uint8_t *computed) const {
        return std::memcmp(expected_.data(), computed, ctx_.info.hash_size) == 0;
    }

    void trace_hashes(const char *label, const std::uint8_t *bytes, const std::uint8_t *computed) const {
        ttd_print_hex_data(label, bytes, ctx_.info.hash_size);
        ttd_print_hash_pair(ctx_, {expected_.data(), computed});
    }

    [[nodiscard]] int mismatch(const std::uint8_t *computed, std::uint8_t level, std::uint32_t hash_block,
                               std::int64_t offset) const {
        return ttd_report_mismatch(ctx_, {expected_.data(), computed}, {level, block_, hash_block, offset},
                                   listener_);
    }

    ttd_ctx &ctx_;
    const std::uint32_t block_;
    tcrypto_ctx *const digest_;
    const ttd_listener listener_;
    const bool tracing_;
    block_buffer expected_;
};

// The index just past the last block has no bit, nor has one that is not present.
bool is_verified(const ttd_ctx &ctx, std::uint32_t block) {
    return ctx.verified && block < talg_bitmap_capacity(ctx.verified) &&
           talg_bitmap_isset(ctx.verified, block);
}

bool is_known_good(const ttd_ctx &ctx, std::uint32_t block, const ttd_range *range) {
    return range && range->bitmap && block - range->first < talg_bitmap_capacity(range->bitmap) &&
           talg_bitmap_isset(range->bitmap, block - range->first) && is_verified(ctx, block);
}

}  // namespace

int ttd_create_vblkbitmap(ttd_ctx *ctx) {
    return talg_bitmap_create(&ctx->verified, std::min(ctx->info.raw_blocks, ctx->info.present_blocks));
}

void ttd_free_vblkbitmap(ttd_ctx *ctx) {
    talg_bitmap_destroy(ctx->verified);
    ctx->verified = nullptr;
}

int ttd_setup_verify(const ttd_ctx *ctx, std::int64_t offset, std::uint64_t length, std::uint64_t max_length,
                     ttd_range *range) {
    if (offset < 0)
        return EINVAL;
    const auto start = static_cast<std::uint64_t>(offset);
    const std::uint64_t data_end = ctx->superblock.fssize;
    if (length == 0 || start >= data_end) {
        range->count = 0;
        return 0;
    }
    const auto block_of = [ctx](std::uint64_t byte) {
        return libdivide::libdivide_u64_do(byte, &ctx->info.by_block_size);
    };
    const std::uint64_t wanted = std::min(length, data_end - start);
    const std::uint64_t first = block_of(start);
    std::uint64_t end = block_of(start + wanted - 1) + 1;
    if (end > UINT32_MAX)
        return EINVAL;
    const std::uint64_t aligned_offset = first * ctx->info.block_size;
    std::uint64_t aligned_length = (end - first) * ctx->info.block_size;
    if (aligned_length > max_length) {
        end = max_length == 0 ? first : block_of(aligned_offset + max_length - 1) + 1;
        aligned_length = max_length;
    }
    range->first = static_cast<std::uint32_t>(first);
    range->end = static_cast<std::uint32_t>(end);
    range->aligned_offset = aligned_offset;
    range->aligned_length = aligned_length;
    range->skip = start - aligned_offset;
    range->count = std::min(wanted, aligned_length - std::min(aligned_length, range->skip));
    return 0;
}

int ttd_verify_block(ttd_ctx *ctx, std::uint32_t block, const ttd_range *range, tcrypto_ctx *digest,
                     const void *data, ttd_mismatch_function callback, void *arg) {
    if (block > ctx->info.raw_blocks)
        return EINVAL;
    if (is_known_good(*ctx, block, range))
        return 0;
    const int err = block_walk(*ctx, block, digest, {callback, arg}).run(data);
    if (ctx->verified) {
        if (err == 0)
            talg_bitmap_set(ctx->verified, block);
        else
            talg_bitmap_unset(ctx->verified, block);
    }
    return err;
}
