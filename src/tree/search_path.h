// The ordered list of host folders in which a build file's objects are found.
// Process-wide, not thread-safe.
#pragma once

struct mktfs_inode;

// Appends the ':'-separated folders of `text`; one that does not exist or is no
// folder is skipped with a warning.  0, or EINVAL for a null text.
[[nodiscard]] int mktfs_parse_search_paths(const char *text);
[[nodiscard]] int mktfs_search_paths_empty();  // nonzero: the list has no folder
void mktfs_print_search_paths();               // logs a heading and a line for each folder
void mktfs_clean_search_paths();               // empties the list

// Looks a relative path up in every folder in order; the first object of that name
// decides.  A regular file becomes the node's source (its path is copied), a symbolic
// link makes the node a link.  0; ENOENT when there is none or it is another kind of object or an unreadable
// link (both logged); ENOMEM; EINVAL for a missing argument.
[[nodiscard]] int mktfs_resolve_search_path_inode(const char *relative_path, mktfs_inode *inode);
