#include "fs/filesystem.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "fs/diag.h"
#include "support/log_capture.h"

namespace {

using testing::ElementsAre;

void at_line_3(const char **file, int *line, int *column) {
    *file = "in.txt";
    *line = 3;
    *column = 14;
}

constinit const mktfs_backend positioned = {.parser = {.scanner_context = at_line_3}};

TEST(ParseMessages, CarryThePositionAndOneNewline) {
    mktfs_set_backend(&positioned);
    const struct {
        const char *message, *logged;
    } cases[] = {
        {"text\n", "in.txt:3:14:text\n"},
        {"text", "in.txt:3:14:text\n"},
        {"%s%n\n\n", "in.txt:3:14:%s%n\n\n"},
        {"", "in.txt:3:14:\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.logged);
        const log_capture log;
        mktfs_parse_error("%s", c.message);
        mktfs_parse_warn("%s", c.message);
        EXPECT_THAT(log.lines(),
                    ElementsAre(log_line{MKTFS_LOG_FATAL, c.logged}, log_line{MKTFS_LOG_WARN, c.logged}));
    }
}

TEST(ParseMessages, AreCutToTheBufferBeforeTheNewlineIsDropped) {
    mktfs_set_backend(&positioned);
    for (const auto &[letters, kept] : {std::pair{4094u, 4094u}, {4095u, 4095u}, {4096u, 4095u}}) {
        const log_capture log;
        mktfs_parse_warn("%s\n", std::string(letters, 'x').c_str());
        EXPECT_EQ(log.text(), "in.txt:3:14:" + std::string(kept, 'x') + "\n");
    }
}

TEST(Filesystem, EmptySlotsHaveFixedAnswers) {
    constexpr mktfs_backend empty = {};
    mktfs_filesystem fs;
    for (const mktfs_backend *backend : {&empty, static_cast<const mktfs_backend *>(nullptr)}) {
        mktfs_set_backend(backend);
        EXPECT_EQ(mktfs_filesystem_build_init(&fs) + mktfs_filesystem_extract_init(&fs), 0);
        EXPECT_EQ(mktfs_filesystem_verify_init(&fs), 0);
        mktfs_filesystem_build_finit(&fs);
        mktfs_filesystem_extract_finit(&fs);
        mktfs_filesystem_verify_finit(&fs);
        EXPECT_EQ(mktfs_filesystem_parse("input"), EOPNOTSUPP);
        EXPECT_EQ(mktfs_filesystem_build(&fs, nullptr), EOPNOTSUPP);
        EXPECT_EQ(mktfs_filesystem_verify(&fs, "/nonexistent"), EOPNOTSUPP);
        EXPECT_EQ(mktfs_filesystem_build_init(nullptr) + mktfs_filesystem_extract_init(nullptr), 2 * EINVAL);
        mktfs_filesystem_build_finit(nullptr);
        const log_capture log;
        mktfs_backend_option_handler("n", "v");
        mktfs_backend_inode_attr(nullptr, "n", "v");
        EXPECT_EQ(log.text(), "(null):0:0:unsupported option attribute 'n'\n"
                              "(null):0:0:unsupported inode attribute 'n'\n");
    }
}

TEST(Filesystem, BuildInitOverwritesTheDefaultsAndKeepsTheOptions) {
    mktfs_filesystem fs;
    fs.uid = fs.gid = fs.root.uid = fs.root.ino = 7;
    fs.opts.flags = MKTFS_OPT_NO_STATS;
    ASSERT_EQ(mktfs_filesystem_build_init(&fs), 0);
    EXPECT_EQ(fs.uid + fs.gid + fs.root.uid + fs.root.ino, 0u);
    EXPECT_EQ(fs.root.nlink, 2);
    EXPECT_EQ(fs.mtimefmt, "%s");
    EXPECT_EQ(fs.opts.flags, MKTFS_OPT_NO_STATS);
}

TEST(Filesystem, RefusedInodeAttributesAreParseErrors) {
    static int answer;
    constexpr mktfs_backend refusing = {.inode_attr = [](auto...) { return answer; }};
    mktfs_set_backend(&refusing);
    log_capture log;
    for (const int error : {0, EINVAL, EOPNOTSUPP, ERANGE}) {
        answer = error;
        mktfs_backend_inode_attr(nullptr, "n", error == EINVAL ? nullptr : "v");
    }
    EXPECT_EQ(log.text(),
              "(null):0:0:invalid value for inode attribute 'n' ('nil')\n"
              "(null):0:0:unsupported inode attribute 'n'\n"
              "(null):0:0:failed to parse inode attribute 'n' ('v') [Numerical result out of range]\n");
    EXPECT_EQ(log.lines()[0].level, MKTFS_LOG_FATAL);
    mktfs_set_backend(nullptr);
}

}  // namespace
