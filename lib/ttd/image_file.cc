#include "ttd/image_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ttd/format.h"

namespace {

int check_kind(int descriptor) {
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode) ? 0 : EINVAL;
}

}  // namespace

ttd_image_file::~ttd_image_file() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

int ttd_image_file::find_size() {
    if (const int err = check_kind(descriptor_); err != 0)
        return err;
    const off_t end = ::lseek(descriptor_, 0, SEEK_END);
    if (end < 0)
        return errno;
    size_ = static_cast<std::uint64_t>(end);
    return size_ < TTD_SUPERBLOCK_SIZE ? EINVAL : 0;
}

int ttd_image_file::open(const char *path, bool writable) {
    // Without waiting for the other end of a pipe, which is refused anyway.
    const int flags = (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK;
    descriptor_ = static_cast<int>(TEMP_FAILURE_RETRY(::open(path, flags)));
    return descriptor_ < 0 ? errno : find_size();
}

int ttd_image_file::adopt(int descriptor) {
    descriptor_ = descriptor;
    return find_size();
}

int ttd_image_file::read(std::uint64_t offset, void *out, std::size_t length) const {
    auto *to = static_cast<std::uint8_t *>(out);
    while (length > 0) {
        const ssize_t got = TEMP_FAILURE_RETRY(::pread(descriptor_, to, length, static_cast<off_t>(offset)));
        if (got <= 0)
            return got < 0 ? errno : EIO;
        to += got;
        offset += static_cast<std::uint64_t>(got);
        length -= static_cast<std::size_t>(got);
    }
    return 0;
}

int ttd_image_file::read_superblock(ttd_superblock *superblock) const {
    return read(size_ - TTD_SUPERBLOCK_SIZE, superblock, sizeof *superblock);
}
