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

#include "attributes/values.h"
#include "base/hex.h"
#include "buildfile/acl.h"
#include "support/require.h"
#include "th/base.h"
#include "th/str.h"

__extension__ using wide = __int128;

// The digits of `base`, at most ten, with blanks around them, a sign where `sign` says
// so and one of the units behind them; no value for any other text.
static std::optional<wide> plain_number(std::string text, int base, bool sign, const char *units = "") {
    const auto space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    text.erase(0, static_cast<std::size_t>(std::ranges::find_if_not(text, space) - text.begin()));
    while (!text.empty() && space(text.back()))
        text.pop_back();
    const char last = text.empty() ? '\0' : text.back();
    const char *unit = last != '\0' ? std::strchr(units, last) : nullptr;
    if (unit != nullptr)
        text.pop_back();
    const bool negative = text.starts_with('-');
    if (text.starts_with('+') || (sign && negative))
        text.erase(0, 1);
    if (text.empty() || !std::ranges::all_of(text, [&](char c) { return c >= '0' && c < '0' + base; }))
        return std::nullopt;
    const wide limit = static_cast<wide>(1) << 80;
    wide value = 0;
    for (const char c : text)
        value = std::min(limit, value * base + (c - '0'));
    if (unit != nullptr)
        value *= static_cast<wide>(1) << 10 * ((unit - units) / 2 + 1);
    return negative ? -value : value;
}

template <class T>
static void check_result(int err, T value, T before, std::optional<wide> expected, wide low, wide high) {
    require(err == 0 || (err == errno && (err == EINVAL || err == ERANGE)));
    require(err != EINVAL || value == before);
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
        check_result(err, value, T{77}, expected, limits::min(), limits::max());
    const int partial_err = parse(text.c_str(), base, &partial, &end);
    require(end <= text.size() && (err != 0 || (partial_err == 0 && partial == value && end == text.size())));
    require(partial_err != EINVAL || partial == 77);
}

static void check_units(const std::string &text) {
    std::uint64_t bytes = 77;
    int err = th_str_to_bytes(text.c_str(), &bytes);
    check_result<std::uint64_t>(err, bytes, 77, plain_number(text, 10, false, "KkMmGgTt"), 0, UINT64_MAX);
    mode_t mode = 77;
    err = th_str_to_mode(text.c_str(), &mode);
    if (const auto expected = plain_number(text, 8, false); !expected)
        require(err != 0 && (err != EINVAL || mode == 77));
    else if (*expected <= 07777)
        require(err == 0 && mode == static_cast<mode_t>(*expected));
    else
        require(err == ERANGE && mode <= 07777);
    int signal = 77;
    err = th_str_to_signal(text.c_str(), &signal);
    require(err == EINVAL ? signal == 77 : signal >= 1 && signal <= 65);
    uid_t id = 77;
    require(th_str_username_to_uid(text.c_str(), &id) != EINVAL || id == 77);
}

template <class T>
static void check_value(int err, T value, const std::string &text, int base, wide low, wide high) {
    const bool bare = !text.empty() && !std::isspace(static_cast<unsigned char>(text.back()));
    const auto expected = bare ? plain_number(text, base, true) : std::nullopt;
    require(err == 0 || value == 0);
    if (expected && *expected >= low)
        require(*expected <= high ? err == 0 && value == static_cast<T>(*expected) : err != 0);
}

static void check_build_file_values(const std::string &text, const std::string &format) {
    std::uint16_t u16 = 77;
    std::uint32_t u32 = 77;
    std::uint64_t u64 = 77;
    std::int64_t i64 = 77;
    const char *c = text.c_str();
    check_value(mktfs_str2u16(c, &u16, 10), u16, text, 10, 0, UINT16_MAX);
    check_value(mktfs_str2u32(c, &u32, 10), u32, text, 10, 0, UINT64_MAX);
    check_value(mktfs_str2mode(c, &u32), u32, text, 8, 0, 07777);
    check_value(mktfs_str2uid(c, &u32), u32, text, 10, 0, INT32_MAX);
    check_value(mktfs_str2u64(c, &u64, 10), u64, text, 10, 0, UINT64_MAX);
    check_value(mktfs_str2i64(c, &i64, 10), i64, text, 10, INT64_MIN, INT64_MAX);
    require(mktfs_str2mtime(format.c_str(), c, &i64) == 0 || i64 == 0);
}

