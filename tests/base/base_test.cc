#include "base/hex.h"
#include "base/host.h"
#include "base/json.h"
#include "base/progress.h"
#include "th/file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/cleanup.h"
#include "support/kept_resources.h"
#include "support/log_capture.h"
#include "support/stderr_of.h"
#include "support/temp_dir.h"

namespace {

// Streams, their order, and which level ends the run: tests/cli/cases/search_paths.case.
TEST(Log, ANullReplacementLeavesTheCurrentFunction) {
    const log_capture log;
    mktfs_register_log_fct(nullptr);
    EXPECT_EQ(MKTFS_FAIL(EINVAL, "text '%s'\n", "%n"), EINVAL);
    EXPECT_TRUE(log.has(MKTFS_LOG_ERROR, "text '%n'\n"));
    errno = EDOM;
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(mktfs_log_default(MKTFS_LOG_WARN, "%d\n", 12), 3); }), "12\n");
    EXPECT_EQ(errno, EDOM);
}

TEST(Hex, ConvertsWithoutTerminatorAndRefusesWhatIsNoDigit) {
    std::uint8_t bytes[] = {0x00, 0x9a, 0xff};
    std::string text(8, '#');
    EXPECT_EQ(mktfs_bin2hex(text.data(), bytes, 3), 0);
    EXPECT_EQ(text, "009aff##");
    EXPECT_EQ(mktfs_hex2bin(bytes, "A0fF0g", 2), 0);
    EXPECT_THAT(bytes, testing::ElementsAre(0xa0, 0xff, 0xff));
    EXPECT_EQ(mktfs_hex2bin(bytes, "0g", 1), EINVAL);
    EXPECT_EQ(mktfs_hex2bin(bytes, "00", 0) + mktfs_hex2bin(nullptr, "00", 1) +
                  mktfs_hex2bin(bytes, nullptr, 1) + mktfs_bin2hex(text.data(), bytes, 0) +
                  mktfs_bin2hex(nullptr, bytes, 1) + mktfs_bin2hex(text.data(), nullptr, 1),
              6 * EINVAL);
    const log_capture log;
    mktfs_print_hex(bytes, 2);
    mktfs_print_hex(nullptr, 2);  // a signature that is not there
    mktfs_print_hex(bytes, 0);
    EXPECT_THAT(log.lines(), testing::ElementsAre(log_line{MKTFS_LOG_INFO, "a0ff"}));
}

TEST(Json, IsIndentedAndQuoted) {
    char *text = nullptr;
    std::size_t length = 0;
    std::FILE *out = open_memstream(&text, &length);
    {
        mktfs_json whole(out);
        whole.number("n", UINT64_MAX);
        whole.text("t", "\x1f \"\\\x7e\x7f\xff");
        mktfs_json list = whole.array("a");
        list.boolean(nullptr, true);
        list.hex(nullptr, std::vector<std::uint8_t>{0x0a, 0xff});
        list.text(nullptr, nullptr);
        list.object(nullptr).null("z");
        (void)list.array(nullptr);
    }
    std::fclose(out);
    EXPECT_STREQ(text, "{\n  \"n\": 18446744073709551615,\n  \"t\": \"\\u001f \\\"\\\\~\\ufffd\\ufffd\",\n"
                       "  \"a\": [\n    true,\n    \"0aff\",\n    null,\n    {\n      \"z\": null\n    },\n  "
                       "  []\n  ]\n}\n");
    std::free(text);
}

TEST(FileSize, IsZeroOnFailure) {
    const temp_dir dir;
    const std::string pipe = dir / "pipe", file = dir.file("file", "12345");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int opened = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    std::uint64_t sizes[] = {7, 7, 7, 7, 7}, size = 7;
    EXPECT_EQ(mktfs_fd_size(-1, &sizes[0]), EBADF);
    EXPECT_EQ(mktfs_fd_size(opened, &sizes[1]), ESPIPE);
    EXPECT_EQ(mktfs_file_size("/nowhere", &sizes[2]), ENOENT);
    EXPECT_EQ(mktfs_file_size(pipe.c_str(), &sizes[3]), ESPIPE);
    EXPECT_EQ(mktfs_file_size(nullptr, &sizes[4]) + mktfs_file_size("/", nullptr) + mktfs_fd_size(0, nullptr),
              3 * EINVAL);
    EXPECT_THAT(sizes, testing::Each(0));
    close(opened);
    EXPECT_EQ(mktfs_file_size(file.c_str(), &size), 0);
    EXPECT_EQ(size, 5u);
    expect_nothing_kept(dir.path(), 20, [&] {
        th_file input;
        EXPECT_EQ(input.open(file.c_str()), 0);
        EXPECT_EQ(input.size(), 5u);
    });
}

