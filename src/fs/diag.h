// Messages with the position in the build file, "file:line:column:message".
#pragma once

// Fatal: ends the run with status 1 under the default log function.
[[gnu::format(printf, 1, 2)]] void mktfs_parse_error(const char *format, ...);
// A warning, fatal under -a.
[[gnu::format(printf, 1, 2)]] void mktfs_parse_warn(const char *format, ...);

// A value in a message; "nil" for null, which stands for no value.
[[nodiscard]] const char *mktfs_or_nil(const char *value);
