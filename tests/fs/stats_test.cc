#include "fs/stats.h"

#include <gtest/gtest.h>

#include "fs/filesystem.h"
#include "support/log_capture.h"

namespace {

constinit const mktfs_backend talkative = {
    .print_stats = [](mktfs_filesystem *) { mktfs_log(MKTFS_LOG_INFO, "own\n"); }};

TEST(Stats, PrintsTheCountersUnlessTheTypeOptedOutThenTheTypesOwn) {
    mktfs_filesystem &fs = *mktfs_get_filesystem();
    fs.files = 1;
    fs.dirs = 2;
    fs.links = 3;
    fs.hardlinks = 4;
    fs.object_size = 0xffffffffffffffff;
    const std::string counters = "\nFilesystem Statistics\n\n"
                                 " Files:       1\n"
                                 " Dirs:        2\n"
                                 " Links:       3\n"
                                 " Hardlinks:   4\n"
                                 " Object Size: 18446744073709551615 bytes\n\n";
    mktfs_set_backend(&talkative);
    log_capture log;
    mktfs_print_stats();
    EXPECT_EQ(log.text(), counters + "own\n");
    log.clear();
    mktfs_get_filesystem_opts()->flags = MKTFS_OPT_NO_STATS;
    mktfs_print_stats();
    EXPECT_EQ(log.text(), "own\n");

    mktfs_set_backend(nullptr);
    fs = mktfs_filesystem{};
}

}  // namespace
