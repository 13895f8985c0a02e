// The statistics of an image's hash tree.
#pragma once

struct mktfs_filesystem;
struct ttd_run_context;

// Prints the geometry record of the run through the driver's log, with the
// partition-mode lines when its options say so.
void ttd_print_run_stats(const ttd_run_context &run);

// The same for the build or verify context of the filesystem.
void ttd_print_stats(mktfs_filesystem *fs);
