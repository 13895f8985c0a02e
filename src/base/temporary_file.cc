#include "base/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/cleanup.h"

mktfs_temporary_file::~mktfs_temporary_file() {
    if (descriptor_ < 0)
        return;
    ::close(descriptor_);
    if (!renamed_)
        ::unlink(path_);
    mktfs_cleanup_forget(slot_);
}

bool mktfs_temporary_file::name(const char *start, const char *pattern) {
    const int length = std::snprintf(path_, sizeof path_, "%s%s", start, pattern);
    return length >= 0 && static_cast<std::size_t>(length) < sizeof path_;
}

int mktfs_temporary_file::create() {
    const mktfs_signal_guard no_signal_between;
    errno = 0;
    descriptor_ = ::mkostemp(path_, O_CLOEXEC);
    if (descriptor_ < 0)
        return errno != 0 ? errno : EIO;
    slot_ = mktfs_cleanup_add(path_, descriptor_);
    return 0;
}

int mktfs_temporary_file::rename_to(const char *path) {
    const mktfs_signal_guard no_signal_between;
    if (::rename(path_, path) != 0)
        return errno;
    renamed_ = true;
    mktfs_cleanup_forget(std::exchange(slot_, -1));  // somebody else may get it
    return 0;
}
