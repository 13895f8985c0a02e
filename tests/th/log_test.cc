#include "support/failing_calls.h"
#include "support/temp_dir.h"
#include "support/test.h"
#include "th/log.h"
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // in its own <regex>, with sanitizers
#endif
#include <regex>

TH_LOG_CONTEXT_DEFINE(test_log, "test");

static bool lock_fails = false, unlock_fails = false, realloc_fails = false;

// clang-format off
FAILING_IF(realloc_fails, void *, realloc, nullptr, (void *memory, std::size_t size), memory, size)
FAILING_IF(lock_fails, int, pthread_mutex_lock, EAGAIN, (pthread_mutex_t * mutex), mutex)
FAILING_IF(unlock_fails, int, pthread_mutex_unlock, EPERM, (pthread_mutex_t * mutex), mutex)
// clang-format on

namespace {

const char *const no_format = nullptr;

// The numbers of threads, and of lines in other files, become N.
std::string without_numbers(const std::string &text) {
    static const std::regex numbers("(\\[|log_state\\.cc\\()[0-9]+([\\])])");
    return std::regex_replace(text, numbers, "$1N$2");
}

// Runs the probe.  Environment and arguments are divided by "|"; in the environment, CTX
// and LOCKED stand for the variables that end so.
void probe(const char *name, const std::string &environment, const std::string &arguments,
           const std::string &out, const std::string &err, int signal = 0) {
    SCOPED_TRACE(name);
    static const temp_dir folder;
    const std::string variables =
        std::regex_replace(environment, std::regex("CTX|LOCKED"), "TH_LOG_CONFIG_$&");
    const std::string command = "cd '" + folder.path() + "' && set -f && IFS='|' && e='" + variables +
                                "' && a='" + arguments + "' && exec env -i $e " TH_LOG_PROBE " $a >out 2>err";
    const int status = std::system(command.c_str());
    EXPECT_EQ(signal ? WTERMSIG(status) : status, signal);
    EXPECT_EQ(read_file(folder / "out"), out);
    EXPECT_EQ(without_numbers(read_file(folder / "err")), err);
}

std::string refused(const std::string &variable, const std::string &value, const std::string &reason) {
    return "th: TH_LOG_CONFIG_" + variable + " environment variable error ('" + value + "') (" + reason +
           ") [log_state.cc(N)]\n";
}

const std::string NAME_31(31, 'n'), INVALID = "22, Invalid argument";

TEST(Log, EnvironmentThenUpdatesThenCommandLineMode) {
    probe("notices and worse go to stderr", "",
          "alpha:3:bad|beta:5:note|alpha:6:info|alpha:0:info|null::info", "", "alpha: bad\nbeta: note\n");
    probe("everything to stdout as well", "CTX=all:stdout=debug2", "alpha:3:bad|beta:8:detail|null::plain",
          "alpha: bad\nbeta: detail\ndefault: plain\n", "alpha: bad\n");
    probe("the default context lowers those that follow it", "CTX=beta:stderr=notice;default:stderr=error",
          "alpha:4:a|beta:4:b", "", "beta: b\n");
    probe("the program's own variable comes on top", "CTX=all:stderr=none|CTX__th_log_probe=beta:stderr=all",
          "alpha:1:a|beta:255:b", "", "beta: b\n");
    probe("system loggers print nothing", "CTX=all:~all,xlog=all,xlog2=all", "alpha:1:a|show=alpha",
          "0xc00000 5 5\n", "");
    probe("message flags overrule destinations, not levels", "CTX=alpha:~stderr",
          "alpha:0x200003:a|alpha:0x200006:b|alpha:0x100103:c|beta:0x100203:d|beta:0x100000003:e",
          "beta: d\n", "alpha: a\nbeta: e [N]\n");
    probe("write errors are told", "CTX=all:stdout=all", "full|alpha:3:lost", "", "alpha: lost\n= 28\n");
    probe("contexts need not exist", "", "gamma:3:early", "", "default: early\n");
    probe("template of its own name before the one of all", "",
          "update=all:stderr=info;new:stderr=debug1|new=new|show=new|show=alpha|show=all",
          "0x200000 7 5\n0x200000 6 5\n0x200000 6 5\n", "");
    probe(
        "back to the default context, not by a faulty update", "",
        "update=alpha:stdout=info,~stderr=none;default:stdout=debug1|show=alpha|update=alpha:stderr=default|"
        "show=alpha|update=alpha:default;new:stdout;beta:stdout=x|show=alpha|show=new|update=alpha:default|"
        "show=alpha",
        "0x100000 0 6\n0x300000 5 6\n0x300000 5 6\n0x300000 5 7\n", "= 22\n= 2\n");
    probe("a new context without level starts with the default one", "",
          "update=default:stderr=error;new:stderr,stdout|new=new|show=new", "0x300000 3 5\n", "");
    probe("names are cut at 32 characters, their NUL included", "",
          "new=" + NAME_31 + "XYZ|show=" + NAME_31 + "|show=" + NAME_31 + "X", "0x200000 5 5\n", "= 2\n");
    probe("names are cleaned", "", "new=all|update=_ll:stdout|show=_ll|new=_ll|new=a b|show=a_b",
          "0x300000 5 5\n", "= 17\n= 2\n");
    probe("what is on its way goes first", "", "show=alpha|join|alpha:3:bad", "0x200000 5 5\nalpha: bad\n",
          "");
    probe("a variable in force locks", "CTX=alpha:stdout", "update=alpha:stdout=all|update=?|show=alpha",
          "0x300000 5 5\n", "= 1\n= 1\n");
    probe("unless told otherwise", "CTX=alpha:stdout|LOCKED=0", "update=alpha:stdout=all|show=alpha",
          "0x300000 5 255\n", "");
    probe("its variables apply even where locked",
          "CTX=beta:stdout=all|CTX_CL=alpha:stdout|CTX_CL__th_log_probe=alpha:stdout=debug1",
          "cl|show=alpha|show=beta|beta:4:warning|beta:3:error", "0x300000 3 7\n0x200000 3 5\n",
          "beta: error\n");
    probe("a refused variable is ignored", "CTX_CL=alpha:?", "cl|show=alpha", "0x200000 3 5\n",
          refused("CTX_CL", "alpha:?", INVALID) + "= 22\n");
}

TEST(Log, RefusedVariablesBringTheDefaultsBack) {
    for (const char *value : {"x:stderr=loud", "x:stdlog", "x y:stderr", "", "alpha:stdout;", ":stdout",
                              "alpha:stdout,", "x:~stderr=default", "x:~default"})
        probe(value, std::string("CTX=") + value, "show=alpha|update=alpha:stdout=info|show=alpha",
              "0x200000 5 5\n0x300000 5 6\n", refused("CTX", value, INVALID));
    const std::string entries = NAME_31 + ":stdout;" + NAME_31 + "n:stdout";
    probe("a name of 32 characters", "CTX=" + entries, "show=" + NAME_31, "",
          refused("CTX", entries, "36, File name too long") + "= 2\n");
    probe("the second variable's fault undoes the first", "CTX=all:stdout=info|CTX__th_log_probe=?",
          "show=alpha", "0x200000 5 5\n", refused("CTX__th_log_probe", "?", INVALID));
}

TEST(Log, AbortsWithoutMemoryToStartAndWhenTwoNamesShareAVariable) {
    const std::string reason = "12, Cannot allocate memory";
    for (int call = 1; call <= 10; ++call)
        probe("memory", "FAIL=" + std::to_string(call) + "|CTX=alpha", "", "",
              (call > 5 ? refused("CTX", "alpha", reason) : "") +
                  "OOM initializing logging config, aborting (" + reason + ")\n",
              SIGABRT);
    probe("two names", "", "clash", "",
          "th log context creation failed for 'other', aborting (17, File exists)\n"
          "A context at that address exists with a different context name.  Define a unique "
          "TH_LOG_USER_CONTEXT_VAR in your static libraries' make file to avoid this.  Refer to TH "
          "documentation for more details.\ncontext name was: alpha\n",
          SIGABRT);
}

TEST(Log, EndsLinesWithTheirLocation) {
    const std::pair<th_log_call_site, const char *> cases[] = {
        {{}, ""},
        {{.line = 4, .file = "a/b\\c.cc"}, " [c.cc(4)]"},
        {{.file = "a/b.cc", .whole_file_name = true}, " [a/b.cc]"},
        {{.line = 9, .file = "b.cc", .function = "f"}, " [b.cc(9)::f]"},
        {{.flags = TH_LOG_FLAG_THREAD_ID}, " [N]"},
    };
    for (const auto &c : cases) {
        th_log_call_site site = c.first;
        site.flags |= TH_LOG_ERROR;
        site.context = &test_log;
        const std::string line = stderr_of([&] { EXPECT_EQ(th_log_ex(&site, "\tm %d %% \t\n\n", 5), 0); });
        EXPECT_EQ(line.find(std::to_string(gettid()) + "]") != line.npos, site.flags != TH_LOG_ERROR);
        EXPECT_EQ(without_numbers(line), std::string("test: \tm 5 %") + c.second + "\n");
    }
}

TEST(Log, WritesMessagesOfEveryLengthWhole) {
    const th_log_call_site site = {.line = 1, .file = "f.cc", .flags = TH_LOG_ERROR, .context = &test_log};
    // The stack buffer is full at 1024 bytes with everything around the text.
    for (const unsigned length : {0u, 1007u, 1008u, 1009u, 5000u, 100000u, 2000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(stderr_of([&] { th_log_ex(&site, "%s\n", text.c_str()); }),
                  "test: " + text + " [f.cc(1)]\n");
    }
    const std::string bytes(700, '\xa5');
    const std::string line = stderr_of([&] { th_log_bin_ex(&site, bytes.data(), bytes.size(), "key\n"); });
    EXPECT_TRUE(line.starts_with("test: key a5a5") && line.ends_with("a5a5 [f.cc(1)]\n"));
    EXPECT_EQ(line.size(), 2 * bytes.size() + 21);
    errno = EIO;
    EXPECT_EQ(stderr_of([&] {
                  EXPECT_EQ(th_log_bin_ex(&site, nullptr, 1, "x"), EINVAL);
                  EXPECT_EQ(th_log_bin_ex(&site, nullptr, 0, "x"), 0);
                  EXPECT_EQ(th_log_bin_ex(&site, "", 0, no_format), EINVAL);
                  EXPECT_EQ(th_log_ex(&site, no_format), EINVAL);
                  EXPECT_EQ(th_log_ex(&site, "%ls", L"\xd800"), EILSEQ);
              }),
              "test: x [f.cc(1)]\n");
    realloc_fails = true;
    const std::string cut = stderr_of([&] { EXPECT_EQ(th_log_ex(&site, "%200000d", 1), ENOMEM); });
    realloc_fails = false;
    EXPECT_EQ(cut, "test: " + std::string(1017, ' ') + "\n");
    EXPECT_EQ(errno, EIO) << "as ever";
}

TEST(Log, RefusesWhatIsMissingOrUnknownAndTellsOfTheRest) {
    th_log_context *nobody = nullptr;
    std::int32_t level = 0;
    std::uint32_t bits = 0;
    char name[] = "default a(Z)#+-.<>[]_09/~", again[] = "th", empty[] = "";
    const std::set<int> results[] = {
        with_each_null(th_log_context_create, "x", &nobody),
        with_each_null(th_log_context_destroy, &nobody),
        with_each_null(th_log_context_normalize_name, name),
        with_each_null(th_log_update_config, "test"),
        with_each_null(th_log_get_verbosity, &test_log, TH_LOG_STDERR, &level),
        with_each_null(th_log_get_verbosity_by_name, "test", TH_LOG_STDERR, &level),
        with_each_null(th_log_get_destinations_by_name, "test", &bits),
        with_each_null(th_log_dump_context_config, "title", &test_log),
        {th_log_context_create("", &nobody), th_log_context_normalize_name(empty)},
    };
    EXPECT_THAT(results, testing::Each(std::set{EINVAL}));
    const int unknown[] = {th_log_get_verbosity(&nobody, TH_LOG_STDERR, &level),
                           th_log_get_verbosity_by_name("nobody", TH_LOG_STDERR, &level),
                           th_log_get_destinations_by_name("nobody", &bits),
                           th_log_dump_context_config("title", &nobody)};
    EXPECT_THAT(unknown, testing::Each(ENOENT));
    EXPECT_EQ(th_log_context_normalize_name(name) + th_log_context_normalize_name(again), 0);
    EXPECT_EQ(name + std::string(again), "default_a(Z)#+-.<>[]_09___h");
    EXPECT_EQ(th_log_context_create("a context", &nobody), 0);
    EXPECT_EQ(th_log_context_create("a_context", &nobody), 0) << "the same";
    EXPECT_EQ(th_log_get_destinations_by_name("a_context", &bits), 0);
    EXPECT_EQ(th_log_context_destroy(&nobody), 0);
    EXPECT_EQ(nobody, nullptr);
    EXPECT_EQ(th_log_context_destroy(&nobody), 0) << "nothing to do";
    EXPECT_EQ(th_log_get_destinations_by_name("a_context", &bits), ENOENT);
    for (const std::uint64_t flags :
         {TH_LOG_NOTICE + 0UL, TH_LOG_INFO + 0UL, TH_LOG_ERROR | TH_LOG_FLAG_NO_STDERR}) {
        const th_log_call_site site = {.flags = flags, .context = &test_log};
        EXPECT_EQ(th_log_check(&site), flags == TH_LOG_NOTICE);
    }
    EXPECT_FALSE(th_log_check(nullptr));
    EXPECT_EQ(th_log_get_verbosity(&test_log, TH_LOG_XLOG2, &level), 0);
    EXPECT_EQ(level, TH_LOG_NOTICE);
    EXPECT_EQ(th_log_get_verbosity(&test_log, TH_LOG_ALL_DESTINATIONS, &level), EINVAL);
    EXPECT_EQ(stderr_of([] { th_log_dump_context_config("new context", &test_log); }),
              "new context: test:xlog=default,xlog2=default,stderr=default,stdout=default\n");
}

// Without memory nothing of a text is applied, and no context made.
TEST(Log, TakesAllOfATextOrNothing) {
    int round = 0;
    const int calls = fail_each_call([&] {
        const std::string name = "late" + std::to_string(++round);
        th_log_context *late = nullptr;
        std::int32_t level = 0;
        const bool updated =
            th_log_update_config((name + ":stderr=info;default:stderr=info;o" + name).c_str()) == 0;
        EXPECT_EQ(th_log_get_verbosity_by_name("default", TH_LOG_STDERR, &level), 0);
        EXPECT_EQ(level, updated ? TH_LOG_INFO : TH_LOG_NOTICE);
        const bool created = updated && th_log_context_create(name.c_str(), &late) == 0;
        EXPECT_EQ(th_log_get_verbosity(&late, TH_LOG_STDERR, &level), created ? 0 : ENOENT);
        const int left = std::exchange(fails_at, 0);
        EXPECT_EQ(th_log_context_destroy(&late) | th_log_update_config("default:stderr=notice"), 0);
        fails_at = left;
        return created;
    });
    EXPECT_GT(calls, 10);
}

TEST(Log, AbortsWhenALockFailsAndOnErrno) {
    const auto log_when = [](bool &failing) { failing = true, th_log_ex(nullptr, "x"); };
    EXPECT_DEATH(log_when(lock_fails), "^Failed to lock mutex, aborting \\(11, ");
    EXPECT_DEATH(log_when(unlock_fails), "^Failed to unlock mutex, aborting \\(1, ");
    const th_log_call_site site = {.flags = TH_LOG_DEBUG1, .context = &test_log};
    th_abort_on_errno(&site, 0, "nothing");
    EXPECT_DEATH(th_abort_on_errno(&site, EIO, "disk"),
                 "^test: critical failure: disk \\(5, Input/output error\\). Calling abort\\(\\).\n");
    EXPECT_DEATH(th_abort_on_errno(&site, -5, "disk"),
                 "^test: critical failure: disk \\(-5\\). Calling abort");
}

}  // namespace
