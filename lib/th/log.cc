#include "th/log.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "th/error.h"
#include "th/log_format.h"
#include "th/log_state.h"
#include "th/str.h"

namespace {

constexpr std::size_t SHORT_TEXT = 1024;

// A destination that prints.
struct channel {
    std::FILE *stream;
    std::uint32_t enabled;    // its bit in a configuration
    std::size_t level_index;  // of its level there
    std::uint64_t force;      // message flags
    std::uint64_t forbid;
};

// In the order in which they are written.
std::array<channel, 2> channels() {
    return {{{stderr, TH_LOG_STDERR, TH_LOG_STDERR_INDEX, TH_LOG_FLAG_STDERR, TH_LOG_FLAG_NO_STDERR},
             {stdout, TH_LOG_STDOUT, TH_LOG_STDOUT_INDEX, TH_LOG_FLAG_STDOUT, TH_LOG_FLAG_NO_STDOUT}}};
}

class errno_keeper {
public:
    errno_keeper() = default;
    ~errno_keeper() { errno = saved_; }
    errno_keeper(const errno_keeper &) = delete;
    errno_keeper &operator=(const errno_keeper &) = delete;

private:
    int saved_ = errno;
};

constinit const th_log_call_site unknown_site = {};

const th_log_call_site &site_or_default(const th_log_call_site *site) {
    return site ? *site : unknown_site;
}

// The overall mutex is held.
th_log_context &context_of(const th_log_call_site &site) {
    th_log_context *context = site.context ? *site.context : nullptr;
    return context ? *context : th_log_shared.fallback;
}

std::int32_t level_of(std::uint64_t flags) {
    const auto level = static_cast<std::int32_t>(flags & TH_LOG_FLAG_LEVEL_MASK);
    return level == 0 ? TH_LOG_INFO : level;
}

bool wants(const channel &to, const th_log_config &config, std::uint64_t flags) {
    const bool considered = (config.mask & to.enabled) != 0 || (flags & to.force) != 0;
    return considered && (flags & to.forbid) == 0 && config.levels[to.level_index] >= level_of(flags);
}

// The bits of the channels that get a message.
std::uint32_t choose(const th_log_config &config, std::uint64_t flags) {
    std::uint32_t chosen = 0;
    for (const channel &to : channels())
        chosen |= wants(to, config, flags) ? to.enabled : 0;
    return chosen;
}

int write_text(std::FILE *stream, std::string_view text) {
    errno = 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stream) == text.size();
    if (written && std::fflush(stream) == 0)
        return 0;
    return errno ? errno : EIO;
}

// Writes the line to every chosen channel.  The first error.
int write_line(std::string_view line, std::uint32_t chosen) {
    // Both streams may lead to the same place: keep the order of events.
    std::fflush(stdout);
    int first_error = 0;
    for (const channel &to : channels()) {
        if ((chosen & to.enabled) != 0)
            th_sticky_error(&first_error, write_text(to.stream, line));
    }
    return first_error;
}

// The shared buffer with room for `size` bytes, or with less when memory is
// short.  Its mutex is held.
std::span<char> long_text(std::size_t size) {
    th_log_state &state = th_log_shared;
    if (size > state.long_size) {
        if (void *grown = std::realloc(state.long_text, size)) {
            state.long_text = static_cast<char *>(grown);
            state.long_size = size;
        }
    }
    return {state.long_text, state.long_size};
}

// Writes a line as far as the room took it.
int write_cut(std::span<char> room, std::uint32_t chosen) {
    room.back() = '\n';
    write_line({room.data(), room.size()}, chosen);
    return ENOMEM;
}

// A line of `length` bytes; `beginning` is what fitted on the stack.
[[gnu::format(printf, 5, 0)]] int write_long(const th_log_line &line, std::size_t length,
                                             std::span<char> beginning, std::uint32_t chosen,
                                             const char *format, std::va_list arguments) {
    const th_lock lock(th_log_shared.long_mutex);
    const std::span<char> room = long_text(length + 1);
    if (room.size() <= length)
        return write_cut(beginning, chosen);
    if (const int error = th_log_compose(room, line, length, format, arguments); error != 0)
        return error;
    return length < room.size() ? write_line({room.data(), length}, chosen) : write_cut(room, chosen);
}

[[gnu::format(printf, 3, 0)]] int write_message(const th_log_line &line, std::uint32_t chosen,
                                                const char *format, std::va_list arguments) {
    char text[SHORT_TEXT];
    std::size_t length = 0;
    std::va_list first_pass;
    va_copy(first_pass, arguments);
    const int error = th_log_compose(text, line, length, format, first_pass);
    va_end(first_pass);
    if (error != 0)
        return error;
    if (length < sizeof text)
        return write_line({text, length}, chosen);
    return write_long(line, length, text, chosen, format, arguments);
}

[[gnu::format(printf, 2, 3)]] void write_critical(th_log_call_site site, const char *format, ...) {
    site.flags = (site.flags & ~TH_LOG_FLAG_LEVEL_MASK) | TH_LOG_CRITICAL;
    std::va_list arguments;
    va_start(arguments, format);
    th_vlog_ex(&site, format, arguments);
    va_end(arguments);
}

}  // namespace

int th_log_write(const th_log_call_site &site, std::span<const std::uint8_t> data, const char *format,
                 std::va_list arguments) {
    th_lock overall(th_log_shared.mutex);
    th_log_context &context = context_of(site);
    const th_lock own(context.mutex);
    overall.unlock();
    const std::uint32_t chosen = choose(context.config, site.flags);
    if (chosen == 0)
        return 0;
    return write_message({.context = context.name, .site = &site, .data = data}, chosen, format, arguments);
}

int th_vlog_ex(const th_log_call_site *site, const char *format, std::va_list arguments) {
    const errno_keeper keeper;
    if (!format)
        return EINVAL;
    th_log_start();
    return th_log_write(site_or_default(site), {}, format, arguments);
}

int th_log_ex(const th_log_call_site *site, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int error = th_vlog_ex(site, format, arguments);
    va_end(arguments);
    return error;
}

int th_log_bin_ex(const th_log_call_site *site, const void *data, std::size_t length, const char *format,
                  ...) {
    const errno_keeper keeper;
    if (!format || (!data && length != 0))
        return EINVAL;
    th_log_start();
    std::va_list arguments;
    va_start(arguments, format);
    const int error = th_log_write(site_or_default(site), {static_cast<const std::uint8_t *>(data), length},
                                   format, arguments);
    va_end(arguments);
    return error;
}

bool th_log_check(const th_log_call_site *site) {
    const errno_keeper keeper;
    th_log_start();
    const th_log_call_site &known = site_or_default(site);
    const th_lock overall(th_log_shared.mutex);
    return choose(context_of(known).config, known.flags) != 0;
}

void th_abort_on_errno(const th_log_call_site *site, int error, const char *what) {
    if (error == 0)
        return;
    if (error > 0)
        write_critical(site_or_default(site), "critical failure: %s (%d, %s). Calling abort().", th_str(what),
                       error, th_strerror(error));
    else
        write_critical(site_or_default(site), "critical failure: %s (%d). Calling abort().", th_str(what),
                       error);
    std::abort();
}
