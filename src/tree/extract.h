// Extraction: turns an image into host files below an output folder that the
// driver has made.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;
struct mktfs_io;

// Mounts the image through the selected type, reads its tree and writes every
// object.  0 or the first failure; what was written so far stays.
[[nodiscard]] int mktfs_filesystem_extract(mktfs_filesystem *fs, const char *image_path, const char *folder);
[[nodiscard]] int mktfs_inode_populate(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image);
[[nodiscard]] int mktfs_inode_extract(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image);
