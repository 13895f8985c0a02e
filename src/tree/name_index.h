// The name index of a child list: finds a child by name, and the place of a new
// one in name order, in a few steps however many children there are.
//
// It is a treap (a search tree by name, a heap by weight) threaded through the
// nodes themselves, so that it needs no memory of its own: an insertion cannot
// fail, and a list that is dropped takes its index along.  Children of equal name
// stand in list order.  Names are compared as bytes.
#pragma once

#include <string_view>

#include "fs/inode_record.h"

// Adds a named node before or behind those of equal name.  Returns the child before it in
// name order; null when it is the first.
mktfs_inode *mktfs_name_index_insert(mktfs_inode_list &list, mktfs_inode &node, bool before_equals);

// Takes out a node that is in this list.
void mktfs_name_index_remove(mktfs_inode_list &list, mktfs_inode &node);

// The first child in list order with this name, or null.
[[nodiscard]] mktfs_inode *mktfs_name_index_find(const mktfs_inode_list &list, std::string_view name);
