#include "th/log_format.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include "th/base.h"

namespace {

// Text in a fixed room, which counts what does not fit as well.
class bounded_text {
public:
    explicit bounded_text(std::span<char> room) : room_(room) {}

    void append(std::string_view text) {
        text.copy(rest().data(), rest().size());
        length_ += text.size();
    }

    // Leaves out the last `cut` characters.  0 or an error number.
    [[gnu::format(printf, 3, 0)]] int append_format(std::size_t cut, const char *format,
                                                    std::va_list arguments) {
        const int written = std::vsnprintf(rest().data(), rest().size(), format, arguments);
        if (written < 0)
            return errno;
        length_ += static_cast<std::size_t>(written) - std::min(cut, static_cast<std::size_t>(written));
        return 0;
    }

    [[gnu::format(printf, 2, 3)]] void append_number(const char *format, ...) {
        std::va_list arguments;
        va_start(arguments, format);
        append_format(0, format, arguments);
        va_end(arguments);
    }

    void append_hex(std::span<const std::uint8_t> bytes) {
        static constexpr th_base_params raw = {.kind = TH_BASE_HEX, .flags = TH_BASE_RAW};
        std::size_t room = rest().size();
        std::size_t used = bytes.size();
        th_base_encode(rest().data(), &room, bytes.data(), &used, &raw);
        length_ += 2 * bytes.size();
    }

    [[nodiscard]] std::size_t length() const { return length_; }

private:
    [[nodiscard]] std::span<char> rest() const { return room_.subspan(std::min(length_, room_.size())); }

    std::span<char> room_;
    std::size_t length_ = 0;
};

// The blanks, tabs and newlines that end a format; they end the text as well.
std::size_t trailing_blanks(std::string_view format) {
    const std::size_t last = format.find_last_not_of(" \t\n");
    return format.size() - (last == format.npos ? 0 : last + 1);
}

std::string_view file_name(const th_log_call_site &site) {
    const std::string_view file = site.file;
    if (site.whole_file_name)
        return file;
    const std::size_t slash = file.find_last_of("/\\");
    return slash == file.npos ? file : file.substr(slash + 1);
}

void append_location(bounded_text &text, const th_log_call_site &site) {
    const bool with_thread = (site.flags & TH_LOG_FLAG_THREAD_ID) != 0;
    const bool located = site.file || site.line != 0 || site.function;
    if (!located && !with_thread)
        return;
    text.append(" [");
    if (site.file)
        text.append(file_name(site));
    if (site.line != 0)
        text.append_number("(%u)", site.line);
    if (site.function) {
        text.append("::");
        text.append(site.function);
    }
    if (with_thread)
        text.append_number(located ? "][%lu]" : "%lu]", static_cast<unsigned long>(gettid()));
    else
        text.append("]");
}

}  // namespace

int th_log_compose(std::span<char> room, const th_log_line &line, std::size_t &length, const char *format,
                   std::va_list arguments) {
    bounded_text text(room);
    text.append(line.context);
    text.append(": ");
    if (const int error = text.append_format(trailing_blanks(format), format, arguments); error != 0)
        return error;
    if (!line.data.empty()) {
        text.append(" ");
        text.append_hex(line.data);
    }
    append_location(text, *line.site);
    text.append("\n");
    length = text.length();
    return 0;
}
