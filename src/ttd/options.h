// The ttd type's command-line options: their record, their checks and their help.
#pragma once

#include <cstdint>

#include "fs/filesystem_record.h"
#include "ttd/geometry.h"

inline constexpr std::uint32_t TTD_OPT_CALCULATE = 0x1;    // -C
inline constexpr std::uint32_t TTD_OPT_PARTITION = 0x2;    // -P
inline constexpr std::uint32_t TTD_OPT_CUSTOM_SIGN = 0x4;  // -Z
inline constexpr std::uint32_t TTD_OPT_META_ONLY = 0x8;    // -M

// Texts are the command line's own and not copied.
struct ttd_options {
    std::uint32_t flags = 0;  // TTD_OPT_*
    ttd_info geometry;        // template: covered size (-P), block sizes (-B), salt (-A)
    std::uint32_t verbosity = 0;
    std::uint32_t hash = 0;              // digest code (-H)
    std::uint32_t signature = 0;         // signature code (-S)
    const char *key_path = nullptr;      // -K
    std::uint64_t calculate_size = 0;    // -C, bytes
    const char *sign_command = nullptr;  // -Z
    std::uint64_t rollback = 0;          // -R
};

extern ttd_options ttd_opts;

// Clears the options and tells the driver which of its steps the type skips.  Returns 0.
int ttd_opts_init(mktfs_filesystem_opts *opts);
// 0; EOPNOTSUPP for a letter that is not the type's; EINVAL for a bad value (logs);
// ENOMEM.
int ttd_cmdopt_handler(mktfs_filesystem_opts *opts, int letter, const char *argument);
// Prints the option help.
void ttd_usage();
// The files that a build reads besides its input; static, ended by null.
const char *const *ttd_input_files(const mktfs_filesystem_opts *opts);
