#include "ttd/stats.h"

#include "base/log.h"
#include "ttd/context.h"

void ttd_print_run_stats(const ttd_run_context &run) {
    mktfs_log(MKTFS_LOG_INFO, "\nTTD Merkle Tree Meta Data Statistics\n\n");
    ttd_describe_info(run.engine.info, (run.options->flags & TTD_OPT_PARTITION) != 0,
                      [](const char *line) { mktfs_log(MKTFS_LOG_INFO, "%s\n", line); });
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

void ttd_print_stats(mktfs_filesystem *fs) {
    ttd_print_run_stats(ttd_context(*fs));
}
