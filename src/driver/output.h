// The output of a run: refused where it would destroy what the run reads or take up what
// it prints, and gone again unless the run completes it.
//
// Functions return 0 or an error number, which they have logged.
#pragma once

#include "io/io.h"

struct mktfs_run;

// The image file of a build: opened and registered for removal in one step, and from
// then on unfinished until keep().  Without an output path there is no file.
class mktfs_output_file {
public:
    mktfs_output_file() = default;
    ~mktfs_output_file() { remove(); }
    mktfs_output_file(const mktfs_output_file &) = delete;
    mktfs_output_file &operator=(const mktfs_output_file &) = delete;

    // EINVAL for an output that is an input, standard output or standard error, EAGAIN
    // for one that another run is writing, EOPNOTSUPP for a block device; whatever was
    // there is whole then.
    [[nodiscard]] int open(const mktfs_run &run);
    // Ends the writing, so that its last errors show.
    [[nodiscard]] int close(const mktfs_run &run);
    void keep();
    void remove();
    [[nodiscard]] mktfs_io *io() const { return io_.get(); }  // borrowed; null without a file

private:
    [[nodiscard]] int open_path(const char *path);

    mktfs_io_ptr io_;
    int slot_ = -1;
};

// Removes the output folder with everything in it.  EINVAL, with nothing removed, when
// that is or holds the root directory, the current one or an input of the run, or when
// its last component is "." or "..".
[[nodiscard]] int mktfs_clear_output_folder(const mktfs_run &run);

// Makes the output folder.  `slot`: while it is empty it goes with an unfinished run,
// until the caller forgets it there (see base/cleanup.h).
[[nodiscard]] int mktfs_make_output_folder(const mktfs_run &run, int *slot);
