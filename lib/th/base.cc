#include "th/base.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <span>

#include "th/error.h"

namespace {

constexpr std::uint64_t KNOWN_FLAGS = TH_BASE_RAW | TH_BASE_CASE_MASK;
constexpr int NO_DIGIT = -1;

// What a conversion used of its input and wrote to its output.
struct outcome {
    int error = 0;
    std::size_t read = 0;
    std::size_t written = 0;
};

bool is_raw(const th_base_params &params) {
    return (params.flags & TH_BASE_RAW) != 0;
}

std::uint64_t letter_case(const th_base_params &params) {
    return params.flags & TH_BASE_CASE_MASK;
}

int encoded_length(std::size_t in_length, bool raw, std::size_t &needed) {
    const std::size_t terminator = raw ? 0 : 1;
    if (in_length > (std::numeric_limits<std::size_t>::max() - terminator) / 2)
        return EOVERFLOW;
    needed = 2 * in_length + terminator;
    return 0;
}

outcome encode(std::span<char> out, std::span<const std::uint8_t> in, const th_base_params &params) {
    const char *digits = letter_case(params) == TH_BASE_UPPER ? "0123456789ABCDEF" : "0123456789abcdef";
    const std::size_t terminator = is_raw(params) ? 0 : 1;
    if (out.size() < terminator)
        return {ENOBUFS, 0, 0};
    const std::size_t bytes = std::min(in.size(), (out.size() - terminator) / 2);
    char *cursor = out.data();
    for (const std::uint8_t byte : in.first(bytes)) {
        *cursor++ = digits[byte >> 4];
        *cursor++ = digits[byte & 0xF];
    }
    if (terminator)
        *cursor = '\0';
    return {bytes < in.size() ? ENOBUFS : 0, bytes, 2 * bytes + terminator};
}

int digit_value(char digit, std::uint64_t accepted_case) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return accepted_case == TH_BASE_UPPER ? NO_DIGIT : digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return accepted_case == TH_BASE_LOWER ? NO_DIGIT : digit - 'A' + 10;
    return NO_DIGIT;
}

outcome decode(std::span<std::uint8_t> out, std::span<const char> in, const th_base_params &params) {
    const auto value = [accepted = letter_case(params)](char c) { return digit_value(c, accepted); };
    const auto is_end = [ended = !is_raw(params)](char c) { return ended && c == '\0'; };
    outcome done;
    while (done.read < in.size()) {
        const char high = in[done.read];
        if (is_end(high))
            return {0, done.read + 1, done.written};
        if (value(high) == NO_DIGIT)
            return {EBADMSG, done.read, done.written};
        if (done.read + 1 == in.size() || is_end(in[done.read + 1]))
            return {EMSGSIZE, done.read, done.written};
        const char low = in[done.read + 1];
        if (value(low) == NO_DIGIT)
            return {EBADMSG, done.read, done.written};
        if (done.written == out.size())
            return {ENOBUFS, done.read, done.written};
        out[done.written++] = static_cast<std::uint8_t>(value(high) << 4 | value(low));
        done.read += 2;
    }
    return done;
}

int check_params(th_base_direction direction, const th_base_params &params) {
    if (params.kind != TH_BASE_HEX)
        return EOPNOTSUPP;
    if ((params.flags & ~KNOWN_FLAGS) != 0)
        return EINVAL;
    return direction == TH_BASE_ENCODE && letter_case(params) > TH_BASE_UPPER ? EINVAL : 0;
}

int needed_length(th_base_direction direction, std::size_t in_length, const th_base_params &params,
                  std::size_t &needed) {
    if (direction == TH_BASE_ENCODE)
        return encoded_length(in_length, is_raw(params), needed);
    needed = in_length / 2;
    return 0;
}

}  // namespace

int th_base_convert(th_base_direction direction, void *out, std::size_t *out_length, const void *in,
                    std::size_t *in_length, const th_base_params *params) {
    if (!out_length || !in || !in_length || !params)
        return th_result(EINVAL);
    if (const int error = check_params(direction, *params); error != 0)
        return th_result(error);
    if (!out)
        return th_result(needed_length(direction, *in_length, *params, *out_length));
    const outcome done = direction == TH_BASE_ENCODE
                             ? encode({static_cast<char *>(out), *out_length},
                                      {static_cast<const std::uint8_t *>(in), *in_length}, *params)
                             : decode({static_cast<std::uint8_t *>(out), *out_length},
                                      {static_cast<const char *>(in), *in_length}, *params);
    *out_length = done.written;
    *in_length = done.read;
    return th_result(done.error);
}

int th_base_encode(char *out, std::size_t *out_length, const void *in, std::size_t *in_length,
                   const th_base_params *params) {
    return th_base_convert(TH_BASE_ENCODE, out, out_length, in, in_length, params);
}

int th_base_decode(void *out, std::size_t *out_length, const char *in, std::size_t *in_length,
                   const th_base_params *params) {
    return th_base_convert(TH_BASE_DECODE, out, out_length, in, in_length, params);
}

void th_base_hex(const void *bytes, std::size_t length, char *out) {
    encode({out, 2 * length + 1}, {static_cast<const std::uint8_t *>(bytes), length}, {});
}
