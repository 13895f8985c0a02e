#include "base/hex.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using bytes = std::vector<std::uint8_t>;

TEST(Hex, ReadsEitherCaseHighNibbleFirstAndStopsAtAnyOtherCharacter) {
    const struct {
        const char *text;
        int err;
        bytes out;  // of three bytes that were 0x11
    } cases[] = {
        {"A0ff9c", 0, {0xa0, 0xff, 0x9c}},    {"09afAF", 0, {0x09, 0xaf, 0xaf}},
        {"0g", EINVAL, {0x11, 0x11, 0x11}},   {"a0f", EINVAL, {0xa0, 0x11, 0x11}},
        {"a0:0", EINVAL, {0xa0, 0x11, 0x11}}, {"a0/0", EINVAL, {0xa0, 0x11, 0x11}},
        {"`000", EINVAL, {0x11, 0x11, 0x11}}, {"\x10\x10", EINVAL, {0x11, 0x11, 0x11}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        bytes out(3, 0x11);
        EXPECT_EQ(mktfs_hex2bin(out.data(), c.text, 3), c.err);
        EXPECT_EQ(out, c.out);
    }
}

TEST(Hex, WritesLowerCaseWithoutTerminator) {
    const bytes data = {0x00, 0x9a, 0xff};
    std::string out(8, '#');
    EXPECT_EQ(mktfs_bin2hex(out.data(), data.data(), data.size()), 0);
    EXPECT_EQ(out, "009aff##");
}

TEST(Hex, MissingArgumentsAreInvalid) {
    std::uint8_t byte = 0;
    char text[3] = "00";
    EXPECT_EQ(mktfs_hex2bin(nullptr, text, 1), EINVAL);
    EXPECT_EQ(mktfs_hex2bin(&byte, nullptr, 1), EINVAL);
    EXPECT_EQ(mktfs_hex2bin(&byte, text, 0), EINVAL);
    EXPECT_EQ(mktfs_bin2hex(nullptr, &byte, 1), EINVAL);
    EXPECT_EQ(mktfs_bin2hex(text, nullptr, 1), EINVAL);
    EXPECT_EQ(mktfs_bin2hex(text, &byte, 0), EINVAL);
}

TEST(Hex, PrintsWithoutNewlineAndNothingForNoData) {
    const log_capture log;
    const bytes data = {0xde, 0xad};
    mktfs_print_hex(data.data(), 2);
    mktfs_print_hex(nullptr, 2);
    mktfs_print_hex(data.data(), 0);
    EXPECT_THAT(log.lines(), testing::ElementsAre(log_line{MKTFS_LOG_INFO, "dead"}));
}

}  // namespace
