#include "buildfile/parser.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>

#include "buildfile/acl.h"
#include "buildfile/build_file.h"

namespace {

class parser : public build_file {
protected:
    static std::string tree() {
        std::string text;
        mktfs_filesystem_walk_layer(
            [](mktfs_filesystem *, mktfs_inode *inode, void *out) {
                if (inode->parent == nullptr)
                    return 0;
                char path[4096] = "";
                char line[8192];
                mktfs_inode_full_path(inode, path, sizeof path);
                std::snprintf(line, sizeof line, "%s %s %u:%u %o%s%s\n", mktfs_inode_type2str(inode->type),
                              path, inode->uid, inode->gid, inode->mode, inode->has_path ? " " : "",
                              inode->path.c_str());
                *static_cast<std::string *>(out) += line;
                return 0;
            },
            &text);
        return text;
    }

    void parse(std::string_view text) { EXPECT_EQ(base_parse_cfg_file(write(text).c_str()), 0); }
};

TEST_F(parser, BuildsTheTreeThatTheFileDescribes) {
    const std::string source = dir.file("shadow", "secret");
    parse("# image of a small system\n"
          "[option uid=1 gid=2 fmode=0640 dmode=0711 blksize=8192]\n"
          "[option mtimefmt=\"%Y-%m-%d %H\" mtime=\"2020-01-01 12\"]\n"
          "[dir uid=3 mode=0755] /etc\n"
          "[file uid=0 gid=0 mode=0600] /etc/shadow = " +
          source +
          "\n"
          "[file] \"/etc/host name\" = {\n"
          "tav\n"
          "}\n"
          "[link gid=9] /usr/bin = /bin\n"
          "[hlink] /etc/s2 = /etc/shadow\n");
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(tree(), "dir /etc 3:2 755\n"
                      "dir /usr 1:2 711\n"
                      "file /etc/host name 1:2 640 tav\n\n"
                      "hlink /etc/s2 1:2 0 /etc/shadow\n"
                      "file /etc/shadow 0:0 600 " +
                          source +
                          "\n"
                          "link /usr/bin 1:9 777 /bin\n");
    EXPECT_EQ(fs().blksize, 8192U);
    EXPECT_EQ(fs().mtimefmt, "%Y-%m-%d %H");
}

TEST_F(parser, ReportsAtThePositionOfTheLastTokenRead) {
    const std::string failed = ":syntax error\n4 \nParsing config file failed.\n";
    struct row {
        const char *text;
        std::string messages;
        const char *tree = "";
    };
    const row rows[] = {
        {"", ""},
        {"[option]\n", "3 2:8" + failed},
        {"[file mtime=0] /a", "3 2:7" + failed},
        {"[link x] /a", "3 2:7" + failed},
        {"[hlink] /a\n[dir] /b\n", "3 3:1" + failed},
        {"[[", "3 2:2" + failed},
        {"[file uid=\"0", "4 2:12:unterminated quoted string\n3 2:12" + failed},
        {"[dir] /a = /b\n[dir] /c", "3 2:10" + failed, "dir /a 0:0 755\n"},
        {"[dir] /a\n[dir] /a\n", "2 3:7:directory 'a' attributes overridden\n", "dir /a 0:0 755\n"},
        {"[file] /a\n\n\n[file] /b\n", "2 5:1:failed to find matching target for file '/a'\n"
                                       "2 6:0:failed to find matching target for file '/b'\n"},
        {"[file] /a = none\n\n", "2 2:13:failed to find matching target for file 'none'\n"},
        {"[dir]/a\n[file] /a = {\nx}", "4 4:14:duplicate filesystem object at path '/a'\n",
         "dir /a 0:0 755\nfile /a 0:0 644 x\n"},
        {"[file x=1 y mode=9 uid=-1 gid=x acl=u::r acl=z] /a = {}",
         "4 2:9:unsupported inode attribute 'x'\n4 2:13:unsupported inode attribute 'y'\n"
         "4 2:18:invalid mode value '9'\n4 2:24:invalid uid value '-1'\n4 2:31:invalid gid value 'x'\n"
         "4 2:37:acls are not supported by this backend\n4 2:46:acls are not supported by this backend\n"
         "4 2:46:invalid acl value 'z'\n",
         "file /a 0:0 0 \n"},
        {"[file uid=\"\" mode=\"\" x=\"\"] \"\" = \"\"\n[option mtime=\"\"]",
         "4 2:12:empty quoted string\n4 2:12:invalid uid value 'nil'\n4 2:20:empty quoted string\n"
         "4 2:20:invalid mode value 'nil'\n4 2:25:empty quoted string\n4 2:25:unsupported inode attribute "
         "'x'\n"
         "4 2:29:empty quoted string\n4 2:34:empty quoted string\n4 3:16:empty quoted string\n"
         "4 3:16:invalid value for option attribute 'mtime' ('nil')\n"},
    };
    for (const row &each : rows) {
        SCOPED_TRACE(each.text);
        restart();
        parse(each.text);
        EXPECT_EQ(messages(), each.messages);
        EXPECT_EQ(tree(), each.tree);
    }
}

TEST_F(parser, ReportsRefusedOptions) {
    const auto range = [](const std::string &value) {
        return "blksize value '" + value + "' must be a power of 2 in the range [512, 32768]\n";
    };
    const struct {
        std::string attribute, messages;
    } rows[] = {
        {"blksize=32768", ""},
        {"blksize=65536", range("65536")},
        {"blksize=256", range("256")},
        {"blksize=x", "invalid blksize attribute value 'x'\n" + range("x")},
        {"uid=%s%n",
         "invalid uid attribute value '%s%n'\ninvalid value for option attribute 'uid' ('%s%n')\n"},
        {"dmode=8", "invalid dmode attribute value '8'\ninvalid value for option attribute 'dmode' ('8')\n"},
        {"fmode=7777777777777777777777",
         "invalid fmode attribute value '7777777777777777777777'\n"
         "failed to parse option attribute 'fmode' ('7777777777777777777777')\n"},
        {"mtimefmt=%Y mtime=x", "invalid mtime attribute value 'x' in conjunction with mtimefmt '%Y'\n"
                                "invalid value for option attribute 'mtime' ('x')\n"},
        {"blksize", "invalid value for option attribute 'blksize' ('nil')\n"},
        {"UID=1", "unsupported option attribute 'UID'\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.attribute);
        restart();
        parse("[option " + row.attribute + "]");
        std::string texts;
        for (const log_line &line : log.lines())  // without "file:line:column:"
            texts += line.text.substr(line.text.find(':', line.text.find(":2:") + 3) + 1);
        EXPECT_EQ(texts, row.messages);
    }
}

TEST_F(parser, StoresTheAclOfATypeThatTakesThem) {
    backend.flags |= MKTFS_BACKEND_ACLS;
    parse("[dir acl=u::rw-,g::r--,o::r-- acl=u:5:r] /a\n[dir acl=z] /b");
    EXPECT_EQ(messages(), "4 3:10:invalid acl value 'z'\n");
    EXPECT_EQ(tvo_acl_size(fs().root.children.first->acl), 16);
    EXPECT_EQ(fs().root.children.first->next->acl, nullptr);
}

TEST_F(parser, ContentsLoseOneLeadingNewlineAndEndAtANul) {
    parse("[file] /a = {\n\nx\0y}\n"sv);
    EXPECT_EQ(tree(), "file /a 0:0 644 \nx\n");
    EXPECT_EQ(fs().root.children.first->size, 2U);
    EXPECT_EQ(fs().root.children.first->flags, MKTFS_INODE_INLINE);
}

}  // namespace
