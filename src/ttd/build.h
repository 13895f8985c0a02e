// Building a ttd image: hash tree over the inner image, signed superblock, and
// the three written in order.
#pragma once

struct mktfs_filesystem;
struct mktfs_io;

// The type's build operation.  With -C it only derives and prints the geometry and
// touches no file; `output` may then be null.  Every failure is logged; EINVAL for
// options and consistency, ENOMEM, EFAULT for the random generator, or the error of
// the I/O object or crypto service.  The output may then hold part of an image.
[[nodiscard]] int ttd_fsys_build(mktfs_filesystem *fs, mktfs_io *output);
