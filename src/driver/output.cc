#include "driver/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/cleanup.h"
#include "base/host.h"
#include "base/log.h"
#include "driver/modes.h"
#include "fs/filesystem.h"
#include "tree/host_source.h"

namespace {

constexpr mode_t FILE_MODE = 0660;
constexpr mode_t FOLDER_MODE = 0755;

// Asks whether the output is, or holds, what `path` leads to.
using path_relation = int (*)(const char *path, const char *output, bool *holds);

int compare(const char *path, path_relation relation, const char *output, bool &holds) {
    if (const int err = relation(path, output, &holds); err != 0)
        return MKTFS_FAIL(err, "unable to compare '%s' with '%s' (%s)\n", path, output, std::strerror(err));
    return 0;
}

// The operand and every further input of the type.
std::vector<const char *> inputs_of(const mktfs_run &run) {
    std::vector<const char *> inputs;
    if (run.input)
        inputs.push_back(run.input);
    if (run.backend->inputs)
        for (const char *const *path = run.backend->inputs(mktfs_get_filesystem_opts()); *path; ++path)
            inputs.push_back(*path);
    return inputs;
}

// `found` is the first input of which the relation holds, or null.
int find_input(const mktfs_run &run, path_relation relation, const char *&found) {
    found = nullptr;
    for (const char *path : inputs_of(run)) {
        bool holds = false;
        if (const int err = compare(path, relation, run.output, holds); err != 0)
            return err;
        if (holds) {
            found = path;
            return 0;
        }
    }
    return 0;
}

// ---- The file of a build

int report_input(const char *output, const char *input) {
    return MKTFS_FAIL(EINVAL, "output file '%s' is also an input ('%s'), choose another output\n", output,
                      input);
}

int refuse_input_as_output(const mktfs_run &run) {
    const char *input = nullptr;
    if (const int err = find_input(run, mktfs_same_file, input); err != 0)
        return err;
    return input ? report_input(run.output, input) : 0;
}

// Messages would end up in the image.
int refuse_standard_stream(const char *output, int descriptor, const char *name) {
    struct stat file {
    }, stream{};
    if (::stat(output, &file) != 0 || ::fstat(descriptor, &stream) != 0)
        return 0;  // nothing there yet: not what a stream leads to
    if (!S_ISREG(file.st_mode) || !mktfs_same_object(file, stream))
        return 0;
    return MKTFS_FAIL(EINVAL, "output file '%s' is also %s, choose another output\n", output, name);
}

int refuse_output(const mktfs_run &run) {
    if (const int err = refuse_input_as_output(run); err != 0)
        return err;
    if (const int err = refuse_standard_stream(run.output, STDOUT_FILENO, "standard output"); err != 0)
        return err;
    return refuse_standard_stream(run.output, STDERR_FILENO, "standard error");
}

// Images are appended to their output, and a block device cannot grow.
int refuse_block_device(const char *path, const struct stat &status) {
    if (!S_ISBLK(status.st_mode))
        return 0;
    return MKTFS_FAIL(EOPNOTSUPP, "'%s' is a block device, build into a file and copy that there\n", path);
}

// Whether the type finds its sources while it parses: one of them may be the output.
bool sources_are_found_later() {
    return (mktfs_get_filesystem_opts()->flags & MKTFS_OPT_NO_RESOLVE) == 0;
}

int report_open(int err, const mktfs_run &run) {
    return MKTFS_FAIL(err, "Unable to open output file '%s' (%s)\n", run.output, std::strerror(err));
}

// ---- The folder of an extraction

int refuse_folder(const mktfs_run &run, const char *path, path_relation relation, const char *what) {
    bool holds = false;
    if (const int err = compare(path, relation, run.output, holds); err != 0)
        return err;
    if (!holds)
        return 0;
    return MKTFS_FAIL(EINVAL, "output folder '%s' is %s, choose another one\n", run.output, what);
}

int refuse_folder_of_inputs(const mktfs_run &run) {
    const char *input = nullptr;
    if (const int err = find_input(run, mktfs_path_is_inside, input); err != 0)
        return err;
    if (!input)
        return 0;
    return MKTFS_FAIL(EINVAL, "output folder '%s' is or holds an input ('%s'), choose another one\n",
                      run.output, input);
}

// Such a folder can be emptied, but neither removed nor created.
int refuse_dots(const char *folder) {
    std::string_view path = folder;
    while (path.ends_with('/'))
        path.remove_suffix(1);
    if (!path.ends_with("/.") && !path.ends_with("/.."))
        return 0;
    return MKTFS_FAIL(EINVAL, "output folder '%s' ends in '.' or '..', choose another one\n", folder);
}

int refuse_valuable_folder(const mktfs_run &run) {
    if (const int err = refuse_folder(run, "/", mktfs_same_file, "the root directory"); err != 0)
        return err;
    if (const int err = refuse_folder(run, ".", mktfs_path_is_inside, "or holds the current directory");
        err != 0)
        return err;
    if (const int err = refuse_folder_of_inputs(run); err != 0)
        return err;
    return refuse_dots(run.output);
}

}  // namespace

