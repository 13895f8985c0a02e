#include "tree/resolve.h"

#include <algorithm>
#include <cerrno>

#include "base/log.h"
#include "fs/diag.h"
#include "tree/inode.h"
#include "tree/path.h"
#include "tree/walk.h"

namespace {

// A link count wraps at 65536: images store 16 bits.
void count_link(mktfs_inode &inode) {
    inode.nlink = static_cast<std::uint16_t>(inode.nlink + 1);
}

void resolve_file(mktfs_filesystem &fs, mktfs_inode &inode) {
    inode.ino = mktfs_inode_next_ino();
    ++fs.files;
}

void resolve_directory(mktfs_filesystem &fs, mktfs_inode &inode) {
    inode.ino = mktfs_inode_next_ino();
    if (inode.parent)
        count_link(*inode.parent);
    ++fs.dirs;
}

void resolve_link(mktfs_filesystem &fs, mktfs_inode &inode) {
    inode.ino = mktfs_inode_next_ino();
    ++fs.links;
}

void remove_hardlink(mktfs_inode &inode) {
    if (verbose >= 2)
        mktfs_log(MKTFS_LOG_WARN, "removing unresolved hardlink inode '%s'\n", inode.name.c_str());
    mktfs_inode_unlink(&inode);
    mktfs_inode_free(&inode);
    mktfs_inode_release(&inode);
}

// Frees the node when its target cannot be linked to.
void resolve_hardlink(mktfs_filesystem &fs, mktfs_inode &inode) {
    mktfs_inode *target = mktfs_filesystem_find_inode(&fs, inode.path.c_str());
    if (target && (target->type == MKTFS_INODE_FILE || target->type == MKTFS_INODE_LINK)) {
        count_link(*target);
        inode.hlink = target;
        ++fs.hardlinks;
        return;
    }
    if (target)
        mktfs_log(MKTFS_LOG_WARN, "hlink target inode is not of type 'file' or 'link'\n");
    else
        mktfs_parse_warn("hardlink '%s' to '%s' was not resolved\n", inode.name.c_str(), inode.path.c_str());
    inode.hlink = nullptr;
    remove_hardlink(inode);
}

struct resolve_row {
    std::int32_t type;
    void (*resolve)(mktfs_filesystem &fs, mktfs_inode &inode);
};

constexpr resolve_row resolvers[] = {
    {MKTFS_INODE_FILE, resolve_file},
    {MKTFS_INODE_DIR, resolve_directory},
    {MKTFS_INODE_LINK, resolve_link},
    {MKTFS_INODE_HLINK, resolve_hardlink},
};

}  // namespace

int mktfs_inode_resolve_info(mktfs_filesystem *fs, mktfs_inode *inode, void *) {
    const auto *row = std::ranges::find(resolvers, inode->type, &resolve_row::type);
    if (row == std::end(resolvers))
        return EOPNOTSUPP;
    fs->object_size += inode->size;
    row->resolve(*fs, *inode);
    return 0;
}

int mktfs_filesystem_resolve_info(mktfs_filesystem *fs) {
    if (const int err = mktfs_filesystem_walk_layer(mktfs_inode_resolve_info, nullptr); err != 0)
        return err;
    fs->inodes = mktfs_inode_num();
    return 0;
}
