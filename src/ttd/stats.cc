#include "ttd/stats.h"

#include "base/log.h"
#include "ttd/context.h"
#include "ttd/options.h"

void ttd_print_stats(mktfs_filesystem *fs) {
    mktfs_log(MKTFS_LOG_INFO, "\nTTD Merkle Tree Meta Data Statistics\n\n");
    ttd_describe_info(ttd_context(*fs).engine.info, (ttd_opts.flags & TTD_OPT_PARTITION) != 0,
                      [](const char *line) { mktfs_log(MKTFS_LOG_INFO, "%s\n", line); });
    mktfs_log(MKTFS_LOG_INFO, "\n");
}
