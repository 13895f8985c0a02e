#include "base/progress.h"

#include <gtest/gtest.h>

#include <string>

// When the line is shown and wiped is seen on a terminal: tests/driver.
TEST(Progress, LineTellsPercentSpeedOfTheImageAndTimeLeft) {
    constexpr std::uint64_t MIB = 1 << 20;
    constexpr std::uint64_t TIB = MIB * MIB;
    const struct {
        const char *name;
        mktfs_progress_figures figures;
        const char *line;
    } rows[] = {
        {"one pass", {1000 * MIB, 1, 250 * MIB, 1.0}, " 25%  250 MiB/s  0:03 left"},
        {"half of two passes", {1000 * MIB, 2, 1000 * MIB, 10.0}, " 50%  50 MiB/s  0:10 left"},
        {"slow", {100 * MIB, 1, MIB, 2.0}, "  1%  0.5 MiB/s  3:18 left"},
        {"hours", {8 * TIB, 2, 8 * TIB, 45296.0}, " 50%  93 MiB/s  12:34:56 left"},
        {"nothing done", {8 * TIB, 1, 0, 5.0}, "  0%  0.0 MiB/s  99:59:59 left"},
        {"more than announced", {MIB, 1, 3 * MIB, 2.0}, "100%  0.5 MiB/s  0:00 left"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        char line[64];
        mktfs_progress_text(row.figures, line, sizeof line);
        EXPECT_STREQ(line, row.line);
        char narrow[11];
        mktfs_progress_text(row.figures, narrow, sizeof narrow);
        EXPECT_EQ(narrow, std::string(row.line).substr(0, 10));
    }
}
