#include "support/test.h"
#include "th/str.h"

namespace {

constexpr std::uint64_t UNCHANGED = 77;

using conversion = int(const char *text, std::uint64_t *value, std::size_t *end);

template <auto Function, class T>
int convert(const char *text, std::uint64_t *value, std::size_t *end) {
    auto result = static_cast<T>(*value);
    int error = 0;
    if constexpr (std::is_invocable_v<decltype(Function), const char *, int, T *, std::size_t *>)
        error = Function(text, 10, &result, end);
    else if constexpr (std::is_invocable_v<decltype(Function), const char *, T *, std::size_t *>)
        error = Function(text, &result, end);
    else
        error = Function(text, &result);
    *value = static_cast<std::uint64_t>(result);
    return error;
}

struct conversion_row {
    const char *text;
    int error;
    std::uint64_t value;
    std::optional<std::size_t> end = {};  // asked for when it is there
};

// clang-format off
const std::tuple<const char *, conversion *, std::vector<conversion_row>> CONVERSIONS[] = {
    {"int8", convert<th_str_to_int8, std::int8_t>,
     {{" \t-128 \n", 0, static_cast<std::uint64_t>(-128)}, {"128", ERANGE, 127}, {"5x", EINVAL, UNCHANGED},
      {"5x", 0, 5, 1}, {nullptr, EINVAL, UNCHANGED}}},
    {"int64", convert<th_str_to_int64, std::int64_t>, {{"-9223372036854775809", ERANGE, 1ULL << 63}}},
    {"uint32", convert<th_str_to_uint32, std::uint32_t>,
     {{" -0", EINVAL, UNCHANGED}, {"4294967296", ERANGE, UINT32_MAX}}},
    {"uint64", convert<th_str_to_uint64, std::uint64_t>,
     {{"18446744073709551616 and more", ERANGE, UINT64_MAX, 20}}},
    {"bytes", convert<th_str_to_bytes, std::uint64_t>,
     {{"4k \n", 0, 4096}, {"16777215T", 0, 16777215ULL << 40}, {"16777216T", ERANGE, UINT64_MAX},
      {"2KB", 0, 2048, 2}, {"17179869183g", 0, 17179869183ULL << 30}, {"17179869184G", ERANGE, UINT64_MAX},
      {"3M", 0, 3 << 20}, {"1 K", EINVAL, UNCHANGED}}},
    {"mode", convert<th_str_to_mode, mode_t>,
     {{"10644", ERANGE, 0644}, {"7777 ", 0, 07777}, {"644,", 0, 0644, 3}}},
    {"signal", convert<th_str_to_signal, int>,
     {{"sigterm", 0, 15}, {"INTx", 0, 2, 3}, {"CLD", 0, 17}, {"io", 0, 29}, {"IOT", 0, 6}, {"0", ERANGE, 1},
      {"-1", ERANGE, 1}, {"66", ERANGE, 65}, {"15 ", EINVAL, UNCHANGED}}},
    {"uid", convert<th_str_username_to_uid, uid_t>,
     {{"root", 0, 0}, {"4294967296", ERANGE, UINT32_MAX}, {"no such name", EINVAL, UNCHANGED}}},
    {"gid", convert<th_str_groupname_to_gid, gid_t>, {{"root", 0, 0}, {"1234", 0, 1234}}}};
// clang-format on

TEST(Str, ConvertsToTheWholeRangeAndNoFurther) {
    for (const auto &[name, parse, rows] : CONVERSIONS) {
        for (const conversion_row &row : rows) {
            SCOPED_TRACE(std::string(name) + " '" + th_str(row.text) + "'");
            std::uint64_t value = UNCHANGED;
            std::size_t end = 0;
            errno = ENOTTY;
            EXPECT_EQ(parse(row.text, &value, row.end ? &end : nullptr), row.error);
            EXPECT_EQ(errno, row.error ? row.error : ENOTTY);
            EXPECT_EQ(value, row.value);
            EXPECT_EQ(end, row.end.value_or(0));
        }
    }
    for (int number = 1; number < 32; ++number) {
        const char *const name = sigabbrev_np(number);
        int found = 0;
        EXPECT_EQ(number == SIGSTKFLT ? 0 : th_str_to_signal(name, &found), 0) << name;
        EXPECT_EQ(found, number == SIGSTKFLT ? 0 : number) << name;
    }
}

TEST(Str, HelpersTakeNull) {
    EXPECT_STREQ(th_str(nullptr), "");
    EXPECT_TRUE(th_strcmp(nullptr, nullptr) == 0 && th_strcmp(nullptr, "") == -2);
    EXPECT_TRUE(th_strcmp("", nullptr) == 2 && th_strcmp("b", "a") > 0);
    const char *const no_format = nullptr;
    EXPECT_EQ(th_malloc_sprintf(no_format), nullptr);
    EXPECT_EQ(th_strdup(nullptr, nullptr), nullptr);
    const std::pair<char *, const char *> made[] = {{th_strdup(nullptr, "instead"), "instead"},
                                                    {th_malloc_sprintf("%05d|%s", 42, "x"), "00042|x"},
                                                    {th_malloc_sprintf("%s", ""), ""}};
    for (const auto &[text, expected] : made) {
        EXPECT_STREQ(text, expected);
        std::free(text);
    }
}

}  // namespace
