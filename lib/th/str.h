// Text to value: numbers with ranges, size suffixes, file modes, users, groups and signals;
// and small helpers for text that may be null.  Complete interface of the conversions;
// mktfs uses th_str_to_uint32, th_str_to_uint64, th_str_to_bytes and th_str.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

// ---- Conversions
//
// White space before the value is skipped.  `end` (optional) receives the number
// of characters used; with it text after the value is allowed, without it only
// what the function names.
//
// Each returns 0, with errno as before, or an error number that is also in
// errno.  EINVAL: null text or value, no number, a '-' before an unsigned one,
// or text left over; the value is unchanged.  ERANGE: outside the range; the
// value becomes the bound that was crossed.

// `base` as for strtoll.  White space after the number is allowed.
int th_str_to_int8(const char *text, int base, std::int8_t *value, std::size_t *end = nullptr);
int th_str_to_int16(const char *text, int base, std::int16_t *value, std::size_t *end = nullptr);
int th_str_to_int32(const char *text, int base, std::int32_t *value, std::size_t *end = nullptr);
int th_str_to_int64(const char *text, int base, std::int64_t *value, std::size_t *end = nullptr);
int th_str_to_uint8(const char *text, int base, std::uint8_t *value, std::size_t *end = nullptr);
int th_str_to_uint16(const char *text, int base, std::uint16_t *value, std::size_t *end = nullptr);
int th_str_to_uint32(const char *text, int base, std::uint32_t *value, std::size_t *end = nullptr);
int th_str_to_uint64(const char *text, int base, std::uint64_t *value, std::size_t *end = nullptr);

// A decimal number of bytes, then K, M, G or T in either case for a power of
// 1024, then white space.
int th_str_to_bytes(const char *text, std::uint64_t *value, std::size_t *end = nullptr);

// An octal file mode, then white space.  ERANGE above 07777: the low twelve bits
// are stored.
int th_str_to_mode(const char *text, mode_t *mode, std::size_t *end = nullptr);

// A name of the user or group database, else a decimal id.
int th_str_username_to_uid(const char *text, uid_t *uid);
int th_str_groupname_to_gid(const char *text, gid_t *gid);

// A signal name, with or without "SIG", in either case, else a number from 1 to 65.
int th_str_to_signal(const char *text, int *signo, std::size_t *end = nullptr);

// ---- Text that may be null

// `text`, or an empty string for null.
[[nodiscard]] const char *th_str(const char *text);

// A copy of `text`, or of `fallback` when `text` is null; to be freed with free.
// Null with errno EINVAL (both null) or ENOMEM.
[[nodiscard]] char *th_strdup(const char *text, const char *fallback);

// 0 for the same pointer, -2 when only `a` is null, 2 when only `b` is null, else
// as strcmp.
[[nodiscard]] int th_strcmp(const char *a, const char *b);

// Formats into an allocation of the right size, to be freed with free.  Null on
// any failure, with errno set.
[[nodiscard, gnu::format(printf, 1, 2)]] char *th_malloc_sprintf(const char *format, ...);
