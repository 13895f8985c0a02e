// Extraction: turns an image into host files below an output folder that the
// driver has made.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;
struct mktfs_io;

// Maps the image, mounts it through the selected type, reads its tree and writes every
// object below the folder.  EINVAL for a missing argument, ENOMEM, EOPNOTSUPP for an
// empty slot of the type, else the first failure, which its step has logged; what was
// written so far stays.
[[nodiscard]] int mktfs_filesystem_extract(mktfs_filesystem *fs, const char *image_path, const char *folder);
// Adds the entries of a directory through the type's readdir slot; 0 for other nodes.
[[nodiscard]] int mktfs_inode_populate(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image);
// Writes one node, whose folder exists, to the path that it holds; the root is there
// already.  Never follows a link at that path.  0, also after an error message for a link
// with an empty target and a warning for a type that is not supported; else the error
// number of the failing step.
[[nodiscard]] int mktfs_inode_extract(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image);
