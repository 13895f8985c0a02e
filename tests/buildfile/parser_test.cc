#include "buildfile/parser.h"

#include <gtest/gtest.h>

#include "acl/acl.h"
#include "buildfile/build_file.h"

namespace {

// What the program does with build files: tests/cli/cases.
class parser : public build_file {
protected:
    void parse(std::string_view text) { EXPECT_EQ(base_parse_cfg_file(write(text).c_str()), 0); }
};

TEST_F(parser, GoesOnWhenFatalMessagesReturn) {
    const struct {
        const char *text, *messages;
    } rows[] = {
        {"[file x=1 y mode=9 uid=-1 gid=x acl=u::r acl=z] /a = {}",
         "4 2:9:unsupported inode attribute 'x'\n4 2:13:unsupported inode attribute 'y'\n"
         "4 2:18:invalid mode value '9'\n4 2:24:invalid uid value '-1'\n4 2:31:invalid gid value 'x'\n"
         "4 2:37:acls are not supported by this backend\n4 2:46:acls are not supported by this backend\n"
         "4 2:46:invalid acl value 'z'\n"},
        {"[file uid=\"\" mode=\"\" x=\"\"] \"\" = \"\"",
         "4 2:12:empty quoted string\n4 2:12:invalid uid value 'nil'\n4 2:20:empty quoted string\n"
         "4 2:20:invalid mode value 'nil'\n4 2:25:empty quoted string\n4 2:25:unsupported inode attribute "
         "'x'\n4 2:29:empty quoted string\n4 2:34:empty quoted string\n"},
        {"[dir] /d = /b", "3 2:10:syntax error\n4 \nParsing config file failed.\n"},
        {"[option blksize=x uid=a]",
         "4 2:17:invalid blksize attribute value 'x'\n"
         "4 2:17:blksize value 'x' must be a power of 2 in the range [512, 32768]\n"
         "4 2:23:invalid uid attribute value 'a'\n4 2:23:invalid value for option attribute 'uid' ('a')\n"},
        {"[option fmode=7777777777777777777777]",
         "4 2:15:invalid fmode attribute value '7777777777777777777777'\n"
         "4 2:15:failed to parse option attribute 'fmode' ('7777777777777777777777')\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        parse(row.text);
        EXPECT_EQ(messages(), row.messages);
    }
}

TEST_F(parser, CountsLinesAnewInEveryFileAndColumnsOnFromTheOneBefore) {
    parse("#ab");
    EXPECT_EQ(base_parse_cfg_file(dir.file("in", "!").c_str()), 0);
    EXPECT_EQ(messages(), "4 1:4:Invalid character '!'\n");
}

TEST_F(parser, StoresTheAclOfATypeThatTakesThem) {
    backend.flags |= MKTFS_BACKEND_ACLS;
    parse("[dir acl=u::rw-,g::r--,o::r-- acl=u:5:r] /a\n[dir acl=z] /b");
    EXPECT_EQ(messages(), "4 3:10:invalid acl value 'z'\n");
    EXPECT_EQ(tvo_acl_size(fs.root.children.first->acl), 16);
    EXPECT_EQ(fs.root.children.first->next->acl, nullptr);
}

}  // namespace
