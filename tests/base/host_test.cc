#include "base/host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(FileSize, IsZeroOnFailure) {
    const temp_dir dir;
    const std::string path = dir.file("data", "12345");
    std::uint64_t size = 7;
    EXPECT_EQ(mktfs_file_size(path.c_str(), &size), 0);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(mktfs_file_size((path + "x").c_str(), &size), ENOENT);
    EXPECT_EQ(size, 0u);

    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(mktfs_fd_size(descriptor, &size), 0);
    EXPECT_EQ(size, 5u);
    close(descriptor);
    EXPECT_EQ(mktfs_fd_size(descriptor, &size), EBADF);
    EXPECT_EQ(size, 0u);
}

TEST(StrReplace, ReplacesLeftToRightWithinTheCapacity) {
    const struct {
        const char *name, *source, *needle, *replacement;
        std::size_t capacity;
        const char *out;  // null: refused
    } cases[] = {
        {"fits exactly", "x <h>", "<h>", "abc", 6, "x abc"},
        {"no place for the terminator", "x <h>", "<h>", "abc", 5, nullptr},
        {"no needle, fits exactly", "abc", "<h>", "zzz", 4, "abc"},
        {"twice", "<h><h>", "<h>", "ab", 5, "abab"},
        {"inserted text is not looked into", "<h>", "<h>", "a<h>", 8, "a<h>"},
        {"overlaps count once", "aaa", "aa", "b", 8, "ba"},
        {"removal", "a-b-c", "-", "", 4, "abc"},
        {"empty source", "", "-", "x", 1, ""},
        {"empty needle", "abc", "", "x", 8, nullptr},
        {"null source", nullptr, "a", "b", 8, nullptr},
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
}

TEST(Rmtree, EndsAtTheFirstEntryThatCannotBeRemoved) {
    const log_capture log;
    mktfs_rmtree("/proc/self/ns");
    ASSERT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_TRUE(log.lines()[0].level == MKTFS_LOG_ERROR &&
                log.text().starts_with("failed to remove '/proc/self/ns/") && log.text().ends_with(")\n"))
        << log.text();
}

// The answer is decided once a process: each row asks in a process of its own.
TEST(TmpdirDeathTest, TakesTheFirstVariableThatIsSet) {
    const struct {
        const char *tmpdir, *temp, *tmp, *expected;
    } cases[] = {
        {"/a", "/b", "/c", "/a"},       {nullptr, "/b", "/c", "/b"},
        {nullptr, nullptr, "/c", "/c"}, {nullptr, nullptr, nullptr, "/tmp"},
        {nullptr, "", "/c", ""},
    };
    const auto set = [](const char *name, const char *value) {
        return value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.expected);
        EXPECT_EXIT(
            {
                set("TMPDIR", c.tmpdir);
                set("TEMP", c.temp);
                set("TMP", c.tmp);
                const std::string first = mktfs_tmpdir();
                setenv("TMPDIR", "/later", 1);
                _exit(first == c.expected && first == mktfs_tmpdir() ? 0 : 1);
            },
            testing::ExitedWithCode(0), "");
    }
}

TEST(HostPaths, SeeThroughSpellingsAndLinks) {
    const temp_dir dir;
    dir.file("top/sub/image", "x");
    dir.file("other/key", "x");
    dir.folder("topper");
    dir.link("alias", dir / "top");
    dir.link("top/key", dir / "other/key");
    dir.link("dangling", dir / "nowhere");
    fs::create_hard_link(dir / "top/sub/image", dir / "twin");
    const struct {
        const char *path, *folder;
        bool inside, same;
    } cases[] = {
        {"top/sub/image", "top", true, false},   {"top/sub/image", "top/sub/../../top/", true, false},
        {"alias/sub/image", "top", true, false}, {"top/sub/image", "alias", true, false},
        {"top", "alias/.", true, true},          {"top/sub/..", "top", true, true},
        {"top/sub/image", "twin", true, true},   {"top/key", "top", true, false},
        {"top/key", "other", true, false},       {"topper", "top", false, false},
        {"top", "top/sub", false, false},        {"other/key", "top", false, false},
        {"dangling", "dangling", false, false},  {"top/missing", "missing", false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.path) + " in " + c.folder);
        const std::string path = dir / c.path, folder = dir / c.folder;
        EXPECT_EQ(mktfs_path_is_inside(path.c_str(), folder.c_str()), c.inside);
        EXPECT_EQ(mktfs_same_file(path.c_str(), folder.c_str()), c.same);
    }
    EXPECT_TRUE(mktfs_path_is_inside(".", "/"));
}

}  // namespace
