// Verify mode: superblock, signature, then every block of the inner image.
#pragma once

struct mktfs_filesystem;
struct mktfs_io;

// The type's verify operation on a mapped image, with the key of ttd_opts.  0 when the
// signature is good and every block is proven.  EINVAL: no key, no superblock, bad
// signature or a superblock that contradicts itself; EIO: a block that does not match, or
// that lies outside the image; ENOENT, ENXIO, ENOMEM.  Logs every failure except a block
// outside the image.
[[nodiscard]] int ttd_verify_filesystem(mktfs_filesystem *fs, mktfs_io *image);
