#include "ttd/engine_log.h"

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <new>

#include "th/base.h"

ttd_log_function ttd_log = ttd_log_default;

int ttd_log_default(int, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const int written = std::vfprintf(stderr, format, args);
    va_end(args);
    return written;
}

void ttd_register_log_fct(ttd_log_function function) {
    if (function)
        ttd_log = function;
}

void ttd_print_hex(const std::uint8_t *bytes, std::size_t length) {
    const std::unique_ptr<char[]> text(new (std::nothrow) char[2 * length + 1]);
    if (!text) {
        ttd_log(TTD_LOG_ERROR, "enomem");
        return;
    }
    th_base_hex(bytes, length, text.get());
    ttd_log(TTD_LOG_PLAIN, "%s", text.get());
}

void ttd_print_hex_data(const char *label, const std::uint8_t *bytes, std::size_t length) {
    ttd_log(TTD_LOG_PLAIN, "%s: ", label);
    ttd_print_hex(bytes, length);
    ttd_log(TTD_LOG_PLAIN, "\n");
}
