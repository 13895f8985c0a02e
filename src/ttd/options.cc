#include "ttd/options.h"

#include <cerrno>
#include <cstring>

#include "base/hex.h"
#include "base/log.h"
#include "th/str.h"

ttd_options ttd_opts;

namespace {

constexpr std::size_t MAX_SALT_DIGITS = 2 * TTD_MAX_SALT;
constexpr const char *sign_tokens[] = {"<hashfile>", "<sigfile>"};

int set_salt(mktfs_filesystem_opts &, const char *argument) {
    const std::size_t digits = std::strlen(argument);
    if (digits == 0)
        return MKTFS_FAIL(EINVAL, "ttd: invalid salt of zero length\n");
    if (digits % 2 != 0)
        return MKTFS_FAIL(EINVAL, "ttd: salt string length must be a multiple of 2 (hex string)\n");
    if (digits > MAX_SALT_DIGITS)
        return MKTFS_FAIL(EINVAL, "ttd: salt size '%u exceeds maximum length of '%d' bytes\n",
                          static_cast<unsigned>(digits / 2), static_cast<int>(TTD_MAX_SALT));
    ttd_bytes &salt = ttd_opts.geometry.salt;
    if (!salt.allocate(digits / 2))
        return ENOMEM;
    if (mktfs_hex2bin(salt.data(), argument, salt.size()) != 0) {
        salt.clear();
        return MKTFS_FAIL(EINVAL, "ttd: failed to convert salt hex string to binary\n");
    }
    return 0;
}

int set_block_size(mktfs_filesystem_opts &, const char *argument) {
    std::uint32_t size = 0;
    if (th_str_to_uint32(argument, 10, &size) != 0)
        return EINVAL;
    if (!ttd_is_block_size(size))
        return MKTFS_FAIL(EINVAL, "ttd: invalid block size '%s', must be a power of 2 in range [%d, %d]\n",
                          argument, static_cast<int>(TTD_MIN_BLOCK), static_cast<int>(TTD_MAX_BLOCK));
    ttd_opts.geometry.block_size = size;
    ttd_opts.geometry.hash_block_size = size;
    return 0;
}

int set_number(const char *argument, std::uint64_t &out) {
    return th_str_to_uint64(argument, 10, &out) == 0 ? 0 : EINVAL;
}

int set_calculate_size(mktfs_filesystem_opts &opts, const char *argument) {
    if (set_number(argument, ttd_opts.calculate_size) != 0)
        return EINVAL;
    ttd_opts.flags |= TTD_OPT_CALCULATE;
    opts.flags |= MKTFS_OPT_NO_INPUT | MKTFS_OPT_NO_OUTPUT;
    return 0;
}

int set_hash(mktfs_filesystem_opts &, const char *argument) {
    ttd_opts.hash = ttd_hash_type(argument);
    return ttd_opts.hash ? 0 : MKTFS_FAIL(EINVAL, "ttd: unsupported hash type '%s'\n", argument);
}

int set_key(mktfs_filesystem_opts &, const char *argument) {
    ttd_opts.key_path = argument;
    return 0;
}

int set_meta_only(mktfs_filesystem_opts &, const char *) {
    ttd_opts.flags |= TTD_OPT_META_ONLY;
    return 0;
}

int set_partition_size(mktfs_filesystem_opts &, const char *argument) {
    if (set_number(argument, ttd_opts.geometry.covered_size) != 0)
        return EINVAL;
    ttd_opts.flags |= TTD_OPT_PARTITION;
    return 0;
}

int set_rollback(mktfs_filesystem_opts &, const char *argument) {
    return set_number(argument, ttd_opts.rollback);
}

int set_signature(mktfs_filesystem_opts &, const char *argument) {
    ttd_opts.signature = ttd_sig_type(argument);
    return ttd_opts.signature ? 0 : MKTFS_FAIL(EINVAL, "ttd: unsupported sig type '%s'\n", argument);
}

int set_sign_command(mktfs_filesystem_opts &, const char *argument) {
    ttd_opts.flags |= TTD_OPT_CUSTOM_SIGN;
    ttd_opts.sign_command = argument;
    for (const char *token : sign_tokens)
        if (!std::strstr(argument, token))
            return MKTFS_FAIL(EINVAL, "ttd: missing '%s' token in custom signing command\n", token);
    return 0;
}

struct option_row {
    int letter;
    int (*set)(mktfs_filesystem_opts &opts, const char *argument);  // 0, EINVAL, ENOMEM
};

constexpr option_row option_rows[] = {
    {'A', set_salt},      {'B', set_block_size},   {'C', set_calculate_size}, {'H', set_hash},
    {'K', set_key},       {'M', set_meta_only},    {'P', set_partition_size}, {'R', set_rollback},
    {'S', set_signature}, {'Z', set_sign_command},
};

}  // namespace

int ttd_opts_init(mktfs_filesystem_opts *opts) {
    ttd_opts = ttd_options{};
    opts->priv = &ttd_opts;
    opts->flags |= MKTFS_OPT_NO_RESOLVE | MKTFS_OPT_NO_STATS | MKTFS_OPT_NO_SEARCH_PATHS;
    return 0;
}

int ttd_cmdopt_handler(mktfs_filesystem_opts *opts, int letter, const char *argument) {
    for (const option_row &row : option_rows) {
        if (row.letter != letter)
            continue;
        const int err = row.set(*opts, argument);
        if (err == EINVAL)
            mktfs_log(MKTFS_LOG_ERROR, "ttd: invalid -'%c' option value '%s'\n", letter, argument);
        return err;
    }
    return EOPNOTSUPP;
}

const char *const *ttd_input_files(const mktfs_filesystem_opts *) {
    static const char *files[2] = {};
    files[0] = ttd_opts.key_path;
    return files;
}
