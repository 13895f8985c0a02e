// Hexadecimal text of salts and digests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

// Converts exactly 2 * count characters of `text`, high nibble first, either
// case, into `count` bytes.  Returns 0, or EINVAL for a missing argument, a
// count of 0 or a character that is no digit (bytes before it stay written).
[[nodiscard]] int mktfs_hex2bin(std::uint8_t *out, const char *text, std::size_t count);

// Writes exactly 2 * count lower-case digits and no terminator.  Returns 0, or
// EINVAL for a missing argument or a count of 0.
[[nodiscard]] int mktfs_bin2hex(char *out, const std::uint8_t *bytes, std::size_t count);

// Logs the bytes as hexadecimal at info level, without a newline; nothing for
// missing data or a count of 0.
void mktfs_print_hex(const std::uint8_t *bytes, std::size_t count);

// Writes the bytes as lower-case hexadecimal, without a line end.  A write error stays in
// the stream.
void mktfs_write_hex(std::span<const std::uint8_t> bytes, std::FILE *out);
