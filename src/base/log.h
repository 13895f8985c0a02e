// The tool's one log function: every message of the driver and of the
// filesystem types goes through mktfs_log with a level.  Formats carry their
// own newline; nothing is added.
#pragma once

enum mktfs_log_level : int {
    MKTFS_LOG_INFO = 0,   // standard output
    MKTFS_LOG_NOTE = 1,   // handled like info
    MKTFS_LOG_WARN = 2,   // standard error; exits with status 1 under -a
    MKTFS_LOG_ERROR = 3,  // standard error
    MKTFS_LOG_FATAL = 4,  // standard error, then exits with status 1
};

using mktfs_log_function = int (*)(int level, const char *format, ...);

// The log function in use, mktfs_log_default at start.  Returns what printf
// returned.  A replacement may return from a fatal message: code after one must
// stay harmless.
[[gnu::format(printf, 2, 3)]] extern mktfs_log_function mktfs_log;

// -v count; any nonzero value enables progress messages.
extern int verbose;
// Nonzero: a warning ends the run with status 1 (-a).
extern int abort_on_warning;

// Writes info and notes to standard output, the rest to standard error; ends the process
// with status 1 after a fatal message, and under -a after a warning.  Keeps errno.
[[gnu::format(printf, 2, 3)]] int mktfs_log_default(int level, const char *format, ...);

// Installs a log function; null leaves the current one.
void mktfs_register_log_fct(mktfs_log_function function);

// A text that may be missing, as messages show it.
[[nodiscard]] constexpr const char *mktfs_shown(const char *text) {
    return text ? text : "(null)";
}

// Writes out what standard output still buffers.  Returns 0, or the error number of
// the first write to it that failed in this process.  Does not log.
[[nodiscard]] int mktfs_log_flush();

// Logs at error level and yields `err`: return MKTFS_FAIL(EINVAL, "...\n", ...);
// `err` is evaluated before the message, so errno may be named.
#define MKTFS_FAIL(err, ...)                                                                                 \
    ([&]() -> int {                                                                                          \
        const int mktfs_fail_error = (err);                                                                  \
        mktfs_log(MKTFS_LOG_ERROR, __VA_ARGS__);                                                             \
        return mktfs_fail_error;                                                                             \
    }())
