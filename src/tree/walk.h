// The walks over the whole tree.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;

// Callback of the walks: a nonzero result stops the walk and is returned.  It may
// unlink and free the node that it is given, and add children to that node, but
// change nothing else in the tree.
using mktfs_inode_function = int (*)(mktfs_filesystem *fs, mktfs_inode *inode, void *arg);
// The root, then each child followed by all that is below it.
int mktfs_filesystem_walk_tree(mktfs_inode_function fn, void *arg);
// The root, then for each child list: all its elements, then the lists of each
// element in turn (root, a, b, a/x, a/x/z, b/y).
int mktfs_filesystem_walk_layer(mktfs_inode_function fn, void *arg);
