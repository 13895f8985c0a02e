#include "fs/diag.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "fs/filesystem.h"

namespace {

constexpr std::size_t MESSAGE_SIZE = 4096;  // terminator included; longer messages are cut

struct position {
    const char *file = nullptr;
    int line = 0;
    int column = 0;
};

position current_position() {
    position at;
    const mktfs_backend *backend = mktfs_get_backend();
    if (backend != nullptr && backend->parser.scanner_context != nullptr)
        backend->parser.scanner_context(&at.file, &at.line, &at.column);
    return at;
}

void drop_one_newline(char *text) {
    const std::size_t length = std::strlen(text);
    if (length > 0 && text[length - 1] == '\n')
        text[length - 1] = '\0';
}

[[gnu::format(printf, 2, 0)]] void log_positioned(int level, const char *format, std::va_list arguments) {
    char message[MESSAGE_SIZE] = "";
    std::vsnprintf(message, sizeof message, format, arguments);
    drop_one_newline(message);
    const position at = current_position();
    mktfs_log(level, "%s:%d:%d:%s\n", mktfs_shown(at.file), at.line, at.column, message);
}

}  // namespace

void mktfs_parse_error(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    log_positioned(MKTFS_LOG_FATAL, format, arguments);
    va_end(arguments);
}

void mktfs_parse_warn(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    log_positioned(MKTFS_LOG_WARN, format, arguments);
    va_end(arguments);
}
