#include "base/log.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

using testing::ExitedWithCode;

template <class Action>
void expect_streams(Action action, int status, const char *out, const char *err) {
    const temp_dir dir;
    const std::string out_path = dir / "out", err_path = dir / "err";
    EXPECT_EXIT(
        {
            if (!std::freopen(out_path.c_str(), "w", stdout) || !std::freopen(err_path.c_str(), "w", stderr))
                _exit(9);
            action();
            std::exit(7);
        },
        ExitedWithCode(status), "");
    EXPECT_EQ(read_file(out_path), out);
    EXPECT_EQ(read_file(err_path), err);
}

TEST(LogDeathTest, LevelDecidesStreamAndEnd) {
    const struct {
        int level, abort, status;
        const char *out, *err;
    } cases[] = {
        {MKTFS_LOG_INFO, 1, 7, "m 1", ""},  {MKTFS_LOG_WARN, 0, 7, "", "m 1"},
        {MKTFS_LOG_WARN, 1, 1, "", "m 1"},  {MKTFS_LOG_ERROR, 1, 7, "", "m 1"},
        {MKTFS_LOG_FATAL, 0, 1, "", "m 1"}, {5, 0, 7, "m 1", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.level * 10 + c.abort);
        expect_streams(
            [&] {
                abort_on_warning = c.abort;
                mktfs_log(c.level, "m %d", 1);
            },
            c.status, c.out, c.err);
    }
}

TEST(LogDeathTest, KeepsTheOrderOfBothStreamsAndRemembersAFailedWrite) {
    const temp_dir dir;
    const std::string path = dir / "both";
    EXPECT_EXIT(
        {
            if (!std::freopen(path.c_str(), "w", stdout) || dup2(STDOUT_FILENO, STDERR_FILENO) < 0)
                _exit(9);
            mktfs_log(MKTFS_LOG_INFO, "1\n");
            mktfs_log(MKTFS_LOG_WARN, "2\n");
            mktfs_log(MKTFS_LOG_INFO, "3\n");
            if (!std::freopen("/dev/full", "w", stdout))
                _exit(9);
            mktfs_log(MKTFS_LOG_INFO, "lost\n");
            mktfs_log(MKTFS_LOG_ERROR, "4\n");
            _exit(mktfs_log_flush());
        },
        ExitedWithCode(ENOSPC), "");
    EXPECT_EQ(read_file(path), "1\n2\n3\n4\n");
}

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
