// Reading a superblock: from its fields to the geometry record, and the
// anti-rollback comparison.
#pragma once

#include "ttd/format.h"
#include "ttd/geometry.h"

// Fills the record from a superblock; info->hash_size is set beforehand (see
// ttd_tcrypto_init).  The superblock may be signed and still hostile: block sizes outside
// the format and every count or offset that wraps are refused; areas that lie outside the
// image are not, see ttd_blocks_within.  EINVAL or ENOMEM, with the record empty; logs.  A
// block size of 0 is fatal to the divider, which ends the process.
[[nodiscard]] int ttd_superblock2info(const ttd_superblock *superblock, ttd_info *info);

// True when the areas that the record describes lie within an image of this size: the inner
// image, the tree in front of the superblock, and in partition mode the whole partition.
[[nodiscard]] bool ttd_superblock_fits(const ttd_superblock &superblock, const ttd_info &info,
                                       std::uint64_t image_size);

// Debug dump through the engine log at level 0, one call per line, without line ends.
void ttd_print_superblock(const ttd_superblock *superblock);

// Refuses an image whose version is below the decimal number in `text`: EINVAL, as
// for a bad number (ERANGE when it is too large).  Logs without a line end.
[[nodiscard]] int ttd_check_rollback(const ttd_superblock *superblock, const char *text);
