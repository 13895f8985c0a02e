#include "driver/cmdline.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <optional>
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

// What a step yields: the status that ends the run, or nothing to go on.
using outcome = std::optional<int>;
constexpr outcome GO_ON = std::nullopt;

// The arguments as getopt sees them.
struct arguments {
    int count;
    char **vector;
    std::string letters = DRIVER_LETTERS;
};

outcome fail_with_usage() {
    mktfs_usage(1);
    return 1;
}

outcome accept_search_paths(const char *paths) {
    const int err = mktfs_parse_search_paths(paths);
    if (err != 0)
        return MKTFS_FAIL(err, "invalid search paths '%s' provided\n", paths);
    return GO_ON;
}

outcome print_help(const mktfs_run &run) {
    mktfs_usage(run.backend == nullptr);
    return 0;
}

struct driver_option {
    char letter;
    outcome (*apply)(mktfs_run &run, const char *argument);
};

// A step that only notes its option.
template <auto Note>
outcome note(mktfs_run &run, const char *argument) {
    Note(run, argument);
    return GO_ON;
}

constexpr driver_option DRIVER_OPTIONS[] = {
    {'a', note<[](mktfs_run &, const char *) { abort_on_warning = 1; }>},
    {'f', note<[](mktfs_run &run, const char *) { run.force = true; }>},
    {'h', [](mktfs_run &run, const char *) { return print_help(run); }},
    {'o', note<[](mktfs_run &run, const char *path) { run.output = path; }>},
    {'r', [](mktfs_run &, const char *paths) { return accept_search_paths(paths); }},
    {'s', note<[](mktfs_run &run, const char *) { run.stats = true; }>},
    {'v', note<[](mktfs_run &, const char *) { ++verbose; }>},
    {'x', note<[](mktfs_run &run, const char *) { run.extract = true; }>},
    {'y', note<[](mktfs_run &run, const char *) { run.verify = true; }>},
    {'?', [](mktfs_run &, const char *) { return fail_with_usage(); }},
};

// The first argument names the type, unless it is an option.  It then stands in
// the program name's place.
outcome select_type(arguments &args, mktfs_run &run) {
    const char *name = args.vector[1];
    if (name[0] == '-')
        return GO_ON;
    --args.count;
    ++args.vector;
    run.backend = mktfs_find_backend(name);
    if (run.backend == nullptr) {
        mktfs_log(MKTFS_LOG_ERROR, "unsupported filesystem type '%s'\n", name);
        return fail_with_usage();
    }
    mktfs_set_backend(run.backend);
    if (run.backend->optstring != nullptr)
        args.letters += std::string(run.backend->optstring).substr(0, MAX_TYPE_LETTERS);
    return GO_ON;
}

outcome init_type_options(const mktfs_run &run) {
    if (run.backend == nullptr || run.backend->opts_init == nullptr)
        return GO_ON;
    const int err = run.backend->opts_init(mktfs_get_filesystem_opts());
    if (err != 0)
        return MKTFS_FAIL(err, "backend opts init function failed\n");
    return GO_ON;
}

outcome apply_type_option(const mktfs_run &run, int letter, const char *argument) {
    if (run.backend == nullptr)
        return GO_ON;
    const auto handler = run.backend->cmdopt_handler;
    const int err = handler != nullptr ? handler(mktfs_get_filesystem_opts(), letter, argument) : EOPNOTSUPP;
    if (err == EOPNOTSUPP) {
        mktfs_log(MKTFS_LOG_ERROR, "unsupported option '-%c'\n", letter);
        mktfs_usage(0);
    }
    return err != 0 ? outcome(err) : GO_ON;
}

outcome apply_option(mktfs_run &run, int letter, const char *argument) {
    for (const driver_option &option : DRIVER_OPTIONS) {
        if (option.letter == letter)
            return option.apply(run, argument);
    }
    return apply_type_option(run, letter, argument);
}

outcome read_options(const arguments &args, mktfs_run &run) {
    optind = 1;
    for (;;) {
        const int letter = ::getopt(args.count, args.vector, args.letters.c_str());
        if (letter < 0)
            break;
        if (const outcome end = apply_option(run, letter, optarg))
            return end;
    }
    run.input = optind < args.count ? args.vector[optind] : nullptr;
    return GO_ON;
}

// Fatal messages end the process; a replaced log function may return from them.
outcome check_run(const mktfs_run &run) {
    if (run.backend == nullptr) {
        mktfs_log(MKTFS_LOG_ERROR, "no backend supplied\n");
        return fail_with_usage();
    }
    const std::uint32_t flags = mktfs_get_filesystem_opts()->flags;
    if (run.input == nullptr && (flags & MKTFS_OPT_NO_INPUT) == 0)
        mktfs_log(MKTFS_LOG_FATAL, "missing input file\n");
    if (run.output == nullptr && !run.verify && (flags & MKTFS_OPT_NO_OUTPUT) == 0)
        mktfs_log(MKTFS_LOG_FATAL, "missing -o option\n");
    if (run.extract && run.verify)
        mktfs_log(MKTFS_LOG_FATAL, "can't mix options -y and -x\n");
    return GO_ON;
}

outcome read_thread_count() {
    const char *text = std::getenv("MKTFS_THREADS");
    if (text == nullptr)
        return GO_ON;
    std::uint32_t &threads = mktfs_get_filesystem_opts()->threads;
    if (th_str_to_uint32(text, 10, &threads) != 0 || threads < 1 || threads > MAX_THREADS)
        return MKTFS_FAIL(1, "the variable MKTFS_THREADS is '%s', it must be a number from 1 to %u\n", text,
                          MAX_THREADS);
    return GO_ON;
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
    arguments args{.count = argc, .vector = argv};
    mktfs_run run;
    if (const outcome end = select_type(args, run))
        return *end;
    if (const outcome end = init_type_options(run))
        return *end;
    if (const outcome end = read_options(args, run))
        return *end;
    if (const outcome end = check_run(run))
        return *end;
    if (const outcome end = read_thread_count())
        return *end;
    return run_mode(run);
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
