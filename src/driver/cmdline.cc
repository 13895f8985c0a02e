#include "driver/cmdline.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "base/cleanup.h"
#include "base/log.h"
#include "driver/modes.h"
#include "driver/registry.h"
#include "driver/usage.h"
#include "fs/filesystem.h"
#include "th/log.h"
#include "th/str.h"
#include "tree/search_path.h"

TH_LOG_CONTEXT_DEFINE(mktfs_log_context, "mktfs");

namespace {

constexpr char DRIVER_LETTERS[] = "afho:r:svyx";
constexpr std::size_t MAX_TYPE_LETTERS = 503;
constexpr std::uint32_t MAX_THREADS = 64;

// The arguments as getopt sees them, and what they ask for.
struct command_line {
    int count;
    char **vector;
    std::string letters = DRIVER_LETTERS;
    mktfs_run run = {};
    bool help = false;  // the help is printed, and what follows -h is ignored
};

int fail_with_usage() {
    mktfs_usage(1);
    return 1;
}

int accept_search_paths(const char *paths) {
    if (const int err = mktfs_parse_search_paths(paths); err != 0)
        return MKTFS_FAIL(err, "invalid search paths '%s' provided\n", paths);
    return 0;
}

void print_help(command_line &line) {
    mktfs_usage(!line.run.backend);
    line.help = true;
}

// What an option does is either `set` or `run`, which may fail.
struct driver_option {
    char letter;
    void (*set)(command_line &line, const char *argument);
    int (*run)(const char *argument) = nullptr;
};

constexpr driver_option DRIVER_OPTIONS[] = {
    {'a', [](command_line &, const char *) { abort_on_warning = 1; }},
    {'f', [](command_line &line, const char *) { line.run.force = true; }},
    {'h', [](command_line &line, const char *) { print_help(line); }},
    {'o', [](command_line &line, const char *path) { line.run.output = path; }},
    {'r', nullptr, accept_search_paths},
    {'s', [](command_line &line, const char *) { line.run.stats = true; }},
    {'v', [](command_line &, const char *) { ++verbose; }},
    {'x', [](command_line &line, const char *) { line.run.extract = true; }},
    {'y', [](command_line &line, const char *) { line.run.verify = true; }},
    {'?', nullptr, [](const char *) { return fail_with_usage(); }},
};

// The first argument names the type, unless it is an option.  It then stands in
// the program name's place.
int select_type(command_line &line) {
    const char *name = line.vector[1];
    if (name[0] == '-')
        return 0;
    --line.count;
    ++line.vector;
    const mktfs_backend *backend = mktfs_find_backend(name);
    if (!backend) {
        mktfs_log(MKTFS_LOG_ERROR, "unsupported filesystem type '%s'\n", name);
        return fail_with_usage();
    }
    line.run.backend = backend;
    mktfs_set_backend(backend);
    if (backend->optstring)
        line.letters += std::string(backend->optstring).substr(0, MAX_TYPE_LETTERS);
    if (!backend->opts_init)
        return 0;
    if (const int err = backend->opts_init(mktfs_get_filesystem_opts()); err != 0)
        return MKTFS_FAIL(err, "backend opts init function failed\n");
    return 0;
}

int apply_type_option(const mktfs_backend *backend, int letter, const char *argument) {
    if (!backend)
        return 0;
    const auto handler = backend->cmdopt_handler;
    const int err = handler ? handler(mktfs_get_filesystem_opts(), letter, argument) : EOPNOTSUPP;
    if (err == EOPNOTSUPP) {
        mktfs_log(MKTFS_LOG_ERROR, "unsupported option '-%c'\n", letter);
        mktfs_usage(0);
    }
    return err;
}

int apply_option(command_line &line, int letter, const char *argument) {
    for (const driver_option &option : DRIVER_OPTIONS) {
        if (option.letter != letter)
            continue;
        if (option.run)
            return option.run(argument);
        option.set(line, argument);
        return 0;
    }
    return apply_type_option(line.run.backend, letter, argument);
}

int read_options(command_line &line) {
    const auto next = [&line] { return ::getopt(line.count, line.vector, line.letters.c_str()); };
    optind = 1;
    for (int letter; !line.help && (letter = next()) >= 0;)
        if (const int err = apply_option(line, letter, optarg); err != 0)
            return err;
    const auto operand = [&line](int index) { return index < line.count ? line.vector[index] : nullptr; };
    line.run.input = operand(optind);
    line.run.unused_input = operand(optind + 1);
    return 0;
}

// Fatal messages end the process; a replaced log function may return from them.
int check_run(const mktfs_run &run) {
    if (!run.backend) {
        mktfs_log(MKTFS_LOG_ERROR, "no backend supplied\n");
        return fail_with_usage();
    }
    const std::uint32_t flags = mktfs_get_filesystem_opts()->flags;
    if (!run.input && (flags & MKTFS_OPT_NO_INPUT) == 0)
        mktfs_log(MKTFS_LOG_FATAL, "missing input file\n");
    if (!run.output && !run.verify && (flags & MKTFS_OPT_NO_OUTPUT) == 0)
        mktfs_log(MKTFS_LOG_FATAL, "missing -o option\n");
    if (run.extract && run.verify)
        mktfs_log(MKTFS_LOG_FATAL, "can't mix options -y and -x\n");
    return 0;
}

int read_thread_count() {
    const char *text = std::getenv("MKTFS_THREADS");
    if (!text)
        return 0;
    std::uint32_t &threads = mktfs_get_filesystem_opts()->threads;
    if (th_str_to_uint32(text, 10, &threads) != 0 || threads < 1 || threads > MAX_THREADS)
        return MKTFS_FAIL(1, "the variable MKTFS_THREADS is '%s', it must be a number from 1 to %u\n", text,
                          MAX_THREADS);
    return 0;
}

int run_mode(const mktfs_run &run) {
    if (run.extract)
        return mktfs_run_extract(run);
    return run.verify ? mktfs_run_verify(run) : mktfs_run_build(run);
}

int run_command_line(int argc, char **argv) {
    if (argc < 2) {
        mktfs_usage(1);
        return 0;
    }
    command_line line{.count = argc, .vector = argv};
    if (const int err = select_type(line); err != 0)
        return err;
    if (const int err = read_options(line); err != 0 || line.help)
        return err;
    if (const int err = check_run(line.run); err != 0)
        return err;
    if (const int err = read_thread_count(); err != 0)
        return err;
    return run_mode(line.run);
}

}  // namespace

int mktfs_main(int argc, char **argv) {
    mktfs_cleanup_install();
    mktfs_set_backend(nullptr);
    *mktfs_get_filesystem() = mktfs_filesystem{};
    host_endian = 0;
    const int status = run_command_line(argc, argv);
    mktfs_clean_search_paths();
    return status != 0 ? status : mktfs_complete_stdout();
}
