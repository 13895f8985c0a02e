// The pass between parsing and building: numbers the inodes, counts them, fixes
// link counts and ties hard links to their targets.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;

// One node of the layer walk; EOPNOTSUPP for an unknown type.  May free the node
// (an unresolved hard link).
int mktfs_inode_resolve_info(mktfs_filesystem *fs, mktfs_inode *inode, void *arg);
[[nodiscard]] int mktfs_filesystem_resolve_info(mktfs_filesystem *fs);
