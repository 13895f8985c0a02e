// Read access for extraction: an image looks like a folder with one file,
// "fs.img", the inner image.  Nothing is proven here; that is the verify mode's
// job.  The private context is a superblock that mount fills.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;
struct mktfs_io;

// Reads the superblock from the last 4096 bytes.  EINVAL for a wrong magic or
// version (logs), or the read's error.
[[nodiscard]] int ttd_fsys_mount(mktfs_filesystem *fs, mktfs_io *image);
// Makes the root a directory of one entry.  Returns 0.
[[nodiscard]] int ttd_fsys_readroot(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *root);
// Adds that entry, of the size that the superblock states.  ENOMEM.
[[nodiscard]] int ttd_fsys_readdir(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *directory);
// EOPNOTSUPP: an image holds no links.
[[nodiscard]] int ttd_fsys_readlnk(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *link,
                                   mktfs_io *target);
// Copies the first fssize bytes of the image into `output`, or what there is of them.
// The error of the copy; does not log.
[[nodiscard]] int ttd_fsys_readfile(mktfs_filesystem *fs, mktfs_io *image, mktfs_inode *file,
                                    mktfs_io *output);
