#include "tree/placement.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "base/log.h"
#include "fs/diag.h"
#include "fs/filesystem.h"
#include "tree/host_source.h"
#include "tree/inode.h"
#include "tree/path.h"
#include "tree/search_path.h"
#include "tree/text.h"

namespace {

// The steps below return 0, ENOMEM, or another error number for a node that is to be
// dropped, which they have reported.

// `kind` names the node in the message.
int find_on_search_paths(mktfs_inode &inode, const char *path, const char *kind) {
    const int err = mktfs_resolve_search_path_inode(path, &inode);
    if (err != 0 && err != ENOMEM)
        mktfs_parse_warn("failed to find matching target for %s '%s'\n", kind, path);
    return err;
}

int find_file(mktfs_inode &inode, const char *image_path) {
    return inode.flags & MKTFS_INODE_INLINE ? 0 : find_on_search_paths(inode, image_path, "file");
}

int find_link(mktfs_inode &inode, const char *image_path) {
    return find_on_search_paths(inode, image_path, "link");
}

int take_link(mktfs_inode &inode, const char *source) {
    const int err = mktfs_source_link(inode, source);
    if (err != 0 && err != ENOMEM)
        mktfs_log(MKTFS_LOG_ERROR, "failed to readlink on '%s'\n", source);
    return err;
}

int take_file_source(mktfs_inode &inode, const char *source) {
    struct stat status {};
    if (lstat(source, &status) != 0)
        return find_on_search_paths(inode, source, "file");
    if (S_ISLNK(status.st_mode))
        return take_link(inode, source);
    if (S_ISREG(status.st_mode))
        return mktfs_source_file(inode, source, status);
    mktfs_parse_warn("target inode '%s' is not a file or link, skipping...\n", source);
    return 0;
}

int take_target(mktfs_inode &inode, const char *target) {
    if (!mktfs_set_path(inode, target))
        return ENOMEM;
    inode.flags |= MKTFS_INODE_TARGET;
    inode.size = inode.path.size();
    return 0;
}

int keep(mktfs_inode &, const char *) {
    return 0;
}

// A hard link without a target is refused by the grammar.
int drop(mktfs_inode &, const char *) {
    return EINVAL;
}

// Where a node of each type comes from.
struct placement_row {
    std::int32_t type;
    int (*without_source)(mktfs_inode &inode, const char *image_path);
    int (*with_source)(mktfs_inode &inode, const char *source);
};

constexpr placement_row placements[] = {
    {MKTFS_INODE_FILE, find_file, take_file_source},
    {MKTFS_INODE_DIR, keep, keep},
    {MKTFS_INODE_LINK, find_link, take_target},
    {MKTFS_INODE_HLINK, drop, take_target},
};

int find_source(mktfs_inode &inode, const char *image_path, const char *source) {
    const auto *row = std::ranges::find(placements, inode.type, &placement_row::type);
    if (row == std::end(placements))
        return 0;
    return source ? row->with_source(inode, source) : row->without_source(inode, image_path);
}

// The root is always there: a node for it has no place.
bool names_the_root(const char *path) {
    return mktfs_fields(path, '/').next().empty();
}

int find_and_place(mktfs_inode_ptr &inode, const char *image_path, const char *source) {
    if (const int err = find_source(*inode, image_path, source); err != 0)
        return err;
    if (names_the_root(image_path))
        return 0;
    if (const int err = mktfs_inode_add(mktfs_get_filesystem(), inode.get(), image_path); err != 0)
        return err;
    inode.release();
    return 0;
}

}  // namespace

void mktfs_backend_inode_add(mktfs_inode *inode, const char *image_path, const char *source) {
    mktfs_inode_ptr owned(inode);
    if (inode && image_path && find_and_place(owned, image_path, source) == ENOMEM)
        mktfs_log(MKTFS_LOG_FATAL, "unable to allocate memory for inode\n");
}
