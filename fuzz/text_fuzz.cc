// Texts as numbers, sizes, modes, signals, times, hexadecimal and access control lists.
// Plain numbers have the value that exact arithmetic gives them; what is refused leaves
// the output as it was, or at the bound that was crossed.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "acl/check.h"
#include "acl/short_text.h"
#include "base/hex.h"

#include "attributes/values.h"
#include "support/require.h"
#include "th/str.h"

__extension__ using wide = __int128;

// The digits of `base`, at most ten, with blanks around them, a sign where `sign` says
// so and one of the units behind them; no value for any other text.
static std::optional<wide> plain_number(std::string text, int base, bool sign, const char *units = "") {
    const auto space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    text.erase(0, static_cast<std::size_t>(std::ranges::find_if_not(text, space) - text.begin()));
    while (!text.empty() && space(text.back()))
        text.pop_back();
    const char *unit = text.empty() ? nullptr : std::strchr(units, text.back());
    if (unit != nullptr)
        text.pop_back();
    const bool negative = text.starts_with('-');
    if (text.starts_with('+') || (sign && negative))
        text.erase(0, 1);
    if (text.empty() || !std::ranges::all_of(text, [&](char c) { return c >= '0' && c < '0' + base; }))
        return std::nullopt;
    wide value = 0;
    for (const char c : text)
        value = std::min(static_cast<wide>(1) << 80, value * base + (c - '0'));
    if (unit != nullptr)
        value *= static_cast<wide>(1) << 10 * ((unit - units) / 2 + 1);
    return negative ? -value : value;
}

template <class T>
static void check_result(int err, T value, std::optional<wide> expected, wide low, wide high) {
    require(err == 0 || (err == errno && (err == EINVAL || err == ERANGE)));
    require(err != EINVAL || value == T{77});
    if (!expected)
        require(err != 0);
    else
        require(err == (*expected < low || *expected > high ? ERANGE : 0) &&
                value == static_cast<T>(std::clamp(*expected, low, high)));
}

template <class T>
static void check_integer(int (*parse)(const char *, int, T *, std::size_t *), const std::string &text,
                          int base) {
    using limits = std::numeric_limits<T>;
    T value = 77, partial = 77;
    std::size_t end = text.size() + 1;
    const int err = parse(text.c_str(), base, &value, nullptr);
    const auto expected = base > 1 && base <= 10 ? plain_number(text, base, limits::is_signed) : std::nullopt;
    if (expected || base == 10)
        check_result(err, value, expected, limits::min(), limits::max());
    const int partial_err = parse(text.c_str(), base, &partial, &end);
    require(end <= text.size() && (err != 0 || (partial_err == 0 && partial == value && end == text.size())));
}

static void check_units(const std::string &text) {
    std::uint64_t bytes = 77;
    const int err = th_str_to_bytes(text.c_str(), &bytes);
    check_result(err, bytes, plain_number(text, 10, false, "KkMmGgTt"), 0, UINT64_MAX);
    int signal = 77;
    require(th_str_to_signal(text.c_str(), &signal) == EINVAL ? signal == 77 : signal >= 1 && signal <= 65);
}

// What is refused leaves 0.
static void check_build_file_values(const std::string &text, const std::string &format) {
    std::uint32_t mode = 77, id = 77;
    std::int64_t time = 77;
    require(mktfs_str2mode(text.c_str(), &mode) == 0 ? mode <= 07777 : mode == 0);
    require(mktfs_str2uid(text.c_str(), &id) == 0 ? id <= INT32_MAX : id == 0);
    require(mktfs_str2mtime(format.c_str(), text.c_str(), &time) == 0 || time == 0);
}

static void check_hex(const std::string &text) {
    const std::size_t count = text.size() / 2;
    std::vector<std::uint8_t> bytes(count);
    std::string back(2 * count, '\0');
    if (count == 0 || mktfs_hex2bin(bytes.data(), text.data(), count) != 0)
        return;
    require(mktfs_bin2hex(back.data(), bytes.data(), count) == 0);
    require(
        std::ranges::equal(back, text.substr(0, 2 * count), {}, {}, [](char c) { return std::tolower(c); }));
}

// An accepted list survives its external form, and a completed one is valid.
static void check_acl(const std::string &text) {
    tvo_acl *parsed = nullptr;
    require((tvo_acl_from_short_text(&parsed, text.c_str(), nullptr) == 0) == (parsed != nullptr));
    if (!parsed)
        return;
    const tvo_acl_ptr acl(parsed);
    const ssize_t length = tvo_acl_size(parsed);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    require(tvo_acl_copy_ext(bytes.data(), parsed, length) == length);
    const tvo_acl_ptr copy(tvo_acl_copy_int(bytes.data()));
    require(copy && std::memcmp(&copy->external, &parsed->external, bytes.size()) == 0);
    tvo_acl_ptr completed;
    std::uint32_t mode = 0640;
    const int rc = tvo_acl_complete(parsed, th_out(completed), &mode, nullptr);
    require(rc == 0 || (!completed && mode == 0640));
    require(!completed || (tvo_acl_valid(completed.get()) == 0 && (mode & TVO_ACL_MODE_HAS_ACL)));
}

// The first byte chooses the base; a line break ends a time's format.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string text = std::string(reinterpret_cast<const char *>(data) + 1, size - 1).c_str();
    // Only valid bases: with others the sanitizer's strtoll leaves the end undefined.
    const int base = *data == '#' ? 10 : *data % 36 == 1 ? 36 : *data % 36;
    const auto check_each = [&](auto... parse) { (check_integer(parse, text, base), ...); };
    check_each(th_str_to_int8, th_str_to_int32, th_str_to_int64, th_str_to_uint16, th_str_to_uint64);
    const std::size_t line = text.find('\n');
    check_units(text);
    check_build_file_values(line == text.npos ? text : text.substr(line + 1), text.substr(0, line));
    check_hex(text);
    check_acl(text);
    return 0;
}
