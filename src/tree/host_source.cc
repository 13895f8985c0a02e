#include "tree/host_source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "fs/inode_record.h"
#include "tree/text.h"

namespace {

constexpr std::size_t MAX_LINK_TARGET = 4096;  // bytes

constinit mktfs_source_watcher source_watcher = nullptr;

}  // namespace

void mktfs_watch_sources(mktfs_source_watcher watcher) {
    source_watcher = watcher;
}

int mktfs_source_file(mktfs_inode &inode, const char *path, const struct stat &status) {
    if (source_watcher)
        source_watcher(path, status);
    if (!mktfs_set_path(inode, path))
        return ENOMEM;
    inode.size = static_cast<std::uint64_t>(status.st_size);
    return 0;
}

int mktfs_source_link(mktfs_inode &inode, const char *path) {
    char target[MAX_LINK_TARGET];
    const ssize_t length = readlink(path, target, sizeof target);
    if (length < 0)
        return ENOENT;
    if (!mktfs_set_path(inode, {target, static_cast<std::size_t>(length)}))
        return ENOMEM;
    inode.size = static_cast<std::uint64_t>(length);
    inode.type = MKTFS_INODE_LINK;
    return 0;
}
