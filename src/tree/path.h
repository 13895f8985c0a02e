// Placing nodes by their path in the image, or below a directory of one, and finding
// them again.
#pragma once

#include <cstddef>
#include <cstdint>

struct mktfs_filesystem;
struct mktfs_inode;

// Places a new node at an absolute path and makes missing directories.  EINVAL for
// a missing or empty path, ENOMEM (the node stays the caller's); 0 otherwise, also
// when the node gave its attributes to an existing directory and was freed.  A path
// without any component gives 0, and the node stays the caller's.  Obstacles are
// positioned parse errors, the override a positioned warning.
[[nodiscard]] int mktfs_inode_add(mktfs_filesystem *fs, mktfs_inode *inode, const char *path);
// A child found in an image: `name` is length-counted.  0 or ENOMEM; EINVAL for
// a name that is empty, ".", "..", or holds "/" or NUL.
[[nodiscard]] int mktfs_inode_create(mktfs_inode *parent, std::uint32_t ino, const char *name,
                                     std::size_t name_length, std::int32_t type);

// The node at an absolute path, "/" being the root; null without one or for a
// missing or empty path.  Logs a warning where a component above it is no directory.
[[nodiscard]] mktfs_inode *mktfs_filesystem_find_inode(mktfs_filesystem *fs, const char *path);
