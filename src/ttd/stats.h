// The statistics of an image's hash tree.
#pragma once

struct mktfs_filesystem;

// Prints the geometry record of the build or verify context through the driver's
// log; with the partition-mode lines when ttd_opts says so.
void ttd_print_stats(mktfs_filesystem *fs);
