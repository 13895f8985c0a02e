#include "ttd/image_file.h"

#include <cerrno>

#include "ttd/format.h"

namespace {

// `err` is what opening the file gave.
int check_length(int err, const th_file &file) {
    return err == 0 && file.size() < TTD_SUPERBLOCK_SIZE ? EINVAL : err;
}

}  // namespace

int ttd_image_file::open(const char *path, bool writable) {
    return check_length(file_.open(path, writable ? O_RDWR : O_RDONLY), file_);
}

int ttd_image_file::adopt(int descriptor) {
    return check_length(file_.adopt(descriptor), file_);
}

int ttd_image_file::read(std::uint64_t offset, void *out, std::size_t length) const {
    std::uint64_t done = 0;
    return file_.read(offset, out, length, done);
}

int ttd_image_file::read_superblock(ttd_superblock *superblock) const {
    return read(size() - TTD_SUPERBLOCK_SIZE, superblock, sizeof *superblock);
}
