// The text of a log line.  Used by the logger only.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "th/log.h"

// The parts of a line besides the message's format and arguments.
struct th_log_line {
    std::string_view context;  // its name
    const th_log_call_site *site = nullptr;
    std::span<const std::uint8_t> data;  // printed in hexadecimal after the message
};

// Writes the line, with its newline and without NUL, as far as it fits into
// `room`, and sets `length` to the bytes that all of it takes; it is complete
// when that is below the size of the room.  Returns 0 or the error number of the
// formatting.
[[nodiscard, gnu::format(printf, 4, 0)]] int th_log_compose(std::span<char> room, const th_log_line &line,
                                                            std::size_t &length, const char *format,
                                                            std::va_list arguments);