mktfs_output_file *mktfs_output_file::watching_ = nullptr;

mktfs_output_file::~mktfs_output_file() {
    mktfs_watch_sources(nullptr);
    remove();
}

void mktfs_output_file::refuse_source(const char *source, const struct stat &status) {
    if (mktfs_same_object(status, watching_->status_))
        std::exit(report_input(watching_->path_, source));
}

void mktfs_output_file::register_for_removal() {
    if (slot_ < 0)
        slot_ = mktfs_cleanup_add(path_, mktfs_io_descriptor(io_.get()));
}

// From here on the file is this run's alone; one that another run is writing is left alone.
int mktfs_output_file::open_path(const char *path) {
    const mktfs_signal_guard guard;
    const bool was_there = ::access(path, F_OK) == 0;
    if (const int err = mktfs_io_file_create(path, O_RDWR | O_CREAT, FILE_MODE, th_out(io_)); err != 0)
        return err;
    path_ = path;
    const int descriptor = mktfs_io_descriptor(io_.get());
    if (const int err = mktfs_claim_file(path, descriptor); err != 0)
        return MKTFS_FAIL(err, "another build is writing '%s', wait for it or choose another output\n", path);
    if (!was_there || !sources_are_found_later())
        register_for_removal();
    return ::fstat(descriptor, &status_) == 0 ? refuse_block_device(path, status_) : errno;
}

int mktfs_output_file::open(const mktfs_run &run) {
    if (!run.output)
        return 0;
    if (const int err = refuse_output(run); err != 0)
        return err;
    if (const int err = open_path(run.output); err != 0)
        return report_open(err, run);
    watching_ = this;
    mktfs_watch_sources(refuse_source);
    return 0;
}

// A file that is empty already is not truncated, since closing it would then flush it.
int mktfs_output_file::begin(const mktfs_run &run) {
    if (!run.output)
        return 0;
    const mktfs_signal_guard guard;
    register_for_removal();
    if (!S_ISREG(status_.st_mode) || status_.st_size == 0)
        return 0;
    const int descriptor = mktfs_io_descriptor(io_.get());
    return TEMP_FAILURE_RETRY(::ftruncate(descriptor, 0)) == 0 ? 0 : report_open(errno, run);
}

int mktfs_output_file::close(const mktfs_run &run) {
    if (const int err = mktfs_io_close(io_.get()); err != 0)
        return MKTFS_FAIL(err, "Unable to complete output file '%s' (%s)\n", run.output, std::strerror(err));
    return 0;
}

void mktfs_output_file::keep() {
    mktfs_cleanup_finish(slot_);
    slot_ = -1;
}

void mktfs_output_file::remove() {
    mktfs_cleanup_remove(slot_);
    slot_ = -1;
}

int mktfs_clear_output_folder(const mktfs_run &run) {
    if (const int err = refuse_valuable_folder(run); err != 0)
        return err;
    mktfs_rmtree(run.output);
    return 0;
}

int mktfs_make_output_folder(const mktfs_run &run, int *slot) {
    const mktfs_signal_guard guard;
    if (::mkdir(run.output, FOLDER_MODE) == 0) {
        const int descriptor = ::open(run.output, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        *slot = mktfs_cleanup_add(run.output, descriptor);
        ::close(descriptor);
        return 0;
    }
    const int err = errno;
    if (err == EEXIST)
        return MKTFS_FAIL(err, "Output folder '%s' already exists, use -f option to replace folder\n",
                          run.output);
    return MKTFS_FAIL(err, "Failed to create output folder '%s' (%s)\n", run.output, std::strerror(err));
}
