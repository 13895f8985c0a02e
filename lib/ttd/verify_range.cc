#include "ttd/verify_range.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "talg/workers.h"
#include "ttd/caches.h"
#include "ttd/hash.h"
#include "ttd/proven_path.h"
#include "ttd/worker_digests.h"

namespace {

// Data is read and hashed in rounds of about this many bytes.
constexpr std::uint32_t ROUND_SIZE = 256 * 1024;

// With workers a round is longer and falls into pieces, many so that nobody waits long
// for the last one.  Two threads that fault in pages of one page table, which maps 2 MiB,
// wait for each other, so that a piece is not smaller.
constexpr std::uint32_t PIECE_SIZE = 2 * 1024 * 1024;
constexpr std::uint32_t STEP_SIZE = 1024 * 1024;  // bytes of a piece that are in use at once
constexpr std::uint32_t SHARED_PIECES = 16;
constexpr std::uint32_t PIECES_PER_WORKER = 2;

// What became of hashing one data block, to be told when its turn has come.
struct block_outcome {
    enum : std::uint8_t {
        HASHED,
        NOT_READ,
        NOT_HASHED
    } state = HASHED;
    std::uint8_t step = 0;  // tcrypto_digest_step, when not hashed
    int err = TCRYPTO_OK;
};

// The computed hashes of the data blocks of one round.  Silent, and without a look at
// the tree: parts of a round may be hashed by different threads, each with its own
// digest context.
class round_hashes {
public:
    // `data` is where block `first_of_range` lies, or null: blocks are read.
    round_hashes(const ttd_ctx &ctx, const std::uint8_t *data, std::uint32_t first_of_range)
        : ctx_(ctx), data_(data), first_of_range_(first_of_range) {}

    [[nodiscard]] bool allocate(std::uint32_t count) {
        outcomes_.reset(new (std::nothrow) block_outcome[count]);
        return outcomes_ && hashes_.allocate(std::size_t{count} * ctx_.info.hash_size) &&
               (data_ || buffer_.allocate(std::size_t{count} * ctx_.info.block_size));
    }

    void begin(std::uint32_t first) { first_ = first; }

    // Hashes the round's blocks `from` to `to`.
    void hash_part(std::uint32_t from, std::uint32_t to, tcrypto_ctx *digest) {
        for (std::uint32_t i = from; i < to; ++i)
            outcomes_[i].state = data_ || read(i) ? block_outcome::HASHED : block_outcome::NOT_READ;
        while (from < to) {
            if (outcomes_[from].state == block_outcome::NOT_READ) {
                ++from;
                continue;
            }
            std::uint32_t end = from + 1;
            while (end < to && outcomes_[end].state != block_outcome::NOT_READ)
                ++end;
            from = hash_run(from, end, digest);
        }
    }

    [[nodiscard]] const block_outcome &outcome(std::uint32_t i) const { return outcomes_[i]; }
    [[nodiscard]] const std::uint8_t *hash(std::uint32_t i) const {
        return hashes_.data() + std::size_t{i} * ctx_.info.hash_size;
    }

private:
    [[nodiscard]] std::uint64_t offset(std::uint32_t block) const {
        return std::uint64_t{block} * ctx_.info.block_size;
    }
    [[nodiscard]] const std::uint8_t *bytes(std::uint32_t i) const {
        return data_ ? data_ + offset(first_ - first_of_range_ + i) : buffer_.data() + offset(i);
    }

    [[nodiscard]] bool read(std::uint32_t i) {
        const auto at = static_cast<std::int64_t>(offset(first_ + i));
        return ttd_io_read(ctx_.data_io, at, buffer_.data() + offset(i), ctx_.info.block_size) == 0;
    }

    // Gives the first block that is left.
    [[nodiscard]] std::uint32_t hash_run(std::uint32_t from, std::uint32_t to, tcrypto_ctx *digest) {
        const ttd_block_run run = {
            .data = bytes(from), .length = ctx_.info.block_size, .count = std::size_t{to} - from};
        std::uint8_t *out = hashes_.data() + std::size_t{from} * ctx_.info.hash_size;
        ttd_hash_failure failure;
        if (ttd_hash_blocks(&ctx_, run, digest, out, &failure) == 0)
            return to;
        const std::uint32_t failed = from + static_cast<std::uint32_t>(failure.block);
        outcomes_[failed] = {.state = block_outcome::NOT_HASHED,
                             .step = static_cast<std::uint8_t>(failure.step),
                             .err = failure.err};
        return failed + 1;
    }

