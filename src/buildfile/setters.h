// What the build-file grammar calls for every object, besides placing it: makes it and sets
// its attributes from their texts.  Bad values are parse errors.  A null inode is ignored.
#pragma once

#include <cstdint>

struct mktfs_inode;

// A node of the type with the image's defaults, owned by the caller.  Null, after a fatal
// message, when memory is out.
[[nodiscard]] mktfs_inode *mktfs_backend_inode_new(std::int32_t type);
void mktfs_backend_inode_setuid(mktfs_inode *inode, const char *text);
void mktfs_backend_inode_setgid(mktfs_inode *inode, const char *text);
void mktfs_backend_inode_setmode(mktfs_inode *inode, const char *text);
void mktfs_backend_inode_setacl(mktfs_inode *inode, const char *text);
void mktfs_backend_inode_setmtime(mktfs_inode *inode, const char *text);
void mktfs_backend_inode_setcontent(mktfs_inode *inode, const char *text);

// Frees every access control list that was set so far.  Nodes only borrow theirs, so the
// tree must be gone or must not use them again.  Also done at exit.
void mktfs_backend_acls_free();
