#include "fs/filesystem.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "fs/diag.h"
#include "support/log_capture.h"

namespace {

TEST(ParseMessages, CarryThePositionAndOneNewline) {
    static constinit const mktfs_backend positioned = {
        .parser = {.scanner_context = [](auto file, auto line, auto column) {
            *file = "in.txt", *line = 3, *column = 14;
        }}};
    mktfs_set_backend(&positioned);
    const std::string letters(4095, 'x');  // the buffer is full before the newline is dropped
    const std::pair<std::string, std::string> rows[] = {{"text\n", "text\n"},
                                                        {"text", "text\n"},
                                                        {"%s%n\n\n", "%s%n\n\n"},
                                                        {"", "\n"},
                                                        {letters + "x\n", letters + "\n"}};
    for (const auto &[message, expected] : rows) {
        const std::string logged = "in.txt:3:14:" + expected;
        const log_capture log;
        mktfs_parse_error("%s", message.c_str());
        mktfs_parse_warn("%s", message.c_str());
        EXPECT_THAT(log.lines(), testing::ElementsAre(log_line{MKTFS_LOG_FATAL, logged},
                                                      log_line{MKTFS_LOG_WARN, logged}));
    }
}

TEST(Filesystem, EmptySlotsHaveFixedAnswers) {
    static constinit const mktfs_backend empty = {};
    mktfs_filesystem fs;
    for (const mktfs_backend *backend : {&empty, static_cast<const mktfs_backend *>(nullptr)}) {
        mktfs_set_backend(backend);
        const int inits[] = {mktfs_filesystem_build_init(&fs), mktfs_filesystem_extract_init(&fs),
                             mktfs_filesystem_verify_init(&fs)};
        const int steps[] = {mktfs_filesystem_parse(""), mktfs_filesystem_build(&fs, nullptr),
                             mktfs_filesystem_verify(&fs, "")};
        EXPECT_THAT(inits, testing::Each(0));
        EXPECT_THAT(steps, testing::Each(EOPNOTSUPP));
    }
}

TEST(Filesystem, RefusedAttributesAreParseErrors) {
    static int answer;
    static constinit const mktfs_backend refusing = {.inode_attr = [](auto...) { return answer; }};
    mktfs_set_backend(&refusing);
    const log_capture log;
    for (const int error : {0, EINVAL, EOPNOTSUPP, ERANGE}) {
        answer = error;
        mktfs_backend_inode_attr(nullptr, "n", error == EINVAL ? nullptr : "v");
    }
    mktfs_set_backend(nullptr);
    mktfs_backend_option_handler("n", "v");
    EXPECT_EQ(log.text(),
              "(null):0:0:invalid value for inode attribute 'n' ('nil')\n"
              "(null):0:0:unsupported inode attribute 'n'\n"
              "(null):0:0:failed to parse inode attribute 'n' ('v') [Numerical result out of range]\n"
              "(null):0:0:unsupported option attribute 'n'\n");
}

}  // namespace
