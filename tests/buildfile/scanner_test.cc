#include "buildfile/scanner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <map>
#include <thread>

#include "base_grammar.h"
#include "buildfile/build_file.h"

namespace {

using namespace std::string_literals;

std::string token_name(int token) {
    static const std::map<int, std::string> names = {
        {BASE_OPTION, "OPTION"}, {BASE_FILE, "FILE"},         {BASE_DIR, "DIR"},   {BASE_LINK, "LINK"},
        {BASE_HLINK, "HLINK"},   {BASE_UID, "UID"},           {BASE_GID, "GID"},   {BASE_MODE, "MODE"},
        {BASE_MTIME, "MTIME"},   {BASE_ACL, "ACL"},           {BASE_NAME, "NAME"}, {BASE_VALUE, "VALUE"},
        {BASE_PATH, "PATH"},     {BASE_CONTENTS, "CONTENTS"},
    };
    const auto found = names.find(token);
    return found != names.end() ? found->second : std::string(1, static_cast<char>(token));
}

class scanner : public build_file {
protected:
    // All tokens of a file, separated by blanks, with their texts in parentheses.
    std::string scan(const std::string &path) {
        std::string tokens;
        base_scanner_open(path.c_str());
        while (const int token = base_lex()) {
            tokens += (tokens.empty() ? "" : " ") + token_name(token);
            if (token == BASE_NAME || token == BASE_VALUE || token == BASE_PATH || token == BASE_CONTENTS) {
                tokens += base_lval.text != nullptr ? "("s + base_lval.text + ")" : "(null)"s;
                std::free(base_lval.text);
            }
            if (with_positions)
                tokens += position();
        }
        if (with_positions)
            tokens += " end" + position();
        EXPECT_EQ(base_scanner_close(), 0);
        return tokens;
    }

    static std::string position() {
        const char *file = nullptr;
        int line = 0;
        int column = 0;
        base_scanner_context(&file, &line, &column);
        return "@" + std::to_string(line) + ":" + std::to_string(column);
    }

    bool with_positions = false;
};

TEST_F(scanner, TakesCharactersByTheirPlaceInAStatement) {
    const struct {
        const char *name;
        std::string text;
        std::string tokens;
        std::string messages;
        std::string echo;
    } rows[] = {
        {"a statement", "[file uid=0 mode=0644] /etc/passwd\n#[x\n[",
         "[ FILE UID = VALUE(0) MODE = VALUE(0644) ] PATH(/etc/passwd) [", "", ""},
        {"every keyword", "[option gid acl mtime]\nlink]\nhlink]\ndir",
         "[ OPTION GID ACL MTIME ] LINK ] HLINK ] DIR", "", ""},
        {"no path after an option", "[option]\t\r\nhlink", "[ OPTION ] HLINK", "", ""},
        {"no word boundary", "options", "OPTION NAME(s)", "", ""},
        {"longest name", "dir uid2 modes ACL _9", "DIR NAME(uid2) NAME(modes) NAME(ACL) NAME(_9)", "", ""},
        {"line state", "F\x01\xff", "",
         "4 2:1:Invalid character 'F'\n4 2:2:Invalid character <0x01>\n4 2:3:Invalid character <0xff>\n", ""},
        {"header state", "file -\r\nuid", "FILE UID", "", "-\r\n"},
        {"blank before a value", "file uid= ]\n0", "FILE UID = VALUE(0)", "", " ]\n"},
        {"value", "file x==[#{\r}]", "FILE NAME(x) = VALUE(=[#{\r}) ]", "", ""},
        {"value with quotes inside", "file x=a\"b", "FILE NAME(x) = VALUE(a) NAME(b)", "", "\""},
        {"quoted value", "file x=\"a b\n]=\\\"]", "FILE NAME(x) = VALUE(a b\n]=\\) ]", "", ""},
        {"empty quoted value", "file x=\"\"]", "FILE NAME(x) = VALUE(null) ]", "4 2:9:empty quoted string\n",
         ""},
        {"lone newline", "file x=\"\n\"]", "FILE NAME(x) = VALUE(null) ]",
         "4 3:9:unterminated quoted string\n4 3:10:empty quoted string\n", ""},
        {"path", "dir]/a#b[c] \t\"d e=#[]\"=f", "DIR ] PATH(/a#b[c]) PATH(d e=#[]) = PATH(f)", "", ""},
        {"path state", "dir]a*b\\c|d?<>}\r\n", "DIR ] PATH(a) PATH(b) PATH(c) PATH(d)", "", "*\\|?<>}\r"},
        {"last run of a quoted path", "dir]\"a*b{c d\"", "DIR ] PATH(c d)", "", "*{"},
        {"newline in a quoted path", "dir]\"a\nb\"", "DIR ] PATH(b)", "4 3:7:unterminated quoted string\n",
         ""},
        {"empty quoted path", "dir]\"\"x", "DIR ] PATH(null) PATH(x)", "4 2:6:empty quoted string\n", ""},
        {"contents", "file]/a={\nl=\"1\"\n{}\n[", "FILE ] PATH(/a) = CONTENTS(\nl=\"1\"\n{) [", "", ""},
        {"empty contents", "file]{}", "FILE ] CONTENTS()", "", ""},
        {"end in a quoted value", "file x=\"a", "FILE NAME(x) =", "4 2:9:unterminated quoted string\n", ""},
        {"end in a quoted path", "dir]\"", "DIR ]", "4 2:5:unterminated quoted string\n", ""},
        {"end in contents", "file]{a\n", "FILE ]", "4 3:8:unterminated quoted string\n", ""},
        {"NUL in the line state", "#a\0b\n\0dir"s, "DIR", "4 3:1:Invalid character <0x00>\n", ""},
        {"NUL in header and values", "file a\0b=c\0=\"d\0e\""s, "FILE NAME(a) NAME(b) = VALUE(c) = VALUE(e)",
         "", "\0\0\0"s},
        {"NUL in targets", "file]a\0b\"c\0d\"{e\0f}x"s, "FILE ] PATH(a) PATH(b) PATH(d) CONTENTS(e) PATH(x)",
         "", "\0\0"s},
        {"lone newline after a NUL", "file a=\"b\0\n\""s, "FILE NAME(a) = VALUE(b)",
         "4 3:11:unterminated quoted string\n", "\0"s},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        testing::internal::CaptureStdout();
        const std::string tokens = scan(write(row.text));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.echo);
        EXPECT_EQ(tokens, row.tokens);
        EXPECT_EQ(messages(), row.messages);
    }
}

