// How attribute texts become values.  Every conversion returns 0 or an errno
// value and sets its output to 0 on failure.  A null text or output is EINVAL.
// Does not log.
#pragma once

#include <cstdint>

struct tvo_acl;

// Numbers follow the syntax of strtoul and strtol in `base`: leading blanks and a
// sign are allowed, the whole text must be used.  ERANGE beyond the 64 bits of the
// conversion, else EINVAL.  Unsigned types and i16 need a digit; for i32 and i64
// an empty text is 0.
[[nodiscard]] int mktfs_str2u16(const char *text, std::uint16_t *out, int base);  // below 65536
[[nodiscard]] int mktfs_str2u32(const char *text, std::uint32_t *out, int base);  // the low 32 bits
[[nodiscard]] int mktfs_str2u64(const char *text, std::uint64_t *out, int base);
// Accepts 0 to 65535; the upper half is stored as negative numbers.
[[nodiscard]] int mktfs_str2i16(const char *text, std::int16_t *out, int base);
[[nodiscard]] int mktfs_str2i32(const char *text, std::int32_t *out, int base);  // the low 32 bits
[[nodiscard]] int mktfs_str2i64(const char *text, std::int64_t *out, int base);

// Permission bits: octal, at most 07777.
[[nodiscard]] int mktfs_str2mode(const char *text, std::uint32_t *mode);
// A user or group id: decimal, at most 2147483647; names are refused.
[[nodiscard]] int mktfs_str2uid(const char *text, std::uint32_t *id);

// A time as strptime reads it with `format`; the whole text must be used.  Yields
// seconds, possibly negative: calendar fields count as UTC, fields that the format
// lacks as zero, and one hour is added when the local zone has no daylight-saving
// time at that date.  EOVERFLOW when the date has no time value.
[[nodiscard]] int mktfs_str2mtime(const char *format, const char *text, std::int64_t *time);

// The short text of an access control list (acl/short_text.h).  `acl` receives a new list,
// owned by the caller.  EINVAL, ENOMEM.
[[nodiscard]] int mktfs_str2acl(const char *text, tvo_acl **acl);

[[nodiscard]] bool mktfs_is_pwr_of2(std::uint64_t n);  // 0 is not
