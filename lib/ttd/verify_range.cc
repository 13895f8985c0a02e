// The fast way through a long range.  The plain walk proves one block from the
// root down; neighbouring blocks share all of that path but its end.  So the proven
// hash blocks of the current path are kept, only what changes is proven again, and
// the data blocks under one level-0 hash block are hashed together.  Whatever does
// not match goes through the plain walk, which reports it.

#include "ttd/verify_range.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "ttd/hash.h"
#include "ttd/verify.h"

namespace {

// Data is read and hashed in pieces of about this many bytes.
constexpr std::size_t PIECE_SIZE = 256 * 1024;
// Shorter ranges are left to the plain walk and its caches.
constexpr std::uint32_t FAST_MINIMUM = 16;

// The proven hash blocks from the root down to level 1, and a window of neighbouring
// level-0 blocks, which are read and hashed together.
class proven_path {
public:
    proven_path(ttd_ctx &ctx, tcrypto_ctx *digest) : ctx_(ctx), digest_(digest) {}

    [[nodiscard]] bool allocate() {
        const std::size_t block = ctx_.info.hash_block_size;
        return blocks_.allocate(std::size_t{ctx_.info.levels} * block) &&
               window_.allocate(window_room() * block) &&
               computed_.allocate(window_room() * ctx_.info.hash_size);
    }

    // The hashes of the data blocks from `block` on that share its level-0 hash
    // block, or null when the path does not prove.
    [[nodiscard]] const std::uint8_t *hashes_from(std::uint32_t block) {
        const ttd_path_step step = ttd_path_step_at(ctx_.info, block, 0);
        if (!window_holds(step.local) && !load_window(block, step))
            return nullptr;
        const std::size_t index = step.local - window_first_;
        const std::uint8_t *hash_block = window_.data() + index * ctx_.info.hash_block_size;
        return matches(index) ? hash_block + std::size_t{step.entry} * ctx_.info.hash_size : nullptr;
    }

private:
    [[nodiscard]] std::size_t window_room() const { return PIECE_SIZE / ctx_.info.hash_block_size; }

    [[nodiscard]] bool window_holds(std::uint32_t local) const {
        return local >= window_first_ && local - window_first_ < window_count_;
    }

    [[nodiscard]] bool matches(std::size_t index) const {
        const std::size_t at = index * ctx_.info.hash_size;
        return std::memcmp(computed_.data() + at, window_expected_ + at, ctx_.info.hash_size) == 0;
    }

    // Level-0 blocks from this one on, as far as they share the block above them.
    [[nodiscard]] bool load_window(std::uint32_t block, const ttd_path_step &step) {
        window_count_ = 0;
        const std::uint8_t *expected = expected_at_level_0(block);
        if (!expected || step.local >= ctx_.info.level_blocks[0])
            return false;
        const std::uint32_t under_parent =
            ctx_.info.hashes_per_block - step.local % ctx_.info.hashes_per_block;
        const std::size_t count =
            std::min<std::size_t>({window_room(), under_parent, ctx_.info.level_blocks[0] - step.local});
        const std::size_t size = ctx_.info.hash_block_size;
        if (ttd_io_read(ctx_.hash_io, step.offset, window_.data(), count * size) != 0 ||
            ttd_hash_blocks(&ctx_, window_.data(), size, count, digest_, computed_.data()) != 0)
            return false;
        window_expected_ = expected;
        window_first_ = step.local;
        window_count_ = count;
        return true;
    }

    // The hash that the levels above hold of the block's level-0 hash block, and
    // behind it those of its neighbours; null when they do not prove.
    [[nodiscard]] const std::uint8_t *expected_at_level_0(std::uint32_t block) {
        const std::uint8_t *expected = ctx_.info.root_hash.data();
        for (unsigned level = ctx_.info.levels; level-- > 1;) {
            const ttd_path_step step = ttd_path_step_at(ctx_.info, block, level);
            if (!prove(level, step, expected))
                return nullptr;
            expected = at(level) + std::size_t{step.entry} * ctx_.info.hash_size;
        }
        return expected;
    }

    [[nodiscard]] std::uint8_t *at(unsigned level) {
        return blocks_.data() + std::size_t{level} * ctx_.info.hash_block_size;
    }

    [[nodiscard]] bool prove(unsigned level, const ttd_path_step &step, const std::uint8_t *expected) {
        if (valid_[level] && local_[level] == step.local)
            return true;
        // A new block here makes every block below it unproven.
        std::fill(valid_, valid_ + level + 1, false);
        if (ttd_io_read(ctx_.hash_io, step.offset, at(level), ctx_.info.hash_block_size) != 0 ||
            ttd_hash_block(&ctx_, at(level), ctx_.info.hash_block_size, digest_, computed_.data()) != 0 ||
            std::memcmp(computed_.data(), expected, ctx_.info.hash_size) != 0)
            return false;
        valid_[level] = true;
        local_[level] = step.local;
        return true;
    }

