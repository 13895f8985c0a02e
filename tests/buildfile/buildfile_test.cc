#include "buildfile/parser.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <tuple>

#include "acl/acl.h"
#include "attributes/options.h"
#include "base_grammar.h"
#include "buildfile/scanner.h"
#include "buildfile/setters.h"
#include "tree/tree_fixture.h"

using namespace std::literals;

namespace {

std::string token_name(int token) {
    static const char *const names[] = {"OPTION", "FILE",  "DIR", "LINK", "HLINK", "UID",  "GID",
                                        "MODE",   "MTIME", "ACL", "NAME", "VALUE", "PATH", "CONTENTS"};
    return token < BASE_OPTION ? std::string(1, static_cast<char>(token)) : names[token - BASE_OPTION];
}

// What the program does with build files, and positions: tests/cli/cases.
class build_file : public tree_test {
protected:
    build_file() {
        backend.name = "TEST";
        backend.parser = mktfs_base_parser;
        backend.option_handler = base_option_handler;
        backend.inode_attr = base_inode_attr_fct;
    }
    ~build_file() override { mktfs_backend_acls_free(); }

    // Writes the text below an empty first line, since the column of a first line counts on
    // from the file before.
    std::string write(std::string_view text) { return dir.file("in", "\n"s.append(text)); }
    void parse(std::string_view text) { EXPECT_EQ(base_parse_cfg_file(write(text).c_str()), 0); }

    std::string scan(std::string_view text) {
        std::string tokens;
        base_scanner_open(write(text).c_str());
        while (const int token = base_lex()) {
            tokens.append(tokens.empty() ? "" : " ").append(token_name(token));
            if (token >= BASE_NAME) {
                tokens.append("(").append(base_lval.text ? base_lval.text : "null").append(")");
                std::free(base_lval.text);
            }
        }
        EXPECT_EQ(base_scanner_close(), 0);
        return tokens;
    }

