#include "base/hex.h"

#include <cerrno>
#include <memory>
#include <new>

#include "base/log.h"

namespace {

// The value of a digit, or -1.
int digit_value(char character) {
    if (character >= '0' && character <= '9')
        return character - '0';
    const int lower = character | 0x20;
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

int mktfs_hex2bin(std::uint8_t *out, const char *text, std::size_t count) {
    if (out == nullptr || text == nullptr || count == 0)
        return EINVAL;
    for (std::size_t i = 0; i < count; ++i) {
        const int high = digit_value(text[2 * i]);
        if (high < 0)
            return EINVAL;  // the text may end here: its next character is not looked at
        const int low = digit_value(text[2 * i + 1]);
        if (low < 0)
            return EINVAL;
        out[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return 0;
}

int mktfs_bin2hex(char *out, const std::uint8_t *bytes, std::size_t count) {
    static constexpr char digits[] = "0123456789abcdef";
    if (out == nullptr || bytes == nullptr || count == 0)
        return EINVAL;
    for (std::size_t i = 0; i < count; ++i) {
        out[2 * i] = digits[bytes[i] >> 4];
        out[2 * i + 1] = digits[bytes[i] & 0xf];
    }
    return 0;
}

void mktfs_print_hex(const std::uint8_t *bytes, std::size_t count) {
    if (bytes == nullptr || count == 0)
        return;
    const std::unique_ptr<char[]> text(new (std::nothrow) char[2 * count + 1]());
    if (!text || mktfs_bin2hex(text.get(), bytes, count) != 0) {
        mktfs_log(MKTFS_LOG_INFO, "enomem");
        return;
    }
    mktfs_log(MKTFS_LOG_INFO, "%s", text.get());
}
