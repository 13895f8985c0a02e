#include "base/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

mktfs_input_file::~mktfs_input_file() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

int mktfs_input_file::open(const char *path) {
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    descriptor_ = static_cast<int>(TEMP_FAILURE_RETRY(::open(path, flags)));
    struct stat status {};
    if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0)
        return errno;
    if (S_ISDIR(status.st_mode))
        return EISDIR;
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode))
        return EINVAL;
    const off_t end = ::lseek(descriptor_, 0, SEEK_END);  // the status of a device tells no size
    if (end < 0)
        return errno;
    size_ = static_cast<std::uint64_t>(end);
    return 0;
}
