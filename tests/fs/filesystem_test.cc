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
    const std::string letters(4095, 'x');  // the buffer is full before the newline is dropped
    const std::pair<std::string, std::string> cases[] = {
        {"text\n", "text\n"},
        {"text", "text\n"},
        {"%s%n\n\n", "%s%n\n\n"},
        {"", "\n"},
        {letters.substr(1) + "\n", letters.substr(1) + "\n"},
        {letters + "\n", letters + "\n"},
        {letters + "x\n", letters + "\n"},
    };
    for (const auto &[message, expected] : cases) {
        const std::string logged = "in.txt:3:14:" + expected;
        SCOPED_TRACE(logged);
        const log_capture log;
        mktfs_parse_error("%s", message.c_str());
        mktfs_parse_warn("%s", message.c_str());
        EXPECT_THAT(log.lines(),
                    ElementsAre(log_line{MKTFS_LOG_FATAL, logged}, log_line{MKTFS_LOG_WARN, logged}));
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
