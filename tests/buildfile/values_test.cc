#include "attributes/values.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

struct outcome {
    int error;
    std::int64_t value;
    bool operator==(const outcome &) const = default;
};
template <class T, int Convert(const char *, T *, int)>
outcome number(const char *text, int base) {
    T value = 77;
    const int error = Convert(text, &value, base);
    return {error, static_cast<std::int64_t>(value)};
}
template <int Convert(const char *, std::uint32_t *)>
outcome fixed_base(const char *text, int) {
    std::uint32_t value = 77;
    const int error = Convert(text, &value);
    return {error, value};
}

TEST(Values, NumbersAtTheirLimits) {
    constexpr auto u16 = number<std::uint16_t, mktfs_str2u16>, i16 = number<std::int16_t, mktfs_str2i16>;
    constexpr auto u32 = number<std::uint32_t, mktfs_str2u32>, i32 = number<std::int32_t, mktfs_str2i32>;
    constexpr auto u64 = number<std::uint64_t, mktfs_str2u64>, i64 = number<std::int64_t, mktfs_str2i64>;
    constexpr auto mode = fixed_base<mktfs_str2mode>, id = fixed_base<mktfs_str2uid>;
    constexpr outcome invalid = {EINVAL, 0}, range = {ERANGE, 0};
    const struct {
        outcome (*convert)(const char *text, int base);
        const char *text;
        outcome expected;
        int base = 10;
    } rows[] = {
        // clang-format off
        {u16, "65535", {0, 65535}}, {u16, "65536", invalid}, {u16, "-1", invalid}, {u16, " +7", {0, 7}},
        {u16, "7 ", invalid}, {u16, "", invalid},
        {u32, "4294967296", {0, 0}}, {u32, "-1", {0, 4294967295}}, {u32, " ", invalid}, {u32, "0x10", {0, 16}, 16},
        {u32, "-18446744073709547520", {0, 4096}}, {u32, "18446744073709551616", range},
        {u64, "18446744073709551615", {0, -1}}, {u64, "18446744073709551616", range}, {u64, "8", invalid, 8},
        {u64, "", invalid}, {u64, "1", invalid, 99},
        {i16, "32767", {0, 32767}}, {i16, "40000", {0, -25536}}, {i16, "-1", invalid}, {i16, "", invalid},
        {i32, "-2147483648", {0, INT32_MIN}}, {i32, "4294967297", {0, 1}}, {i32, "", {0, 0}}, {i32, " ", invalid},
        {i32, "-9223372036854775809", range},
        {i64, "-9223372036854775808", {0, INT64_MIN}}, {i64, "9223372036854775808", range}, {i64, "", {0, 0}},
        {i64, "1x", invalid},
        {mode, "0644", {0, 0644}}, {mode, "644", {0, 0644}}, {mode, "7777", {0, 07777}}, {mode, "10000", invalid},
        {mode, "8", invalid}, {mode, "-1", invalid}, {mode, "7777777777777777777777777", range},
        {id, "2147483647", {0, 2147483647}}, {id, "2147483648", invalid}, {id, "4294967296", invalid},
        {id, "010", {0, 10}}, {id, "root", invalid}, {id, nullptr, invalid},
        // clang-format on
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.convert(row.text, row.base), row.expected)
            << &row - rows << " " << (row.text ? row.text : "");
    EXPECT_EQ(mktfs_str2u16("1", nullptr, 10) + mktfs_str2mode("1", nullptr) +
                  mktfs_str2mtime("%s", "1", nullptr),
              3 * EINVAL);
}

TEST(Values, TimesCountAsUtcPlusAnHourOutsideDaylightSaving) {
    constexpr auto utc = "UTC0", berlin = "CET-1CEST,M3.5.0,M10.5.0/3", new_york = "EST5EDT,M3.2.0,M11.1.0";
    const struct {
        const char *zone, *format, *text;
        outcome expected;
    } rows[] = {
        // clang-format off
        {utc, "%s", "0", {0, 3600}}, {utc, "%Y", "2020", {0, 1577836800 - 86400 + 3600}},
        {berlin, "%Y-%m-%d", "2020-01-01", {0, 1577836800 + 3600}},
        {berlin, "%Y-%m-%d", "2020-07-01", {0, 1593561600}},
        {berlin, "%s", "1593561600", {0, 1593561600 + 3600}}, {new_york, "%s", "0", {0, -14400}},
        {utc, "%s", "", {EINVAL, 0}}, {utc, "%s", "5x", {EINVAL, 0}}, {utc, "%Y-%m", "2020-13", {EINVAL, 0}},
        {utc, "%s", nullptr, {EINVAL, 0}}, {utc, nullptr, "0", {EINVAL, 0}},
        // clang-format on
    };
    for (const auto &row : rows) {
        setenv("TZ", row.zone, 1);
        tzset();
        std::int64_t time = 77;
        const int error = mktfs_str2mtime(row.format, row.text, &time);
        EXPECT_EQ((outcome{error, time}), row.expected) << &row - rows;
    }
    unsetenv("TZ");
    tzset();
}

}  // namespace
