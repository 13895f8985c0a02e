#include "ttd/verify_mode.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "base/log.h"
#include "base/progress.h"
#include "io/io.h"
#include "talg/workers.h"
#include "th/handle.h"
#include "ttd/caches.h"
#include "ttd/context.h"
#include "ttd/hash.h"
#include "ttd/image_superblock.h"
#include "ttd/options.h"
#include "ttd/path.h"
#include "ttd/signature.h"
#include "ttd/stats.h"
#include "ttd/superblock.h"
#include "ttd/verify_range.h"

namespace {

using ttd_io_ptr = th_handle<ttd_io, ttd_io_destroy>;
using digest_ptr = th_handle<tcrypto_ctx, ttd_hash_done>;
using workers_ptr = th_handle<talg_workers, talg_workers_destroy>;

int read_image(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    return mktfs_io_read(static_cast<mktfs_io *>(io->handle), offset, buffer, length);
}

// The image belongs to the driver.
void leave_image(ttd_io *) {}

ttd_io *wrap_image(mktfs_io &image) {
    return new (std::nothrow) ttd_io{.read = read_image, .destroy = leave_image, .handle = &image};
}

constexpr std::uint64_t LET_GO_SIZE = 1024 * 1024;  // bytes, released together

// Shows the progress, and releases pages that are proven.
class proof_follower {
public:
    proof_follower(mktfs_io &image, std::uint32_t block_size) : image_(image), block_size_(block_size) {}

    void follow(ttd_range &range) {
        range.passed_arg = this;
        range.passed = [](void *self, std::uint32_t, std::uint32_t count) {
            mktfs_progress_add(count * static_cast<proof_follower *>(self)->block_size_);
        };
        range.hashed = [](void *arg, std::uint32_t first, std::uint32_t count) {
            const auto &self = *static_cast<proof_follower *>(arg);
            const std::uint64_t start = first * self.block_size_;
            const std::uint64_t end = (start + count * self.block_size_) / LET_GO_SIZE * LET_GO_SIZE;
            if (end > start)
                mktfs_io_drop(&self.image_, end - LET_GO_SIZE, LET_GO_SIZE);
        };
    }

private:
    mktfs_io &image_;
    const std::uint64_t block_size_;
};

// One verification, in the order of its steps; what a step made is released in the
// reverse order when the object goes.
class image_verifier {
public:
    image_verifier(mktfs_filesystem &fs, mktfs_io &image)
        : fs_(fs), image_(image), engine_(ttd_context(fs).engine) {}
    image_verifier(const image_verifier &) = delete;
    image_verifier &operator=(const image_verifier &) = delete;
    ~image_verifier() {
        ttd_free_vblkbitmap(&engine_);
        ttd_free_caches(&engine_);
        ttd_free_slabs(&engine_);
    }

    [[nodiscard]] int run(const char *key_path) {
        engine_.verbosity = verbose;
        if (!key_path)
            return MKTFS_FAIL(EINVAL, "ttd: missing -K option\n");
        if (const int err = read_superblock(); err != 0)
            return err;
        if (const int err = ttd_tcrypto_init(&engine_); err != 0)
            return err;
        if (const int err = ttd_verify_superblock(&engine_.superblock, key_path); err != 0)
            return MKTFS_FAIL(err, "ttd: superblock signature verification failed\n");
        if (const int err = ttd_hash_init(&engine_, th_out(digest_)); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to initialize the hash state\n");
        if (const int err = derive_geometry(); err != 0)
            return err;
        if (const int err = create_buffers(); err != 0)
            return err;
        if (const int err = ttd_hash_zero_block(&engine_, digest_.get()); err != 0)
            return err;
        if (const int err = open_image(); err != 0)
            return err;
        return verify_blocks();
    }

private:
    [[nodiscard]] int read_superblock() {
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: reading superblock\n");
        if (const int err = ttd_read_superblock(&image_, &engine_.superblock); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to read superblock\n");
        if (engine_.superblock.magic != TTD_MAGIC)
            return MKTFS_FAIL(EINVAL, "ttd: invalid superblock\n");
        if (engine_.superblock.version != TTD_VERSION)
            return MKTFS_FAIL(EINVAL, "ttd: unsupported superblock version\n");
        return 0;
    }

    [[nodiscard]] int derive_geometry() {
        ttd_info &info = engine_.info;
        if (const int err = ttd_superblock2info(&engine_.superblock, &info); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to convert superblock params\n");
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: generating merkle information\n");
        if (const int err = ttd_generate_info(&info); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to generate information\n");
        info.present_blocks = ttd_blocks_within(info, mktfs_io_size(&image_));
        if (verbose > 1)
            print_stats();
        return 0;
    }

    // The printer knows a partition by the option alone, so the option follows the image.
    void print_stats() {
        if ((engine_.superblock.flags & TTD_FLAG_PARTITION) != 0)
            ttd_opts.flags |= TTD_OPT_PARTITION;
        ttd_print_stats(&fs_);
    }

    [[nodiscard]] int create_buffers() {
        const std::uint32_t n = engine_.info.hash_blocks;
        const std::size_t slots = n < 10 ? n : std::max<std::uint32_t>(10, n / 10);
        if (const int err = ttd_create_slabs(&engine_, slots); err != 0)
            return err;
        if (const int err = ttd_create_caches(&engine_, slots); err != 0)
            return err;
        return ttd_create_vblkbitmap(&engine_);
    }

    [[nodiscard]] int open_image() {
        hash_io_.reset(wrap_image(image_));
        if (!hash_io_)
            return MKTFS_FAIL(ENOMEM, "ttd: failed to create hash io object\n");
        data_io_.reset(wrap_image(image_));
        if (!data_io_)
            return MKTFS_FAIL(ENOMEM, "ttd: failed to create data io object\n");
        engine_.hash_io = hash_io_.get();
        engine_.data_io = data_io_.get();
        return 0;
    }

    // In place in the mapping, which holds all blocks that are present.
    [[nodiscard]] int verify_blocks() {
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: verifying all data blocks\n");
        const std::uint64_t size = engine_.superblock.fssize;
        // A hostile size may have more blocks than there are indices; they are absent.
        const std::uint64_t indexed = std::min(size, std::uint64_t{UINT32_MAX} * engine_.info.block_size);
        ttd_range whole;
        if (const int err = ttd_setup_verify(&engine_, 0, indexed, indexed, &whole); err != 0)
            return err;
        const mktfs_progress progress(size, 1);
        proof_follower follower(image_, engine_.info.block_size);
        follower.follow(whole);
        whole.worker_count = ttd_context(fs_).threads;
        const workers_ptr workers(talg_workers_create(whole.worker_count));
        whole.workers = workers.get();
        const int err =
            ttd_verify_range(&engine_, &whole, digest_.get(), mktfs_io_buf(&image_), nullptr, nullptr);
        return indexed < size ? EIO : err;
    }

    mktfs_filesystem &fs_;
    mktfs_io &image_;
    ttd_ctx &engine_;
    // Released after the destructor's body, in this order: digest, then I/O.
    ttd_io_ptr data_io_;
    ttd_io_ptr hash_io_;
    digest_ptr digest_;
};

}  // namespace

int ttd_verify_filesystem(mktfs_filesystem *fs, mktfs_io *image) {
    return image_verifier(*fs, *image).run(ttd_opts.key_path);
}
