// The inode tree: nodes and their child lists.  Placing by path is in tree/path.h, walking
// in tree/walk.h.  The root is embedded in the filesystem record; every other node is owned
// by its parent.  Not thread-safe.  No operation recurses or searches a list from end to
// end, so that directories of 100,000 entries and paths of 100,000 components are handled.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fs/filesystem_record.h"
#include "fs/inode_record.h"
#include "th/handle.h"

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

using mktfs_inode_ptr = th_handle<mktfs_inode, mktfs_inode_release>;

// The child with exactly this name, the first in list order; null without one or
// with a missing argument.
[[nodiscard]] mktfs_inode *mktfs_inode_find(mktfs_inode_list *list, const char *name);
// Links a node, whose parent and name are set, into its parent's children:
// in name order for a sorted type, at the front for any other.
void mktfs_inode_insert(mktfs_inode_list *list, mktfs_inode *inode);
// Unlinks a node from its parent's children; the caller owns it then.  A node that is in no
// list is ignored.
void mktfs_inode_unlink(mktfs_inode *inode);

// Appends "/" and the name of every ancestor and the node itself to the text in a zeroed
// buffer of `length` bytes, cut to fit.  Returns 0.
int mktfs_inode_full_path(const mktfs_inode *inode, char *buffer, std::size_t length);

// Frees the subtree below the node and the node's strings, not the record.  Null is
// ignored.
void mktfs_inode_free(mktfs_inode *inode);
void mktfs_filesystem_free(mktfs_filesystem *fs);  // the same for the root; null is ignored
void mktfs_inode_init(mktfs_inode *inode);         // empties the child list

// The next inode number of the process, from 1 on, and how many were given out.
std::uint32_t mktfs_inode_next_ino();
[[nodiscard]] std::uint32_t mktfs_inode_num();
