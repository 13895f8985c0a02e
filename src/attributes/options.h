// The attribute handlers of every type that takes the build-file language's own
// image-wide options and no object attributes of its own.
#pragma once

struct mktfs_filesystem;
struct mktfs_inode;

// Sets "blksize", "uid", "gid", "fmode", "dmode", "mtime" or "mtimefmt" in the
// filesystem record.  EOPNOTSUPP for any other name, EINVAL without a value, else
// the conversion's error, already reported.  A refused value is stored as 0; a
// refused block size is reported here alone and counts as handled.
[[nodiscard]] int base_option_handler(mktfs_filesystem *fs, const char *name, const char *value);

// Knows no attribute: EOPNOTSUPP.
[[nodiscard]] int base_inode_attr_fct(mktfs_inode *inode, const char *name, const char *value);
