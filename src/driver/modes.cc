#include "driver/modes.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/cleanup.h"
#include "base/host.h"
#include "base/log.h"
#include "driver/output.h"
#include "fs/filesystem.h"
#include "fs/stats.h"
#include "tree/extract.h"
#include "tree/inode.h"
#include "tree/resolve.h"
#include "tree/search_path.h"

namespace {

bool option_set(std::uint32_t flag) {
    return (mktfs_get_filesystem_opts()->flags & flag) != 0;
}

int init_filesystem(int (*init)(mktfs_filesystem *), mktfs_filesystem *fs) {
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Initializing filesystem structures\n");
    if (const int err = init(fs); err != 0)
        return MKTFS_FAIL(err, "Filesystem initialization failed (%s)\n", std::strerror(err));
    return 0;
}

// ---- Build

int default_search_paths() {
    if (option_set(MKTFS_OPT_NO_SEARCH_PATHS) || mktfs_search_paths_empty() == 0)
        return 0;
    const char *paths = std::getenv("TAV_TARGET");
    if (!paths)
        mktfs_log(MKTFS_LOG_FATAL, "TAV_TARGET env variable is not defined\n");
    return mktfs_parse_search_paths(paths);
}

int parse_input(const mktfs_run &run) {
    if (!run.input)
        return 0;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Parsing input file: '%s'\n", run.input);
    if (const int err = mktfs_filesystem_parse(run.input); err != 0)
        return MKTFS_FAIL(err, "Filesystem input file parsing failed (%s)\n", std::strerror(err));
    return 0;
}

int resolve_tree(mktfs_filesystem *fs) {
    if (option_set(MKTFS_OPT_NO_RESOLVE))
        return 0;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Resolving filesystem tree internals\n");
    if (const int err = mktfs_filesystem_resolve_info(fs); err != 0)
        return MKTFS_FAIL(err, "Filesystem inode resolving failed (%s)\n", std::strerror(err));
    return 0;
}

int construct_image(const mktfs_run &run, mktfs_filesystem *fs, mktfs_io *output) {
    if (verbose != 0 && run.output)
        mktfs_log(MKTFS_LOG_INFO, "Constructing filesystem image to '%s'\n", run.output);
    if (const int err = mktfs_filesystem_build(fs, output); err != 0)
        return MKTFS_FAIL(err, "Filesystem construction failed (%s)\n", std::strerror(err));
    return 0;
}

int report_success(const mktfs_run &run) {
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Filesystem constructed successfully!\n");
    if (run.stats)
        mktfs_print_stats();
    return mktfs_complete_stdout();
}

int build_steps(const mktfs_run &run, mktfs_filesystem *fs, mktfs_output_file &output) {
    if (const int err = init_filesystem(mktfs_filesystem_build_init, fs); err != 0)
        return err;
    if (const int err = parse_input(run); err != 0)
        return err;
    if (const int err = resolve_tree(fs); err != 0)
        return err;
    if (const int err = output.begin(run); err != 0)
        return err;
    if (const int err = construct_image(run, fs, output.io()); err != 0)
        return err;
    if (const int err = output.close(run); err != 0)
        return err;
    return report_success(run);
}

// ---- Extraction

int extract_image(const mktfs_run &run, mktfs_filesystem *fs) {
    if (const int err = init_filesystem(mktfs_filesystem_extract_init, fs); err != 0)
        return err;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Extracting filesystem image '%s' into '%s'\n", mktfs_shown(run.input),
                  run.output);
    if (const int err = mktfs_filesystem_extract(fs, run.input, run.output); err != 0)
        return MKTFS_FAIL(err, "Filesystem extraction failed (%s)\n", std::strerror(err));
    return 0;
}

// This run has made the folder: a failure removes it.
int fill_output_folder(const mktfs_run &run, mktfs_filesystem *fs) {
    if (const int err = extract_image(run, fs); err != 0) {
        mktfs_rmtree(run.output);
        return err;
    }
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Filesystem extracted successfully!\n");
    mktfs_filesystem_extract_finit(fs);
    return 0;
}

int extract_steps(const mktfs_run &run, mktfs_filesystem *fs) {
    if (run.force)
        if (const int err = mktfs_clear_output_folder(run); err != 0)
            return err;
    int slot = -1;
    if (const int err = mktfs_make_output_folder(run, &slot); err != 0)
        return err;
    const int err = fill_output_folder(run, fs);
    mktfs_cleanup_forget(slot);
    return err;
}

}  // namespace

int mktfs_run_build(const mktfs_run &run) {
    if (const int err = default_search_paths(); err != 0)
        return err;
    if (verbose != 0)
        mktfs_print_search_paths();
    mktfs_output_file output;
    if (const int err = output.open(run); err != 0)
        return err;

    mktfs_filesystem *fs = mktfs_get_filesystem();
    const int err = build_steps(run, fs, output);
    if (err == 0)
        output.keep();
    else
        output.remove();
    mktfs_filesystem_build_finit(fs);
    mktfs_filesystem_free(fs);
    mktfs_clean_search_paths();
    return err;
}

int mktfs_run_extract(const mktfs_run &run) {
    if ((run.backend->flags & MKTFS_BACKEND_EXTRACT) == 0)
        return MKTFS_FAIL(EOPNOTSUPP, "%s backend doesn't support filesystem extraction\n",
                          run.backend->name);
    if (!run.output) {
        mktfs_log(MKTFS_LOG_FATAL, "missing -o option\n");
        return 1;  // only with a log function that returns
    }
    mktfs_filesystem *fs = mktfs_get_filesystem();
    const int err = extract_steps(run, fs);
    mktfs_filesystem_free(fs);
    return err;
}

int mktfs_run_verify(const mktfs_run &run) {
    if ((run.backend->flags & MKTFS_BACKEND_VERIFY) == 0)
        return MKTFS_FAIL(EOPNOTSUPP, "%s backend doesn't support filesystem verification\n",
                          run.backend->name);
    if (run.unused_input)
        mktfs_log(MKTFS_LOG_WARN, "only the first image is verified, '%s' is not\n", run.unused_input);
    mktfs_filesystem *fs = mktfs_get_filesystem();
    if (const int err = init_filesystem(mktfs_filesystem_verify_init, fs); err != 0)
        return err;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Verifying filesystem image '%s'\n", mktfs_shown(run.input));
    if (const int err = mktfs_filesystem_verify(fs, run.input); err != 0)
        return MKTFS_FAIL(err, "Filesystem verification failed (%s)\n", std::strerror(err));
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Filesystem verified successfully!\n");
    mktfs_filesystem_verify_finit(fs);
    return 0;
}

int mktfs_complete_stdout() {
    if (const int err = mktfs_log_flush(); err != 0)
        return MKTFS_FAIL(err, "failed to write standard output (%s)\n", std::strerror(err));
    return 0;
}
