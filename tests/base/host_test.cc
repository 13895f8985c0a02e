#include "base/hex.h"
#include "base/host.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using bytes = std::vector<std::uint8_t>;

TEST(Hex, ReadsEitherCaseHighNibbleFirstAndStopsAtAnyOtherCharacter) {
    const struct {
        const char *text;
        int err;
        bytes out;  // of three bytes that were 0x11
    } cases[] = {
        {"A0ff9c", 0, {0xa0, 0xff, 0x9c}},    {"09afAF", 0, {0x09, 0xaf, 0xaf}},
        {"a0f", EINVAL, {0xa0, 0x11, 0x11}},  {"a0:0", EINVAL, {0xa0, 0x11, 0x11}},
        {"`000", EINVAL, {0x11, 0x11, 0x11}}, {"\x10\x10", EINVAL, {0x11, 0x11, 0x11}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        bytes out(3, 0x11);
        EXPECT_EQ(mktfs_hex2bin(out.data(), c.text, 3), c.err);
        EXPECT_EQ(out, c.out);
    }
}

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
    const temp_dir dir;
    const std::string path = dir.file("data", "12345");
    std::uint64_t size = 7;
    EXPECT_EQ(mktfs_file_size(path.c_str(), &size), 0);
    EXPECT_EQ(size, 5u);
    EXPECT_EQ(mktfs_file_size((path + "x").c_str(), &size), ENOENT);
    EXPECT_EQ(size, 0u);

    EXPECT_EQ(mktfs_file_size(nullptr, &size) + mktfs_file_size("", nullptr) + mktfs_fd_size(0, nullptr),
              3 * EINVAL);

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
        {"twice", "<h><h>", "<h>", "ab", 5, "abab"},
        {"inserted text is not looked into", "<h>", "<h>", "a<h>", 8, "a<h>"},
        {"overlaps count once", "aaa", "aa", "b", 8, "ba"},
        {"empty source", "", "-", "x", 1, ""},
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

TEST(TmpdirDeathTest, TakesTheFirstVariableThatIsSet) {
    const struct {
        const char *tmpdir, *temp, *tmp, *expected;
    } cases[] = {
        {"/a", "/b", "/c", "/a"},
        {nullptr, "/b", "/c", "/b"},
        {nullptr, nullptr, nullptr, "/tmp"},
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
        {"top/sub/image", "top/sub/../../top/", true, false},
        {"alias/sub/image", "top", true, false},
        {"top/sub/image", "alias", true, false},
        {"top", "alias/.", true, true},
        {"top/sub/image", "twin", true, true},
        {"top/key", "top", true, false},
        {"topper", "top", false, false},
        {"other/key", "top", false, false},
        {"dangling", "dangling", false, false},
        {"top/missing", "missing", false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.path) + " in " + c.folder);
        const std::string path = dir / c.path, folder = dir / c.folder;
        bool inside = !c.inside, same = !c.same;
        EXPECT_EQ(mktfs_path_is_inside(path.c_str(), folder.c_str(), &inside), 0);
        EXPECT_EQ(mktfs_same_file(path.c_str(), folder.c_str(), &same), 0);
        EXPECT_EQ(inside, c.inside);
        EXPECT_EQ(same, c.same);
    }
    bool inside = false;
    EXPECT_EQ(mktfs_path_is_inside(".", "/", &inside), 0);
    EXPECT_TRUE(inside);
    for (const auto relation : {mktfs_path_is_inside, mktfs_same_file}) {
        EXPECT_EQ(relation(nullptr, "/", &inside) + relation("/", nullptr, &inside), 0);
        EXPECT_FALSE(inside);
    }
}

}  // namespace
