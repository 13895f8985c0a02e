#include "buildfile/scanner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "base_grammar.h"
#include "buildfile/build_file.h"

namespace {

std::string token_name(int token) {
    static const char *const names[] = {"OPTION", "FILE",  "DIR", "LINK", "HLINK", "UID",  "GID",
                                        "MODE",   "MTIME", "ACL", "NAME", "VALUE", "PATH", "CONTENTS"};
    return token < BASE_OPTION ? std::string(1, static_cast<char>(token)) : names[token - BASE_OPTION];
}

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
            if (with_positions)
                tokens += position();
        }
        if (with_positions)
            tokens.append(" end").append(position());
        EXPECT_EQ(base_scanner_close(), 0);
        return tokens;
    }

    static std::string position() {
        const char *file = nullptr;
        int line = 0;
        int column = 0;
        base_scanner_context(&file, &line, &column);
        return "@"s.append(std::to_string(line)).append(":").append(std::to_string(column));
    }

    bool with_positions = false;
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

TEST_F(scanner, AnUnreadableFileEndsTheProcessWithStatus2AMissingOneIsEmpty) {
    EXPECT_EXIT(scan(dir.path()), testing::ExitedWithCode(2), "^input in flex scanner failed\n$");
    EXPECT_EQ(scan(dir / "none"), "");
    EXPECT_EQ(log.text(), "failed to open input file '" + dir / "none" + "'\n");
}

TEST_F(scanner, LongTokensTakeLinearTime) {
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
    const struct {
        const char *begin, *end;
        char repeated;
    } rows[] = {{"[file x=\"", "\"]", 'a'}, {"[file]\"", "\"", 'a'}, {"[file ", "]", 'a'},
                {"[file]{", "}", 'a'},      {"[file]{", "}", '\0'},  {"#", "\n", '\0'}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.begin << static_cast<int>(row.repeated));
        // Four times the input: quadratic work would take sixteen times as long.
        EXPECT_LT(seconds(row, 4), 10 * seconds(row, 1) + 0.05);
    }
}

}  // namespace
