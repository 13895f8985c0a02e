// While a capture lives, every message that is logged is recorded instead of printed, and fatal
// messages return.  Captures nest: the newest records, its end puts the previous one back.
#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "base/log.h"

struct log_line {
    int level = 0;
    std::string text;
    bool operator==(const log_line &) const = default;
};

class log_capture {
public:
    log_capture() { mktfs_register_log_fct(record); }
    ~log_capture() { current_ = previous_, mktfs_register_log_fct(previous_function_); }
    log_capture(log_capture &&) = delete;

    [[nodiscard]] const std::vector<log_line> &lines() const { return lines_; }
    // The texts of all lines, one after the other.
    [[nodiscard]] std::string text() const {
        std::string all;
        for (const log_line &line : lines_)
            all += line.text;
        return all;
    }
    // True when exactly this message was logged at this level.
    [[nodiscard]] bool has(int level, const std::string &text) const {
        return std::ranges::find(lines_, log_line{level, text}) != lines_.end();
    }
    // What was recorded so far; forgets it.
    [[nodiscard]] std::vector<log_line> take() { return std::exchange(lines_, {}); }
    void clear() { lines_.clear(); }

private:
    [[gnu::format(printf, 2, 3)]] static int record(int level, const char *format, ...) {
        va_list arguments;
        va_start(arguments, format);
        char *text = nullptr;
        const int length = vasprintf(&text, format, arguments);
        va_end(arguments);
        current_->lines_.push_back({level, length < 0 ? "" : text});
        std::free(text);
        return length;
    }

    static inline log_capture *current_ = nullptr;
    mktfs_log_function previous_function_ = mktfs_log;
    log_capture *previous_ = std::exchange(current_, this);
    std::vector<log_line> lines_;
};
