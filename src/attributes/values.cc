#include "attributes/values.h"

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "acl/short_text.h"

namespace {

constexpr std::uint64_t MODE_LIMIT = 07777;
constexpr std::uint64_t ID_LIMIT = INT32_MAX;
constexpr std::uint64_t U16_LIMIT = UINT16_MAX;
constexpr std::int64_t SECONDS_OF_AN_HOUR = 3600;

enum class empty_text {
    refused,
    is_zero,
};

// Runs one of the strto* functions over the whole text.
template <class Wide>
int convert(Wide (*strto)(const char *, char **, int), const char *text, int base, empty_text empty,
            Wide &wide) {
    if (!text)
        return EINVAL;
    char *end = nullptr;
    errno = 0;
    wide = strto(text, &end, base);
    if (errno != 0)
        return errno;
    const bool no_digits = end == text;
    return *end != '\0' || (no_digits && empty == empty_text::refused) ? EINVAL : 0;
}

// The same, and stores the value if its unsigned reading is at most `limit`.
template <class Wide, class Out>
int convert_into(Wide (*strto)(const char *, char **, int), const char *text, int base, empty_text empty,
                 std::uint64_t limit, Out *out) {
    if (!out)
        return EINVAL;
    *out = 0;
    Wide wide = 0;
    if (const int err = convert(strto, text, base, empty, wide); err != 0)
        return err;
    if (static_cast<std::uint64_t>(wide) > limit)
        return EINVAL;
    *out = static_cast<Out>(wide);
    return 0;
}

// A local calendar time as seconds.  Settles tm_isdst.
int local_seconds(std::tm &calendar, std::int64_t &seconds) {
    calendar.tm_wday = -1;  // mktime's own -1 is a valid time; this field tells them apart
    seconds = std::mktime(&calendar);
    return calendar.tm_wday == -1 ? EOVERFLOW : 0;
}

}  // namespace

int mktfs_str2u16(const char *text, std::uint16_t *out, int base) {
    return convert_into(std::strtoul, text, base, empty_text::refused, U16_LIMIT, out);
}

int mktfs_str2u32(const char *text, std::uint32_t *out, int base) {
    return convert_into(std::strtoul, text, base, empty_text::refused, UINT64_MAX, out);
}

int mktfs_str2u64(const char *text, std::uint64_t *out, int base) {
    return convert_into(std::strtoull, text, base, empty_text::refused, UINT64_MAX, out);
}

int mktfs_str2i16(const char *text, std::int16_t *out, int base) {
    return convert_into(std::strtol, text, base, empty_text::refused, U16_LIMIT, out);
}

int mktfs_str2i32(const char *text, std::int32_t *out, int base) {
    return convert_into(std::strtol, text, base, empty_text::is_zero, UINT64_MAX, out);
}

int mktfs_str2i64(const char *text, std::int64_t *out, int base) {
    return convert_into(std::strtoll, text, base, empty_text::is_zero, UINT64_MAX, out);
}

int mktfs_str2mode(const char *text, std::uint32_t *mode) {
    return convert_into(std::strtoull, text, 8, empty_text::refused, MODE_LIMIT, mode);
}

int mktfs_str2uid(const char *text, std::uint32_t *id) {
    return convert_into(std::strtoull, text, 10, empty_text::refused, ID_LIMIT, id);
}

int mktfs_str2mtime(const char *format, const char *text, std::int64_t *time) {
    if (!time)
        return EINVAL;
    *time = 0;
    if (!format || !text)
        return EINVAL;
    std::tm given{};
    const char *end = strptime(text, format, &given);
    if (!end || *end != '\0')
        return EINVAL;
    std::int64_t seconds = 0;
    if (const int err = local_seconds(given, seconds); err != 0)
        return err;
    const std::time_t epoch = 0;
    std::tm epoch_in_utc{};
    gmtime_r(&epoch, &epoch_in_utc);
    std::int64_t zone = 0;  // what local time makes of the UTC fields of time 0
    if (const int err = local_seconds(epoch_in_utc, zone); err != 0)
        return err;
    const std::int64_t missing_hour = given.tm_isdst > 0 ? 0 : SECONDS_OF_AN_HOUR;
    *time = seconds + missing_hour - zone;
    return 0;
}

int mktfs_str2acl(const char *text, tvo_acl **acl) {
    return tvo_acl_from_short_text(acl, text, nullptr) == 0 ? 0 : errno;
}

bool mktfs_is_pwr_of2(std::uint64_t n) {
    return std::has_single_bit(n);
}
