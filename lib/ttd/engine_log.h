// The engine's log: one replaceable function with a level.  The engine is used by programs
// other than the tool, so it writes nothing itself.
#pragma once

#include <cstddef>
#include <cstdint>

enum ttd_log_level : int {
    TTD_LOG_PLAIN = 0,  // trace and plain output
    TTD_LOG_INFO = 1,
    TTD_LOG_WARN = 2,
    TTD_LOG_ERROR = 3,
    TTD_LOG_FATAL = 4,
};

using ttd_log_function = int (*)(int level, const char *format, ...);

// The log function in use, ttd_log_default at start.
[[gnu::format(printf, 2, 3)]] extern ttd_log_function ttd_log;

// Writes every message, whatever its level, to standard error unchanged.
[[gnu::format(printf, 2, 3)]] int ttd_log_default(int level, const char *format, ...);

// Installs a log function; null leaves the current one.
void ttd_register_log_fct(ttd_log_function function);

// Logs at error level and yields `err`.
#define TTD_FAIL(err, ...)                                                                                   \
    ([&]() -> int {                                                                                          \
        const int ttd_fail_error = (err);                                                                    \
        ttd_log(TTD_LOG_ERROR, __VA_ARGS__);                                                                 \
        return ttd_fail_error;                                                                               \
    }())

// The bytes as lower-case hexadecimal at level 0, without a line end.
void ttd_print_hex(const std::uint8_t *bytes, std::size_t length);
// "label: ", the hexadecimal text and a line end, at level 0.
void ttd_print_hex_data(const char *label, const std::uint8_t *bytes, std::size_t length);
