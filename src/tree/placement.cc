// The grammar's placement callback: finds the host object behind a finished node
// and puts the node into the tree, or drops it.
#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/log.h"
#include "fs/diag.h"
#include "fs/filesystem.h"
#include "th/handle.h"
#include "tree/host_source.h"
#include "tree/inode.h"
#include "tree/search_path.h"
#include "tree/text.h"

namespace {

constexpr std::size_t MAX_LINK_TARGET = 4096;  // bytes

// The steps below return false for a node that is to be dropped.

// `kind` names the node in the message.
bool find_on_search_paths(mktfs_inode &inode, const char *path, const char *kind) {
    if (mktfs_resolve_search_path_inode(path, &inode) == 0)
        return true;
    mktfs_parse_warn("failed to find matching target for %s '%s'\n", kind, path);
    return false;
}

bool find_file(mktfs_inode &inode, const char *image_path) {
    return inode.flags & MKTFS_INODE_INLINE || find_on_search_paths(inode, image_path, "file");
}

bool find_link(mktfs_inode &inode, const char *image_path) {
    return find_on_search_paths(inode, image_path, "link");
}

bool take_link(mktfs_inode &inode, const char *source) {
    if (mktfs_source_link(inode, source) == 0)
        return true;
    mktfs_log(MKTFS_LOG_ERROR, "failed to readlink on '%s'\n", source);
    return false;
}

bool take_file_source(mktfs_inode &inode, const char *source) {
    struct stat status {};
    if (lstat(source, &status) != 0)
        return find_on_search_paths(inode, source, "file");
    if (S_ISLNK(status.st_mode))
        return take_link(inode, source);
    if (S_ISREG(status.st_mode))
        return mktfs_source_file(inode, source, static_cast<std::uint64_t>(status.st_size)) == 0;
    mktfs_parse_warn("target inode '%s' is not a file or link, skipping...\n", source);
    return true;
}

bool take_target(mktfs_inode &inode, const char *target) {
    inode.flags |= MKTFS_INODE_TARGET;
    inode.size = strlen(target);
    return mktfs_set_path(inode, target);
}

bool keep(mktfs_inode &, const char *) {
    return true;
}

// A hard link without a target is refused by the grammar.
bool drop(mktfs_inode &, const char *) {
    return false;
}

// Where a node of each type comes from.
struct placement_row {
    std::int32_t type;
    bool (*without_source)(mktfs_inode &inode, const char *image_path);
    bool (*with_source)(mktfs_inode &inode, const char *source);
};

constexpr placement_row placements[] = {
    {MKTFS_INODE_FILE, find_file, take_file_source},
    {MKTFS_INODE_DIR, keep, keep},
    {MKTFS_INODE_LINK, find_link, take_target},
    {MKTFS_INODE_HLINK, drop, take_target},
};

bool find_source(mktfs_inode &inode, const char *image_path, const char *source) {
    const auto *row = std::ranges::find(placements, inode.type, &placement_row::type);
    if (row == std::end(placements))
        return true;
    return source ? row->with_source(inode, source) : row->without_source(inode, image_path);
}

// The root is always there: a node for it has no place.
bool names_the_root(const char *path) {
    return mktfs_fields(path, '/').next().empty();
}

}  // namespace

int mktfs_source_file(mktfs_inode &inode, std::string_view path, std::uint64_t size) {
    if (!mktfs_set_path(inode, path))
        return ENOMEM;
    inode.size = size;
    return 0;
}

int mktfs_source_link(mktfs_inode &inode, const char *path) {
    char target[MAX_LINK_TARGET];
    const ssize_t length = readlink(path, target, sizeof target);
    if (length < 0)
        return errno;
    const int err = mktfs_source_file(inode, {target, static_cast<std::size_t>(length)},
                                      static_cast<std::uint64_t>(length));
    if (err == 0)
        inode.type = MKTFS_INODE_LINK;
    return err;
}

void mktfs_backend_inode_add(mktfs_inode *inode, const char *image_path, const char *source) {
    th_handle<mktfs_inode, mktfs_inode_release> owned(inode);
    if (!inode || !image_path || !find_source(*inode, image_path, source) || names_the_root(image_path))
        return;
    if (mktfs_inode_add(mktfs_get_filesystem(), inode, image_path) == 0)
        owned.release();
}
