#include "driver/modes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/cleanup.h"
#include "base/host.h"
#include "base/log.h"
#include "fs/filesystem.h"
#include "fs/stats.h"
#include "io/io.h"
#include "tree/extract.h"
#include "tree/host_source.h"
#include "tree/inode.h"
#include "tree/resolve.h"
#include "tree/search_path.h"

namespace {

constexpr mode_t OUTPUT_FILE_MODE = 0660;
constexpr mode_t OUTPUT_FOLDER_MODE = 0755;

void report_input_as_output(const char *output, const char *input) {
    mktfs_log(MKTFS_LOG_ERROR, "output file '%s' is also an input ('%s'), choose another output\n", output,
              input);
}

// The output of a build: opened and registered for removal by one step, and from
// then on unfinished until keep().  What it held before goes only once all sources
// are known.
class build_output {
public:
    ~build_output() {
        mktfs_watch_sources(nullptr);
        mktfs_cleanup_remove(slot_);
    }
    [[nodiscard]] int open(const char *path);
    [[nodiscard]] int truncate();
    // Ends the writing, so that its last errors show.
    [[nodiscard]] int close() { return mktfs_io_close(io_.get()); }
    [[nodiscard]] mktfs_io *io() const { return io_.get(); }
    void keep() {
        mktfs_cleanup_finish(slot_);
        slot_ = -1;
    }
    void remove() {
        mktfs_cleanup_remove(slot_);
        slot_ = -1;
    }

private:
    // Ends the run when the source is the output, which stays if it was there before.
    static void refuse_source(const char *source, const struct stat &status);

    static inline build_output *watching_ = nullptr;

