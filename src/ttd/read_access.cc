#include "ttd/read_access.h"

#include <algorithm>
#include <cerrno>

#include "base/log.h"
#include "base/progress.h"
#include "fs/filesystem_record.h"
#include "io/io.h"
#include "tree/inode.h"
#include "tree/path.h"
#include "ttd/context.h"
#include "ttd/image_superblock.h"

namespace {

constexpr std::uint32_t IMAGE_INO = 2;
constexpr char IMAGE_NAME[] = "fs.img";

ttd_superblock &mounted(const mktfs_filesystem &fs) {
    return *ttd_private<ttd_superblock>(fs);
}

}  // namespace

int ttd_fsys_mount(mktfs_filesystem *fs, mktfs_io *image) {
    ttd_superblock &superblock = mounted(*fs);
    if (verbose)
        mktfs_log(MKTFS_LOG_INFO, "ttd: reading superblock\n");
    if (const int err = ttd_read_superblock(image, &superblock); err != 0)
        return err;
    if (superblock.magic != TTD_MAGIC)
        return MKTFS_FAIL(EINVAL, "ttd: invalid superblock detected\n");
    if (superblock.version != TTD_VERSION)
        return MKTFS_FAIL(EINVAL, "ttd: invalid superblock version detected\n");
    return 0;
}

int ttd_fsys_readroot(mktfs_filesystem *, mktfs_io *, mktfs_inode *root) {
    root->type = MKTFS_INODE_DIR;
    root->ino = MKTFS_ROOT_INO;
    root->nchildren = 1;
    return 0;
}

int ttd_fsys_readdir(mktfs_filesystem *fs, mktfs_io *, mktfs_inode *directory) {
    if (const int err =
            mktfs_inode_create(directory, IMAGE_INO, IMAGE_NAME, sizeof IMAGE_NAME - 1, MKTFS_INODE_FILE);
        err != 0)
        return err;
    mktfs_inode_find(&directory->children, IMAGE_NAME)->size = mounted(*fs).fssize;
    return 0;
}

int ttd_fsys_readlnk(mktfs_filesystem *, mktfs_io *, mktfs_inode *, mktfs_io *) {
    return EOPNOTSUPP;
}

int ttd_fsys_readfile(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *, mktfs_io *output) {
    const std::uint64_t size = std::min(mounted(*fs).fssize, mktfs_io_datasize(image));
    const mktfs_progress progress(size, 1);
    return mktfs_io_merge(output, image, size, mktfs_progress_add);
}
