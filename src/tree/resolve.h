// The pass between parsing and building: numbers the inodes, counts them, fixes
// link counts and ties hard links to their targets.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;

// Resolves one node, in the order of the layer walk, whose callback it is; `arg` is not
// used.  Adds the node's size and kind to the counters of the record.  A hard link whose
// target is missing (positioned warning) or neither file nor link (warning) is unlinked
// and freed.  0, or EOPNOTSUPP for an unknown type.
int mktfs_inode_resolve_info(mktfs_filesystem *fs, mktfs_inode *inode, void *arg);
// Resolves the whole tree of the run and stores the number of inodes.  The first result
// of a node that is not 0 ends it.
[[nodiscard]] int mktfs_filesystem_resolve_info(mktfs_filesystem *fs);