    mktfs_io_ptr io_;
    int slot_ = -1;
    const char *path_ = nullptr;
    struct stat status_ {};
    bool made_here_ = false;
};

// Images are appended to, which a block device cannot be.
int refuse_block_device(const char *path, const struct stat &status) {
    if (S_ISBLK(status.st_mode))
        return MKTFS_FAIL(EOPNOTSUPP, "'%s' is a block device, build into a file and copy that there\n",
                          path);
    return 0;
}

// It is this run's alone from here on: what another run is writing stays.
int build_output::open(const char *path) {
    const mktfs_signal_guard guard;
    path_ = path;
    made_here_ = ::access(path, F_OK) != 0;
    int err = mktfs_io_file_create(path, O_RDWR | O_CREAT, OUTPUT_FILE_MODE, th_out(io_));
    if (err != 0)
        return err;
    const int descriptor = mktfs_io_descriptor(io_.get());
    err = mktfs_claim_file(path, descriptor);
    if (err != 0)
        return MKTFS_FAIL(err, "another build is writing '%s', wait for it or choose another output\n", path);
    slot_ = mktfs_cleanup_add(path, descriptor);
    if (::fstat(descriptor, &status_) != 0)
        return errno;
    watching_ = this;
    mktfs_watch_sources(refuse_source);
    return refuse_block_device(path, status_);
}

int build_output::truncate() {
    const int descriptor = mktfs_io_descriptor(io_.get());
    return S_ISREG(status_.st_mode) && TEMP_FAILURE_RETRY(::ftruncate(descriptor, 0)) != 0 ? errno : 0;
}

void build_output::refuse_source(const char *source, const struct stat &status) {
    build_output &output = *watching_;
    if (status.st_dev != output.status_.st_dev || status.st_ino != output.status_.st_ino)
        return;
    if (!output.made_here_)
        mktfs_cleanup_forget(output.slot_);
    report_input_as_output(output.path_, source);
    std::exit(EINVAL);
}

const char *shown(const char *path) {
    return path != nullptr ? path : "(null)";
}

bool option_set(std::uint32_t flag) {
    return (mktfs_get_filesystem_opts()->flags & flag) != 0;
}

// How a path that is of value lies to the output.
using path_relation = int (*)(const char *path, const char *output, bool *holds);

int compare(const char *path, path_relation relation, const char *output, bool &holds) {
    const int err = relation(path, output, &holds);
    if (err != 0)
        return MKTFS_FAIL(err, "unable to compare '%s' with '%s' (%s)\n", path, output, std::strerror(err));
    return 0;
}

// The operand and every further input of the type.
std::vector<const char *> inputs_of(const mktfs_run &run) {
    std::vector<const char *> inputs;
    if (run.input != nullptr)
        inputs.push_back(run.input);
    if (run.backend->inputs != nullptr)
        for (const char *const *path = run.backend->inputs(mktfs_get_filesystem_opts());
             path != nullptr && *path != nullptr; ++path)
            inputs.push_back(*path);
    return inputs;
}

// `found` is the first input of which the relation holds, or null.
int find_input(const mktfs_run &run, path_relation relation, const char *&found) {
    found = nullptr;
    for (const char *path : inputs_of(run)) {
        bool holds = false;
        const int err = compare(path, relation, run.output, holds);
        if (err != 0)
            return err;
        if (holds) {
            found = path;
            return 0;
        }
    }
    return 0;
}

int init_filesystem(int (*init)(mktfs_filesystem *), mktfs_filesystem *fs) {
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Initializing filesystem structures\n");
    const int err = init(fs);
    if (err != 0)
        return MKTFS_FAIL(err, "Filesystem initialization failed (%s)\n", std::strerror(err));
    return 0;
}

// ---- Build

int default_search_paths() {
    if (option_set(MKTFS_OPT_NO_SEARCH_PATHS) || mktfs_search_paths_empty() == 0)
        return 0;
    const char *paths = std::getenv("TAV_TARGET");
    if (paths == nullptr)
        mktfs_log(MKTFS_LOG_FATAL, "TAV_TARGET env variable is not defined\n");
    return mktfs_parse_search_paths(paths);
}

int refuse_input_as_output(const mktfs_run &run) {
    const char *input = nullptr;
    const int err = find_input(run, mktfs_same_file, input);
    if (err != 0 || input == nullptr)
        return err;
    report_input_as_output(run.output, input);
    return EINVAL;
}

int open_output(const mktfs_run &run, build_output &output) {
    if (run.output == nullptr)
        return 0;
    int err = refuse_input_as_output(run);
    if (err != 0)
        return err;
    err = output.open(run.output);
    if (err != 0)
        return MKTFS_FAIL(err, "Unable to open output file '%s' (%s)\n", run.output, std::strerror(err));
    return 0;
}

int parse_input(const mktfs_run &run) {
    if (run.input == nullptr)
        return 0;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Parsing input file: '%s'\n", run.input);
    const int err = mktfs_filesystem_parse(run.input);
    if (err != 0)
        return MKTFS_FAIL(err, "Filesystem input file parsing failed (%s)\n", std::strerror(err));
    return 0;
}

int resolve_tree(mktfs_filesystem *fs) {
    if (option_set(MKTFS_OPT_NO_RESOLVE))
        return 0;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Resolving filesystem tree internals\n");
    const int err = mktfs_filesystem_resolve_info(fs);
    if (err != 0)
        return MKTFS_FAIL(err, "Filesystem inode resolving failed (%s)\n", std::strerror(err));
    return 0;
}

int construct_image(const mktfs_run &run, mktfs_filesystem *fs, build_output &output) {
    if (verbose != 0 && run.output != nullptr)
        mktfs_log(MKTFS_LOG_INFO, "Constructing filesystem image to '%s'\n", run.output);
    if (const int err = output.truncate(); err != 0)
        return MKTFS_FAIL(err, "Unable to open output file '%s' (%s)\n", run.output, std::strerror(err));
    const int err = mktfs_filesystem_build(fs, output.io());
    if (err != 0)
        return MKTFS_FAIL(err, "Filesystem construction failed (%s)\n", std::strerror(err));
    return 0;
}

int close_output(const mktfs_run &run, build_output &output) {
    const int err = output.close();
    if (err != 0)
        return MKTFS_FAIL(err, "Unable to complete output file '%s' (%s)\n", shown(run.output),
                          std::strerror(err));
    return 0;
}

int report_success(const mktfs_run &run) {
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Filesystem constructed successfully!\n");
    if (run.stats)
        mktfs_print_stats();
    return mktfs_complete_stdout();
}

int build_steps(const mktfs_run &run, mktfs_filesystem *fs, build_output &output) {
    int err = init_filesystem(mktfs_filesystem_build_init, fs);
    if (err == 0)
        err = parse_input(run);
    if (err == 0)
        err = resolve_tree(fs);
    if (err == 0)
        err = construct_image(run, fs, output);
    if (err == 0)
        err = close_output(run, output);
    if (err == 0)
        err = report_success(run);
    return err;
}

// ---- Extraction

int refuse_folder(const mktfs_run &run, const char *path, path_relation relation, const char *what) {
    bool holds = false;
    const int err = compare(path, relation, run.output, holds);
    if (err != 0 || !holds)
        return err;
    return MKTFS_FAIL(EINVAL, "output folder '%s' is %s, choose another one\n", run.output, what);
}

// -f removes the folder with everything in it: never the root directory, the
// current one or what the run reads.
int refuse_valuable_folder(const mktfs_run &run) {
    int err = refuse_folder(run, "/", mktfs_same_file, "the root directory");
    if (err == 0)
        err = refuse_folder(run, ".", mktfs_path_is_inside, "or holds the current directory");
    const char *input = nullptr;
    if (err == 0)
        err = find_input(run, mktfs_path_is_inside, input);
    if (err != 0 || input == nullptr)
        return err;
    return MKTFS_FAIL(EINVAL, "output folder '%s' is or holds an input ('%s'), choose another one\n",
                      run.output, input);
}

int clear_output_folder(const mktfs_run &run) {
    if (!run.force)
        return 0;
    const int err = refuse_valuable_folder(run);
    if (err == 0)
        mktfs_rmtree(run.output);
    return err;
}

// `slot`: while the folder is empty it goes with an unfinished run.
int make_output_folder(const char *folder, int &slot) {
    const mktfs_signal_guard guard;
    if (::mkdir(folder, OUTPUT_FOLDER_MODE) == 0) {
        const int descriptor = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        slot = mktfs_cleanup_add(folder, descriptor);
        ::close(descriptor);
        return 0;
    }
    if (errno == EEXIST)
        return MKTFS_FAIL(EEXIST, "Output folder '%s' already exists, use -f option to replace folder\n",
                          folder);
    const int err = errno;
    return MKTFS_FAIL(err, "Failed to create output folder '%s' (%s)\n", folder, std::strerror(err));
}

int extract_image(const mktfs_run &run, mktfs_filesystem *fs) {
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Extracting filesystem image '%s' into '%s'\n", shown(run.input),
                  run.output);
    const int err = mktfs_filesystem_extract(fs, run.input, run.output);
    if (err != 0)
        return MKTFS_FAIL(err, "Filesystem extraction failed (%s)\n", std::strerror(err));
    return 0;
}

