#include "attributes/options.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <string_view>

#include "attributes/values.h"
#include "fs/diag.h"
#include "fs/filesystem_record.h"

namespace {

constexpr std::uint32_t MIN_BLKSIZE = 512;  // bytes
constexpr std::uint32_t MAX_BLKSIZE = 32768;

int set_blksize(mktfs_filesystem &fs, const char *, const char *value) {
    if (mktfs_str2u32(value, &fs.blksize, 10) != 0)
        mktfs_parse_error("invalid blksize attribute value '%s'\n", value);
    if (!mktfs_is_pwr_of2(fs.blksize) || fs.blksize < MIN_BLKSIZE || fs.blksize > MAX_BLKSIZE)
        mktfs_parse_error("blksize value '%s' must be a power of 2 in the range [512, 32768]\n", value);
    return 0;
}

template <auto Field, auto Convert>
int set_number(mktfs_filesystem &fs, const char *name, const char *value) {
    const int err = Convert(value, &(fs.*Field));
    if (err != 0)
        mktfs_parse_error("invalid %s attribute value '%s'\n", name, value);
    return err;
}

int set_mtime(mktfs_filesystem &fs, const char *, const char *value) {
    const int err = mktfs_str2mtime(fs.mtimefmt.c_str(), value, &fs.mtime);
    if (err != 0) {
        mktfs_parse_error("invalid mtime attribute value '%s' in conjunction with mtimefmt '%s'\n", value,
                          fs.mtimefmt.c_str());
    }
    return err;
}

int set_mtimefmt(mktfs_filesystem &fs, const char *, const char *value) {
    try {
        fs.mtimefmt = value;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
    return 0;
}

struct option {
    std::string_view name;
    int (*set)(mktfs_filesystem &fs, const char *name, const char *value);
};
constexpr option OPTIONS[] = {
    {"blksize", set_blksize},
    {"uid", set_number<&mktfs_filesystem::uid, mktfs_str2uid>},
    {"gid", set_number<&mktfs_filesystem::gid, mktfs_str2uid>},
    {"fmode", set_number<&mktfs_filesystem::fmode, mktfs_str2mode>},
    {"dmode", set_number<&mktfs_filesystem::dmode, mktfs_str2mode>},
    {"mtime", set_mtime},
    {"mtimefmt", set_mtimefmt},
};

}  // namespace

int base_option_handler(mktfs_filesystem *fs, const char *name, const char *value) {
    if (!fs || !name)
        return EINVAL;
    const auto found = std::ranges::find(OPTIONS, std::string_view(name), &option::name);
    if (found == std::end(OPTIONS))
        return EOPNOTSUPP;
    return value ? found->set(*fs, name, value) : EINVAL;
}

int base_inode_attr_fct(mktfs_inode *, const char *, const char *) {
    return EOPNOTSUPP;
}
