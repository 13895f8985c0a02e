#include "ttd/build.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "base/log.h"
#include "base/progress.h"
#include "io/io.h"
#include "talg/workers.h"
#include "th/handle.h"
#include "ttd/context.h"
#include "ttd/custom_sign.h"
#include "ttd/hash.h"
#include "ttd/image_copy.h"
#include "ttd/input_image.h"
#include "ttd/merkle.h"
#include "ttd/options.h"
#include "ttd/signature.h"
#include "ttd/stats.h"

namespace {

using workers_ptr = th_handle<talg_workers, talg_workers_destroy>;

bool has_option(const ttd_run_context &run, std::uint32_t flag) {
    return (run.options->flags & flag) != 0;
}

// Partition mode that also writes the partition, so that tree and superblock have
// fixed places in the output.
bool writes_partition(const ttd_run_context &run) {
    return has_option(run, TTD_OPT_PARTITION) && !has_option(run, TTD_OPT_META_ONLY);
}

void fill_superblock(ttd_run_context &run) {
    ttd_superblock &sb = run.engine.superblock;
    sb = ttd_superblock{};
    sb.magic = TTD_MAGIC;
    sb.version = TTD_VERSION;
    sb.blksize = run.engine.info.block_size;
    sb.hblksize = run.engine.info.hash_block_size;
    sb.hashtype = run.options->hash;
    // A calculation needs no -S; any known code starts the crypto.
    sb.sigtype = has_option(run, TTD_OPT_CALCULATE) ? 1 : run.options->signature;
    sb.rollback = run.options->rollback;
}

void choose_sizes(ttd_run_context &run) {
    const bool calculate = has_option(run, TTD_OPT_CALCULATE);
    if (!has_option(run, TTD_OPT_PARTITION))
        run.engine.info.covered_size = calculate ? run.options->calculate_size : run.input_size;
    if (calculate)
        run.input_size = run.options->calculate_size;
}

int start_crypto(ttd_ctx &engine) {
    if (engine.superblock.hashtype == 0)
        return MKTFS_FAIL(EINVAL, "ttd: missing -H option\n");
    return ttd_tcrypto_init(&engine);
}

// With the digest's size known.
int check_options(const ttd_info &info) {
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
int derive_geometry(ttd_run_context &run) {
    if (verbose)
        mktfs_log(MKTFS_LOG_INFO, "ttd: generating merkle filesystem geometry information\n");
    int err = ttd_generate_info(&run.engine.info);
    if (err == 0 && !has_option(run, TTD_OPT_CALCULATE) && !ttd_info_is_exact(run.engine.info))
        err = EINVAL;
    if (err != 0)
        return MKTFS_FAIL(err, "ttd: failed to generate filesystem geometry information\n");
    return 0;
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

int open_input(const ttd_run_context &run, ttd_input_image &input) {
    const char *path = run.input_path.c_str();
    if (const int err = input.open(path); err != 0)
        return MKTFS_FAIL(err, "ttd: failed to create input image io object (%s)\n", strerror(err));
    if (input.size() != run.input_size)
        return MKTFS_FAIL(EINVAL,
                          "ttd: input image '%s' changed its size from '%lu' to '%lu', build again when "
                          "nothing writes to it\n",
                          path, run.input_size, input.size());
    return 0;
}

int place_image(ttd_run_context &run) {
    if (has_option(run, TTD_OPT_PARTITION))
        return place_in_partition(run);
    place_behind_input(run.engine);
    return 0;
}

int refuse_signature(int err) {
    return MKTFS_FAIL(err, "ttd: superblock signature generation failed\n");
}

int sign(ttd_run_context &run) {
    ttd_superblock &sb = run.engine.superblock;
    const ttd_options &options = *run.options;
    if (has_option(run, TTD_OPT_CUSTOM_SIGN)) {
        const int err = ttd_custom_sign_superblock(options.signature, options.sign_command, &sb);
        return err == 0 ? 0 : refuse_signature(err);
    }
    if (!options.key_path)
        return MKTFS_FAIL(EINVAL, "ttd: missing -K option\n");
    const int err = ttd_sign_superblock(&sb, options.key_path);
    return err == 0 ? 0 : refuse_signature(err);
}

// Whether a key file is certainly not there for this process.
bool is_out_of_reach(const char *path) {
    constexpr int reasons[] = {ENOENT, EACCES, ENOTDIR, ELOOP, ENAMETOOLONG};
    return faccessat(AT_FDCWD, path, R_OK, AT_EACCESS) != 0 &&
           std::ranges::find(reasons, errno) != std::end(reasons);
}

// What would fail only after the whole input was hashed, with the same messages.  A
// key is not read here, since a pipe can be read only once.
int check_signer(const ttd_run_context &run) {
    const ttd_options &options = *run.options;
    if (has_option(run, TTD_OPT_CUSTOM_SIGN)) {
        const int err = ttd_check_custom_sign();
        return err == 0 ? 0 : refuse_signature(err);
    }
    if (!options.key_path || !is_out_of_reach(options.key_path))
        return 0;
    ttd_superblock unsigned_superblock = run.engine.superblock;
    const int err = ttd_sign_superblock(&unsigned_superblock, options.key_path);
    return err == 0 ? 0 : refuse_signature(err);
}

int hash_input(ttd_run_context &run, ttd_input_image &input, ttd_image_copy *copy, ttd_bytes &tree) {
    ttd_ctx &engine = run.engine;
    const mktfs_progress progress(engine.info.covered_size, 1);
    const workers_ptr workers(talg_workers_create(run.threads));
    if (!copy)
        input.map();
    else if (!input.is_sparse())
        copy->reserve(input.size());
    const ttd_build_means means = {
        .input = input, .copy = copy, .workers = workers.get(), .worker_count = run.threads};
    if (const int err = ttd_build_tree(engine, means, tree); err != 0)
        return err;
    std::ranges::copy(engine.info.root_hash.span(), engine.superblock.roothash);
    return 0;
}

int write_meta_data(const ttd_run_context &run, const ttd_bytes &tree, mktfs_io &output) {
    const ttd_superblock &sb = run.engine.superblock;
    const auto tree_offset = writes_partition(run) ? static_cast<std::int64_t>(sb.offset) : -1;
    if (const int err = mktfs_io_write(&output, tree_offset, tree.data(), tree.size()); err != 0)
        return MKTFS_FAIL(err, "ttd: failed to write hash tree to output\n");
    const auto superblock_offset =
        writes_partition(run) ? static_cast<std::int64_t>(sb.totalsize - TTD_SUPERBLOCK_SIZE) : -1;
    if (const int err = mktfs_io_write(&output, superblock_offset, &sb, sizeof sb); err != 0)
        return MKTFS_FAIL(err, "ttd: failed to write superblock\n");
    const std::uint64_t size =
        has_option(run, TTD_OPT_META_ONLY) ? ttd_meta_data_size(run.engine.info) : sb.totalsize;
    if (mktfs_io_size(&output) > size)
        return MKTFS_FAIL(EIO,
                          "ttd: the output holds more than the image, does another process write to it?\n");
    return 0;
}

int write_image(const ttd_run_context &run, ttd_image_copy *copy, const ttd_bytes &tree, mktfs_io &output) {
    if (const int err = copy ? copy->finish(run.engine.info.covered_size) : 0; err != 0)
        return MKTFS_FAIL(err, "ttd: failed to write input image to output (%s)\n", strerror(err));
    return write_meta_data(run, tree, output);
}

// Hashes and signature are of the bytes that were read, but not of what the file holds
// now, and with -M nothing else is kept of them.
int refuse_changed_input(const ttd_run_context &run, const ttd_input_image &input) {
    if (!input.has_changed())
        return 0;
    return MKTFS_FAIL(EINVAL,
                      "ttd: input image '%s' changed while the image was built, build again when nothing "
                      "writes to it\n",
                      run.input_path.c_str());
}

int ttd_build_filesystem(ttd_run_context &run, mktfs_io &output) {
    if (const int err = choose_salt(run.engine); err != 0)
        return err;
    if (const int err = place_image(run); err != 0)
        return err;
    ttd_input_image input;
    if (const int err = open_input(run, input); err != 0)
        return err;
    if (const int err = check_signer(run); err != 0)
        return err;
    std::optional<ttd_image_copy> copy;
    if (!has_option(run, TTD_OPT_META_ONLY))
        copy.emplace(output);
    ttd_image_copy *const target = copy ? &*copy : nullptr;
    ttd_bytes tree;
    if (const int err = hash_input(run, input, target, tree); err != 0)
        return err;
    if (const int err = sign(run); err != 0)
        return err;
    if (const int err = write_image(run, target, tree, output); err != 0)
        return err;
    return refuse_changed_input(run, input);
}

}  // namespace

int ttd_build(ttd_run_context &run, mktfs_io *output) {
    fill_superblock(run);
    choose_sizes(run);
    if (const int err = start_crypto(run.engine); err != 0)
        return err;
    if (const int err = check_options(run.engine.info); err != 0)
        return err;
    if (const int err = derive_geometry(run); err != 0)
        return err;
    if (has_option(run, TTD_OPT_CALCULATE)) {
        ttd_print_run_stats(run);
        return 0;
    }
    if (run.options->signature == 0)
        return MKTFS_FAIL(EINVAL, "ttd: missing -S option\n");
    if (!output)
        return EINVAL;
    return ttd_build_filesystem(run, *output);
}
