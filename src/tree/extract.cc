#include "tree/extract.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/cleanup.h"
#include "base/log.h"
#include "fs/diag.h"
#include "fs/filesystem.h"
#include "io/io.h"
#include "tree/text.h"
#include "tree/walk.h"

namespace {

constexpr mode_t FOLDER_MODE = 0755;
constexpr mode_t FILE_MODE = 0660;
constexpr std::size_t DEFAULT_LINK_LIMIT = 4096;  // bytes, where the host names none

// Calls a slot of the selected type; an empty one lacks the operation.
template <class... Parameters, class... Arguments>
int call_backend(int (*mktfs_backend::*slot)(Parameters...), Arguments... arguments) {
    const auto operation = mktfs_backend_or_none().*slot;
    return operation ? operation(arguments...) : EOPNOTSUPP;
}

int extract_directory(mktfs_filesystem *, mktfs_inode *inode, mktfs_io *) {
    if (inode->ino == MKTFS_ROOT_INO && !inode->parent)
        return 0;
    if (mkdir(inode->path.c_str(), FOLDER_MODE) != 0)
        return MKTFS_FAIL(errno, "creating dir '%s' failed\n", inode->path.c_str());
    return 0;
}

// Never through a link that an earlier entry of the same name has made.  `slot` is the
// file's place in the clean-up, until it is complete.
int create_file(const char *path, mktfs_io_ptr &file, int &slot) {
    const mktfs_signal_guard guard;
    constexpr int flags = O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW;
    if (const int err = mktfs_io_file_create(path, flags, FILE_MODE, th_out(file)); err != 0)
        return MKTFS_FAIL(err, "unable to open output file '%s' (%s)\n", path, strerror(err));
    slot = mktfs_cleanup_add(path, mktfs_io_descriptor(file.get()));
    return 0;
}

int fill_file(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image, mktfs_io *file) {
    if (const int err = call_backend(&mktfs_backend::readfile, fs, image, inode, file); err != 0)
        return err;
    return mktfs_io_close(file);
}

int extract_file(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image) {
    mktfs_io_ptr file;
    int slot = -1;
    if (const int err = create_file(inode->path.c_str(), file, slot); err != 0)
        return err;
    const int err = fill_file(fs, inode, image, file.get());
    (err == 0 ? mktfs_cleanup_forget : mktfs_cleanup_remove)(slot);
    return err;
}

// How long a link target may be in this folder, in bytes.
int find_link_limit(const std::string &folder, std::size_t &limit) {
    errno = 0;
    const long found = pathconf(folder.c_str(), _PC_SYMLINK_MAX);
    limit = found < 0 ? DEFAULT_LINK_LIMIT : static_cast<std::size_t>(found);
    return found < 0 ? errno : 0;
}

// Makes the link from the target in the memory object.
int make_link(const mktfs_inode &inode, mktfs_io *target, std::size_t limit) {
    const std::size_t length = mktfs_io_datasize(target);
    if (length == 0)
        return MKTFS_FAIL(0, "symlink data is empty!!!\n");
    if (length > limit)
        mktfs_log(MKTFS_LOG_WARN,
                  "inode symlink length '%zu' exceeds host filesystem symlink max size '%zu', skipping...\n",
                  length, limit);
    if (const int err = mktfs_io_write(target, static_cast<std::int64_t>(length), "", 1); err != 0)
        return err;
    if (symlink(reinterpret_cast<const char *>(mktfs_io_buf(target)), inode.path.c_str()) != 0)
        return MKTFS_FAIL(errno, "failed to create symlink '%s'\n", inode.path.c_str());
    return 0;
}

int extract_link(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image) {
    if (!inode->parent)
        return EINVAL;
    std::size_t limit = 0;
    if (const int err = find_link_limit(inode->parent->path, limit); err != 0)
        return err;
    mktfs_io_ptr target;
    if (const int err = mktfs_io_mem_create(limit, th_out(target)); err != 0)
        return MKTFS_FAIL(err, "unable to create symlink io object (%s)\n", strerror(err));
    if (const int err = call_backend(&mktfs_backend::readlnk, fs, image, inode, target.get()); err != 0)
        return err;
    return make_link(*inode, target.get(), limit);
}

struct extract_row {
    std::int32_t type;
    int (*extract)(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image);
};

constexpr extract_row extractors[] = {
    {MKTFS_INODE_DIR, extract_directory},
    {MKTFS_INODE_FILE, extract_file},
    {MKTFS_INODE_LINK, extract_link},
};

int populate_step(mktfs_filesystem *fs, mktfs_inode *inode, void *image) {
    return mktfs_inode_populate(fs, inode, static_cast<mktfs_io *>(image));
}

int extract_step(mktfs_filesystem *fs, mktfs_inode *inode, void *image) {
    return mktfs_inode_extract(fs, inode, static_cast<mktfs_io *>(image));
}

void announce(const char *step) {
    if (verbose)
        mktfs_log(MKTFS_LOG_INFO, "%s", step);
}

int read_tree(mktfs_filesystem *fs, mktfs_io *image) {
    announce("Mounting filesystem image...\n");
    if (const int err = call_backend(&mktfs_backend::mount, fs, image); err != 0)
        return err;
    announce("Reading filesystem root inode...\n");
    if (const int err = call_backend(&mktfs_backend::readroot, fs, image, &fs->root); err != 0)
        return err;
    announce("Populating filesystem inodes...\n");
    return mktfs_filesystem_walk_layer(populate_step, image);
}

}  // namespace

int mktfs_filesystem_extract(mktfs_filesystem *fs, const char *image_path, const char *folder) {
    if (!fs || !folder)
        return EINVAL;
    if (!mktfs_set_path(fs->root, folder))
        return ENOMEM;
    mktfs_io_ptr image;
    if (const int err = mktfs_io_mmap_create(image_path, th_out(image)); err != 0)
        return err;
    if (const int err = read_tree(fs, image.get()); err != 0)
        return err;
    announce("Extracting filesystem inodes...\n");
    return mktfs_filesystem_walk_tree(extract_step, image.get());
}

int mktfs_inode_populate(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image) {
    if (inode->type != MKTFS_INODE_DIR)
        return 0;
    return call_backend(&mktfs_backend::readdir, fs, image, inode);
}

int mktfs_inode_extract(mktfs_filesystem *fs, mktfs_inode *inode, mktfs_io *image) {
    for (const extract_row &row : extractors)
        if (row.type == inode->type)
            return row.extract(fs, inode, image);
    mktfs_parse_warn("skipped extracting unsupported inode type\n");
    return 0;
}
