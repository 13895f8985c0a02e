#include "tree/walk.h"

#include "fs/filesystem.h"

// Both walks climb by the parent links instead of recursing, so that no depth exhausts the
// stack.

namespace {

// The node behind the subtree of `inode` in tree order; null at the end.
mktfs_inode *behind_subtree(const mktfs_inode &root, mktfs_inode *inode) {
    while (inode != &root && !inode->next)
        inode = inode->parent;
    return inode != &root ? inode->next : nullptr;
}

// Calls fn on a child list.  The next element is known before each call, which
// may free its node.
int call_on_children(mktfs_filesystem *fs, mktfs_inode &directory, mktfs_inode_function fn, void *arg) {
    int result = 0;
    for (mktfs_inode *inode = directory.children.first; inode && result == 0;) {
        mktfs_inode *next = inode->next;
        result = fn(fs, inode, arg);
        inode = next;
    }
    return result;
}

}  // namespace

int mktfs_filesystem_walk_tree(mktfs_inode_function fn, void *arg) {
    mktfs_filesystem *fs = mktfs_get_filesystem();
    mktfs_inode &root = fs->root;
    int result = fn(fs, &root, arg);
    mktfs_inode *inode = root.children.first;
    while (inode && result == 0) {
        mktfs_inode *next = inode->next, *parent = inode->parent;
        mktfs_inode **slot = inode->prev;
        result = fn(fs, inode, arg);
        // A node that its list no longer holds is gone, with its subtree.
        if (*slot == inode && inode->children.first)
            inode = inode->children.first;
        else
            inode = next ? next : behind_subtree(root, parent);
    }
    return result;
}

int mktfs_filesystem_walk_layer(mktfs_inode_function fn, void *arg) {
    mktfs_filesystem *fs = mktfs_get_filesystem();
    mktfs_inode &root = fs->root;
    int result = fn(fs, &root, arg);
    for (mktfs_inode *inode = &root; inode && result == 0;) {
        result = call_on_children(fs, *inode, fn, arg);
        inode = inode->children.first ? inode->children.first : behind_subtree(root, inode);
    }
    return result;
}