static void check_hex(const std::string &text) {
    const std::size_t count = text.size() / 2;
    const std::vector<char> digits(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(2 * count));
    if (count == 0)
        return;
    std::vector<std::uint8_t> bytes(count), again(count);
    const int err = mktfs_hex2bin(bytes.data(), digits.data(), count);
    const bool valid = std::ranges::all_of(digits, [](unsigned char c) { return std::isxdigit(c) != 0; });
    require((err == 0) == valid);
    std::size_t room = count, used = 2 * count;
    const th_base_params raw = {.kind = TH_BASE_HEX, .flags = TH_BASE_RAW};
    require((th_base_decode(again.data(), &room, digits.data(), &used, &raw) == 0) == valid);
    if (!valid)
        return;
    require(bytes == again && room == count && used == 2 * count);
    std::vector<char> back(2 * count);
    require(mktfs_bin2hex(back.data(), bytes.data(), count) == 0);
    require(std::ranges::equal(back, digits, [](char a, char b) { return a == std::tolower(b); }));
}

// An accepted list survives its external form, a completed one is valid, and a refused
// completion changes nothing.
static void check_acl(const std::string &text) {
    tvo_acl *acl = nullptr;
    require((tvo_acl_from_short_text(&acl, text.c_str(), nullptr) == 0) == (acl != nullptr));
    if (!acl)
        return;

    const ssize_t length = tvo_acl_size(acl);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(length));
    require(tvo_acl_copy_ext(bytes.data(), acl, length) == length);
    const tvo_acl_ptr copy(tvo_acl_copy_int(bytes.data()));
    require(copy && std::memcmp(&copy->external, &acl->external, bytes.size()) == 0);

    tvo_acl_ptr completed;
    std::uint32_t mode = 0640;
    const int rc = tvo_acl_complete(acl, th_out(completed), &mode, nullptr);
    require(rc == 0 || (!completed && mode == 0640));
    require(!completed || (tvo_acl_valid(completed.get()) == 0 && (mode & TVO_ACL_MODE_HAS_ACL)));

    require(tvo_acl_calc_mask(&acl) == 0);
    (void)tvo_acl_valid(acl);
    tvo_acl_entry *entry = nullptr;
    while (tvo_acl_get_entry(acl, TVO_ACL_FIRST_ENTRY, &entry) == 1)
        require(tvo_acl_delete_entry(acl, entry) == 0);
    require(tvo_acl_size(acl) == sizeof(tvo_acl_external));
    tvo_acl_free(acl);
}

// The first byte chooses the base; a line break ends a time's format.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string text = std::string(reinterpret_cast<const char *>(data) + 1, size - 1).c_str();
    // Only valid bases: with others the sanitizer's strtoll leaves the end undefined.
    const int base = *data == '#' ? 10 : *data % 36 == 1 ? 36 : *data % 36;
    const auto check_each = [&](auto... parse) { (check_integer(parse, text, base), ...); };
    check_each(th_str_to_int8, th_str_to_int16, th_str_to_int32, th_str_to_int64, th_str_to_uint8,
               th_str_to_uint16, th_str_to_uint32, th_str_to_uint64);
    check_units(text);
    const std::size_t line = text.find('\n');
    check_build_file_values(line == text.npos ? text : text.substr(line + 1), text.substr(0, line));
    check_hex(text);
    check_acl(text);
    return 0;
}