    // What was logged since the last call: "level line:column:message", without the file name.
    std::string messages() {
        std::string all = logged();
        for (std::size_t at; (at = all.find("T/in:")) != std::string::npos;)
            all.erase(at, 5);
        return all;
    }
};

TEST_F(build_file, GoesOnWhenFatalMessagesReturn) {
    const std::pair<const char *, const char *> rows[] = {
        // clang-format off
        {"[file uid=\"\" x=\"\"] \"\" = \"\"", "4 2:12:empty quoted string\n4 2:12:invalid uid value 'nil'\n"
         "4 2:17:empty quoted string\n4 2:17:unsupported inode attribute 'x'\n"
         "4 2:21:empty quoted string\n4 2:26:empty quoted string\n"},
        {"[option blksize=x]", "4 2:17:invalid blksize attribute value 'x'\n"
         "4 2:17:blksize value 'x' must be a power of 2 in the range [512, 32768]\n"},
        {"[option fmode=7777777777777777777777]", "4 2:15:invalid fmode attribute value '7777777777777777777777'\n"
         "4 2:15:failed to parse option attribute 'fmode' ('7777777777777777777777')\n"},
        // clang-format on
    };
    for (const auto &[text, expected] : rows) {
        parse(text);
        EXPECT_EQ(messages(), expected) << text;
    }
}

TEST_F(build_file, CountsLinesAnewInEveryFileAndColumnsOnFromTheOneBefore) {
    parse("#ab");
    EXPECT_EQ(base_parse_cfg_file(dir.file("in", "!").c_str()), 0);
    EXPECT_EQ(messages(), "4 1:4:Invalid character '!'\n");
}

TEST_F(build_file, StoresTheAclOfATypeThatTakesThem) {
    backend.flags |= MKTFS_BACKEND_ACLS;
    parse("[dir acl=u::rw-,g::r--,o::r-- acl=u:5:r] /a\n[dir acl=z] /b");
    EXPECT_EQ(messages(), "4 3:10:invalid acl value 'z'\n");
    EXPECT_EQ(tvo_acl_size(fs.root.children.first->acl), 16);
    EXPECT_EQ(fs.root.children.first->next->acl, nullptr);
}

TEST_F(build_file, SettersTakeANodeAndATextOrDoNothing) {
    backend.parser.scanner_context = nullptr;
    mktfs_inode inode;
    for (mktfs_inode *to : {static_cast<mktfs_inode *>(nullptr), &inode}) {
        EXPECT_EQ(logged(), "");
        mktfs_backend_inode_setuid(to, "z");
        mktfs_backend_inode_setgid(to, nullptr);
        mktfs_backend_inode_setmode(to, "9");
        mktfs_backend_inode_setmtime(to, "z");
        mktfs_backend_inode_setacl(to, nullptr);
        mktfs_backend_inode_setcontent(to, nullptr);
    }
    EXPECT_EQ(logged(),
              "4 (null):0:0:invalid uid value 'z'\n4 (null):0:0:invalid gid value 'nil'\n"
              "4 (null):0:0:invalid mode value '9'\n4 (null):0:0:invalid mtime value 'z'\n"
              "4 (null):0:0:acls are not supported by this backend\n4 (null):0:0:invalid acl value 'nil'\n");
    mktfs_backend_inode_setmtime(&inode, "60");
    mktfs_backend_inode_setcontent(&inode, "\n\nab");
    EXPECT_EQ(std::tuple(inode.mtime, inode.path, inode.has_path, inode.flags, inode.size),
              std::tuple(3660, "\nab", true, MKTFS_INODE_INLINE, 3));
    EXPECT_EQ(base_parse_cfg_file(nullptr), 0);
    EXPECT_EQ(logged(), "4 failed to open input file '(null)'\n");
    EXPECT_EQ(base_wrap(), 1);
    EXPECT_EQ(base_option_handler(nullptr, "uid", "1") + base_option_handler(&fs, nullptr, "1"), 2 * EINVAL);
}

TEST_F(build_file, TakesCharactersByTheirPlaceInAStatement) {
    const struct {
        std::string text, tokens, echo = "", messages = "";
    } rows[] = {
        {"[file uid=0 mode=0644] /etc/passwd\n#[x\n[",
         "[ FILE UID = VALUE(0) MODE = VALUE(0644) ] PATH(/etc/passwd) ["},
        {"[option gid acl mtime]\nlink]\nhlink]\ndir", "[ OPTION GID ACL MTIME ] LINK ] HLINK ] DIR"},
        {"[option]\t\r\nhlink", "[ OPTION ] HLINK"},  // no path after an option
        {"dir uid2 modes ACL _9", "DIR NAME(uid2) NAME(modes) NAME(ACL) NAME(_9)"},
        {"F\x01\xff", "", "",
         "4 2:1:Invalid character 'F'\n4 2:2:Invalid character <0x01>\n4 2:3:Invalid character <0xff>\n"},
        {"file -\r\nuid", "FILE UID", "-\r\n"},
        {"file x==[#{\r}]", "FILE NAME(x) = VALUE(=[#{\r}) ]"},
        {"file x=a\"b", "FILE NAME(x) = VALUE(a) NAME(b)", "\""},
        {"file x=\"a b\n]=\\\"]", "FILE NAME(x) = VALUE(a b\n]=\\) ]"},
        {"file x=\"\n\"]", "FILE NAME(x) = VALUE(null) ]", "",
         "4 3:9:unterminated quoted string\n4 3:10:empty quoted string\n"},
        {"dir]/a#b[c] \t\"d e=#[]\"=f", "DIR ] PATH(/a#b[c]) PATH(d e=#[]) = PATH(f)"},
        {"dir]a*b\\c|d?<>}\r\n", "DIR ] PATH(a) PATH(b) PATH(c) PATH(d)", "*\\|?<>}\r"},
        {"dir]\"a{b\"\"c*d\"\"e\rf\" g", "DIR ] PATH(b) PATH(d) PATH(f) PATH(g)", "{*\r"},
        {"file #x\n#y]z", "FILE NAME(x) NAME(y) ] PATH(z)", "#\n#"},
        {"dir]\"a\nb\"", "DIR ] PATH(b)", "", "4 3:7:unterminated quoted string\n"},
        {"file]/a={\nl=\"1\"\n{}\n[", "FILE ] PATH(/a) = CONTENTS(\nl=\"1\"\n{) ["},
        {"file x=\"a", "FILE NAME(x) =", "", "4 2:9:unterminated quoted string\n"},
        {"file]{a\n", "FILE ]", "", "4 3:8:unterminated quoted string\n"},
        {"#a\0b\n\0dir"s, "DIR", "", "4 3:1:Invalid character <0x00>\n"},
        {"file a\0b=c\0=\"d\0e\""s, "FILE NAME(a) NAME(b) = VALUE(c) = VALUE(e)", "\0\0\0"s},
        {"file]a\0b\"c\0d\"{e\0f}x"s, "FILE ] PATH(a) PATH(b) PATH(d) CONTENTS(e) PATH(x)", "\0\0"s},
        {"file a=\"b\0\n\""s, "FILE NAME(a) = VALUE(b)", "\0"s, "4 3:11:unterminated quoted string\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        testing::internal::CaptureStdout();
        const std::string tokens = scan(row.text);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.echo);
        EXPECT_EQ(tokens, row.tokens);
        EXPECT_EQ(messages(), row.messages);
    }
}

}  // namespace
