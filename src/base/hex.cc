#include "base/hex.h"

#include <cerrno>
#include <memory>
#include <new>

#include "base/log.h"
#include "th/base.h"

namespace {

constexpr th_base_params LOWER_CASE = {.flags = TH_BASE_RAW | TH_BASE_LOWER};
constexpr th_base_params EITHER_CASE = {.flags = TH_BASE_RAW};

}  // namespace

int mktfs_hex2bin(std::uint8_t *out, const char *text, std::size_t count) {
    if (!out || !text || count == 0)
        return EINVAL;
    std::size_t digits = 2 * count;
    return th_base_decode(out, &count, text, &digits, &EITHER_CASE) != 0 ? EINVAL : 0;
}

int mktfs_bin2hex(char *out, const std::uint8_t *bytes, std::size_t count) {
    if (!out || !bytes || count == 0)
        return EINVAL;
    std::size_t digits = 2 * count;
    return th_base_encode(out, &digits, bytes, &count, &LOWER_CASE);
}

void mktfs_print_hex(const std::uint8_t *bytes, std::size_t count) {
    if (!bytes || count == 0)
        return;
    const std::unique_ptr<char[]> text(new (std::nothrow) char[2 * count + 1]);
    if (!text) {
        mktfs_log(MKTFS_LOG_INFO, "enomem");
        return;
    }
    th_base_hex(bytes, count, text.get());
    mktfs_log(MKTFS_LOG_INFO, "%s", text.get());
}

void mktfs_write_hex(std::span<const std::uint8_t> bytes, std::FILE *out) {
    for (const std::uint8_t byte : bytes)
        std::fprintf(out, "%02x", byte);
}
