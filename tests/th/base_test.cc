#include "support/test.h"
#include "th/base.h"
#include "th/error.h"

namespace {

using namespace std::string_literals;

TEST(Base, EncodesAndDecodes) {
    const struct {
        const char *name;
        th_base_direction direction;
        std::string in;
        std::size_t room;
        std::uint64_t flags;
        int error;
        std::string out;   // what is written, with its NUL
        std::size_t used;  // of the input
    } cases[] = {{"lower case is the default", TH_BASE_ENCODE, "\x0a\xbc"s, 5, 0, 0, "0abc\0"s, 2},
                 {"upper case", TH_BASE_ENCODE, "\x0a\xbc"s, 9, TH_BASE_UPPER, 0, "0ABC\0"s, 2},
                 {"room for two of three bytes", TH_BASE_ENCODE, "abc", 6, 0, ENOBUFS, "6162\0"s, 2},
                 {"raw fills six places with three", TH_BASE_ENCODE, "abc", 6, TH_BASE_RAW, 0, "616263", 3},
                 {"an odd place stays free", TH_BASE_ENCODE, "ab", 3, TH_BASE_RAW, ENOBUFS, "61", 1},
                 {"not even the terminator fits", TH_BASE_ENCODE, "a", 0, 0, ENOBUFS, "", 0},
                 {"only the terminator fits", TH_BASE_ENCODE, "a", 1, 0, ENOBUFS, "\0"s, 0},
                 {"both cases", TH_BASE_DECODE, "aBCd", 2, 0, 0, "\xab\xcd", 4},
                 {"upper case only", TH_BASE_DECODE, "ABab", 2, TH_BASE_UPPER, EBADMSG, "\xab", 2},
                 {"lower case only", TH_BASE_DECODE, "abAB", 2, TH_BASE_LOWER, EBADMSG, "\xab", 2},
                 {"a NUL ends text", TH_BASE_DECODE, "41\0zz"s, 9, 0, 0, "A", 3},
                 {"a NUL is no digit in raw input", TH_BASE_DECODE, "41\0"s, 9, TH_BASE_RAW, EBADMSG, "A", 2},
                 {"an odd number before the NUL", TH_BASE_DECODE, "414\0"s, 9, 0, EMSGSIZE, "A", 2},
                 {"an odd number of digits", TH_BASE_DECODE, "414", 9, 0, EMSGSIZE, "A", 2},
                 {"no digit", TH_BASE_DECODE, "4g", 9, 0, EBADMSG, "", 0},
                 {"a full output", TH_BASE_DECODE, "4142", 1, 0, ENOBUFS, "A", 2},
                 {"a full output at the end", TH_BASE_DECODE, "41", 1, 0, 0, "A", 2}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        std::string out(c.room, '#');
        std::size_t out_length = c.room, in_length = c.in.size();
        const th_base_params params = {.flags = c.flags};
        errno = 0;
        EXPECT_EQ(th_base_convert(c.direction, out.data(), &out_length, c.in.data(), &in_length, &params),
                  c.error);
        EXPECT_EQ(errno, c.error);
        EXPECT_EQ(in_length, c.used);
        EXPECT_EQ(out.substr(0, out_length), c.out);
        EXPECT_EQ(out.find_first_not_of('#', out_length), out.npos) << "wrote behind its output";
    }
}

TEST(Base, TellsTheLengthNeededAndRefusesUnknownParameters) {
    // The errors of both directions, and the bytes that five become.
    const std::tuple<th_base_params, int, int, std::size_t> cases[] = {
        {{}, 0, 0, 11},
        {{.flags = TH_BASE_RAW}, 0, 0, 10},
        {{.kind = 2}, EOPNOTSUPP, EOPNOTSUPP, 0},
        {{.flags = 4}, EINVAL, EINVAL, 0},
        {{.flags = 3}, EINVAL, 0, 0}};
    for (const auto &[params, encode_error, decode_error, encoded_size] : cases) {
        std::size_t in_length = 5, encoded = 0, decoded = 0;
        EXPECT_EQ(th_base_encode(nullptr, &encoded, "", &in_length, &params), encode_error);
        EXPECT_EQ(th_base_decode(nullptr, &decoded, "", &in_length, &params), decode_error);
        EXPECT_EQ(encoded, encoded_size);
        EXPECT_EQ(decoded, decode_error == 0 ? 2u : 0u);
    }
    std::size_t in_length = SIZE_MAX / 2 + 1, out_length = 0;
    const th_base_params raw = {.flags = TH_BASE_RAW};
    EXPECT_EQ(th_base_encode(nullptr, &out_length, "", &in_length, &raw), EOVERFLOW);
}

TEST(Error, SlotsKeepTheFirstOrTheLastErrorAndTextsErrno) {
    int first = 0, last = 0;
    for (const int error : {0, ENOENT, 0, EIO, 0}) {
        EXPECT_EQ(th_sticky_error(&first, error), error);
        EXPECT_EQ(th_sticky_error_last(&last, error), error);
    }
    EXPECT_EQ(th_sticky_error(nullptr, 1), EINVAL);
    EXPECT_EQ(th_sticky_error_last(nullptr, 1), EINVAL);
    EXPECT_EQ(first, ENOENT);
    EXPECT_EQ(last, EIO);
    errno = EIO;
    EXPECT_STREQ(th_strerror(EINVAL), "Invalid argument");
    EXPECT_EQ(errno, EIO);
}

}  // namespace
