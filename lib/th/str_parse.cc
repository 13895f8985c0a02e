#include "th/str_parse.h"

#include <cerrno>
#include <cstdlib>

namespace {

// The number at the cursor, converted in the widest type of its signedness.
int convert(th_str_request &request) {
    if (!request.is_signed && *request.cursor == '-')
        return EINVAL;
    char *end = const_cast<char *>(request.cursor);
    errno = 0;
    request.value = request.is_signed
                        ? static_cast<std::uint64_t>(std::strtoll(request.cursor, &end, request.base))
                        : std::strtoull(request.cursor, &end, request.base);
    const bool no_digits = end == request.cursor;
    request.cursor = end;
    if (errno != 0)
        return errno;
    return no_digits ? EINVAL : 0;
}

bool is_less(const th_str_request &request, std::uint64_t a, std::uint64_t b) {
    return request.is_signed ? static_cast<std::int64_t>(a) < static_cast<std::int64_t>(b) : a < b;
}

int clamp(th_str_request &request) {
    const std::uint64_t value = request.value;
    if (is_less(request, value, request.minimum))
        request.value = request.minimum;
    else if (is_less(request, request.maximum, value))
        request.value = request.maximum;
    return value == request.value ? 0 : ERANGE;
}

int check_range(th_str_request &request) {
    return request.range ? request.range(request) : clamp(request);
}

int run_steps(th_str_request &request) {
    th_str_skip_space(request);
    if (!request.label || request.label(request) != 0) {
        const int error = convert(request);
        if (error == ERANGE)
            check_range(request);
        if (error != 0)
            return error;
    }
    if (request.suffix) {
        if (const int error = request.suffix(request); error != 0)
            return error;
    }
    return check_range(request);
}

}  // namespace

int parse_string_to_number(th_str_request &request) {
    const int saved = errno;
    const int error = run_steps(request);
    errno = error ? error : saved;
    return error;
}

bool th_str_is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

void th_str_skip_space(th_str_request &request) {
    while (th_str_is_space(*request.cursor))
        request.cursor++;
}
