#include "base/hex.h"
#include "base/host.h"
#include "base/progress.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

// Streams, their order, and which level ends the run: tests/cli/cases/search_paths.case.
TEST(Log, ANullReplacementLeavesTheCurrentFunctionAndErrnoSurvives) {
    const log_capture log;
    mktfs_register_log_fct(nullptr);
    EXPECT_EQ(MKTFS_FAIL(EINVAL, "text '%s'\n", "%n"), EINVAL);
    EXPECT_TRUE(log.has(MKTFS_LOG_ERROR, "text '%n'\n"));
    errno = ERANGE;
    EXPECT_EQ(mktfs_log_default(MKTFS_LOG_INFO, "%s", ""), 0);
    EXPECT_EQ(errno, ERANGE);
}

TEST(Hex, ConvertsWithoutTerminatorAndRefusesWhatIsMissing) {
    std::uint8_t bytes[] = {0x00, 0x9a, 0xff};
    std::string text(8, '#');
    EXPECT_EQ(mktfs_bin2hex(text.data(), bytes, 3), 0);
    EXPECT_EQ(text, "009aff##");
    EXPECT_EQ(mktfs_hex2bin(bytes, "A0fF0g", 2), 0);
    EXPECT_THAT(bytes, testing::ElementsAre(0xa0, 0xff, 0xff));
    const int refusals[] = {mktfs_hex2bin(bytes, "0g", 1),       mktfs_hex2bin(bytes, nullptr, 1),
                            mktfs_hex2bin(bytes, "00", 0),       mktfs_hex2bin(nullptr, "00", 1),
                            mktfs_bin2hex(nullptr, bytes, 1),    mktfs_bin2hex(text.data(), nullptr, 1),
                            mktfs_bin2hex(text.data(), bytes, 0)};
    EXPECT_THAT(refusals, testing::Each(EINVAL));
    const log_capture log;
    mktfs_print_hex(bytes, 2);
    mktfs_print_hex(nullptr, 2);
    mktfs_print_hex(bytes, 0);
    EXPECT_THAT(log.lines(), testing::ElementsAre(log_line{MKTFS_LOG_INFO, "a0ff"}));
}

TEST(FileSize, IsZeroOnFailure) {
    for (const int descriptor : {-1, 0}) {
        std::uint64_t size = 7;
        EXPECT_EQ(descriptor < 0 ? mktfs_fd_size(descriptor, &size) : mktfs_file_size("/nowhere", &size),
                  descriptor < 0 ? EBADF : ENOENT);
        EXPECT_EQ(size, 0u);
    }
    std::uint64_t size = 7;
    EXPECT_EQ(mktfs_file_size(nullptr, &size), EINVAL);
    EXPECT_EQ(mktfs_file_size("", nullptr), EINVAL);
    EXPECT_EQ(mktfs_fd_size(0, nullptr), EINVAL);
}

TEST(StrReplace, ReplacesLeftToRightWithinTheCapacity) {
    const struct {
        const char *name, *source, *needle, *replacement;
        std::size_t capacity;
        const char *out;  // null: refused
    } cases[] = {
        {"fits exactly", "x <h>", "<h>", "abc", 6, "x abc"},
        {"no place for the terminator", "x <h>", "<h>", "abc", 5, nullptr},
        {"inserted text is not looked into", "<h>", "<h>", "a<h>", 8, "a<h>"},
        {"overlaps count once", "aaa", "aa", "b", 8, "ba"},
        {"empty needle", "abc", "", "x", 8, nullptr},
        {"no source", nullptr, "a", "x", 8, nullptr},
        {"no needle", "abc", nullptr, "x", 8, nullptr},
        {"no replacement", "abc", "a", nullptr, 8, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        char out[16] = "untouched";
        const int err = mktfs_strreplace(c.source, c.needle, c.replacement, out, c.capacity);
        EXPECT_EQ(err, c.out != nullptr ? 0 : EINVAL);
        EXPECT_STREQ(out, c.out != nullptr ? c.out : "untouched");
    }
}

TEST(Rmtree, RemovesATreeButNotWhatItsLinksLeadTo) {
    const temp_dir dir;
    const std::string kept = dir.file("kept/file", "x"), tree = dir.folder("tree");
    dir.file("tree/a/b/file", "x");
    dir.link("tree/to_file", kept);
    dir.link("tree/to_folder", dir / "kept");
    const log_capture log;
    mktfs_rmtree(tree.c_str());
    mktfs_rmtree(tree.c_str());  // missing: nothing to do, nothing to say
    mktfs_rmtree(nullptr);
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_TRUE(fs::exists(kept));
    EXPECT_EQ(log.text(), "");
    mktfs_rmtree("/proc/self/ns");  // ends at the first entry that cannot be removed
    ASSERT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_EQ(log.lines()[0].level, MKTFS_LOG_ERROR);
    EXPECT_THAT(log.text(), testing::StartsWith("failed to remove '/proc/self/ns/"));
}

// Spellings and links: tests/cli/cases/input_survival.case.
TEST(HostPaths, WhatIsNotThereIsNeitherInsideNorTheSame) {
    bool answer = false;
    const std::pair<const char *, const char *> pairs[] = {
        {nullptr, "/"}, {"/", nullptr}, {"/none", "/none"}, {"/", "/none"}};
    for (const auto &[path, folder] : pairs)
        for (const auto relation : {mktfs_path_is_inside, mktfs_same_file}) {
            answer = true;
            EXPECT_EQ(relation(path, folder, &answer), 0);
            EXPECT_FALSE(answer);
        }
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
