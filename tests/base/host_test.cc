#include "base/hex.h"
#include "base/host.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <filesystem>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using bytes = std::vector<std::uint8_t>;

TEST(Hex, WritesLowerCaseWithoutTerminatorOrNewlineAndNothingForNoData) {
    std::uint8_t bytes_in[] = {0x00, 0x9a, 0xff};
    std::string out(8, '#');
    EXPECT_EQ(mktfs_bin2hex(out.data(), bytes_in, 3), 0);
    EXPECT_EQ(out, "009aff##");
    EXPECT_EQ(mktfs_hex2bin(bytes_in, nullptr, 1) + mktfs_hex2bin(bytes_in, "00", 0), 2 * EINVAL);
    EXPECT_EQ(mktfs_bin2hex(nullptr, bytes_in, 1) + mktfs_bin2hex(out.data(), bytes_in, 0), 2 * EINVAL);
    EXPECT_EQ(mktfs_hex2bin(nullptr, "00", 1) + mktfs_bin2hex(out.data(), nullptr, 1), 2 * EINVAL);
    const log_capture log;
    const bytes data = {0xde, 0xad};
    mktfs_print_hex(data.data(), 2);
    mktfs_print_hex(nullptr, 2);
    mktfs_print_hex(data.data(), 0);
    EXPECT_THAT(log.lines(), testing::ElementsAre(log_line{MKTFS_LOG_INFO, "dead"}));
}

TEST(FileSize, IsZeroOnFailure) {
    std::uint64_t size = 7;
    EXPECT_EQ(mktfs_file_size("/nowhere", &size), ENOENT);
    EXPECT_EQ(size, 0u);
    size = 7;
    EXPECT_EQ(mktfs_fd_size(-1, &size), EBADF);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(mktfs_file_size(nullptr, &size) + mktfs_file_size("", nullptr) + mktfs_fd_size(0, nullptr),
              3 * EINVAL);
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
    const std::string kept = dir.file("kept/file", "x");
    const std::string tree = dir.folder("tree");
    dir.file("tree/a/b/file", "x");
    dir.link("tree/to_file", kept);
    dir.link("tree/to_folder", dir / "kept");
    const log_capture log;
    mktfs_rmtree(tree.c_str());
    mktfs_rmtree(tree.c_str());  // missing: nothing to do, nothing to say
    mktfs_rmtree(nullptr);
    EXPECT_FALSE(fs::exists(tree));
    EXPECT_TRUE(fs::exists(kept));
    EXPECT_TRUE(log.lines().empty()) << log.text();
    mktfs_rmtree("/proc/self/ns");  // ends at the first entry that cannot be removed
    ASSERT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_TRUE(log.lines()[0].level == MKTFS_LOG_ERROR &&
                log.text().starts_with("failed to remove '/proc/self/ns/") && log.text().ends_with(")\n"));
}

// Spellings and links: tests/cli/cases/input_survival.case.
TEST(HostPaths, WhatIsNotThereIsNeitherInsideNorTheSame) {
    bool answer = false;
    EXPECT_EQ(mktfs_path_is_inside(".", "/", &answer), 0);
    EXPECT_TRUE(answer);
    const std::pair<const char *, const char *> pairs[] = {
        {nullptr, "/"}, {"/", nullptr}, {"/none", "/none"}, {"/", "/none"}};
    for (const auto &[path, folder] : pairs)
        for (const auto relation : {mktfs_path_is_inside, mktfs_same_file}) {
            answer = true;
            EXPECT_EQ(relation(path, folder, &answer), 0);
            EXPECT_FALSE(answer);
        }
}

}  // namespace
