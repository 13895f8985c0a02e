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

TEST(Str, ConvertsToTheWholeRangeAndNoFurther) {
    conversion *const int8 = convert<th_str_to_int8, std::int8_t>;
    conversion *const int64 = convert<th_str_to_int64, std::int64_t>;
    conversion *const uint32 = convert<th_str_to_uint32, std::uint32_t>;
    conversion *const uint64 = convert<th_str_to_uint64, std::uint64_t>;
    conversion *const bytes = convert<th_str_to_bytes, std::uint64_t>;
    conversion *const mode = convert<th_str_to_mode, mode_t>;
    conversion *const signal = convert<th_str_to_signal, int>;
    conversion *const uid = convert<th_str_username_to_uid, uid_t>;
    conversion *const gid = convert<th_str_groupname_to_gid, gid_t>;
    const struct {
        const char *name;
        conversion *parse;
        const char *text;
        int error;
        std::uint64_t value;
        std::optional<std::size_t> end = {};  // asked for when it is there
    } rows[] = {
        {"int8", int8, " \t-128 \n", 0, static_cast<std::uint64_t>(-128)},
        {"int8", int8, "128", ERANGE, 127},
        {"int8", int8, "5x", EINVAL, UNCHANGED},
        {"int8", int8, "5x", 0, 5, 1},
        {"int8", int8, nullptr, EINVAL, UNCHANGED},
        {"int64", int64, "-9223372036854775809", ERANGE, std::uint64_t{1} << 63},
        {"uint32", uint32, " -0", EINVAL, UNCHANGED},
        {"uint32", uint32, "4294967296", ERANGE, UINT32_MAX},
        {"uint64", uint64, "18446744073709551616 and more", ERANGE, UINT64_MAX, 20},
        {"bytes", bytes, "4k \n", 0, 4096},
        {"bytes", bytes, "16777215T", 0, 16777215ULL << 40},
        {"bytes", bytes, "16777216T", ERANGE, UINT64_MAX},
        {"bytes", bytes, "2KB", 0, 2048, 2},
        {"bytes", bytes, "17179869183g", 0, 17179869183ULL << 30},
        {"bytes", bytes, "17179869184G", ERANGE, UINT64_MAX},
        {"bytes", bytes, "3M", 0, 3 << 20},
        {"bytes", bytes, "1 K", EINVAL, UNCHANGED},
        {"mode", mode, "10644", ERANGE, 0644},
        {"mode", mode, "7777 ", 0, 07777},
        {"mode", mode, "644,", 0, 0644, 3},
        {"signal", signal, "sigterm", 0, 15},
        {"signal", signal, "INTx", 0, 2, 3},
        {"signal", signal, "CLD", 0, 17},
        {"signal", signal, "io", 0, 29},
        {"signal", signal, "IOT", 0, 6},
        {"signal", signal, "0", ERANGE, 1},
        {"signal", signal, "-1", ERANGE, 1},
        {"signal", signal, "66", ERANGE, 65},
        {"signal", signal, "15 ", EINVAL, UNCHANGED},
        {"uid", uid, "root", 0, 0},
        {"uid", uid, "4294967296", ERANGE, UINT32_MAX},
        {"uid", uid, "no such name", EINVAL, UNCHANGED},
        {"gid", gid, "root", 0, 0},
        {"gid", gid, "1234", 0, 1234},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.name) + " '" + th_str(row.text) + "'");
        std::uint64_t value = UNCHANGED;
        std::size_t end = 0;
        errno = ENOTTY;
        EXPECT_EQ(row.parse(row.text, &value, row.end ? &end : nullptr), row.error);
        EXPECT_EQ(errno, row.error ? row.error : ENOTTY);
        EXPECT_EQ(value, row.value);
        EXPECT_EQ(end, row.end.value_or(0));
    }
}

TEST(Str, KnowsTheSystemsSignals) {
    for (int number = 1; number < 32; ++number) {
        const char *const name = sigabbrev_np(number);
        int found = 0;
        EXPECT_EQ(number == SIGSTKFLT ? 0 : th_str_to_signal(name, &found), 0) << name;
        EXPECT_EQ(found, number == SIGSTKFLT ? 0 : number) << name;
    }
}

TEST(Str, HelpersTakeNull) {
    EXPECT_STREQ(th_str(nullptr), "");
    EXPECT_EQ(th_strcmp(nullptr, nullptr), 0);
    EXPECT_EQ(th_strcmp(nullptr, ""), -2);
    EXPECT_EQ(th_strcmp("", nullptr), 2);
    EXPECT_GT(th_strcmp("b", "a"), 0);
    const char *const no_format = nullptr;
    EXPECT_EQ(th_malloc_sprintf(no_format), nullptr);
    char *copy = th_strdup(nullptr, "instead");
    EXPECT_STREQ(copy, "instead");
    std::free(copy);
    EXPECT_EQ(th_strdup(nullptr, nullptr), nullptr);
    char *text = th_malloc_sprintf("%05d|%s", 42, "x");
    EXPECT_STREQ(text, "00042|x");
    std::free(text);
    text = th_malloc_sprintf("%s", "");
    EXPECT_STREQ(text, "");
    std::free(text);
}

}  // namespace