TEST(Host, TellsWhereAPathLeads) {
    const temp_dir dir;
    dir.file("a/b", "");
    dir.file("ab", "");
    dir.link("to_b", "a/b");
    dir.link("a/out", "../ab");
    dir.link("loop", "loop");
    const struct {
        const char *path, *folder;
        bool inside, same = false;
    } rows[] = {{"a/b", "a", true},          {"a", "a", true, true},      {"a/none", "a", true},
                {"a//b//", "a", true},       {"to_b", "a", true},         {"a/out", "a", true},
                {"ab", "a", false},          {"none", "a", false},        {"a/b", "none", false},
                {"a/out", "ab", true, true}, {"loop", "loop", false},     {"none/x", "none", false},
                {"a/./../a/b", "a", true},   {"to_b", "a/b", true, true}, {"a/b/x", "a", true}};
    for (const auto &row : rows) {
        bool inside = !row.inside, same = !row.same;
        EXPECT_EQ(mktfs_path_is_inside((dir / row.path).c_str(), (dir / row.folder).c_str(), &inside), 0);
        EXPECT_EQ(mktfs_same_file((dir / row.path).c_str(), (dir / row.folder).c_str(), &same), 0);
        EXPECT_EQ(inside, row.inside) << row.path << " in " << row.folder;
        EXPECT_EQ(same, row.same) << row.path << " is " << row.folder;
    }
    bool yes = true, no = true;
    EXPECT_EQ(mktfs_path_is_inside(nullptr, "/", &no) + mktfs_path_is_inside("/", "/", &yes), 0);
    EXPECT_TRUE(yes && !no);
    EXPECT_EQ(mktfs_path_is_inside("name", ".", &yes) + mktfs_path_is_inside("/none", "/", &no), 0);
    EXPECT_TRUE(yes && no);
    EXPECT_EQ(mktfs_same_file(nullptr, "/", &yes) + mktfs_path_is_inside("/", nullptr, &no), 0);
    EXPECT_FALSE(yes || no);
}

TEST(Host, AFileBelongsToOneRun) {
    const temp_dir dir;
    const std::string path = dir.file("file", "");
    const int first = open(path.c_str(), O_RDWR | O_CLOEXEC), second = open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(
        mktfs_claim_file(path.c_str(), first) + mktfs_claim_file("/dev/null", open("/dev/null", O_RDWR)), 0);
    EXPECT_EQ(mktfs_claim_file(path.c_str(), second), EAGAIN);
    EXPECT_EQ(mktfs_claim_file(dir.file("other", "").c_str(), first), EAGAIN) << "another one has its name";
    unlink(path.c_str());
    EXPECT_EQ(mktfs_claim_file(path.c_str(), first), EAGAIN) << "it is gone";
    EXPECT_EQ(mktfs_claim_file(path.c_str(), -1), 0);
    close(first);
    close(second);
}

