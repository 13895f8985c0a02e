#include "th/str.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "th/error.h"
#include "th/str_label.h"
#include "th/str_parse.h"

namespace {

constexpr std::uint64_t MODE_BITS = 07777;
constexpr std::uint64_t LARGEST_SIGNAL = 65;

template <class... Pointer>
bool any_null(const Pointer *...pointers) {
    return (... || !pointers);
}

// Text left over, which only a caller that asks for the end may have.
int refuse_rest(th_str_request &request) {
    return *request.cursor && !request.partial ? EINVAL : 0;
}

int parse_ws_suffix(th_str_request &request) {
    th_str_skip_space(request);
    return refuse_rest(request);
}

int multiply(th_str_request &request, unsigned shift) {
    if (request.value > request.maximum >> shift) {
        request.value = request.maximum;
        return ERANGE;
    }
    request.value <<= shift;
    return 0;
}

int parse_size_suffix(th_str_request &request) {
    static constexpr char letters[] = "KkMmGgTt";  // two cases for each power of 1024
    const char *letter = *request.cursor ? std::strchr(letters, *request.cursor) : nullptr;
    if (!letter)
        return parse_ws_suffix(request);
    request.cursor++;
    if (const int error = parse_ws_suffix(request); error != 0)
        return error;
    return multiply(request, 10 * (static_cast<unsigned>(letter - letters) / 2 + 1));
}

int parse_mode_range(th_str_request &request) {
    const bool fits = request.value <= MODE_BITS;
    request.value &= MODE_BITS;
    return fits ? 0 : ERANGE;
}

// Parses `text` by the steps and bounds of `request` into `value`.
template <class T>
int parse_into(th_str_request request, const char *text, T *value, std::size_t *end) {
    if (any_null(text, value))
        return th_result(EINVAL);
    request.cursor = text;
    request.partial = end != nullptr;
    const int error = parse_string_to_number(request);
    if (end)
        *end = static_cast<std::size_t>(request.cursor - text);
    if (error == 0 || error == ERANGE)
        *value = static_cast<T>(request.value);
    return error;
}

template <class T>
int parse_integer(const char *text, int base, T *value, std::size_t *end) {
    using limits = std::numeric_limits<T>;
    const th_str_request request = {
        .base = base,
        .is_signed = std::is_signed_v<T>,
        .minimum = static_cast<std::uint64_t>(limits::min()),
        .maximum = static_cast<std::uint64_t>(limits::max()),
        .suffix = parse_ws_suffix,
    };
    return parse_into(request, text, value, end);
}

template <class T>
int parse_id(th_str_step label, const char *text, T *value) {
    const th_str_request request = {.maximum = UINT32_MAX, .label = label, .suffix = refuse_rest};
    return parse_into(request, text, value, nullptr);
}

// Formats into `room` bytes of fresh memory.  Null, with errno set, on failure.
[[gnu::format(printf, 2, 0)]] char *format_into_new(std::size_t room, const char *format,
                                                    std::va_list arguments) {
    auto *text = static_cast<char *>(std::malloc(room));
    if (!text)
        return nullptr;
    const int length = std::vsnprintf(text, room, format, arguments);
    if (length >= 0 && static_cast<std::size_t>(length) < room)
        return text;
    const int error = length < 0 ? errno : EINVAL;  // the arguments changed between the passes
    std::free(text);
    errno = error;
    return nullptr;
}

}  // namespace

int th_str_to_int8(const char *text, int base, std::int8_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_int16(const char *text, int base, std::int16_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_int32(const char *text, int base, std::int32_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_int64(const char *text, int base, std::int64_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_uint8(const char *text, int base, std::uint8_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_uint16(const char *text, int base, std::uint16_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_uint32(const char *text, int base, std::uint32_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_uint64(const char *text, int base, std::uint64_t *value, std::size_t *end) {
    return parse_integer(text, base, value, end);
}

int th_str_to_bytes(const char *text, std::uint64_t *value, std::size_t *end) {
    return parse_into({.suffix = parse_size_suffix}, text, value, end);
}

int th_str_to_mode(const char *text, mode_t *mode, std::size_t *end) {
    return parse_into({.base = 8, .suffix = parse_ws_suffix, .range = parse_mode_range}, text, mode, end);
}

int th_str_username_to_uid(const char *text, uid_t *uid) {
    return parse_id(th_str_user_label, text, uid);
}

int th_str_groupname_to_gid(const char *text, gid_t *gid) {
    return parse_id(th_str_group_label, text, gid);
}

int th_str_to_signal(const char *text, int *signo, std::size_t *end) {
    const th_str_request request = {
        .is_signed = true,
        .minimum = 1,
        .maximum = LARGEST_SIGNAL,
        .label = parse_signo_label,
        .suffix = refuse_rest,
    };
    return parse_into(request, text, signo, end);
}

const char *th_str(const char *text) {
    return text ? text : "";
}

char *th_strdup(const char *text, const char *fallback) {
    if (!text)
        text = fallback;
    if (text)
        return strdup(text);
    errno = EINVAL;
    return nullptr;
}

int th_strcmp(const char *a, const char *b) {
    if (a == b)
        return 0;
    if (!a)
        return -2;
    return b ? std::strcmp(a, b) : 2;
}

char *th_malloc_sprintf(const char *format, ...) {
    if (!format) {
        errno = EINVAL;
        return nullptr;
    }
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list first_pass;
    va_copy(first_pass, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, first_pass);
    va_end(first_pass);
    char *text =
        length < 0 ? nullptr : format_into_new(static_cast<std::size_t>(length) + 1, format, arguments);
    va_end(arguments);
    return text;
}
