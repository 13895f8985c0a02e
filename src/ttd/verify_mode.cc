#include "ttd/verify_mode.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "base/log.h"
#include "base/progress.h"
#include "io/io.h"
#include "th/handle.h"
#include "ttd/caches.h"
#include "ttd/context.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/options.h"
#include "ttd/read_access.h"
#include "ttd/signature.h"
#include "ttd/stats.h"
#include "ttd/superblock.h"
#include "ttd/verify.h"

namespace {

// The image is proven in windows of this many bytes, and its pages are let go of
// behind each.
constexpr std::uint64_t WINDOW = 4 * 1024 * 1024;

using ttd_io_ptr = th_handle<ttd_io, ttd_io_destroy>;
using digest_ptr = th_handle<tcrypto_ctx, ttd_hash_done>;

int read_image(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    return mktfs_io_read(static_cast<mktfs_io *>(io->handle), offset, buffer, length);
}

// The image belongs to the driver.
void leave_image(ttd_io *) {}

ttd_io *wrap_image(mktfs_io &image) {
    return new (std::nothrow) ttd_io{.read = read_image, .destroy = leave_image, .handle = &image};
}

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
        engine_.hash_io = nullptr;
        engine_.data_io = nullptr;
    }

    [[nodiscard]] int run() {
        using step = int (image_verifier::*)();
        constexpr step steps[] = {
            &image_verifier::read_superblock, &image_verifier::check_signature,
            &image_verifier::derive_geometry, &image_verifier::prepare_buffers,
            &image_verifier::open_image,      &image_verifier::verify_blocks,
        };
        engine_.verbosity = verbose;
        for (const step next : steps)
            if (const int err = (this->*next)(); err != 0)
                return err;
        return 0;
    }

private:
    [[nodiscard]] int read_superblock() {
        if (!ttd_opts.key_path)
            return MKTFS_FAIL(EINVAL, "ttd: missing -K option\n");
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

    [[nodiscard]] int check_signature() {
        if (const int err = ttd_tcrypto_init(&engine_); err != 0)
            return err;
        if (const int err = ttd_verify_superblock(&engine_.superblock, ttd_opts.key_path); err != 0)
            return MKTFS_FAIL(err, "ttd: superblock signature verification failed\n");
        if (const int err = ttd_hash_init(&engine_, th_out(digest_)); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to initialize the hash state\n");
        return 0;
    }

    [[nodiscard]] int derive_geometry() {
        const ttd_superblock &superblock = engine_.superblock;
        int err = ttd_superblock2info(&superblock, &engine_.info);
        if (err == 0 && !ttd_superblock_fits(superblock, engine_.info, mktfs_io_size(&image_)))
            err = EINVAL;
        if (err != 0)
            return MKTFS_FAIL(err, "ttd: failed to convert superblock params\n");
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: generating merkle information\n");
        if (err = ttd_generate_info(&engine_.info); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to generate information\n");
        if (verbose > 1) {
            if ((superblock.flags & TTD_FLAG_PARTITION) != 0)
                ttd_opts.flags |= TTD_OPT_PARTITION;
            ttd_print_stats(&fs_);
        }
        return 0;
    }

    [[nodiscard]] std::size_t slots() const {
        const std::uint32_t n = engine_.info.hash_blocks;
        return n < 10 ? n : std::max<std::uint32_t>(10, n / 10);
    }

    [[nodiscard]] int prepare_buffers() {
        if (const int err = ttd_create_slabs(&engine_, slots()); err != 0)
            return err;
        if (const int err = ttd_create_caches(&engine_, slots()); err != 0)
            return err;
        if (const int err = ttd_create_vblkbitmap(&engine_); err != 0)
            return err;
        return ttd_hash_zero_block(&engine_, digest_.get());
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

    [[nodiscard]] int verify_blocks() {
        if (verbose)
            mktfs_log(MKTFS_LOG_INFO, "ttd: verifying all data blocks\n");
        const std::uint64_t size = engine_.superblock.fssize;
        ttd_range whole;
        if (const int err = ttd_setup_verify(&engine_, 0, size, size, &whole); err != 0)
            return err;
        const mktfs_progress progress(size, 1);
        const auto window_blocks = static_cast<std::uint32_t>(WINDOW / engine_.info.block_size);
        int err = 0;
        for (std::uint32_t first = whole.first; first < whole.end;) {
            const std::uint32_t count = std::min(window_blocks, whole.end - first);
            err |= verify_window(first, count);
            first += count;
        }
        return err;
    }

    // In place in the mapping; only a last block that reaches past the image has to
    // be read, and refused, by the engine.
    [[nodiscard]] int verify_window(std::uint32_t first, std::uint32_t count) {
        const std::uint64_t offset = std::uint64_t{first} * engine_.info.block_size;
        const std::uint64_t length = std::uint64_t{count} * engine_.info.block_size;
        const ttd_range window = {.first = first, .end = first + count};
        const std::uint8_t *bytes = mktfs_io_buf(&image_);
        const bool mapped = bytes && offset + length <= mktfs_io_size(&image_);
        const int err = ttd_verify_range(&engine_, &window, digest_.get(), mapped ? bytes + offset : nullptr,
                                         nullptr, nullptr);
        mktfs_io_drop(&image_, offset, length);
        mktfs_progress_add(length);
        return err;
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
    return image_verifier(*fs, *image).run();
}