class cleanup : public testing::Test {
protected:
    int add(const std::string &name) {
        const int descriptor = open((dir / name).c_str(), O_RDONLY | O_CLOEXEC);
        const int slot = mktfs_cleanup_add((dir / name).c_str(), descriptor);
        close(descriptor);
        return slot;
    }
    bool there(const char *name) const {
        return faccessat(AT_FDCWD, (dir / name).c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
    }
    static std::string held() {
        std::string all;
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (int signal = 1; signal < 32; ++signal)
            all += sigismember(&blocked, signal) == 1 ? std::string(sigabbrev_np(signal)) + " " : "";
        return all;
    }

    const temp_dir dir;
    const std::string ending = "HUP INT QUIT BUS PIPE TERM XCPU XFSZ ";
};

TEST_F(cleanup, TakesAwayWhatIsStillThatFile) {
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ((dir.file(std::to_string(i), ""), add(std::to_string(i))), i);
    EXPECT_EQ((dir.file("8", ""), add("8")), -1) << "no place";
    mktfs_cleanup_remove(3);
    mktfs_cleanup_forget(4);
    for (const int none : {-1, 3, 4, 8})
        mktfs_cleanup_remove(none);
    EXPECT_TRUE(!there("3") && there("4"));
    EXPECT_EQ(mktfs_cleanup_add(nullptr, 0), -1);
    EXPECT_EQ(mktfs_cleanup_add((dir / "4").c_str(), -1), -1);
    EXPECT_EQ(add("../../../dev/null"), -1);
    const int opened = open((dir / "4").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(mktfs_cleanup_add(std::string(4096, 'x').c_str(), opened), -1);
    EXPECT_EQ(mktfs_cleanup_add(std::string(4095, 'x').c_str(), opened), 3);
    mktfs_cleanup_forget(3);
    close(opened);
    dir.folder("folder");
    dir.link("link", "4");
    EXPECT_EQ(add("folder") * 10 + add("link"), 34);
    mktfs_cleanup_remove(3);
    mktfs_cleanup_remove(4);
    EXPECT_TRUE(!there("folder") && there("link") && !there("4"));
    std::filesystem::rename(dir / "8", dir / "7");
    for (int i = 0; i < 8; ++i)
        mktfs_cleanup_remove(i);
    EXPECT_TRUE(!there("6") && there("7")) << "another file";
    {
        const mktfs_signal_guard guard;
        EXPECT_EQ(held(), ending);
    }
    EXPECT_EQ(held(), "");
}

TEST_F(cleanup, EverySignalThatEndsTheRunTakesItsFilesAway) {
    const auto with_file = [this] {
        signal(SIGCHLD, SIG_IGN);
        signal(SIGQUIT, SIG_IGN);
        close(STDIN_FILENO);
        mktfs_cleanup_install();
        dir.file("file", "");
        return fcntl(STDIN_FILENO, F_GETFD) == 0 && add("file") == 0 && signal(SIGCHLD, SIG_DFL) == SIG_DFL
                   ? 0
                   : 99;
    };
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXCPU, SIGXFSZ, SIGBUS}) {
        EXPECT_EXIT(_exit(with_file() + raise(number)), testing::KilledBySignal(number), "^$") << number;
        EXPECT_FALSE(there("file")) << number;
    }
    EXPECT_EXIT(std::exit(with_file() + raise(SIGQUIT)), testing::ExitedWithCode(0), "") << "ignored";
    EXPECT_FALSE(there("file"));
    EXPECT_EXIT(
        {
            with_file();
            const int file = open((dir / "file").c_str(), O_RDONLY);
            _exit(*static_cast<volatile char *>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0)));
        },
        testing::ExitedWithCode(EIO), "^mktfs: an input file changed or failed while it was read");
    EXPECT_FALSE(there("file"));
    EXPECT_EXIT(
        {
            const int slot = with_file() + add("file");
            mktfs_cleanup_finish(slot);
            mktfs_cleanup_finish(slot - 1);
            fputs(held().c_str(), stderr);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^" + ending + "$");
    EXPECT_TRUE(there("file"));
}

TEST(StrReplace, ReplacesLeftToRightWithinTheCapacity) {
    const struct {
        const char *source, *needle, *replacement;
        std::size_t capacity;
        const char *out;                              // null: refused
    } rows[] = {{"x <h>", "<h>", "abc", 6, "x abc"},  // fits exactly
                {"x <h>", "<h>", "abc", 5, nullptr},  // the terminator has no place
                {"<h>", "<h>", "a<h>", 8, "a<h>"},    // inserted text is not looked into
                {"aaa", "aa", "b", 8, "ba"},          // overlaps count once
                {"abc", "", "x", 8, nullptr},        {nullptr, "b", "x", 8, nullptr},
                {"abc", nullptr, "x", 8, nullptr},   {"abc", "b", nullptr, 8, nullptr}};
    EXPECT_EQ(mktfs_strreplace("abc", "b", "x", nullptr, 8), EINVAL);
    for (const auto &row : rows) {
        char out[16] = "untouched";
        EXPECT_EQ(mktfs_strreplace(row.source, row.needle, row.replacement, out, row.capacity),
                  row.out ? 0 : EINVAL);
        EXPECT_STREQ(out, row.out ? row.out : "untouched");
    }
}

// Links in the folder: tests/cli/cases/input_survival.case.
TEST(Rmtree, EndsAtTheFirstEntryThatCannotBeRemovedAndMissesNothingThatIsGone) {
    const log_capture log;
    mktfs_rmtree(nullptr);
    mktfs_rmtree("/nowhere");
    mktfs_rmtree("/proc/self/ns");
    ASSERT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_EQ(log.lines()[0].level, MKTFS_LOG_ERROR);
    EXPECT_THAT(log.text(), testing::StartsWith("failed to remove '/proc/self/ns/"));
}

// When the line is shown and wiped is seen on a terminal: tests/driver.
TEST(Progress, LineTellsPercentSpeedOfTheImageAndTimeLeft) {
    constexpr std::uint64_t MIB = 1 << 20, TIB = MIB * MIB;
    const struct {
        mktfs_progress_figures figures;
        const char *line;
    } rows[] = {
        {{1000 * MIB, 1, 250 * MIB, 1.0}, " 25%  250 MiB/s  0:03 left"},
        {{1000 * MIB, 2, 1000 * MIB, 10.0}, " 50%  50 MiB/s  0:10 left"},
        {{100 * MIB, 1, MIB, 2.0}, "  1%  0.5 MiB/s  3:18 left"},
        {{20 * MIB, 1, 10 * MIB, 1.0}, " 50%  10 MiB/s  0:01 left"},
        {{36010 * MIB, 1, 10 * MIB, 1.0}, "  0%  10 MiB/s  1:00:00 left"},
        {{8 * TIB, 2, 8 * TIB, 45296.0}, " 50%  93 MiB/s  12:34:56 left"},
        {{8 * TIB, 1, 0, 5.0}, "  0%  0.0 MiB/s  99:59:59 left"},
        {{MIB, 1, 3 * MIB, 2.0}, "100%  0.5 MiB/s  0:00 left"},  // more than announced
    };
    for (const auto &row : rows) {
        char line[64], narrow[11];
        mktfs_progress_text(row.figures, line, sizeof line);
        EXPECT_STREQ(line, row.line);
        mktfs_progress_text(row.figures, narrow, sizeof narrow);
        EXPECT_EQ(narrow, std::string(row.line).substr(0, 10));
    }
}

}  // namespace
