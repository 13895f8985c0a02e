#include "buildfile/values.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace {

constexpr const char *BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char *NEW_YORK = "EST5EDT,M3.2.0,M11.1.0";

class time_zone {
public:
    explicit time_zone(const char *zone) {
        if (const char *old = std::getenv("TZ"))
            old_ = old;
        set(zone);
    }
    ~time_zone() { set(old_ ? old_->c_str() : nullptr); }

private:
    static void set(const char *zone) {
        zone != nullptr ? setenv("TZ", zone, 1) : unsetenv("TZ");
        tzset();
    }
    std::optional<std::string> old_;
};

template <class T>
struct number {
    const char *text;
    int base;
    int error;
    T value;
};

template <class T, std::size_t N>
void check(int (*convert)(const char *, T *, int), const number<T> (&rows)[N]) {
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text != nullptr ? row.text : "null");
        T value = 77;
        EXPECT_EQ(convert(row.text, &value, row.base), row.error);
        EXPECT_EQ(value, row.value);
    }
    EXPECT_EQ(convert("1", nullptr, 10), EINVAL);
}

TEST(Values, UnsignedNumbersAtTheirLimits) {
    check<std::uint16_t>(mktfs_str2u16, {{"65535", 10, 0, 65535},
                                         {"65536", 10, EINVAL, 0},
                                         {"-1", 10, EINVAL, 0},
                                         {" +7", 10, 0, 7},
                                         {"7 ", 10, EINVAL, 0},
                                         {"", 10, EINVAL, 0},
                                         {nullptr, 10, EINVAL, 0}});
    check<std::uint32_t>(mktfs_str2u32, {{"4294967295", 10, 0, 4294967295},
                                         {"4294967296", 10, 0, 0},
                                         {"-1", 10, 0, 4294967295},
                                         {"-18446744073709547520", 10, 0, 4096},
                                         {"18446744073709551616", 10, ERANGE, 0},
                                         {" ", 10, EINVAL, 0},
                                         {"0x10", 16, 0, 16}});
    check<std::uint64_t>(mktfs_str2u64, {{"18446744073709551615", 10, 0, UINT64_MAX},
                                         {"18446744073709551616", 10, ERANGE, 0},
                                         {"8", 8, EINVAL, 0},
                                         {"", 10, EINVAL, 0},
                                         {"1", 99, EINVAL, 0}});
}

TEST(Values, SignedNumbersAtTheirLimits) {
    check<std::int16_t>(mktfs_str2i16, {{"32767", 10, 0, 32767},
                                        {"40000", 10, 0, -25536},
                                        {"-1", 10, EINVAL, 0},
                                        {"65536", 10, EINVAL, 0},
                                        {"", 10, EINVAL, 0}});
    check<std::int32_t>(mktfs_str2i32, {{"-2147483648", 10, 0, INT32_MIN},
                                        {"4294967297", 10, 0, 1},
                                        {"", 10, 0, 0},
                                        {" ", 10, EINVAL, 0},
                                        {"-9223372036854775809", 10, ERANGE, 0}});
    check<std::int64_t>(mktfs_str2i64, {{"-9223372036854775808", 10, 0, INT64_MIN},
                                        {"9223372036854775808", 10, ERANGE, 0},
                                        {"", 10, 0, 0},
                                        {"1x", 10, EINVAL, 0}});
}

TEST(Values, ModesAreOctalAndIdsDecimal) {
    using convert = int (*)(const char *, std::uint32_t *);
    const struct {
        convert function;
        const char *text;
        int error;
        std::uint32_t value;
    } rows[] = {
        {mktfs_str2mode, "0644", 0, 420},
        {mktfs_str2mode, "644", 0, 420},
        {mktfs_str2mode, "00644", 0, 420},
        {mktfs_str2mode, "7777", 0, 4095},
        {mktfs_str2mode, "10000", EINVAL, 0},
        {mktfs_str2mode, "8", EINVAL, 0},
        {mktfs_str2mode, "-1", EINVAL, 0},
        {mktfs_str2mode, "7777777777777777777777777", ERANGE, 0},
        {mktfs_str2uid, "2147483647", 0, 2147483647},
        {mktfs_str2uid, "2147483648", EINVAL, 0},
        {mktfs_str2uid, "4294967296", EINVAL, 0},
        {mktfs_str2uid, "root", EINVAL, 0},
        {mktfs_str2uid, nullptr, EINVAL, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text != nullptr ? row.text : "null");
        std::uint32_t value = 77;
        EXPECT_EQ(row.function(row.text, &value), row.error);
        EXPECT_EQ(value, row.value);
    }
}

TEST(Values, TimesCountAsUtcPlusAnHourOutsideDaylightSaving) {
    const struct {
        const char *zone;
        const char *format;
        const char *text;
        int error;
        std::int64_t time;
    } rows[] = {
        {"UTC0", "%s", "0", 0, 3600},
        {"UTC0", "%Y%m%d%H%M%S", "20200101000000", 0, 1577836800 + 3600},
        {"UTC0", "%Y", "2020", 0, 1577836800 - 86400 + 3600},  // day 0 of January
        {BERLIN, "%Y-%m-%d", "2020-07-01", 0, 1593561600},
        {BERLIN, "%Y-%m-%d", "2020-01-01", 0, 1577836800 + 3600},
        {BERLIN, "%s", "0", 0, 7200},
        {BERLIN, "%s", "1593561600", 0, 1593561600 + 3600},
        {NEW_YORK, "%s", "0", 0, -14400},
        {"UTC0", "%s", "", EINVAL, 0},
        {"UTC0", "%s", " 5", EINVAL, 0},
        {"UTC0", "%s", "-5", EINVAL, 0},
        {"UTC0", "%s", "5x", EINVAL, 0},
        {"UTC0", "%Y-%m", "2020-13", EINVAL, 0},
        {"UTC0", "%s", nullptr, EINVAL, 0},
        {"UTC0", nullptr, "5", EINVAL, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.zone << " " << (row.text != nullptr ? row.text : "null"));
        const time_zone zone(row.zone);
        std::int64_t time = 77;
        EXPECT_EQ(mktfs_str2mtime(row.format, row.text, &time), row.error);
        EXPECT_EQ(time, row.time);
    }
}

TEST(Values, PowersOfTwo) {
    for (const std::uint64_t n : {1ULL, 2ULL, 4096ULL, 1ULL << 63})
        EXPECT_TRUE(mktfs_is_pwr_of2(n)) << n;
    for (const std::uint64_t n : {0ULL, 3ULL, ~0ULL})
        EXPECT_FALSE(mktfs_is_pwr_of2(n)) << n;
}

}  // namespace
