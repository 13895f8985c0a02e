// What a node takes over from a host object.
#pragma once

#include <cstdint>
#include <string_view>

#include "fs/inode_record.h"

// The node's contents are those of a regular file of `size` bytes.  0 or ENOMEM.
[[nodiscard]] int mktfs_source_file(mktfs_inode &inode, std::string_view path, std::uint64_t size);

// The node becomes a link with the target of the symbolic link at `path`; owner,
// mode and the rest stay.  0, ENOMEM, or why the link cannot be read.
[[nodiscard]] int mktfs_source_link(mktfs_inode &inode, const char *path);
