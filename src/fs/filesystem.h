// The selected backend, the filesystem record of the run, and the dispatchers
// that reach every type-specific step.  The build, parse, verify and attribute
// dispatchers live here; extraction is in tree/extract.h.
#pragma once

#include "fs/backend_record.h"
#include "fs/filesystem_record.h"

// Byte order in which a type's images are written on this host: 0, little-endian.
extern int host_endian;

// Selects the type, borrowed for the process's life; null selects none.
void mktfs_set_backend(const mktfs_backend *backend);
[[nodiscard]] const mktfs_backend *mktfs_get_backend();  // null before selection
// The selected type, or a record of which every slot is empty.
[[nodiscard]] const mktfs_backend &mktfs_backend_or_none();
[[nodiscard]] mktfs_filesystem *mktfs_get_filesystem();  // never null
[[nodiscard]] mktfs_filesystem_opts *mktfs_get_filesystem_opts();

// Writes the build defaults (root included), then calls the type's hook.  EINVAL
// for a null record, else the hook's result or 0.
[[nodiscard]] int mktfs_filesystem_build_init(mktfs_filesystem *fs);
// Empties the root's child list, then calls the type's hook.  Results as above.
[[nodiscard]] int mktfs_filesystem_extract_init(mktfs_filesystem *fs);
// Calls the type's hook; its result or 0.
[[nodiscard]] int mktfs_filesystem_verify_init(mktfs_filesystem *fs);
// The type's hooks at the end of each mode; see mktfs_backend for when they run.
void mktfs_filesystem_build_finit(mktfs_filesystem *fs);
void mktfs_filesystem_extract_finit(mktfs_filesystem *fs);
void mktfs_filesystem_verify_finit(mktfs_filesystem *fs);

// Hands the input to the type's parser.  EOPNOTSUPP without one; otherwise 0:
// the parser reports its own errors, which end the process.
[[nodiscard]] int mktfs_filesystem_parse(const char *input);
// Writes the image into `output`, borrowed, which may be null.  The type's result, or
// EOPNOTSUPP.
[[nodiscard]] int mktfs_filesystem_build(mktfs_filesystem *fs, mktfs_io *output);
// Maps the image and hands it to the type.  The mapping's error, EOPNOTSUPP, or
// the type's result.
[[nodiscard]] int mktfs_filesystem_verify(mktfs_filesystem *fs, const char *image_path);

// Build-file attributes: hand them to the type and report its refusal as a
// positioned parse error.  `value` is null when the attribute had none.
void mktfs_backend_option_handler(const char *name, const char *value);
void mktfs_backend_inode_attr(mktfs_inode *inode, const char *name, const char *value);