    ttd_ctx &ctx_;
    tcrypto_ctx *const digest_;
    ttd_bytes blocks_;  // one a level; level 0 has the window instead
    bool valid_[TTD_MAX_LEVELS] = {};
    std::uint32_t local_[TTD_MAX_LEVELS] = {};
    ttd_bytes window_;                               // level-0 blocks
    ttd_bytes computed_;                             // their hashes
    const std::uint8_t *window_expected_ = nullptr;  // what the level above says of them
    std::uint32_t window_first_ = 0;
    std::size_t window_count_ = 0;
};

class range_verifier {
public:
    range_verifier(ttd_ctx &ctx, const ttd_range &range, tcrypto_ctx *digest, const void *data,
                   ttd_mismatch_function callback, void *arg)
        : ctx_(ctx), range_(range), digest_(digest), data_(static_cast<const std::uint8_t *>(data)),
          callback_(callback), arg_(arg), path_(ctx, digest) {}

    // True when every block is proven.
    [[nodiscard]] bool run() {
        if (!fast_way_is_open())
            return verify_each(range_.first, range_.end - range_.first, data_);
        bool good = true;
        for (std::uint32_t block = range_.first, n = 0; block < range_.end; block += n) {
            n = blocks_in_piece(block);
            good &= verify_piece(block, n);
        }
        return good;
    }

private:
    // Tracing wants every step in order; a range bitmap wants its look-ups.
    [[nodiscard]] bool fast_way_is_open() {
        const std::size_t piece = std::size_t{piece_blocks()};
        return ctx_.verbosity <= 2 && !range_.bitmap && range_.end - range_.first >= FAST_MINIMUM &&
               path_.allocate() && hashes_.allocate(piece * ctx_.info.hash_size) &&
               (data_ || buffer_.allocate(piece * ctx_.info.block_size));
    }

    [[nodiscard]] std::uint32_t piece_blocks() const {
        const auto by_size = static_cast<std::uint32_t>(PIECE_SIZE / ctx_.info.block_size);
        return std::min(by_size, ctx_.info.hashes_per_block);
    }

    // Up to the end of the range, of its level-0 hash block, and of a piece.  The
    // index just past the last block has no hash block of its own to share.
    [[nodiscard]] std::uint32_t blocks_in_piece(std::uint32_t block) const {
        const std::uint32_t under_hash_block =
            ctx_.info.hashes_per_block - block % ctx_.info.hashes_per_block;
        return std::min({range_.end - block, under_hash_block, piece_blocks()});
    }

    [[nodiscard]] bool verify_piece(std::uint32_t first, std::uint32_t count) {
        const std::uint8_t *expected = path_.hashes_from(first);
        const std::uint8_t *data = expected ? piece_data(first, count) : nullptr;
        if (!data || ttd_hash_blocks(&ctx_, data, ctx_.info.block_size, count, digest_, hashes_.data()) != 0)
            return verify_each(first, count, caller_data(first));
        const std::size_t hash_size = ctx_.info.hash_size;
        bool good = true;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (std::memcmp(hashes_.data() + i * hash_size, expected + i * hash_size, hash_size) == 0)
                mark_verified(first + i);
            else
                good &= verify_each(first + i, 1, caller_data(first + i));
        }
        return good;
    }

    [[nodiscard]] const std::uint8_t *caller_data(std::uint32_t block) const {
        return data_ ? data_ + std::uint64_t{block - range_.first} * ctx_.info.block_size : nullptr;
    }

    [[nodiscard]] const std::uint8_t *piece_data(std::uint32_t first, std::uint32_t count) {
        if (data_)
            return caller_data(first);
        const auto offset = static_cast<std::int64_t>(std::uint64_t{first} * ctx_.info.block_size);
        const std::uint64_t length = std::uint64_t{count} * ctx_.info.block_size;
        return ttd_io_read(ctx_.data_io, offset, buffer_.data(), length) == 0 ? buffer_.data() : nullptr;
    }

    void mark_verified(std::uint32_t block) {
        if (ctx_.verified)
            talg_bitmap_set(ctx_.verified, block);
    }

    [[nodiscard]] bool verify_each(std::uint32_t first, std::uint32_t count, const std::uint8_t *data) {
        bool good = true;
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint8_t *block = data ? data + std::uint64_t{i} * ctx_.info.block_size : nullptr;
            good &= ttd_verify_block(&ctx_, first + i, &range_, digest_, block, callback_, arg_) == 0;
        }
        return good;
    }

    ttd_ctx &ctx_;
    const ttd_range &range_;
    tcrypto_ctx *const digest_;
    const std::uint8_t *const data_;
    const ttd_mismatch_function callback_;
    void *const arg_;
    proven_path path_;
    ttd_bytes hashes_;  // of the data blocks of one piece
    ttd_bytes buffer_;  // the data of one piece, where the caller brought none
};

}  // namespace

int ttd_verify_range(ttd_ctx *ctx, const ttd_range *range, tcrypto_ctx *digest, const void *data,
                     ttd_mismatch_function callback, void *arg) {
    if (range->first >= range->end)
        return 0;
    return range_verifier(*ctx, *range, digest, data, callback, arg).run() ? 0 : EIO;
}
