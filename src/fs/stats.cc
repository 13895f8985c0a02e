#include "fs/stats.h"

#include "base/log.h"
#include "fs/filesystem.h"

namespace {

void print_counters(const mktfs_filesystem &fs) {
    mktfs_log(MKTFS_LOG_INFO, "\nFilesystem Statistics\n\n");
    mktfs_log(MKTFS_LOG_INFO, " Files:       %u\n", fs.files);
    mktfs_log(MKTFS_LOG_INFO, " Dirs:        %u\n", fs.dirs);
    mktfs_log(MKTFS_LOG_INFO, " Links:       %u\n", fs.links);
    mktfs_log(MKTFS_LOG_INFO, " Hardlinks:   %u\n", fs.hardlinks);
    mktfs_log(MKTFS_LOG_INFO, " Object Size: %lu bytes\n", fs.object_size);
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

}  // namespace

void mktfs_print_stats() {
    mktfs_filesystem *fs = mktfs_get_filesystem();
    if ((fs->opts.flags & MKTFS_OPT_NO_STATS) == 0)
        print_counters(*fs);
    if (const auto print = mktfs_backend_or_none().print_stats; print)
        print(fs);
}
