#include "ttd/merkle.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "base/log.h"
#include "ttd/hash.h"
#include "ttd/level_hasher.h"

namespace {

class tree_builder {
public:
    tree_builder(ttd_ctx &ctx, const ttd_build_means &means, ttd_bytes &tree)
        : ctx_(ctx), means_(means), tree_(tree) {}

    [[nodiscard]] int run() {
        if (const int err = allocate(); err != 0)
            return err;
        if (ttd_hash_init(&ctx_, &digest_) != 0)
            return MKTFS_FAIL(ENOENT, "ttd: failed to initialize the hash state\n");
        const int err = build_levels();
        ttd_hash_done(digest_);
        return err;
    }

private:
    [[nodiscard]] int build_levels() {
        if (const int err = hash_constants(); err != 0)
            return err;
        if (const int err = map_levels(); err != 0)
            return err;
        if (const int err = build_data_level(); err != 0)
            return err;
        for (unsigned level = 0; level < ctx_.info.levels; ++level)
            if (const int err = build_level_above(level); err != 0)
                return err;
        return 0;
    }

    [[nodiscard]] int allocate() {
        ttd_info &info = ctx_.info;
        if (tree_.allocate(info.tree_size) && info.root_hash.allocate(info.hash_size) &&
            info.empty_hash.allocate(info.hash_size))
            return 0;
        return MKTFS_FAIL(ENOMEM, "ttd: failed to allocate memory for merkle hash tree structures\n");
    }

    [[nodiscard]] int hash_constants() {
        if (const int err = ttd_hash_block(&ctx_, nullptr, 0, digest_, ctx_.info.empty_hash.data()); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to generate empty hash\n");
        return ttd_hash_zero_block(&ctx_, digest_);
    }

    // Top level first, level 0 last; the entry above the top is the root hash.
    [[nodiscard]] int map_levels() {
        std::uint8_t *at = tree_.data();
        for (unsigned level = ctx_.info.levels; level-- > 0;) {
            levels_[level] = at;
            at += level_size(level);
        }
        levels_[ctx_.info.levels] = ctx_.info.root_hash.data();
        const std::uint8_t *end = tree_.data() + ctx_.info.tree_size;
        if (at == end)
            return 0;
        return MKTFS_FAIL(EINVAL, "ttd: error while mapping merkle hash tree %p != %p\n",
                          static_cast<const void *>(at), static_cast<const void *>(end));
    }

    [[nodiscard]] std::uint64_t level_size(unsigned level) const {
        return std::uint64_t{ctx_.info.level_blocks[level]} * ctx_.info.hash_block_size;
    }

    [[nodiscard]] bool is_root(unsigned level) const { return level == ctx_.info.levels; }

    [[nodiscard]] int build_data_level() {
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: generating merkle tree level 0\n");
        const int err = fill_data_level();
        if (err != 0)
            mktfs_log(MKTFS_LOG_ERROR, "ttd: error while hashing input image (%s)\n", strerror(err));
        return err;
    }

    [[nodiscard]] int fill_data_level() {
        const std::uint64_t count = ctx_.info.covered_size / ctx_.info.block_size;
        if (const int err = check_level_size(0, count); err != 0)
            return err;
        if (const int err = ttd_hash_data(ctx_, digest_, means_, count, levels_[0]); err != 0)
            return err;
        pad_last_block(0, count);
        return 0;
    }

    [[nodiscard]] int build_level_above(unsigned level) {
        const unsigned above = level + 1;
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: generating merkle tree level %zu%s\n", std::size_t{above},
                      is_root(above) ? " (root)" : "");
        const int err = fill_level_above(level);
        if (err != 0)
            mktfs_log(MKTFS_LOG_ERROR, "ttd: error while hashing merkle tree level '%zu'\n",
                      std::size_t{above});
        return err;
    }

    [[nodiscard]] int fill_level_above(unsigned level) {
        const std::uint64_t length = level_size(level);
        if (length % ctx_.info.hash_block_size != 0)
            return MKTFS_FAIL(EINVAL, "ttd: hlen '%lu' is not a multiple of hash block size '%u'\n", length,
                              ctx_.info.hash_block_size);
        const std::uint8_t *const below = levels_[level];
        if (is_root(level + 1))
            return ttd_hash_level(ctx_, digest_, means_, below, 1, levels_[level + 1]);
        const std::uint64_t count = ctx_.info.level_blocks[level];
        if (const int err = check_level_size(level + 1, count); err != 0)
            return err;
        if (const int err = ttd_hash_level(ctx_, digest_, means_, below, count, levels_[level + 1]); err != 0)
            return err;
        pad_last_block(level + 1, count);
        return 0;
    }

    // The bytes that the hashes will take, before any of them is written.
    [[nodiscard]] int check_level_size(unsigned level, std::uint64_t count) const {
        const std::uint64_t per_block = ctx_.info.hashes_per_block;
        const std::uint64_t produced = (count + per_block - 1) / per_block * ctx_.info.hash_block_size;
        if (produced == level_size(level))
            return 0;
        return MKTFS_FAIL(EINVAL, "ttd: hashed block size '%lu' != '%lu' (level %u)\n", produced,
                          level_size(level), level);
    }

    // Fills the slots that `count` hashes leave unused in their last hash block with the
    // empty hash.  Every tail stays zero.
    void pad_last_block(unsigned level, std::uint64_t count) const {
        const std::uint64_t per_block = ctx_.info.hashes_per_block;
        const std::uint64_t used = count % per_block;
        if (used == 0)
            return;
        const std::uint64_t slots = per_block - used;
        if (verbose > 1)
            mktfs_log(MKTFS_LOG_INFO,
                      level == 0
                          ? "ttd: filling %u empty hashes in last hash block with empty hash value\n"
                          : "ttd: filling '%u' empty hashes in last hash block with empty hash value\n",
                      static_cast<unsigned>(slots));
        ttd_fill_slots(levels_[level] + count / per_block * ctx_.info.hash_block_size +
                           used * ctx_.info.hash_size,
                       slots, ctx_.info.empty_hash);
    }

    ttd_ctx &ctx_;
    const ttd_build_means &means_;
    ttd_bytes &tree_;
    tcrypto_ctx *digest_ = nullptr;
    std::uint8_t *levels_[TTD_MAX_LEVELS + 1] = {};
};

}  // namespace

int ttd_build_tree(ttd_ctx &ctx, const ttd_build_means &means, ttd_bytes &tree) {
    const int err = tree_builder(ctx, means, tree).run();
    if (err != 0)
        mktfs_log(MKTFS_LOG_ERROR, "ttd: merkle tree generation failed\n");
    return err;
}
