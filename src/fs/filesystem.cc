#include "fs/filesystem.h"

#include <cerrno>
#include <cstring>

#include "fs/diag.h"
#include "io/io.h"

int host_endian = 0;

namespace {

constexpr std::uint32_t DEFAULT_BLOCK_SIZE = 4096;
constexpr std::uint32_t DEFAULT_FILE_MODE = 0644;
constexpr std::uint32_t DEFAULT_DIRECTORY_MODE = 0755;
constexpr std::uint32_t ROOT_MODE = 0775;  // does not follow the directory default

// What stands in for the backend before one is selected: every slot is empty.
constinit const mktfs_backend no_backend{};

constinit const mktfs_backend *selected_backend = nullptr;
mktfs_filesystem the_filesystem;

void set_default_root(mktfs_inode &root) {
    root = mktfs_inode{};
    root.type = MKTFS_INODE_DIR;
    root.mode = ROOT_MODE;
    root.nlink = 2;
}

void set_build_defaults(mktfs_filesystem &fs) {
    fs.blksize = DEFAULT_BLOCK_SIZE;
    fs.uid = 0;
    fs.gid = 0;
    fs.fmode = DEFAULT_FILE_MODE;
    fs.dmode = DEFAULT_DIRECTORY_MODE;
    fs.mtimefmt = "%s";
    fs.mtime = 0;
    set_default_root(fs.root);
}

int call_init(int (*init)(mktfs_filesystem *), mktfs_filesystem *fs) {
    return init ? init(fs) : 0;
}

void call_finit(void (*finit)(mktfs_filesystem *), mktfs_filesystem *fs) {
    if (finit)
        finit(fs);
}

}  // namespace

void mktfs_set_backend(const mktfs_backend *record) {
    selected_backend = record;
}

const mktfs_backend *mktfs_get_backend() {
    return selected_backend;
}

const mktfs_backend &mktfs_backend_or_none() {
    return selected_backend ? *selected_backend : no_backend;
}

mktfs_filesystem *mktfs_get_filesystem() {
    return &the_filesystem;
}

mktfs_filesystem_opts *mktfs_get_filesystem_opts() {
    return &the_filesystem.opts;
}

int mktfs_filesystem_build_init(mktfs_filesystem *fs) {
    if (!fs)
        return EINVAL;
    set_build_defaults(*fs);
    return call_init(mktfs_backend_or_none().build_init, fs);
}

void mktfs_filesystem_build_finit(mktfs_filesystem *fs) {
    call_finit(mktfs_backend_or_none().build_finit, fs);
    if (fs)
        fs->mtimefmt.clear();
}

int mktfs_filesystem_extract_init(mktfs_filesystem *fs) {
    if (!fs)
        return EINVAL;
    fs->root.children = {};
    return call_init(mktfs_backend_or_none().extract_init, fs);
}

void mktfs_filesystem_extract_finit(mktfs_filesystem *fs) {
    call_finit(mktfs_backend_or_none().extract_finit, fs);
}

int mktfs_filesystem_verify_init(mktfs_filesystem *fs) {
    return call_init(mktfs_backend_or_none().verify_init, fs);
}

void mktfs_filesystem_verify_finit(mktfs_filesystem *fs) {
    call_finit(mktfs_backend_or_none().verify_finit, fs);
}

int mktfs_filesystem_parse(const char *input) {
    if (!mktfs_backend_or_none().parser.parse_cfg_file)
        return EOPNOTSUPP;
    mktfs_backend_or_none().parser.parse_cfg_file(input);
    return 0;
}

int mktfs_filesystem_build(mktfs_filesystem *fs, mktfs_io *output) {
    return mktfs_backend_or_none().build ? mktfs_backend_or_none().build(fs, output) : EOPNOTSUPP;
}

int mktfs_filesystem_verify(mktfs_filesystem *fs, const char *image_path) {
    if (!mktfs_backend_or_none().verify)
        return EOPNOTSUPP;
    mktfs_io_ptr image;
    if (const int err = mktfs_io_mmap_create(image_path, th_out(image)); err != 0)
        return err;
    return mktfs_backend_or_none().verify(fs, image.get());
}

void mktfs_backend_option_handler(const char *name, const char *value) {
    const auto handler = mktfs_backend_or_none().option_handler;
    const int err = handler ? handler(&the_filesystem, name, value) : EOPNOTSUPP;
    if (err == EINVAL)
        mktfs_parse_error("invalid value for option attribute '%s' ('%s')\n", name, mktfs_or_nil(value));
    else if (err == EOPNOTSUPP)
        mktfs_parse_error("unsupported option attribute '%s'\n", name);
    else if (err != 0)
        mktfs_parse_error("failed to parse option attribute '%s' ('%s')\n", name, mktfs_or_nil(value));
}

void mktfs_backend_inode_attr(mktfs_inode *inode, const char *name, const char *value) {
    const auto handler = mktfs_backend_or_none().inode_attr;
    const int err = handler ? handler(inode, name, value) : EOPNOTSUPP;
    if (err == EINVAL)
        mktfs_parse_error("invalid value for inode attribute '%s' ('%s')\n", name, mktfs_or_nil(value));
    else if (err == EOPNOTSUPP)
        mktfs_parse_error("unsupported inode attribute '%s'\n", name);
    else if (err != 0)
        mktfs_parse_error("failed to parse inode attribute '%s' ('%s') [%s]\n", name, mktfs_or_nil(value),
                          std::strerror(err));
}
