#include "fs/diag.h"

#include <gmock/gmock.h>

#include <string>

#include "fs/filesystem.h"
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
        {"text\n\n", "in.txt:3:14:text\n\n"},
        {"%s%n", "in.txt:3:14:%s%n\n"},
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
    const struct {
        const char *name;
        std::size_t letters, kept;
    } cases[] = {{"fits with its newline", 4094, 4094},
                 {"newline is cut off", 4095, 4095},
                 {"text is cut", 4096, 4095}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const log_capture log;
        mktfs_parse_warn("%s\n", std::string(c.letters, 'x').c_str());
        EXPECT_EQ(log.text(), "in.txt:3:14:" + std::string(c.kept, 'x') + "\n");
    }
}

}  // namespace
