// The output of a run: refused if it would destroy an input or receive the run's messages,
// and removed unless the run completes it.
//
// Functions return 0 or an error number, which they have logged.
#pragma once

#include <sys/stat.h>

#include "io/io.h"

struct mktfs_run;

// The image file of a build, which is removed unless keep() is called.  Its old contents go
// only once all sources are known: a source that is the output ends the run, and a file
// that existed before, and may turn out to be a source, is left alone until then.  Without
// an output path there is no file.
class mktfs_output_file {
public:
    mktfs_output_file() = default;
    ~mktfs_output_file();
    mktfs_output_file(const mktfs_output_file &) = delete;
    mktfs_output_file &operator=(const mktfs_output_file &) = delete;

    // EINVAL for an output that is an input, standard output or standard error, EAGAIN for
    // one that another run is writing, EOPNOTSUPP for a block device; what was there is
    // then unchanged.
    [[nodiscard]] int open(const mktfs_run &run);
    // Empties the file, once the run knows all its sources.
    [[nodiscard]] int begin(const mktfs_run &run);
    // Closes the file and reports late write errors.
    [[nodiscard]] int close(const mktfs_run &run);
    void keep();
    void remove();
    [[nodiscard]] mktfs_io *io() const { return io_.get(); }  // borrowed; null without a file

private:
    [[nodiscard]] int open_path(const char *path);
    void register_for_removal();
    static void refuse_source(const char *source, const struct stat &status);

    static mktfs_output_file *watching_;

    mktfs_io_ptr io_;
    const char *path_ = nullptr;
    struct stat status_ {};
    int slot_ = -1;
};

// Removes the output folder with everything in it.  EINVAL, with nothing removed, when
// that is or holds the root directory, the current one or an input of the run, or when
// its last component is "." or "..".
[[nodiscard]] int mktfs_clear_output_folder(const mktfs_run &run);

// Makes the output folder.  `slot` receives its place in the clean-up (see base/cleanup.h),
// which removes the folder, if it is empty, with an unfinished run until the caller forgets
// it.
[[nodiscard]] int mktfs_make_output_folder(const mktfs_run &run, int *slot);
