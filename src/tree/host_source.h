// What a node takes over from a host object.
#pragma once

struct mktfs_inode;
struct stat;

// Called with each regular file that becomes the source of a node, before the node
// takes it over.  It may end the process.
using mktfs_source_watcher = void (*)(const char *path, const struct stat &status);

// Installs the watcher; null, as at start: none.
void mktfs_watch_sources(mktfs_source_watcher watcher);

// The node's contents are those of the regular file at `path`, whose status is
// `status`.  0 or ENOMEM.
[[nodiscard]] int mktfs_source_file(mktfs_inode &inode, const char *path, const struct stat &status);

// The node becomes a link with the target of the symbolic link at `path`; owner,
// mode and the rest stay.  0, ENOMEM, or ENOENT when the link cannot be read.
[[nodiscard]] int mktfs_source_link(mktfs_inode &inode, const char *path);