    const ttd_ctx &ctx_;
    const std::uint8_t *const data_;
    const std::uint32_t first_of_range_;
    std::uint32_t first_ = 0;
    std::unique_ptr<block_outcome[]> outcomes_;
    ttd_bytes hashes_;
    ttd_bytes buffer_;  // the round's data, where the caller brought none
};

// Hashes come first, round by round, then in the order of the blocks their paths,
// comparisons and reports.
class range_verifier {
public:
    range_verifier(ttd_ctx &ctx, const ttd_range &range, tcrypto_ctx *digest, const void *data,
                   const ttd_listener &listener)
        : ctx_(ctx), range_(range), digest_(digest), data_(static_cast<const std::uint8_t *>(data)),
          listener_(listener), end_(last_to_try()),
          path_(ctx, digest, listener, std::min(end_, ctx.info.raw_blocks)), round_(ctx, data_, range.first),
          round_blocks_(ROUND_SIZE / ctx.info.block_size) {}
    range_verifier(const range_verifier &) = delete;
    range_verifier &operator=(const range_verifier &) = delete;

    // True when every block is proven.
    [[nodiscard]] bool run() {
        bool good = end_ == range_.end;
        engage_workers();
        const bool fast = fast_way_is_open();
        for (std::uint32_t first = range_.first, n = 0; first < end_; first += n) {
            n = std::min(round_blocks_, end_ - first);
            good &= fast ? verify_round(first, n) : verify_each(first, n);
            if (!fast)
                tell(range_.hashed, first, n);
            tell(range_.passed, first, n);
        }
        return good;
    }

private:
    // One past the last block that is worth a look: the index just behind the last
    // block is walked like any other.
    [[nodiscard]] std::uint32_t last_to_try() const {
        const std::uint64_t known =
            std::min<std::uint64_t>(std::uint64_t{ctx_.info.raw_blocks} + 1, ctx_.info.present_blocks);
        return std::max(range_.first, static_cast<std::uint32_t>(std::min<std::uint64_t>(range_.end, known)));
    }

    // Without a digest context for each, the caller works alone.
    void engage_workers() {
        if (range_.worker_count < 2 || !range_.workers || end_ - range_.first <= round_blocks_ ||
            !digests_.allocate(ctx_.crypto, digest_, range_.worker_count))
            return;
        const std::uint32_t pieces = SHARED_PIECES + range_.worker_count * PIECES_PER_WORKER;
        piece_blocks_ = PIECE_SIZE / ctx_.info.block_size;
        round_blocks_ = pieces * piece_blocks_;
    }

    // Tracing wants every step in order; a range bitmap wants its look-ups.
    [[nodiscard]] bool fast_way_is_open() {
        const std::uint32_t count = end_ - range_.first;
        return !ttd_is_tracing(ctx_) && !range_.bitmap && count > 1 && path_.allocate(count) &&
               round_.allocate(std::min(round_blocks_, count));
    }

    [[nodiscard]] bool verify_round(std::uint32_t first, std::uint32_t count) {
        hash_round(first, count);
        bool good = true;
        for (std::uint32_t i = 0; i < count; ++i) {
            // The index just behind the last block may lie under no hash block.
            const bool proven =
                first + i < ctx_.info.raw_blocks ? verify_hashed(first + i, i) : verify_each(first + i, 1);
            good &= proven;
        }
        return good;
    }

    void hash_round(std::uint32_t first, std::uint32_t count) {
        round_.begin(first);
        round_first_ = first;
        round_count_ = count;
        if (piece_blocks_ == 0)
            return hash_part(0, count, digest_);
        const auto hash_piece = [](void *arg, std::size_t piece, unsigned worker) {
            static_cast<range_verifier *>(arg)->hash_piece(static_cast<std::uint32_t>(piece), worker);
        };
        talg_workers_run(range_.workers, hash_piece, this, (count + piece_blocks_ - 1) / piece_blocks_);
    }

    void hash_piece(std::uint32_t piece, unsigned worker) {
        const std::uint32_t end = std::min((piece + 1) * piece_blocks_, round_count_);
        const std::uint32_t step = STEP_SIZE / ctx_.info.block_size;
        for (std::uint32_t from = piece * piece_blocks_; from < end; from += step)
            hash_part(from, std::min(from + step, end), digests_.of(worker));
    }

    void hash_part(std::uint32_t from, std::uint32_t to, tcrypto_ctx *digest) {
        round_.hash_part(from, to, digest);
        tell(range_.hashed, round_first_ + from, to - from);
    }

