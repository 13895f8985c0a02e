#include "tree/path.h"

#include <cerrno>
#include <new>

#include "base/log.h"
#include "fs/diag.h"
#include "fs/filesystem.h"
#include "tree/inode.h"
#include "tree/name_index.h"
#include "tree/text.h"

namespace {

constexpr std::size_t PATH_SIZE = 4096;  // of paths in messages

int attach(mktfs_inode &parent, mktfs_inode &inode, std::string_view name) {
    if (!mktfs_set_text(inode.name, {name}))
        return ENOMEM;
    inode.parent = &parent;
    mktfs_inode_insert(&parent.children, &inode);
    return 0;
}

void report_no_directory(const mktfs_inode &inode) {
    char path[PATH_SIZE] = "";
    mktfs_inode_full_path(&inode, path, sizeof path);
    mktfs_parse_error("intermediate filesystem object at path '%s' is not a directory\n", path);
}

// The directory of that name, made if it is missing; null when memory is out.
mktfs_inode *enter_directory(mktfs_filesystem &fs, mktfs_inode &parent, std::string_view name) {
    if (mktfs_inode *found = mktfs_name_index_find(parent.children, name)) {
        if (found->type != MKTFS_INODE_DIR)
            report_no_directory(*found);
        return found;
    }
    mktfs_inode_ptr made(mktfs_inode_make(&fs, MKTFS_INODE_DIR));
    return made && attach(parent, *made, name) == 0 ? made.release() : nullptr;
}

void override_directory(mktfs_inode &existing, const mktfs_inode &inode) {
    existing.uid = inode.uid;
    existing.gid = inode.gid;
    existing.mode = inode.mode;
    mktfs_parse_warn("directory '%s' attributes overridden", existing.name.c_str());
}

int place_last(mktfs_inode &parent, mktfs_inode *inode, std::string_view name, const char *path) {
    mktfs_inode *existing = mktfs_name_index_find(parent.children, name);
    if (existing && existing->type == MKTFS_INODE_DIR && inode->type == MKTFS_INODE_DIR) {
        override_directory(*existing, *inode);
        mktfs_inode_release(inode);
        return 0;
    }
    if (existing)
        mktfs_parse_error("duplicate filesystem object at path '%s'", path);
    return attach(parent, *inode, name);
}

// A name that stays inside the directory it is made in.
bool is_plain_name(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

}  // namespace

int mktfs_inode_add(mktfs_filesystem *fs, mktfs_inode *inode, const char *path) {
    if (!fs || !inode || !path || *path == '\0')
        return EINVAL;
    mktfs_fields components(path, '/');
    std::string_view name = components.next();
    if (name.empty())
        return 0;
    mktfs_inode *parent = &fs->root;
    for (std::string_view next = components.next(); !next.empty(); next = components.next()) {
        parent = enter_directory(*fs, *parent, name);
        if (!parent)
            return ENOMEM;
        name = next;
    }
    return place_last(*parent, inode, name, path);
}

int mktfs_inode_create(mktfs_inode *parent, std::uint32_t ino, const char *name, std::size_t name_length,
                       std::int32_t type) {
    if (!parent || !name || !is_plain_name({name, name_length}))
        return EINVAL;
    const std::string_view text(name, name_length);
    mktfs_inode_ptr inode(new (std::nothrow) mktfs_inode{});
    if (!inode || !mktfs_set_text(inode->path, {parent->path, "/", text}))
        return ENOMEM;
    inode->has_path = true;
    inode->type = type;
    inode->ino = ino;
    if (const int err = attach(*parent, *inode, text); err != 0)
        return err;
    inode.release();
    return 0;
}

mktfs_inode *mktfs_filesystem_find_inode(mktfs_filesystem *fs, const char *path) {
    if (!fs || !path || *path == '\0')
        return nullptr;
    mktfs_inode *inode = &fs->root;
    mktfs_fields components(path, '/');
    std::string_view name = components.next();
    while (inode && !name.empty()) {
        inode = mktfs_name_index_find(inode->children, name);
        name = components.next();
        if (inode && !name.empty() && inode->type != MKTFS_INODE_DIR) {
            mktfs_log(MKTFS_LOG_WARN, "intermediate inode with name '%s' is not a dir\n",
                      inode->name.c_str());
            return nullptr;
        }
    }
    return inode;
}
