#include "ttd/ttd_type.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "attributes/options.h"
#include "base/host.h"
#include "base/log.h"
#include "base/progress.h"
#include "fs/filesystem.h"
#include "ttd/build.h"
#include "ttd/context.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/options.h"
#include "ttd/read_access.h"
#include "ttd/stats.h"
#include "ttd/verify_mode.h"

namespace {

// Where the engine's messages of a level go; all but plain ones get a prefix.
// Levels outside the table are handled like information.
struct sink_row {
    FILE *(*stream)();
    const char *prefix;
};

FILE *to_stdout() {
    return stdout;
}
FILE *to_stderr() {
    return stderr;
}

constexpr sink_row sinks[] = {
    {to_stdout, ""}, {to_stdout, "ttd: "}, {to_stderr, "ttd: "}, {to_stderr, "ttd: "}, {to_stderr, "ttd: "},
};

bool ends_the_run(int level) {
    return level == TTD_LOG_FATAL || (level == TTD_LOG_WARN && abort_on_warning);
}

// The engine's messages on the tool's streams.
[[gnu::format(printf, 2, 3)]] int ttd_mktfs_log_fct(int level, const char *format, ...) {
    const bool known = level >= 0 && level < static_cast<int>(std::size(sinks));
    const sink_row &sink = sinks[known ? level : TTD_LOG_INFO];
    FILE *stream = sink.stream();
    mktfs_progress_wipe();
    if (stream == stderr)
        std::fflush(stdout);
    std::fputs(sink.prefix, stream);
    va_list args;
    va_start(args, format);
    const int written = std::vfprintf(stream, format, args);
    va_end(args);
    if (ends_the_run(level))
        std::exit(EXIT_FAILURE);
    return written;
}

// The operand of a build is the inner image itself.
int ttd_parse_cfg_file(const char *path) {
    ttd_run_context &run = ttd_context(*mktfs_get_filesystem());
    if (const int err = mktfs_file_size(path, &run.input_size); err != 0) {
        mktfs_log(MKTFS_LOG_FATAL, "couldn't get input image '%s' size (%s)\n", path, strerror(err));
        return err;
    }
    run.input_path = path;
    return 0;
}

void ttd_scanner_context(const char **file, int *line, int *column) {
    *file = "";
    *line = 0;
    *column = 0;
}

int ttd_fsys_build_init(mktfs_filesystem *fs) {
    ttd_register_log_fct(ttd_mktfs_log_fct);
    auto *run = new (std::nothrow) ttd_run_context;
    if (!run)
        return ENOMEM;
    fs->priv = run;
    run->options = &ttd_opts;
    run->threads = fs->opts.threads;
    const ttd_info &given = ttd_opts.geometry;
    ttd_info &info = run->engine.info;
    info.covered_size = given.covered_size;
    info.block_size = given.block_size;
    info.hash_block_size = given.hash_block_size;
    run->engine.verbosity = static_cast<int>(ttd_opts.verbosity);
    return !given.salt || info.salt.assign(given.salt.span()) ? 0 : ENOMEM;
}

void ttd_fsys_build_finit(mktfs_filesystem *fs) {
    auto *run = ttd_private<ttd_run_context>(*fs);
    if (!run)
        return;
    ttd_tcrypto_uninit(&run->engine);
    ttd_clean_info(&run->engine.info);
    delete run;
    fs->priv = nullptr;
}

int ttd_fsys_build(mktfs_filesystem *fs, mktfs_io *output) {
    return ttd_build(ttd_context(*fs), output);
}

constexpr auto ttd_fsys_verify_init = ttd_fsys_build_init;
constexpr auto ttd_fsys_verify_finit = ttd_fsys_build_finit;

int ttd_fsys_verify(mktfs_filesystem *fs, mktfs_io *image) {
    return ttd_verify_filesystem(fs, image);
}

int ttd_fsys_extract_init(mktfs_filesystem *fs) {
    ttd_register_log_fct(ttd_mktfs_log_fct);
    fs->priv = new (std::nothrow) ttd_superblock{};
    return fs->priv ? 0 : ENOMEM;
}

void ttd_fsys_extract_finit(mktfs_filesystem *fs) {
    delete ttd_private<ttd_superblock>(*fs);
    fs->priv = nullptr;
}

constexpr mktfs_parser ttd_base_parser = {
    .parse_cfg_file = ttd_parse_cfg_file,
    .scanner_context = ttd_scanner_context,
};

constinit const mktfs_backend backend = {
    .name = "TTD",
    .flags = MKTFS_BACKEND_EXTRACT | MKTFS_BACKEND_VERIFY,
    .usage = ttd_usage,
    .opts_init = ttd_opts_init,
    .optstring = "A:B:C:H:K:MP:R:S:Z:",
    .cmdopt_handler = ttd_cmdopt_handler,
    .print_stats = ttd_print_stats,
    .parser = ttd_base_parser,
    .option_handler = base_option_handler,
    .inode_attr = base_inode_attr_fct,
    .build_init = ttd_fsys_build_init,
    .build_finit = ttd_fsys_build_finit,
    .build = ttd_fsys_build,
    .extract_init = ttd_fsys_extract_init,
    .extract_finit = ttd_fsys_extract_finit,
    .mount = ttd_fsys_mount,
    .readroot = ttd_fsys_readroot,
    .readdir = ttd_fsys_readdir,
    .readlnk = ttd_fsys_readlnk,
    .readfile = ttd_fsys_readfile,
    .verify_init = ttd_fsys_verify_init,
    .verify_finit = ttd_fsys_verify_finit,
    .verify = ttd_fsys_verify,
    .inputs = ttd_input_files,
};

}  // namespace

const mktfs_backend *ttd_backend() {
    return &backend;
}
