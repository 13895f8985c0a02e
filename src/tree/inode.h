// The inode tree: making, placing, finding, walking and freeing nodes.  The root
// is embedded in the filesystem record; every other node is owned by its parent.
// Not thread-safe.  Time and stack stay bounded for directories of 100,000
// entries and paths of 100,000 components.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fs/filesystem_record.h"
#include "fs/inode_record.h"

// "file", "dir", "link", "hlink", else "unknown".
[[nodiscard]] const char *mktfs_inode_type2str(std::int32_t type);
// The file-type bits of a mode (0x8000, 0x4000, 0xA000; a hard link is a regular
// file); 0 for an unknown type.
[[nodiscard]] std::uint32_t mktfs_inode_type2mode_type(std::int32_t type);
// The inode type of a mode's file-type bits, or -1.
[[nodiscard]] std::int32_t mktfs_mode_type2mktfs_type(std::uint32_t mode);

// A new node with the record's defaults, owned by the caller until placed; null
// when memory is out.  A hard link on a type without that capability is a parse
// error.
[[nodiscard]] mktfs_inode *mktfs_inode_make(mktfs_filesystem *fs, std::int32_t type);
// Frees one node (not its subtree) that is in no list.  Null is ignored.
void mktfs_inode_release(mktfs_inode *inode);

// The child with exactly this name, the first in list order; null without one or
// with a missing argument.
[[nodiscard]] mktfs_inode *mktfs_inode_find(mktfs_inode_list *list, const char *name);
// Links a node, whose parent and name are set, into its parent's children:
// in name order for a sorted type, at the front for any other.
void mktfs_inode_insert(mktfs_inode_list *list, mktfs_inode *inode);
// Unlinks a node from its parent's children.
void mktfs_inode_unlink(mktfs_inode *inode);

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

// Appends "/" and the name of every ancestor and the node itself to the zeroed
// buffer of `length` bytes; cut to fit.  Returns 0.
int mktfs_inode_full_path(const mktfs_inode *inode, char *buffer, std::size_t length);
// The node at an absolute path, "/" being the root; null without one or for a
// missing or empty path.  Logs a warning where a component above it is no directory.
[[nodiscard]] mktfs_inode *mktfs_filesystem_find_inode(mktfs_filesystem *fs, const char *path);

// Frees the subtree below the node and the node's strings, not the record.
void mktfs_inode_free(mktfs_inode *inode);
void mktfs_filesystem_free(mktfs_filesystem *fs);
void mktfs_inode_init(mktfs_inode *inode);  // empties the child list

std::uint32_t mktfs_inode_next_ino();
[[nodiscard]] std::uint32_t mktfs_inode_num();

// Callback of the walks: a nonzero result stops the walk and is returned.  It may
// unlink and free the node that it is given, and add children to that node, but
// change nothing else in the tree.
using mktfs_inode_function = int (*)(mktfs_filesystem *fs, mktfs_inode *inode, void *arg);
// The root, then each child followed by all that is below it.
int mktfs_filesystem_walk_tree(mktfs_inode_function fn, void *arg);
// The root, then for each child list: all its elements, then the lists of each
// element in turn (root, a, b, a/x, a/x/z, b/y).
int mktfs_filesystem_walk_layer(mktfs_inode_function fn, void *arg);
