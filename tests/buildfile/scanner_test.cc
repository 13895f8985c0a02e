#include "buildfile/scanner.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "base_grammar.h"
#include "buildfile/build_file.h"

namespace {

std::string token_name(int token) {
    static const char *const names[] = {"OPTION", "FILE",  "DIR", "LINK", "HLINK", "UID",  "GID",
                                        "MODE",   "MTIME", "ACL", "NAME", "VALUE", "PATH", "CONTENTS"};
    return token < BASE_OPTION ? std::string(1, static_cast<char>(token)) : names[token - BASE_OPTION];
}

// Positions are seen in tests/cli/cases/build_file.case.
class scanner : public build_file {
protected:
    std::string scan(const std::string &path) {
        std::string tokens;
        base_scanner_open(path.c_str());
        while (const int token = base_lex()) {
            tokens.append(tokens.empty() ? "" : " ").append(token_name(token));
            if (token >= BASE_NAME) {
                tokens.append("(").append(base_lval.text != nullptr ? base_lval.text : "null").append(")");
                std::free(base_lval.text);
            }
        }
        EXPECT_EQ(base_scanner_close(), 0);
        return tokens;
    }
};

TEST_F(scanner, TakesCharactersByTheirPlaceInAStatement) {
    struct row {
        std::string text, tokens, echo = "", messages = "";
    };
    const row rows[] = {
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
    for (const row &each : rows) {
        SCOPED_TRACE(each.text);
        testing::internal::CaptureStdout();
        const std::string tokens = scan(write(each.text));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), each.echo);
        EXPECT_EQ(tokens, each.tokens);
        EXPECT_EQ(messages(), each.messages);
    }
}

}  // namespace
