#include "ttd/merkle.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/hex.h"
#include "base/log.h"
#include "base/progress.h"
#include "io/io.h"
#include "ttd/hash.h"

namespace {

void dump_hash(const std::uint8_t *block, const std::uint8_t *hash, std::size_t size) {
    mktfs_log(MKTFS_LOG_INFO, "ttd: data: ");
    mktfs_print_hex(block, size);
    mktfs_log(MKTFS_LOG_INFO, "\n");
    mktfs_log(MKTFS_LOG_INFO, "ttd: hash: ");
    mktfs_print_hex(hash, size);
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

// The data blocks of the covered area: in place where they lie whole within the
// mapped input, the block in which the input ends filled up, and zeros behind it.
class data_blocks {
public:
    data_blocks(ttd_ctx &ctx, mktfs_io &image, tcrypto_ctx *digest)
        : ctx_(ctx), image_(image), digest_(digest), bytes_(mktfs_io_buf(&image)),
          in_place_(bytes_ ? mktfs_io_datasize(&image) / ctx.info.block_size : 0),
          read_(bytes_ ? (mktfs_io_datasize(&image) + ctx.info.block_size - 1) / ctx.info.block_size
                       : UINT64_MAX) {}

    [[nodiscard]] bool allocate() { return buffer_.allocate(ctx_.info.block_size); }

    // Blocks that the I/O object delivers, the last one perhaps in part.
    [[nodiscard]] std::uint64_t count() const {
        return (mktfs_io_size(&image_) + ctx_.info.block_size - 1) / ctx_.info.block_size;
    }

    // Hashes of `count` blocks from `first` on, packed at `out`.
    [[nodiscard]] int hash(std::uint64_t first, std::uint64_t count, std::uint8_t *out) {
        if (verbose > 2)
            return hash_one_by_one(first, first + count, out);
        mktfs_progress_add(count * ctx_.info.block_size);
        const std::uint64_t end = first + count;
        const std::uint64_t whole_end = std::clamp(in_place_, first, end);
        const std::uint64_t read_end = std::clamp(read_, first, end);
        const std::size_t hash_size = ctx_.info.hash_size;
        if (const int err = hash_in_place(first, whole_end, out); err != 0)
            return err;
        if (const int err = hash_one_by_one(whole_end, read_end, out + (whole_end - first) * hash_size);
            err != 0)
            return err;
        fill_with_zero_hash(out + (read_end - first) * hash_size, end - read_end);
        return 0;
    }

private:
    [[nodiscard]] int hash_in_place(std::uint64_t first, std::uint64_t end, std::uint8_t *out) {
        if (first == end)
            return 0;
        const std::uint64_t offset = first * ctx_.info.block_size;
        if (mktfs_io_hole(&image_, offset) >= (end - first) * ctx_.info.block_size) {
            fill_with_zero_hash(out, end - first);
            return 0;
        }
        const ttd_block_run run = {
            .data = bytes_ + offset, .length = ctx_.info.block_size, .count = end - first};
        ttd_hash_failure failure;
        if (ttd_hash_blocks(&ctx_, run, digest_, out, &failure) != 0)
            return MKTFS_FAIL(ttd_hash_report(failure), "ttd: failed to hash data block %lu\n",
                              first + failure.block);
        release_behind(end * ctx_.info.block_size);
        return 0;
    }

    void fill_with_zero_hash(std::uint8_t *out, std::uint64_t count) const {
        for (std::uint64_t i = 0; i < count; ++i)
            std::memcpy(out + i * ctx_.info.hash_size, ctx_.info.zero_hash.data(), ctx_.info.hash_size);
    }

    void release_behind(std::uint64_t offset) {
        if (offset - released_ < MKTFS_IO_WINDOW)
            return;
        mktfs_io_drop(&image_, released_, offset - released_);
        released_ = offset;
    }

    [[nodiscard]] int hash_one_by_one(std::uint64_t first, std::uint64_t end, std::uint8_t *out) {
        const std::uint32_t block_size = ctx_.info.block_size;
        for (std::uint64_t index = first; index < end; ++index, out += ctx_.info.hash_size) {
            const auto offset = static_cast<std::int64_t>(index * block_size);
            if (const int err = mktfs_io_read(&image_, offset, buffer_.data(), block_size); err != 0)
                return MKTFS_FAIL(err, "ttd: failed to read data block '%lu' (%s)\n", index, strerror(err));
            if (verbose > 2)
                mktfs_log(MKTFS_LOG_INFO, "ttd: hashing data block %lu of size %u at hash_ptr %p\n", index,
                          block_size, static_cast<void *>(out));
            if (const int err = ttd_hash_block(&ctx_, buffer_.data(), block_size, digest_, out); err != 0)
                return MKTFS_FAIL(err, "ttd: failed to hash data block %lu\n", index);
            if (verbose > 3)
                dump_hash(buffer_.data(), out, ctx_.info.hash_size);
        }
        return 0;
    }

    ttd_ctx &ctx_;
    mktfs_io &image_;
    tcrypto_ctx *const digest_;
    const std::uint8_t *const bytes_;  // the mapped input; null when it is empty
    const std::uint64_t in_place_;     // blocks that lie whole within it
    const std::uint64_t read_;         // blocks that must be read, not known to be zero
    std::uint64_t released_ = 0;       // mapped bytes already let go of
    ttd_bytes buffer_;                 // one block
};

// The hash blocks of a finished level.
class level_blocks {
public:
    level_blocks(ttd_ctx &ctx, const std::uint8_t *level, tcrypto_ctx *digest)
        : ctx_(ctx), level_(level), digest_(digest) {}

    [[nodiscard]] int hash(std::uint64_t first, std::uint64_t count, std::uint8_t *out) {
        if (verbose > 2)
            return hash_one_by_one(first, first + count, out);
        const std::uint32_t size = ctx_.info.hash_block_size;
        const ttd_block_run run = {.data = level_ + first * size, .length = size, .count = count};
        ttd_hash_failure failure;
        if (ttd_hash_blocks(&ctx_, run, digest_, out, &failure) != 0)
            return MKTFS_FAIL(ttd_hash_report(failure), "ttd: failed to hash data block %zu\n",
                              static_cast<std::size_t>(first) + failure.block);
        return 0;
    }

private:
    [[nodiscard]] int hash_one_by_one(std::size_t first, std::size_t end, std::uint8_t *out) {
        const std::uint32_t size = ctx_.info.hash_block_size;
        for (std::size_t index = first; index < end; ++index, out += ctx_.info.hash_size) {
            const std::uint8_t *block = level_ + index * size;
            mktfs_log(MKTFS_LOG_INFO, "ttd: hashing hash block '%zu'\n", index);
            if (const int err = ttd_hash_block(&ctx_, block, size, digest_, out); err != 0)
                return MKTFS_FAIL(err, "ttd: failed to hash data block %zu\n", index);
            if (verbose > 3)
                dump_hash(block, out, ctx_.info.hash_size);
        }
        return 0;
    }

    ttd_ctx &ctx_;
    const std::uint8_t *const level_;
    tcrypto_ctx *const digest_;
};

class tree_builder {
public:
    tree_builder(ttd_ctx &ctx, mktfs_io &image, ttd_bytes &tree) : ctx_(ctx), image_(image), tree_(tree) {}

    [[nodiscard]] int run() {
        if (const int err = allocate(); err != 0)
            return err;
        if (ttd_hash_init(&ctx_, &digest_) != 0)
            return MKTFS_FAIL(ENOENT, "ttd: failed to initialize the hash state\n");
        int err = hash_constants();
        if (err == 0)
            err = map_levels();
        if (err == 0)
            err = build_data_level();
        for (unsigned level = 0; err == 0 && level < ctx_.info.levels; ++level)
            err = build_level_above(level);
        ttd_hash_done(digest_);
        return err;
    }

private:
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
        data_blocks blocks(ctx_, image_, digest_);
        if (!blocks.allocate())
            return MKTFS_FAIL(ENOMEM, "ttd: unable to allocate memory for read buffer\n");
        return fill_level(0, blocks, blocks.count());
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
        level_blocks blocks(ctx_, levels_[level], digest_);
        if (is_root(level + 1))
            return blocks.hash(0, 1, levels_[level + 1]);
        return fill_level(level + 1, blocks, ctx_.info.level_blocks[level]);
    }

    // The one loop over blocks: the `count` blocks below this level, the hashes of
    // each hash block's worth of them at its start, the unused slots of the last one
    // filled with the empty hash, every tail left zero.
    template <class Blocks>
    [[nodiscard]] int fill_level(unsigned level, Blocks &blocks, std::uint64_t count) {
        if (const int err = check_level_size(level, count); err != 0)
            return err;
        const std::uint64_t per_block = ctx_.info.hashes_per_block;
        std::uint8_t *hash_block = levels_[level];
        for (std::uint64_t first = 0; first < count; first += per_block) {
            const std::uint64_t used = std::min(per_block, count - first);
            if (const int err = blocks.hash(first, used, hash_block); err != 0)
                return err;
            if (used < per_block)
                pad(level, hash_block + used * ctx_.info.hash_size, per_block - used);
            hash_block += ctx_.info.hash_block_size;
        }
        return 0;
    }

    // The bytes that the loop will produce, before it writes any of them.
    [[nodiscard]] int check_level_size(unsigned level, std::uint64_t count) const {
        const std::uint64_t per_block = ctx_.info.hashes_per_block;
        const std::uint64_t produced = (count + per_block - 1) / per_block * ctx_.info.hash_block_size;
        if (produced == level_size(level))
            return 0;
        return MKTFS_FAIL(EINVAL, "ttd: hashed block size '%lu' != '%lu' (level %u)\n", produced,
                          level_size(level), level);
    }

    void pad(unsigned level, std::uint8_t *out, std::uint64_t slots) const {
        if (verbose > 1)
            mktfs_log(MKTFS_LOG_INFO,
                      level == 0
                          ? "ttd: filling %u empty hashes in last hash block with empty hash value\n"
                          : "ttd: filling '%u' empty hashes in last hash block with empty hash value\n",
                      static_cast<unsigned>(slots));
        for (std::uint64_t i = 0; i < slots; ++i)
            std::memcpy(out + i * ctx_.info.hash_size, ctx_.info.empty_hash.data(), ctx_.info.hash_size);
    }

    ttd_ctx &ctx_;
    mktfs_io &image_;
    ttd_bytes &tree_;
    tcrypto_ctx *digest_ = nullptr;
    std::uint8_t *levels_[TTD_MAX_LEVELS + 1] = {};
};

}  // namespace

int ttd_build_tree(ttd_ctx &ctx, mktfs_io &image, ttd_bytes &tree) {
    const int err = tree_builder(ctx, image, tree).run();
    if (err != 0)
        mktfs_log(MKTFS_LOG_ERROR, "ttd: merkle tree generation failed\n");
    return err;
}
