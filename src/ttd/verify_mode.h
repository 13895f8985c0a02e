// Verify mode: superblock, signature, then every block of the inner image.
#pragma once

struct mktfs_filesystem;
struct mktfs_io;

// The type's verify operation on a mapped image.  0 when the signature is good and
// every block is proven.  EINVAL: no key, no superblock, bad signature or a
// superblock that contradicts itself or the image; EIO: a block that does not match;
// ENOENT, ENXIO, ENOMEM.  Logs every failure.
[[nodiscard]] int ttd_verify_filesystem(mktfs_filesystem *fs, mktfs_io *image);
