#include "ttd/image_superblock.h"

#include "io/io.h"

int ttd_read_superblock(mktfs_io *image, ttd_superblock *superblock) {
    const auto offset = static_cast<std::int64_t>(mktfs_io_size(image) - TTD_SUPERBLOCK_SIZE);
    return mktfs_io_read(image, offset, superblock, sizeof *superblock);
}
