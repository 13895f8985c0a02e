#include "base/log.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/log_capture.h"

namespace {

// Streams, their order, and which level ends the run: tests/cli/cases/search_paths.case.
TEST(Log, ANullReplacementLeavesTheCurrentFunctionAndErrnoSurvives) {
    const log_capture log;
    mktfs_register_log_fct(nullptr);
    const int err = MKTFS_FAIL(EINVAL, "text '%s'\n", "%n");
    EXPECT_EQ(err, EINVAL);
    EXPECT_TRUE(log.has(MKTFS_LOG_ERROR, "text '%n'\n"));

    errno = ERANGE;
    EXPECT_EQ(mktfs_log_default(MKTFS_LOG_INFO, "%s", ""), 0);
    EXPECT_EQ(errno, ERANGE);
}

}  // namespace
