#include "attributes/values.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace {

using wide_convert = int (*)(const char *text, int base, std::int64_t *out);
template <class T, int Convert(const char *, T *, int)>
int wide(const char *text, int base, std::int64_t *out) {
    T value = 77;
    const int error = Convert(text, &value, base);
    *out = static_cast<std::int64_t>(value);
    return error;
}
template <int Convert(const char *, std::uint32_t *)>
int plain(const char *text, int, std::int64_t *out) {
    std::uint32_t value = 77;
    const int error = Convert(text, &value);
    *out = value;
    return error;
}

TEST(Values, NumbersAtTheirLimits) {
    constexpr auto u16 = wide<std::uint16_t, mktfs_str2u16>;
    constexpr auto u32 = wide<std::uint32_t, mktfs_str2u32>;
    constexpr auto u64 = wide<std::uint64_t, mktfs_str2u64>;
    constexpr auto i16 = wide<std::int16_t, mktfs_str2i16>;
    constexpr auto i32 = wide<std::int32_t, mktfs_str2i32>;
    constexpr auto i64 = wide<std::int64_t, mktfs_str2i64>;
    constexpr auto mode = plain<mktfs_str2mode>;
    constexpr auto id = plain<mktfs_str2uid>;
    const struct {
        wide_convert convert;
        const char *text;
        int base, error;
        std::int64_t value;
    } rows[] = {
        // clang-format off
        {u16, "65535", 10, 0, 65535}, {u16, "65536", 10, EINVAL, 0}, {u16, "-1", 10, EINVAL, 0},
        {u16, " +7", 10, 0, 7}, {u16, "7 ", 10, EINVAL, 0}, {u16, "", 10, EINVAL, 0}, {u16, nullptr, 10, EINVAL, 0},
        {u32, "4294967296", 10, 0, 0}, {u32, "-1", 10, 0, 4294967295}, {u32, " ", 10, EINVAL, 0},
        {u32, "-18446744073709547520", 10, 0, 4096}, {u32, "18446744073709551616", 10, ERANGE, 0},
        {u32, "0x10", 16, 0, 16}, {u64, "18446744073709551615", 10, 0, -1}, {u64, "18446744073709551616", 10, ERANGE, 0},
        {u64, "8", 8, EINVAL, 0}, {u64, "", 10, EINVAL, 0}, {u64, "1", 99, EINVAL, 0},
        {i16, "32767", 10, 0, 32767}, {i16, "40000", 10, 0, -25536}, {i16, "-1", 10, EINVAL, 0}, {i16, "", 10, EINVAL, 0},
        {i32, "-2147483648", 10, 0, INT32_MIN}, {i32, "4294967297", 10, 0, 1}, {i32, "", 10, 0, 0},
        {i32, " ", 10, EINVAL, 0}, {i32, "-9223372036854775809", 10, ERANGE, 0},
        {i64, "-9223372036854775808", 10, 0, INT64_MIN}, {i64, "9223372036854775808", 10, ERANGE, 0},
        {i64, "", 10, 0, 0}, {i64, "1x", 10, EINVAL, 0},
        {mode, "0644", 0, 0, 420}, {mode, "644", 0, 0, 420}, {mode, "00644", 0, 0, 420}, {mode, "7777", 0, 0, 4095},
        {mode, "10000", 0, EINVAL, 0}, {mode, "8", 0, EINVAL, 0}, {mode, "-1", 0, EINVAL, 0},
        {mode, "7777777777777777777777777", 0, ERANGE, 0},
        {id, "2147483647", 0, 0, 2147483647}, {id, "2147483648", 0, EINVAL, 0}, {id, "4294967296", 0, EINVAL, 0},
        {id, "010", 0, 0, 10},
        {id, "root", 0, EINVAL, 0}, {id, nullptr, 0, EINVAL, 0},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows << ": " << (row.text ? row.text : "null"));
        std::int64_t value = 77;
        EXPECT_EQ(row.convert(row.text, row.base, &value), row.error);
        EXPECT_EQ(value, row.value);
    }
}

TEST(Values, TimesCountAsUtcPlusAnHourOutsideDaylightSaving) {
    constexpr const char *utc = "UTC0", *berlin = "CET-1CEST,M3.5.0,M10.5.0/3",
                         *new_york = "EST5EDT,M3.2.0,M11.1.0";
    const struct {
        const char *zone, *format, *text;
        int error;
        std::int64_t time;
    } rows[] = {{utc, "%s", "0", 0, 3600},
                {utc, "%Y", "2020", 0, 1577836800 - 86400 + 3600},
                {berlin, "%Y-%m-%d", "2020-01-01", 0, 1577836800 + 3600},
                {berlin, "%Y-%m-%d", "2020-07-01", 0, 1593561600},
                {berlin, "%s", "1593561600", 0, 1593561600 + 3600},
                {new_york, "%s", "0", 0, -14400},
                {utc, "%s", "", EINVAL, 0},
                {utc, "%s", "5x", EINVAL, 0},
                {utc, "%Y-%m", "2020-13", EINVAL, 0},
                {utc, "%s", nullptr, EINVAL, 0},
                {utc, nullptr, "5", EINVAL, 0}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.zone << " " << (row.text ? row.text : "null"));
        setenv("TZ", row.zone, 1);
        tzset();
        std::int64_t time = 77;
        EXPECT_EQ(mktfs_str2mtime(row.format, row.text, &time), row.error);
        EXPECT_EQ(time, row.time);
    }
    unsetenv("TZ");
    tzset();
}

}  // namespace
