// The superblock of an image that is open.
#pragma once

#include "ttd/format.h"

struct mktfs_io;

// Reads the last 4096 bytes of an image.  The read's error; does not log.
[[nodiscard]] int ttd_read_superblock(mktfs_io *image, ttd_superblock *superblock);