// The folder exists, made by this run: a failure takes it away again.
int fill_output_folder(const mktfs_run &run, mktfs_filesystem *fs) {
    int err = init_filesystem(mktfs_filesystem_extract_init, fs);
    if (err == 0)
        err = extract_image(run, fs);
    if (err != 0) {
        mktfs_rmtree(run.output);
        return err;
    }
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Filesystem extracted successfully!\n");
    mktfs_filesystem_extract_finit(fs);
    return 0;
}

}  // namespace

int mktfs_run_build(const mktfs_run &run) {
    build_output output;
    int err = default_search_paths();
    if (err != 0)
        return err;
    if (verbose != 0)
        mktfs_print_search_paths();
    err = open_output(run, output);
    if (err != 0)
        return err;

    mktfs_filesystem *fs = mktfs_get_filesystem();
    err = build_steps(run, fs, output);
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
    if (run.output == nullptr) {
        mktfs_log(MKTFS_LOG_FATAL, "missing -o option\n");
        return 1;  // only with a log function that returns
    }
    mktfs_filesystem *fs = mktfs_get_filesystem();
    int slot = -1;
    int err = clear_output_folder(run);
    if (err == 0)
        err = make_output_folder(run.output, slot);
    if (err == 0)
        err = fill_output_folder(run, fs);
    mktfs_cleanup_forget(slot);
    mktfs_filesystem_free(fs);
    return err;
}

int mktfs_run_verify(const mktfs_run &run) {
    if ((run.backend->flags & MKTFS_BACKEND_VERIFY) == 0)
        return MKTFS_FAIL(EOPNOTSUPP, "%s backend doesn't support filesystem verification\n",
                          run.backend->name);
    mktfs_filesystem *fs = mktfs_get_filesystem();
    int err = init_filesystem(mktfs_filesystem_verify_init, fs);
    if (err != 0)
        return err;
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Verifying filesystem image '%s'\n", shown(run.input));
    err = mktfs_filesystem_verify(fs, run.input);
    if (err != 0)
        return MKTFS_FAIL(err, "Filesystem verification failed (%s)\n", std::strerror(err));
    if (verbose != 0)
        mktfs_log(MKTFS_LOG_INFO, "Filesystem verified successfully!\n");
    mktfs_filesystem_verify_finit(fs);
    return 0;
}

int mktfs_complete_stdout() {
    const int err = mktfs_log_flush();
    if (err != 0)
        return MKTFS_FAIL(err, "failed to write standard output (%s)\n", std::strerror(err));
    return 0;
}
