#include "base/hex.h"
#include "base/host.h"
#include "base/progress.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "support/log_capture.h"

namespace {

// Streams, their order, and which level ends the run: tests/cli/cases/search_paths.case.
TEST(Log, ANullReplacementLeavesTheCurrentFunction) {
    const log_capture log;
    mktfs_register_log_fct(nullptr);
    EXPECT_EQ(MKTFS_FAIL(EINVAL, "text '%s'\n", "%n"), EINVAL);
    EXPECT_TRUE(log.has(MKTFS_LOG_ERROR, "text '%n'\n"));
}

TEST(Hex, ConvertsWithoutTerminatorAndRefusesWhatIsNoDigit) {
    std::uint8_t bytes[] = {0x00, 0x9a, 0xff};
    std::string text(8, '#');
    EXPECT_EQ(mktfs_bin2hex(text.data(), bytes, 3), 0);
    EXPECT_EQ(text, "009aff##");
    EXPECT_EQ(mktfs_hex2bin(bytes, "A0fF0g", 2), 0);
    EXPECT_THAT(bytes, testing::ElementsAre(0xa0, 0xff, 0xff));
    EXPECT_EQ(mktfs_hex2bin(bytes, "0g", 1), EINVAL);
    EXPECT_EQ(mktfs_hex2bin(bytes, "00", 0), EINVAL);
    const log_capture log;
    mktfs_print_hex(bytes, 2);
    mktfs_print_hex(nullptr, 2);  // a signature that is not there
    EXPECT_THAT(log.lines(), testing::ElementsAre(log_line{MKTFS_LOG_INFO, "a0ff"}));
}

TEST(FileSize, IsZeroOnFailure) {
    std::uint64_t sizes[] = {7, 7};
    EXPECT_EQ(mktfs_fd_size(-1, &sizes[0]), EBADF);
    EXPECT_EQ(mktfs_file_size("/nowhere", &sizes[1]), ENOENT);
    EXPECT_THAT(sizes, testing::Each(0));
}

TEST(StrReplace, ReplacesLeftToRightWithinTheCapacity) {
    const struct {
        const char *source, *needle, *replacement;
        std::size_t capacity;
        const char *out;                              // null: refused
    } rows[] = {{"x <h>", "<h>", "abc", 6, "x abc"},  // fits exactly
                {"x <h>", "<h>", "abc", 5, nullptr},  // the terminator has no place
                {"<h>", "<h>", "a<h>", 8, "a<h>"},    // inserted text is not looked into
                {"aaa", "aa", "b", 8, "ba"},          // overlaps count once
                {"abc", "", "x", 8, nullptr}};
    for (const auto &row : rows) {
        char out[16] = "untouched";
        EXPECT_EQ(mktfs_strreplace(row.source, row.needle, row.replacement, out, row.capacity),
                  row.out ? 0 : EINVAL);
        EXPECT_STREQ(out, row.out ? row.out : "untouched");
    }
}

// Links in the folder: tests/cli/cases/input_survival.case.
TEST(Rmtree, EndsAtTheFirstEntryThatCannotBeRemovedAndMissesNothingThatIsGone) {
    const log_capture log;
    mktfs_rmtree("/nowhere");
    mktfs_rmtree("/proc/self/ns");
    ASSERT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_EQ(log.lines()[0].level, MKTFS_LOG_ERROR);
    EXPECT_THAT(log.text(), testing::StartsWith("failed to remove '/proc/self/ns/"));
}

// When the line is shown and wiped is seen on a terminal: tests/driver.
TEST(Progress, LineTellsPercentSpeedOfTheImageAndTimeLeft) {
    constexpr std::uint64_t MIB = 1 << 20, TIB = MIB * MIB;
    const struct {
        mktfs_progress_figures figures;
        const char *line;
    } rows[] = {
        {{1000 * MIB, 1, 250 * MIB, 1.0}, " 25%  250 MiB/s  0:03 left"},
        {{1000 * MIB, 2, 1000 * MIB, 10.0}, " 50%  50 MiB/s  0:10 left"},
        {{100 * MIB, 1, MIB, 2.0}, "  1%  0.5 MiB/s  3:18 left"},
        {{20 * MIB, 1, 10 * MIB, 1.0}, " 50%  10 MiB/s  0:01 left"},
        {{36010 * MIB, 1, 10 * MIB, 1.0}, "  0%  10 MiB/s  1:00:00 left"},
        {{8 * TIB, 2, 8 * TIB, 45296.0}, " 50%  93 MiB/s  12:34:56 left"},
        {{8 * TIB, 1, 0, 5.0}, "  0%  0.0 MiB/s  99:59:59 left"},
        {{MIB, 1, 3 * MIB, 2.0}, "100%  0.5 MiB/s  0:00 left"},  // more than announced
    };
    for (const auto &row : rows) {
        char line[64], narrow[11];
        mktfs_progress_text(row.figures, line, sizeof line);
        EXPECT_STREQ(line, row.line);
        mktfs_progress_text(row.figures, narrow, sizeof narrow);
        EXPECT_EQ(narrow, std::string(row.line).substr(0, 10));
    }
}

}  // namespace
