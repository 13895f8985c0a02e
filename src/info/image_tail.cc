#include "info/image_tail.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "ttd/format.h"

namespace {

class descriptor {
public:
    // Without waiting for the other end of a pipe, which is refused anyway.
    explicit descriptor(const char *path)
        : number_(static_cast<int>(TEMP_FAILURE_RETRY(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)))) {}
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    ~descriptor() {
        if (number_ >= 0)
            ::close(number_);
    }
    [[nodiscard]] int get() const { return number_; }

private:
    int number_;
};

int check_kind(int file) {
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    return S_ISREG(status.st_mode) || S_ISBLK(status.st_mode) ? 0 : EINVAL;
}

int read_exactly(int file, std::uint8_t *out, std::size_t length, off_t offset) {
    while (length > 0) {
        const ssize_t got = ::pread(file, out, length, offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got < 0 ? errno : EIO;
        out += got;
        offset += got;
        length -= static_cast<std::size_t>(got);
    }
    return 0;
}

}  // namespace

int ttdinfo_read_tail(const char *path, ttd_superblock *superblock, std::uint64_t *size) {
    *size = 0;
    const descriptor file(path);
    if (file.get() < 0)
        return errno;
    if (const int err = check_kind(file.get()); err != 0)
        return err;
    const off_t end = ::lseek(file.get(), 0, SEEK_END);
    if (end < 0)
        return errno;
    *size = static_cast<std::uint64_t>(end);
    if (*size < TTD_SUPERBLOCK_SIZE)
        return EINVAL;
    return read_exactly(file.get(), reinterpret_cast<std::uint8_t *>(superblock), sizeof *superblock,
                        end - static_cast<off_t>(TTD_SUPERBLOCK_SIZE));
}
