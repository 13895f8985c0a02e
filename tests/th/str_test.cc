#include "th/str.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace {

constexpr std::uint64_t UNCHANGED = 77;

struct conversion_case {
    const char *text;
    int error;
    std::uint64_t value;
    std::optional<std::size_t> end;  // asked for when it is there
};

template <class T, class Parse, std::size_t N>
void check(const char *what, const conversion_case (&rows)[N], Parse parse) {
    for (const conversion_case &row : rows) {
        SCOPED_TRACE(std::string(what) + " '" + row.text + "'");
        T value = static_cast<T>(UNCHANGED);
        std::size_t end = 0;
        errno = ENOTTY;
        EXPECT_EQ(parse(row.text, &value, row.end ? &end : nullptr), row.error);
        EXPECT_EQ(errno, row.error ? row.error : ENOTTY);
        EXPECT_EQ(value, static_cast<T>(row.value));
        EXPECT_EQ(end, row.end.value_or(0));
    }
}

template <auto Function>
constexpr auto decimal =
    [](const char *text, auto *value, std::size_t *end) { return Function(text, 10, value, end); };

TEST(Str, SignedNumbersClampToTheirType) {
    const conversion_case rows[] = {
        {"127", 0, 127, {}},           {"-128", 0, static_cast<std::uint64_t>(-128), {}},
        {"200", ERANGE, 127, {}},      {" \t+5 \n", 0, 5, {}},
        {"5x", EINVAL, UNCHANGED, {}}, {"5x", 0, 5, 1},
        {"", EINVAL, UNCHANGED, {}},
    };
    check<std::int8_t>("int8", rows, decimal<th_str_to_int8>);
    const conversion_case wide_rows[] = {
        {"-9223372036854775809", ERANGE, std::uint64_t{1} << 63, {}},
        {"9223372036854775808", ERANGE, INT64_MAX, {}},
    };
    check<std::int64_t>("int64", wide_rows, decimal<th_str_to_int64>);
}

TEST(Str, UnsignedNumbersRefuseMinus) {
    const conversion_case rows[] = {
        {"-1", EINVAL, UNCHANGED, {}},
        {" -0", EINVAL, UNCHANGED, {}},
        {"4294967295", 0, UINT32_MAX, {}},
        {"4294967296", ERANGE, UINT32_MAX, {}},
    };
    check<std::uint32_t>("uint32", rows, decimal<th_str_to_uint32>);
    const conversion_case short_rows[] = {{" 42 ", 0, 42, {}}, {"65536", ERANGE, 65535, {}}};
    check<std::uint16_t>("uint16", short_rows, decimal<th_str_to_uint16>);
    const conversion_case wide_rows[] = {
        {"18446744073709551615", 0, UINT64_MAX, {}},
        {"18446744073709551616", ERANGE, UINT64_MAX, {}},
        {"18446744073709551616 and more", ERANGE, UINT64_MAX, 20},
    };
    check<std::uint64_t>("uint64", wide_rows, decimal<th_str_to_uint64>);
}

TEST(Str, SizesMultiply) {
    const conversion_case rows[] = {
        {"4K", 0, 4096, {}},
        {"4k \n", 0, 4096, {}},
        {"1T", 0, std::uint64_t{1} << 40, {}},
        {"16777216T", ERANGE, UINT64_MAX, {}},
        {"18014398509481984K", ERANGE, UINT64_MAX, {}},
        {"2KB", 0, 2048, 2},
        {"1 K", EINVAL, UNCHANGED, {}},
        {"-1K", EINVAL, UNCHANGED, {}},
    };
    check<std::uint64_t>("bytes", rows, th_str_to_bytes);
}

TEST(Str, ModesAreOctalWithTwelveBits) {
    const conversion_case rows[] = {
        {"0644 ", 0, 0644, {}},       {"7777", 0, 07777, {}},        {"10644", ERANGE, 0644, {}},
        {"8", EINVAL, UNCHANGED, {}}, {"-1", EINVAL, UNCHANGED, {}}, {"644,", 0, 0644, 3},
    };
    check<mode_t>("mode", rows, th_str_to_mode);
}

TEST(Str, SignalsHaveNames) {
    const conversion_case rows[] = {
        {"sigterm", 0, 15, {}},
        {"SIGIOT", 0, 6, {}},
        {"INTx", 0, 2, 3},
        {"65", 0, 65, {}},
        {"0", ERANGE, 1, {}},
        {"66", ERANGE, 65, {}},
        {"15 ", EINVAL, UNCHANGED, {}},
    };
    check<int>("signal", rows, th_str_to_signal);
}

TEST(Str, OwnersAreNamesOrNumbers) {
    const conversion_case rows[] = {
        {"root", 0, 0, {}},
        {"1234", 0, 1234, {}},
        {"4294967296", ERANGE, UINT32_MAX, {}},
        {"no such name", EINVAL, UNCHANGED, {}},
        {"", EINVAL, UNCHANGED, {}},
    };
    check<uid_t>("uid", rows, [](const char *text, uid_t *uid, std::size_t *) {
        return th_str_username_to_uid(text, uid);
    });
    check<gid_t>("gid", rows, [](const char *text, gid_t *gid, std::size_t *) {
        return th_str_groupname_to_gid(text, gid);
    });
}

TEST(Str, HelpersTakeNull) {
    std::uint8_t value = 0;
    EXPECT_EQ(th_str_to_uint8(nullptr, 10, &value), EINVAL);
    EXPECT_STREQ(th_str(nullptr), "");
    EXPECT_EQ(th_strcmp(nullptr, nullptr), 0);
    EXPECT_EQ(th_strcmp(nullptr, "") - th_strcmp("", nullptr), -4);
    EXPECT_GT(th_strcmp("b", "a"), 0);
    const char *const no_format = nullptr;
    EXPECT_EQ(th_malloc_sprintf(no_format), nullptr);
    std::uint64_t size = 0;
    uid_t uid = 0;
    EXPECT_EQ(th_str_to_bytes(nullptr, &size) + th_str_username_to_uid(nullptr, &uid), 2 * EINVAL);
    char *copy = th_strdup(nullptr, "instead");
    EXPECT_STREQ(copy, "instead");
    std::free(copy);
    EXPECT_EQ(th_strdup(nullptr, nullptr), nullptr);
    char *text = th_malloc_sprintf("%05d|%s", 42, "x");
    EXPECT_STREQ(text, "00042|x");
    std::free(text);
}

}  // namespace