TEST_F(scanner, KnowsWhereTheLastTokenBegan) {
    with_positions = true;
    EXPECT_EQ(
        scan(write("[file uid=\"a\nb\"] /a = {x\ny}\n\n[dir] \"/b\"")),
        "[@2:1 FILE@2:2 UID@2:7 =@2:10 VALUE(a\nb)@3:15 ]@3:16 PATH(/a)@3:18 =@3:21 CONTENTS(x\ny)@4:24 "
        "[@6:1 DIR@6:2 ]@6:5 PATH(/b)@6:10 end@6:10");
    EXPECT_EQ(scan(write("[\n")), "[@2:1 end@3:0");
    EXPECT_EQ(scan(write("file\n")), "FILE@2:1 end@2:5");  // the header does not count lines
}

TEST_F(scanner, ReadsAFifoToItsEnd) {
    const std::string path = dir / "fifo";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const std::string long_path(100000, 'a');
    std::thread writer([&] { std::ofstream(path) << "[dir] /" << long_path << std::flush << "\n["; });
    EXPECT_EQ(scan(path), "[ DIR ] PATH(/" + long_path + ") [");
    writer.join();
}

TEST_F(scanner, AFileThatCannotBeOpenedIsEmptyAfterTheReport) {
    const std::string path = dir / "none";
    EXPECT_EQ(scan(path), "");
    EXPECT_EQ(log.text(), "failed to open input file '" + path + "'\n");
}

TEST_F(scanner, AFolderEndsTheProcessWithStatus2) {
    EXPECT_EXIT(scan(dir.path()), testing::ExitedWithCode(2), "^input in flex scanner failed\n$");
}

TEST_F(scanner, LongTokensTakeLinearTime) {
    const struct {
        const char *name;
        const char *begin;
        char repeated;
        const char *end;
    } rows[] = {
        {"quoted value", "[file x=\"", 'a', "\"]"},
        {"quoted path", "[file]\"", 'a', "\""},
        {"name", "[file ", 'a', "]"},
        {"contents", "[file]{", 'a', "}"},
        {"NULs in contents", "[file]{", '\0', "}"},
        {"NULs in a comment", "#", '\0', "\n"},
    };
    const auto seconds = [&](const auto &row, std::size_t mebibytes) {
        const std::string path = write(row.begin + std::string(mebibytes << 20, row.repeated) + row.end);
        double best = 1e9;
        for (int run = 0; run < 2; ++run) {
            const std::clock_t start = std::clock();
            scan(path);
            best = std::min(best, static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
        }
        return best;
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        // Four times the input: quadratic work would take sixteen times as long.
        EXPECT_LT(seconds(row, 4), 10 * seconds(row, 1) + 0.05);
    }
}

}  // namespace
