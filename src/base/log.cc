#include "base/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/progress.h"

constinit mktfs_log_function mktfs_log = mktfs_log_default;
constinit int verbose = 0;
constinit int abort_on_warning = 0;

namespace {

// Error number of the first write to standard output that failed.
constinit int stdout_error = 0;

bool goes_to_stderr(int level) {
    return level == MKTFS_LOG_WARN || level == MKTFS_LOG_ERROR || level == MKTFS_LOG_FATAL;
}

bool ends_the_run(int level) {
    return level == MKTFS_LOG_FATAL || (level == MKTFS_LOG_WARN && abort_on_warning != 0);
}

void note_stdout_result(bool failed) {
    if (failed && stdout_error == 0)
        stdout_error = errno != 0 ? errno : EIO;
}

void flush_stdout() {
    errno = 0;
    note_stdout_result(std::fflush(stdout) != 0);
}

[[gnu::format(printf, 1, 0)]] int print_to_stdout(const char *format, std::va_list arguments) {
    errno = 0;
    const int result = std::vprintf(format, arguments);
    note_stdout_result(result < 0);
    return result;
}

[[gnu::format(printf, 1, 0)]] int print_to_stderr(const char *format, std::va_list arguments) {
    flush_stdout();  // keeps the order of events when both streams lead to one file
    return std::vfprintf(stderr, format, arguments);
}

}  // namespace

int mktfs_log_default(int level, const char *format, ...) {
    const int saved_errno = errno;
    mktfs_progress_wipe();
    std::va_list arguments;
    va_start(arguments, format);
    const int result =
        goes_to_stderr(level) ? print_to_stderr(format, arguments) : print_to_stdout(format, arguments);
    va_end(arguments);
    if (ends_the_run(level))
        std::exit(1);
    errno = saved_errno;
    return result;
}

void mktfs_register_log_fct(mktfs_log_function function) {
    if (function)
        mktfs_log = function;
}

int mktfs_log_flush() {
    flush_stdout();
    if (stdout_error == 0 && std::ferror(stdout) != 0)
        stdout_error = EIO;  // another writer met it and kept no error number
    return stdout_error;
}
