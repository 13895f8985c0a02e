#include "ttd/level_hasher.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "base/hex.h"
#include "base/log.h"
#include "base/progress.h"
#include "ttd/hash.h"
#include "ttd/worker_digests.h"

namespace {

// Blocks are fetched, written and hashed in steps of about this many bytes: few system
// calls, and the bytes are still in the processor's cache when it is used again.
constexpr std::uint32_t STEP_SIZE = 256 * 1024;
// So much of the input is one worker's: two threads that fault in pages of one page table,
// which maps 2 MiB, wait for each other.
constexpr unsigned STEPS_PER_PIECE = 8;

void dump_hash(const std::uint8_t *block, const std::uint8_t *hash, std::size_t size) {
    mktfs_log(MKTFS_LOG_INFO, "ttd: data: ");
    mktfs_print_hex(block, size);
    mktfs_log(MKTFS_LOG_INFO, "\n");
    mktfs_log(MKTFS_LOG_INFO, "ttd: hash: ");
    mktfs_print_hex(hash, size);
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

// Neighbouring blocks.
struct block_run {
    std::uint64_t first = 0;
    std::uint32_t count = 0;
};

// What came of fetching a run of blocks.
struct fetched_run {
    const std::uint8_t *bytes = nullptr;  // null: all of them are zero
    std::uint32_t count = 0;              // blocks fetched
    int error = 0;                        // why the next one was not
};

// The blocks that a level of the tree is the hashes of.  fetch() is called by several
// threads; `buffer` has room for the run.
class block_source {
public:
    virtual ~block_source() = default;
    [[nodiscard]] virtual std::uint32_t block_size() const = 0;
    [[nodiscard]] virtual bool needs_buffer() const = 0;
    [[nodiscard]] virtual unsigned steps_per_piece() const { return 1; }
    [[nodiscard]] virtual fetched_run fetch(const block_run &run, std::uint8_t *buffer) = 0;
    virtual void let_go(const block_run &) const {}  // the run is hashed
    // A line about a block that is hashed to `out`.
    virtual void trace(std::uint64_t index, std::uint8_t *out) const = 0;
    [[nodiscard]] virtual bool is_ordered() const { return false; }  // runs must come one after the other
    virtual void show_progress(std::uint64_t) const {}               // bytes more are hashed
};

// The covered area: the input and, in a partition, the zeros behind it.  What is
// fetched is written to the copy at once.
class data_blocks final : public block_source {
public:
    data_blocks(const ttd_input_image &input, std::uint32_t block_size, ttd_image_copy *copy)
        : input_(input), block_size_(block_size), copy_(copy) {}

    [[nodiscard]] std::uint32_t block_size() const override { return block_size_; }
    [[nodiscard]] bool needs_buffer() const override { return true; }
    [[nodiscard]] unsigned steps_per_piece() const override { return STEPS_PER_PIECE; }
    [[nodiscard]] bool is_ordered() const override { return copy_ && !copy_->takes_pieces_in_any_order(); }
    void show_progress(std::uint64_t bytes) const override { mktfs_progress_add(bytes); }

    [[nodiscard]] fetched_run fetch(const block_run &run, std::uint8_t *buffer) override {
        const std::uint64_t start = run.first * block_size_;
        const std::uint64_t end = start + std::uint64_t{run.count} * block_size_;
        if (input_.size() == 0)
            return {.error = EINVAL};
        const bool has_data = next_data(start, end) < end;
        if (!has_data && !is_ordered() && verbose <= 2)
            return {.count = run.count};
        if (const std::uint8_t *bytes = input_.in_place(start, end - start))
            return {.bytes = bytes, .count = run.count};
        std::uint64_t good = end;
        const int err = read(start, end, buffer, good);
        if (is_ordered() && start < input_.size())
            copy_->write(start, buffer, std::min(good, input_.size()) - start);
        return {
            .bytes = buffer, .count = static_cast<std::uint32_t>((good - start) / block_size_), .error = err};
    }

    void let_go(const block_run &run) const override {
        input_.let_go(run.first * block_size_, std::uint64_t{run.count} * block_size_);
    }

    void trace(std::uint64_t index, std::uint8_t *out) const override {
        mktfs_log(MKTFS_LOG_INFO, "ttd: hashing data block %lu of size %u at hash_ptr %p\n", index,
                  block_size_, static_cast<void *>(out));
    }

private:
    // `end` when nothing but zeros comes before it.
    [[nodiscard]] std::uint64_t next_data(std::uint64_t from, std::uint64_t end) const {
        const std::uint64_t found = input_.next_data(from);
        return found < input_.size() ? std::min(found, end) : end;
    }

    // The bytes [start, end) of the covered area; `good` is where a failed read ended.
    [[nodiscard]] int read(std::uint64_t start, std::uint64_t end, std::uint8_t *buffer,
                           std::uint64_t &good) {
        for (std::uint64_t at = start; at < end;) {
            const std::uint64_t data = next_data(at, end);
            std::memset(buffer + (at - start), 0, data - at);
            at = std::min(input_.next_hole(data), end);
            if (data == end)
                return 0;
            std::uint64_t done = 0;
            if (const int err = input_.read(data, buffer + (data - start), at - data, done); err != 0) {
                good = data + done;
                return err;
            }
            if (copy_ && !is_ordered())
                copy_->write(data, buffer + (data - start), at - data);
        }
        return 0;
    }

    const ttd_input_image &input_;
    const std::uint32_t block_size_;
    ttd_image_copy *const copy_;  // null: only the tree is wanted
};

// The hash blocks of a finished level.
class level_blocks final : public block_source {
public:
    level_blocks(const std::uint8_t *level, std::uint32_t block_size)
        : level_(level), block_size_(block_size) {}

    [[nodiscard]] std::uint32_t block_size() const override { return block_size_; }
    [[nodiscard]] bool needs_buffer() const override { return false; }
    [[nodiscard]] fetched_run fetch(const block_run &run, std::uint8_t *) override {
        return {.bytes = level_ + run.first * block_size_, .count = run.count};
    }
    void trace(std::uint64_t index, std::uint8_t *) const override {
        mktfs_log(MKTFS_LOG_INFO, "ttd: hashing hash block '%zu'\n", static_cast<std::size_t>(index));
    }

private:
    const std::uint8_t *const level_;
    const std::uint32_t block_size_;
};

// Hashes the blocks of a source into a level, in pieces that the workers share.  The
// outcome and its messages are those of hashing block after block.
class level_hasher {
public:
    level_hasher(ttd_ctx &ctx, tcrypto_ctx *digest, const ttd_build_means &means, block_source &source,
                 std::uint8_t *level)
        : ctx_(ctx), digest_(digest), source_(source), level_(level),
          step_blocks_(std::max(STEP_SIZE / source.block_size(), 1U)),
          piece_blocks_(step_blocks_ * source.steps_per_piece()),
          workers_(verbose > 2 || source.is_ordered() ? nullptr : means.workers),
          lane_count_(workers_ ? means.worker_count : 1) {}

    // The first `count` blocks of the source.
    [[nodiscard]] int run(std::uint64_t count) {
        if (!allocate())
            return MKTFS_FAIL(ENOMEM, "ttd: unable to allocate memory for read buffer\n");
        count_ = count;
        const auto do_piece = [](void *self, std::size_t piece, unsigned worker) {
            static_cast<level_hasher *>(self)->hash_piece(piece, worker);
        };
        talg_workers_run(workers_, do_piece, this, (count + piece_blocks_ - 1) / piece_blocks_);
        source_.show_progress(hashed_);
        return report_first_failure();
    }

private:
    // What a worker needs, and its first failure.
    struct lane {
        ttd_bytes buffer;
        std::size_t failed_piece = SIZE_MAX;
        std::uint64_t failed_block = 0;
        int read_error = 0;
        ttd_hash_failure hash_failure;  // where reading did not fail
    };

    // Without a digest context for each worker, the caller works alone.
    [[nodiscard]] bool allocate() {
        if (!digests_.allocate(ctx_.crypto, digest_, lane_count_))
            workers_ = nullptr;
        lanes_.reset(new (std::nothrow) lane[lane_count_]);
        for (unsigned i = 0; lanes_ && source_.needs_buffer() && i < lane_count_; ++i)
            if (!lanes_[i].buffer.allocate(std::size_t{step_blocks_} * source_.block_size()))
                return false;
        return lanes_ != nullptr;
    }

    // Pieces are taken in order, so those before the first that fails all get done.
    void hash_piece(std::size_t piece, unsigned worker) {
        if (piece > first_failed_)
            return;
        const std::uint64_t first = std::uint64_t{piece} * piece_blocks_;
        const std::uint64_t end = std::min(first + piece_blocks_, count_);
        block_run run = {.first = first};
        for (; run.first < end; run.first += run.count) {
            run.count = static_cast<std::uint32_t>(std::min<std::uint64_t>(step_blocks_, end - run.first));
            if (!hash_step(run, worker)) {
                lanes_[worker].failed_piece = piece;
                return note_failure(piece);
            }
        }
    }

    [[nodiscard]] bool hash_step(const block_run &run, unsigned worker) {
        lane &mine = lanes_[worker];
        const fetched_run fetched = source_.fetch(run, mine.buffer.data());
        if (verbose > 2) {
            traced_error_ = hash_one_by_one(run.first, fetched);
            if (traced_error_ != 0)
                return false;
        } else {
            if (hash_fetched(run.first, fetched, worker, mine) != 0)
                return false;
            note_progress(std::uint64_t{run.count} * source_.block_size(), worker);
        }
        source_.let_go(run);
        return true;
    }

    void note_failure(std::size_t piece) {
        std::size_t known = first_failed_;
        while (piece < known && !first_failed_.compare_exchange_weak(known, piece)) {
        }
    }

    // Only the caller's own thread shows it.
    void note_progress(std::uint64_t bytes, unsigned worker) {
        hashed_ += bytes;
        if (worker == 0)
            source_.show_progress(hashed_.exchange(0));
    }

    [[nodiscard]] int report_first_failure() const {
        if (first_failed_ == SIZE_MAX || traced_error_ != 0)
            return traced_error_;
        unsigned worker = 0;
        while (lanes_[worker].failed_piece != first_failed_)
            ++worker;
        const lane &failed = lanes_[worker];
        if (failed.read_error != 0)
            return refuse_read(failed.failed_block, failed.read_error);
        return MKTFS_FAIL(ttd_hash_report(failed.hash_failure), "ttd: failed to hash data block %lu\n",
                          failed.failed_block);
    }

    [[nodiscard]] static int refuse_read(std::uint64_t index, int err) {
        return MKTFS_FAIL(err, "ttd: failed to read data block '%lu' (%s)\n", index, strerror(err));
    }

    [[nodiscard]] std::uint8_t *slot(std::uint64_t index) const {
        const std::uint64_t per_block = ctx_.info.hashes_per_block;
        return level_ + index / per_block * ctx_.info.hash_block_size +
               index % per_block * ctx_.info.hash_size;
    }

    // A failure stays in the lane.
    [[nodiscard]] int hash_fetched(std::uint64_t first, const fetched_run &fetched, unsigned worker,
                                   lane &mine) {
        if (const int err = hash_by_hash_block(first, fetched, digests_.of(worker), mine); err != 0)
            return err;
        mine.failed_block = first + fetched.count;
        mine.read_error = fetched.error;
        return fetched.error;
    }

    // Hashes lie side by side as far as a hash block goes, and on into the next where no
    // tail is between them.
    [[nodiscard]] int hash_by_hash_block(std::uint64_t first, const fetched_run &fetched, tcrypto_ctx *digest,
                                         lane &mine) {
        const std::uint64_t per_block = ctx_.info.hashes_per_block;
        const bool gapless = per_block * ctx_.info.hash_size == ctx_.info.hash_block_size;
        const std::uint32_t size = source_.block_size();
        std::uint64_t count = 0;
        for (std::uint64_t done = 0; done < fetched.count; done += count) {
            const std::uint64_t index = first + done;
            const std::uint64_t left = fetched.count - done;
            count = gapless ? left : std::min(left, per_block - index % per_block);
            if (!fetched.bytes) {
                ttd_fill_slots(slot(index), count, ctx_.info.zero_hash);
                continue;
            }
            const ttd_block_run run = {.data = fetched.bytes + done * size, .length = size, .count = count};
            if (const int err = ttd_hash_blocks(&ctx_, run, digest, slot(index), &mine.hash_failure);
                err != 0) {
                mine.failed_block = index + mine.hash_failure.block;
                return err;
            }
        }
        return 0;
    }

    [[nodiscard]] int hash_one_by_one(std::uint64_t first, const fetched_run &fetched) {
        const std::uint32_t size = source_.block_size();
        for (std::uint64_t i = 0; i < fetched.count; ++i) {
            const std::uint8_t *block = fetched.bytes + i * size;
            std::uint8_t *out = slot(first + i);
            if (verbose > 2)
                source_.trace(first + i, out);
            if (const int err = ttd_hash_block(&ctx_, block, size, digest_, out); err != 0)
                return MKTFS_FAIL(err, "ttd: failed to hash data block %lu\n", first + i);
            if (verbose > 3)
                dump_hash(block, out, ctx_.info.hash_size);
        }
        return fetched.error == 0 ? 0 : refuse_read(first + fetched.count, fetched.error);
    }

    ttd_ctx &ctx_;
    tcrypto_ctx *const digest_;  // the caller's
    block_source &source_;
    std::uint8_t *const level_;
    const std::uint32_t step_blocks_;
    const std::uint32_t piece_blocks_;
    talg_workers *workers_;
    const unsigned lane_count_;
    std::uint64_t count_ = 0;
    ttd_worker_digests digests_;
    std::unique_ptr<lane[]> lanes_;
    std::atomic<std::size_t> first_failed_ = SIZE_MAX;  // piece
    std::atomic<std::uint64_t> hashed_ = 0;             // bytes not shown yet
    int traced_error_ = 0;
};

}  // namespace

void ttd_fill_slots(std::uint8_t *out, std::uint64_t count, const ttd_bytes &hash) {
    for (std::uint64_t i = 0; i < count; ++i)
        std::memcpy(out + i * hash.size(), hash.data(), hash.size());
}

int ttd_hash_data(ttd_ctx &ctx, tcrypto_ctx *digest, const ttd_build_means &means, std::uint64_t count,
                  std::uint8_t *level) {
    data_blocks blocks(means.input, ctx.info.block_size, means.copy);
    return level_hasher(ctx, digest, means, blocks, level).run(count);
}

int ttd_hash_level(ttd_ctx &ctx, tcrypto_ctx *digest, const ttd_build_means &means, const std::uint8_t *below,
                   std::uint64_t count, std::uint8_t *level) {
    level_blocks blocks(below, ctx.info.hash_block_size);
    return level_hasher(ctx, digest, means, blocks, level).run(count);
}
