// The grammar's placement of a finished node: finds the host object behind it and puts
// it into the tree.
#pragma once

struct mktfs_inode;

// Takes ownership of the node and places it at the image path, or frees it, after a
// warning or error, when the host has no such object.  `source`, which may be null, is
// the host source of a file, the target of a link, or the path in the image that a hard
// link refers to.  Logs a fatal message when memory is out.  A null inode is ignored.
void mktfs_backend_inode_add(mktfs_inode *inode, const char *image_path, const char *source);