    void tell(ttd_passed_function function, std::uint32_t first, std::uint32_t count) const {
        if (function)
            function(range_.passed_arg, first, count);
    }

    [[nodiscard]] bool verify_hashed(std::uint32_t block, std::uint32_t i) {
        const bool proven = is_proven(block, i);
        if (ctx_.verified) {
            if (proven)
                talg_bitmap_set(ctx_.verified, block);
            else
                talg_bitmap_unset(ctx_.verified, block);
        }
        return proven;
    }

    [[nodiscard]] bool is_proven(std::uint32_t block, std::uint32_t i) {
        const std::uint8_t *expected = path_.hash_of(block);
        if (!expected)
            return false;
        const block_outcome &outcome = round_.outcome(i);
        if (outcome.state == block_outcome::NOT_HASHED)
            return ttd_hash_report(
                       {.step = static_cast<tcrypto_digest_step>(outcome.step), .err = outcome.err}) == 0;
        if (outcome.state == block_outcome::NOT_READ)
            return false;
        const std::uint8_t *computed = round_.hash(i);
        if (std::memcmp(expected, computed, ctx_.info.hash_size) == 0)
            return true;
        const auto offset = static_cast<std::int64_t>(std::uint64_t{block} * ctx_.info.block_size);
        return ttd_report_mismatch(ctx_, {expected, computed}, {0, block, 0, offset}, listener_) == 0;
    }

    [[nodiscard]] bool verify_each(std::uint32_t first, std::uint32_t count) {
        bool good = true;
        for (std::uint32_t block = first; block < first + count; ++block) {
            const std::uint64_t at = std::uint64_t{block - range_.first} * ctx_.info.block_size;
            const std::uint8_t *bytes = data_ ? data_ + at : nullptr;
            good &= ttd_verify_block(&ctx_, block, &range_, digest_, bytes, listener_.callback,
                                     listener_.arg) == 0;
        }
        return good;
    }

    ttd_ctx &ctx_;
    const ttd_range &range_;
    tcrypto_ctx *const digest_;
    const std::uint8_t *const data_;
    const ttd_listener listener_;
    const std::uint32_t end_;
    ttd_proven_path path_;
    round_hashes round_;
    ttd_worker_digests digests_;
    std::uint32_t round_blocks_;
    std::uint32_t piece_blocks_ = 0;  // 0: the caller works alone
    std::uint32_t round_first_ = 0;   // blocks of the round that is hashed
    std::uint32_t round_count_ = 0;
};

// The short way for a block on its own, as a driver reads them: the hash block above it is
// in memory and known to be proven.  False: the long way finds out, and tells.
bool proves_in_memory(const ttd_ctx &ctx, std::uint32_t block, tcrypto_ctx *digest,
                      const std::uint8_t *data) {
    ttd_cache_pin above;
    const std::uint32_t key = block / ctx.info.hashes_per_block;
    if (ttd_lru_cache_get(ctx.block_cache, key, th_out(above)) != 0)
        return false;
    if (!ttd_cache_is_proven(above.get()))
        return false;
    const ttd_block_run run = {.data = data, .length = ctx.info.block_size, .count = 1};
    std::uint8_t computed[TTD_MAX_ROOT_HASH];
    ttd_hash_failure failure;
    if (ttd_hash_blocks(&ctx, run, digest, computed, &failure) != 0)
        return false;
    const std::size_t entry = block % ctx.info.hashes_per_block;
    const std::uint8_t *expected = ttd_cache_buffer(above.get()) + entry * ctx.info.hash_size;
    if (std::memcmp(expected, computed, ctx.info.hash_size) != 0)
        return false;
    if (ctx.verified)
        talg_bitmap_set(ctx.verified, block);
    return true;
}

bool may_take_short_way(const ttd_ctx &ctx, const ttd_range &range, const void *data) {
    return data && range.end - range.first == 1 && range.first < ctx.info.raw_blocks &&
           range.first < ctx.info.present_blocks && ctx.block_cache && !range.bitmap && !range.passed &&
           !range.hashed && !ttd_is_tracing(ctx);
}

}  // namespace

int ttd_verify_range(ttd_ctx *ctx, const ttd_range *range, tcrypto_ctx *digest, const void *data,
                     ttd_mismatch_function callback, void *arg) {
    if (range->first >= range->end)
        return 0;
    if (may_take_short_way(*ctx, *range, data) &&
        proves_in_memory(*ctx, range->first, digest, static_cast<const std::uint8_t *>(data)))
        return 0;
    return range_verifier(*ctx, *range, digest, data, {callback, arg}).run() ? 0 : EIO;
}
