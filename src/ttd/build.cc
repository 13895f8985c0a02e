#include "ttd/build.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "base/log.h"
#include "base/progress.h"
#include "fs/filesystem_record.h"
#include "io/io.h"
#include "ttd/context.h"
#include "ttd/custom_sign.h"
#include "ttd/hash.h"
#include "ttd/merkle.h"
#include "ttd/options.h"
#include "ttd/signature.h"
#include "ttd/stats.h"

namespace {

constexpr std::uint64_t ZERO_PIECE = 256 * 1024;

bool has_option(std::uint32_t flag) {
    return (ttd_opts.flags & flag) != 0;
}

// Partition mode that also writes the partition, so that tree and superblock have
// fixed places in the output.
bool writes_partition() {
    return has_option(TTD_OPT_PARTITION) && !has_option(TTD_OPT_META_ONLY);
}

void fill_superblock(ttd_run_context &run) {
    ttd_superblock &sb = run.engine.superblock;
    sb = ttd_superblock{};
    sb.magic = TTD_MAGIC;
    sb.version = TTD_VERSION;
    sb.blksize = run.engine.info.block_size;
    sb.hblksize = run.engine.info.hash_block_size;
    sb.hashtype = ttd_opts.hash;
    sb.sigtype = ttd_opts.signature;
    sb.rollback = ttd_opts.rollback;
}

void choose_sizes(ttd_run_context &run) {
    const bool calculate = has_option(TTD_OPT_CALCULATE);
    if (!has_option(TTD_OPT_PARTITION))
        run.engine.info.covered_size = calculate ? ttd_opts.calculate_size : run.input_size;
    if (calculate) {
        run.engine.superblock.sigtype = 1;  // a calculation needs no -S; any known code starts the crypto
        run.input_size = ttd_opts.calculate_size;
    }
}

int check_options(ttd_run_context &run) {
    const ttd_info &info = run.engine.info;
    if (run.engine.superblock.hashtype == 0)
        return MKTFS_FAIL(EINVAL, "ttd: missing -H option\n");
    if (const int err = ttd_tcrypto_init(&run.engine); err != 0)
        return err;
    if (info.covered_size == 0)
        return MKTFS_FAIL(EINVAL, "ttd: input size is zero\n");
    if (info.block_size == 0 || info.hash_block_size == 0)
        return MKTFS_FAIL(EINVAL, "ttd: missing -B option\n");
    if (info.covered_size % info.block_size != 0)
        return MKTFS_FAIL(EINVAL, "ttd: input size '%lu' is not a multiple of the block size '%u'\n",
                          info.covered_size, info.block_size);
    if (info.hash_size == 0)
        return MKTFS_FAIL(EINVAL, "ttd: missing -H option\n");
    if (info.salt && info.salt.size() < info.hash_size)
        return MKTFS_FAIL(EINVAL, "ttd: salt size '%u' must be at least of digest size '%u'\n",
                          static_cast<unsigned>(info.salt.size()), info.hash_size);
    return 0;
}

// A calculation prints what the 32-bit numbers of the format come to; an image is
// only built where they are true.
int derive_geometry(ttd_info &info) {
    if (verbose)
        mktfs_log(MKTFS_LOG_INFO, "ttd: generating merkle filesystem geometry information\n");
    int err = ttd_generate_info(&info);
    if (err == 0 && !has_option(TTD_OPT_CALCULATE) && !ttd_info_is_exact(info))
        err = EINVAL;
    if (err != 0)
        mktfs_log(MKTFS_LOG_ERROR, "ttd: failed to generate filesystem geometry information\n");
    return err;
}

int choose_salt(ttd_ctx &engine) {
    ttd_bytes &salt = engine.info.salt;
    if (!salt) {
        if (!salt.allocate(std::size_t{2} * engine.info.hash_size))
            return MKTFS_FAIL(ENOMEM, "ttd: failed to allocate memory for salt\n");
        if (tcrypto_random_bytes(salt.data(), salt.size()) != TCRYPTO_OK) {
            salt.clear();
            return MKTFS_FAIL(EFAULT, "ttd: failed to generate random salt\n");
        }
    }
    std::ranges::copy(salt.span(), engine.superblock.salt);
    engine.superblock.saltsize = static_cast<std::uint32_t>(salt.size());
    return 0;
}

// The block that holds the end of the inner image is hashed with zeros behind it;
// where the tree begins in that same block, a reader sees the tree instead.
void warn_of_shared_block(const ttd_run_context &run, std::uint64_t tree_offset) {
    const std::uint64_t block_size = run.engine.info.block_size;
    const std::uint64_t verifiable = tree_offset / block_size * block_size;
    if (run.input_size > verifiable)
        mktfs_log(
            MKTFS_LOG_WARN,
            "ttd: the last data block shares a block with the hash tree and cannot be verified, at most "
            "%lu bytes fit\n",
            verifiable);
}

int place_in_partition(ttd_run_context &run) {
    ttd_superblock &sb = run.engine.superblock;
    const std::uint64_t partition = run.engine.info.covered_size;
    const std::uint64_t meta_data = ttd_meta_data_size(run.engine.info);
    if (partition < meta_data || partition - meta_data < run.input_size)
        return MKTFS_FAIL(EINVAL,
                          "ttd: combined image '%lu' + meta data '%lu' sizes exceed partition size '%lu'\n",
                          run.input_size, meta_data, partition);
    sb.flags |= TTD_FLAG_PARTITION;
    sb.fssize = run.input_size;
    sb.totalsize = partition;
    sb.offset = partition - meta_data;
    warn_of_shared_block(run, sb.offset);
    return 0;
}

void place_behind_input(ttd_ctx &engine) {
    engine.superblock.fssize = engine.info.covered_size;
    engine.superblock.totalsize = engine.info.covered_size + ttd_meta_data_size(engine.info);
    engine.superblock.offset = engine.info.covered_size;
}

int open_input(const ttd_run_context &run, mktfs_io_ptr &image) {
    const char *path = run.input_path.c_str();
    const int err = has_option(TTD_OPT_PARTITION)
                        ? mktfs_io_mmap_overflow_create(path, run.engine.info.covered_size, th_out(image))
                        : mktfs_io_mmap_create(path, th_out(image));
    if (err != 0)
        return MKTFS_FAIL(err, "ttd: failed to create input image io object (%s)\n", strerror(err));
    const std::uint64_t size = mktfs_io_datasize(image.get());
    if (size != run.input_size)
        return MKTFS_FAIL(EINVAL,
                          "ttd: input image '%s' changed its size from '%lu' to '%lu', build again when "
                          "nothing writes to it\n",
                          path, run.input_size, size);
    return 0;
}

int place_image(ttd_run_context &run) {
    if (has_option(TTD_OPT_PARTITION))
        return place_in_partition(run);
    place_behind_input(run.engine);
    return 0;
}

int sign(ttd_ctx &engine) {
    ttd_superblock &sb = engine.superblock;
    int err = 0;
    if (has_option(TTD_OPT_CUSTOM_SIGN))
        err = ttd_custom_sign_superblock(ttd_opts.signature, ttd_opts.sign_command, &sb);
    else if (!ttd_opts.key_path)
        return MKTFS_FAIL(EINVAL, "ttd: missing -K option\n");
    else
        err = ttd_sign_superblock(&sb, ttd_opts.key_path);
    if (err != 0)
        mktfs_log(MKTFS_LOG_ERROR, "ttd: superblock signature generation failed\n");
    return err;
}

// Zeros from the end of the output up to `size`: a hole where the output can have
// one, written zeros anywhere else.
int fill_with_zeros(mktfs_io &output, std::uint64_t count, std::uint64_t size) {
    if (mktfs_io_extend(&output, size) == 0) {
        mktfs_progress_add(count);
        return 0;
    }
    ttd_bytes zeros;
    if (!zeros.allocate(ZERO_PIECE))
        return ENOMEM;
    int err = 0;
    while (err == 0 && count > 0) {
        const std::uint64_t piece = std::min(count, ZERO_PIECE);
        err = mktfs_io_write(&output, -1, zeros.data(), piece);
        mktfs_progress_add(piece);
        count -= piece;
    }
    return err;
}

int write_input(const ttd_run_context &run, mktfs_io &image, mktfs_io &output) {
    const std::uint64_t covered = run.engine.info.covered_size;
    int err = mktfs_io_merge(&output, &image, covered, mktfs_progress_add);
    if (err == 0 && has_option(TTD_OPT_PARTITION))
        err = fill_with_zeros(output, covered - run.input_size, covered);
    if (err != 0)
        mktfs_log(MKTFS_LOG_ERROR, "ttd: failed to write input image to output (%s)\n", strerror(err));
    return err;
}

int write_image(const ttd_run_context &run, mktfs_io &image, const ttd_bytes &tree, mktfs_io &output) {
    const ttd_superblock &sb = run.engine.superblock;
    if (!has_option(TTD_OPT_META_ONLY))
        if (const int err = write_input(run, image, output); err != 0)
            return err;
    const auto tree_offset = writes_partition() ? static_cast<std::int64_t>(sb.offset) : -1;
    if (const int err = mktfs_io_write(&output, tree_offset, tree.data(), tree.size()); err != 0)
        return MKTFS_FAIL(err, "ttd: failed to write hash tree to output\n");
    const auto superblock_offset =
        writes_partition() ? static_cast<std::int64_t>(sb.totalsize - TTD_SUPERBLOCK_SIZE) : -1;
    if (const int err = mktfs_io_write(&output, superblock_offset, &sb, sizeof sb); err != 0)
        return MKTFS_FAIL(err, "ttd: failed to write superblock\n");
    const std::uint64_t size =
        has_option(TTD_OPT_META_ONLY) ? ttd_meta_data_size(run.engine.info) : sb.totalsize;
    if (mktfs_io_size(&output) > size)
        return MKTFS_FAIL(EIO,
                          "ttd: the output holds more than the image, does another process write to it?\n");
    return 0;
}

int ttd_build_filesystem(ttd_run_context &run, mktfs_io &output) {
    ttd_ctx &engine = run.engine;
    if (const int err = choose_salt(engine); err != 0)
        return err;
    if (const int err = place_image(run); err != 0)
        return err;
    mktfs_io_ptr image;
    if (const int err = open_input(run, image); err != 0)
        return err;
    const mktfs_progress progress(engine.info.covered_size, has_option(TTD_OPT_META_ONLY) ? 1 : 2);
    ttd_bytes tree;
    if (const int err = ttd_build_tree(engine, *image, tree); err != 0)
        return err;
    std::ranges::copy(engine.info.root_hash.span(), engine.superblock.roothash);
    if (const int err = sign(engine); err != 0)
        return err;
    return write_image(run, *image, tree, output);
}

}  // namespace

int ttd_fsys_build(mktfs_filesystem *fs, mktfs_io *output) {
    ttd_run_context &run = ttd_context(*fs);
    fill_superblock(run);
    choose_sizes(run);
    if (const int err = check_options(run); err != 0)
        return err;
    if (const int err = derive_geometry(run.engine.info); err != 0)
        return err;
    if (has_option(TTD_OPT_CALCULATE)) {
        ttd_print_stats(fs);
        return 0;
    }
    if (ttd_opts.signature == 0)
        return MKTFS_FAIL(EINVAL, "ttd: missing -S option\n");
    if (!output)
        return EINVAL;
    return ttd_build_filesystem(run, *output);
}
