#include "th/file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

th_file::~th_file() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

int th_file::open(const char *path, int access) {
    const int descriptor =
        static_cast<int>(TEMP_FAILURE_RETRY(::open(path, access | O_CLOEXEC | O_NONBLOCK)));
    return descriptor < 0 ? errno : adopt(descriptor);
}

int th_file::adopt(int descriptor) {
    descriptor_ = descriptor;
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode))
        return EINVAL;
    const off_t end = ::lseek(descriptor, 0, SEEK_END);  // the status of a device tells no size
    if (end < 0)
        return errno;
    size_ = static_cast<std::uint64_t>(end);
    return 0;
}

int th_file::read(std::uint64_t offset, void *out, std::uint64_t length, std::uint64_t &done) const {
    for (done = 0; done < length;) {
        const ssize_t got = TEMP_FAILURE_RETRY(::pread(descriptor_, static_cast<std::uint8_t *>(out) + done,
                                                       length - done, static_cast<off_t>(offset + done)));
        if (got <= 0)
            return got < 0 ? errno : EIO;
        done += static_cast<std::uint64_t>(got);
    }
    return 0;
}
