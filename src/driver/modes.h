// The three modes of a run, once the command line is read and checked.
#pragma once

#include "fs/backend_record.h"

// What the command line asks for.
struct mktfs_run {
    const mktfs_backend *backend = nullptr;  // null before selection
    const char *output = nullptr;            // null: none given
    const char *input = nullptr;             // the first operand, null: none given
    const char *unused_input = nullptr;      // the second one, which no mode uses
    bool extract = false;
    bool verify = false;
    bool force = false;
    bool stats = false;
};

// Each returns 0 or the error number of the step that failed, which it has
// logged, and releases what the mode made.
[[nodiscard]] int mktfs_run_build(const mktfs_run &run);
[[nodiscard]] int mktfs_run_extract(const mktfs_run &run);
[[nodiscard]] int mktfs_run_verify(const mktfs_run &run);

// Writes out standard output.  Returns 0, or the error number of its first failed
// write.  Logs the failure.
[[nodiscard]] int mktfs_complete_stdout();
