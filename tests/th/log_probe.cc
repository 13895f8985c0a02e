// A program that logs what its arguments say, so that tests can look at the environment's
// effect from outside.  CONTEXT:FLAGS:TEXT logs, to alpha, beta, gamma, or null without call
// site; VERB=VALUE does what VERBS says.  A result that is not 0 is printed on standard error.
// FAIL in the environment numbers the allocation that fails.
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <new>
#include <span>
#include <string>
#include <unistd.h>

#include "th/log.h"

TH_LOG_CONTEXT_DEFINE(alpha, "alpha");
TH_LOG_CONTEXT_DEFINE(beta, "beta");

namespace {

th_log_context *gamma_log = nullptr;

int log_message(const std::string &argument) {
    const std::size_t first = argument.find(':'), second = argument.find(':', first + 1);
    const std::string name = argument.substr(0, first);
    const char *text = argument.c_str() + second + 1;
    const th_log_call_site site = {
        .flags = std::strtoull(argument.c_str() + first + 1, nullptr, 0),
        .context = name == "alpha"  ? &alpha
                   : name == "beta" ? &beta
                                    : &gamma_log,
    };
    return th_log_ex(name == "null" ? nullptr : &site, "%s\n", text);
}

int show(const char *name) {
    std::uint32_t bits = 0;
    std::int32_t to_stderr = 0, to_stdout = 0;
    if (const int error = th_log_get_destinations_by_name(name, &bits); error != 0)
        return error;
    th_log_get_verbosity_by_name(name, TH_LOG_STDERR, &to_stderr);
    th_log_get_verbosity_by_name(name, TH_LOG_STDOUT, &to_stdout);
    std::printf("%#x %d %d\n", bits, to_stderr, to_stdout);
    return 0;
}

const std::map<std::string, int (*)(const char *)> VERBS = {
    {"new", [](const char *name) { return th_log_context_create(name, &gamma_log); }},
    {"update", th_log_update_config},
    {"cl", [](const char *) { return th_log_set_cl_mode(); }},
    {"show", show},  // prints destinations and the two levels that count
    {"full", [](const char *) { return int(dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO) < 0); }},
    {"join", [](const char *) { return int(dup2(STDOUT_FILENO, STDERR_FILENO) < 0); }},
    {"clash", [](const char *) { return th_log_registration("other", &alpha), 0; }},  // alpha's variable
};

}  // namespace

// Linked with -Wl,--wrap: operator new (nothrow).
extern "C" void *__real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag);
extern "C" void *__wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag);
extern "C" void *__wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag) {
    static int left = std::getenv("FAIL") ? std::atoi(std::getenv("FAIL")) : 0;
    return --left == 0 ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}

int main(int argc, char **argv) {
    for (const std::string argument : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
        const std::size_t equals = argument.find('=');
        const auto verb = VERBS.find(argument.substr(0, equals));
        const char *value = equals == argument.npos ? "" : argument.c_str() + equals + 1;
        const int result = verb == VERBS.end() ? log_message(argument) : verb->second(value);
        if (result != 0)
            std::fprintf(stderr, "= %d\n", result);
    }
    th_log_context_destroy(&gamma_log);
    return 0;
}
