// The ordered list of host folders in which a build file's objects are found.
#pragma once

struct mktfs_inode;

// Appends the ':'-separated folders of `text`; one that does not exist or is no
// folder is skipped with a warning.  0, or EINVAL for a null text.
[[nodiscard]] int mktfs_parse_search_paths(const char *text);
[[nodiscard]] int mktfs_search_paths_empty();
void mktfs_print_search_paths();
void mktfs_clean_search_paths();

// Looks a relative path up in every folder in order and sets the node's source
// (or makes it a link).  0; ENOENT when absent or unusable (the latter logged);
// ENOMEM; EINVAL for a missing argument.
[[nodiscard]] int mktfs_resolve_search_path_inode(const char *relative_path, mktfs_inode *inode);
