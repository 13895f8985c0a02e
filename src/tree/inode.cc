#include "tree/inode.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "fs/diag.h"
#include "fs/filesystem.h"
#include "tree/name_index.h"

namespace {

constexpr std::uint32_t LINK_MODE = 0777;

// What a node of each type is.
struct type_row {
    std::int32_t type;
    const char *name;
    std::uint32_t mode_type;  // file-type bits of a mode
    std::uint16_t nlink;      // of a new node
};

// A hard link is a regular file, which is why looking up a mode must meet the
// file first.
constexpr type_row types[] = {
    {MKTFS_INODE_FILE, "file", 0x8000, 1},
    {MKTFS_INODE_DIR, "dir", 0x4000, 2},
    {MKTFS_INODE_LINK, "link", 0xA000, 1},
    {MKTFS_INODE_HLINK, "hlink", 0x8000, 0},
};
constexpr type_row unknown_type = {-1, "unknown", 0, 0};
constexpr std::uint32_t MODE_TYPE_MASK = 0xF000;

const type_row &row_of(std::int32_t type) {
    const auto *row = std::ranges::find(types, type, &type_row::type);
    return row != std::end(types) ? *row : unknown_type;
}

std::uint32_t default_mode(const mktfs_filesystem &fs, std::int32_t type) {
    switch (type) {
    case MKTFS_INODE_FILE:
        return fs.fmode;
    case MKTFS_INODE_DIR:
        return fs.dmode;
    case MKTFS_INODE_LINK:
        return LINK_MODE;
    default:
        return 0;
    }
}

bool backend_has(std::uint32_t flag) {
    return (mktfs_backend_or_none().flags & flag) != 0;
}

void link_at(mktfs_inode **slot, mktfs_inode &inode) {
    inode.next = *slot;
    inode.prev = slot;
    if (inode.next)
        inode.next->prev = &inode.next;
    *slot = &inode;
}

// Counts the numbered inodes of the process.
constinit std::uint32_t ino_count = 0;

// The shortcut spans as far as the parent's two spans where these are equal, so that
// spans double towards the root and any depth is reached in logarithmic time.
void set_depth(mktfs_inode &inode, mktfs_inode &parent) {
    inode.depth = parent.depth + 1;
    const mktfs_inode *near = parent.shortcut;
    const mktfs_inode *far = near ? near->shortcut : nullptr;
    const bool equal_spans = far && parent.depth - near->depth == near->depth - far->depth;
    inode.shortcut = equal_spans ? near->shortcut : &parent;
}

// The node itself, or its ancestor at `depth` where it lies deeper.
const mktfs_inode *ancestor(const mktfs_inode *inode, std::size_t depth) {
    while (inode->depth > depth)
        inode = inode->shortcut->depth >= depth ? inode->shortcut : inode->parent;
    return inode;
}

}  // namespace

const char *mktfs_inode_type2str(std::int32_t type) {
    return row_of(type).name;
}

std::uint32_t mktfs_inode_type2mode_type(std::int32_t type) {
    return row_of(type).mode_type;
}

std::int32_t mktfs_mode_type2mktfs_type(std::uint32_t mode) {
    const auto *row = std::ranges::find(types, mode & MODE_TYPE_MASK, &type_row::mode_type);
    return row != std::end(types) ? row->type : unknown_type.type;
}

mktfs_inode *mktfs_inode_make(mktfs_filesystem *fs, std::int32_t type) {
    if (type == MKTFS_INODE_HLINK && !backend_has(MKTFS_BACKEND_HARDLINKS))
        mktfs_parse_error("backend filesystem does not support hardlinks\n");
    auto *inode = fs ? new (std::nothrow) mktfs_inode{} : nullptr;
    if (!inode)
        return nullptr;
    inode->type = type;
    inode->uid = fs->uid;
    inode->gid = fs->gid;
    inode->mtime = fs->mtime;
    inode->mode = default_mode(*fs, type);
    inode->nlink = row_of(type).nlink;
    return inode;
}

void mktfs_inode_release(mktfs_inode *inode) {
    delete inode;
}

mktfs_inode *mktfs_inode_find(mktfs_inode_list *list, const char *name) {
    return list && name ? mktfs_name_index_find(*list, name) : nullptr;
}

void mktfs_inode_insert(mktfs_inode_list *list, mktfs_inode *inode) {
    if (!list || !inode)
        return;
    const bool sorted = backend_has(MKTFS_BACKEND_SORTED);
    mktfs_inode *previous = mktfs_name_index_insert(*list, *inode, !sorted);
    if (sorted && previous)
        link_at(&previous->next, *inode);
    else
        link_at(&list->first, *inode);
    if (inode->parent) {
        ++inode->parent->nchildren;
        set_depth(*inode, *inode->parent);
    }
}

void mktfs_inode_unlink(mktfs_inode *inode) {
    if (!inode || !inode->prev)
        return;
    *inode->prev = inode->next;
    if (inode->next)
        inode->next->prev = inode->prev;
    inode->next = nullptr;
    inode->prev = nullptr;
    if (inode->parent)
        mktfs_name_index_remove(inode->parent->children, *inode);
}

int mktfs_inode_full_path(const mktfs_inode *inode, char *buffer, std::size_t length) {
    if (!inode || !buffer || length == 0)
        return 0;
    const std::size_t limit = length - 1;
    std::size_t end = strnlen(buffer, length);
    // A component takes two bytes at least: deeper ones cannot fit.
    inode = ancestor(inode, limit / 2 + 1);
    for (const mktfs_inode *node = inode; node; node = node->parent)
        end += node->name.empty() ? 0 : node->name.size() + 1;
    // From the last component backwards, each one to the place where it ends up; what
    // lies behind the limit is left out.
    buffer[std::min(end, limit)] = '\0';
    for (const mktfs_inode *node = inode; node; node = node->parent) {
        if (node->name.empty())
            continue;
        const std::size_t start = end - node->name.size() - 1;
        if (start < limit) {
            buffer[start] = '/';
            memcpy(buffer + start + 1, node->name.data(), std::min(node->name.size(), limit - start - 1));
        }
        end = start;
    }
    return 0;
}

void mktfs_inode_free(mktfs_inode *inode) {
    if (!inode)
        return;
    // Always frees a node without children, so that no depth can exhaust the stack.
    for (mktfs_inode *node = inode;;) {
        if (mktfs_inode *child = node->children.first) {
            node = child;
            continue;
        }
        if (node == inode)
            break;
        mktfs_inode *parent = node->parent;
        parent->children.first = node->next;
        delete node;
        node = parent;
    }
    mktfs_inode_init(inode);
    inode->name = {};
    inode->path = {};
    inode->has_path = false;
}

void mktfs_filesystem_free(mktfs_filesystem *fs) {
    if (fs)
        mktfs_inode_free(&fs->root);
}

void mktfs_inode_init(mktfs_inode *inode) {
    if (inode)
        inode->children = {};
}

std::uint32_t mktfs_inode_next_ino() {
    return ++ino_count;
}

std::uint32_t mktfs_inode_num() {
    return ino_count;
}
