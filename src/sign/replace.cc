#include "sign/replace.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

#include "base/temporary_file.h"
#include "ttd/format.h"
#include "ttd/image_file.h"

namespace {

// When a process ends, a write is cut short only at a multiple of this, the smallest page
// size.
constexpr std::uint64_t PAGE = 4096;

// The bytes of a superblock that differ: from `begin` to before `end`.
struct changed_span {
    std::size_t begin;
    std::size_t end;
};

std::span<const std::uint8_t> bytes_of(const ttd_superblock &superblock) {
    return {reinterpret_cast<const std::uint8_t *>(&superblock), sizeof superblock};
}

changed_span difference(const ttd_superblock &before, const ttd_superblock &after) {
    const auto a = bytes_of(before);
    const auto b = bytes_of(after);
    const auto first = std::mismatch(a.begin(), a.end(), b.begin()).first;
    if (first == a.end())
        return {0, 0};
    const auto last = std::mismatch(a.rbegin(), a.rend(), b.rbegin()).first;
    return {static_cast<std::size_t>(first - a.begin()), static_cast<std::size_t>(a.rend() - last)};
}

int write_at(int descriptor, std::span<const std::uint8_t> bytes, std::uint64_t offset) {
    const ssize_t written =
        TEMP_FAILURE_RETRY(::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset)));
    if (written < 0)
        return errno;
    return static_cast<std::size_t>(written) == bytes.size() ? 0 : EIO;
}

int flush(int descriptor) {
    return ::fsync(descriptor) == 0 ? 0 : errno;
}

int copy_range(int image, int copy, off_t from, off_t end) {
    off_t to = from;
    while (from < end) {
        const ssize_t copied = TEMP_FAILURE_RETRY(
            ::copy_file_range(image, &from, copy, &to, static_cast<std::size_t>(end - from), 0));
        if (copied <= 0)
            return copied < 0 ? errno : EIO;
    }
    return 0;
}

// The parts that hold data; what lies between them stays a hole.
int copy_bytes(int image, int copy, std::uint64_t size) {
    const auto end = static_cast<off_t>(size);
    if (::ftruncate(copy, end) != 0)
        return errno;
    for (off_t data = 0; data < end;) {
        data = ::lseek(image, data, SEEK_DATA);
        if (data < 0)
            return errno == ENXIO ? 0 : errno;
        const off_t hole = std::min(::lseek(image, data, SEEK_HOLE), end);
        if (hole < 0)
            return errno;
        if (const int err = copy_range(image, copy, data, hole); err != 0)
            return err;
        data = hole;
    }
    return 0;
}

// Bytes, owner and permissions of the image.
int copy_image(int image, int copy, std::uint64_t size) {
    struct stat status = {};
    if (::fstat(image, &status) != 0)
        return errno;
    if (::ioctl(copy, FICLONE, image) != 0)
        if (const int err = copy_bytes(image, copy, size); err != 0)
            return err;
    if (::fchown(copy, status.st_uid, status.st_gid) != 0 || ::fchmod(copy, status.st_mode & 07777) != 0)
        return errno;
    return 0;
}

int replace_in_copy(const char *path, const ttd_image_file &image, std::span<const std::uint8_t> superblock) {
    mktfs_temporary_file copy;
    if (!copy.name(path, ".ttdsign-XXXXXX"))
        return ENAMETOOLONG;
    if (const int err = copy.create(); err != 0)
        return err;
    if (const int err = copy_image(image.descriptor(), copy.descriptor(), image.size()); err != 0)
        return err;
    if (const int err = write_at(copy.descriptor(), superblock, image.size() - superblock.size()); err != 0)
        return err;
    if (const int err = flush(copy.descriptor()); err != 0)
        return err;
    return copy.rename_to(path);
}

bool is_device(int descriptor) {
    struct stat status = {};
    return ::fstat(descriptor, &status) != 0 || S_ISBLK(status.st_mode);
}

}  // namespace

int ttdsign_replace(const char *path, const ttd_image_file &image, const ttd_superblock &before,
                    const ttd_superblock &after) {
    const changed_span span = difference(before, after);
    if (span.begin == span.end)
        return 0;
    const std::uint64_t start = image.size() - TTD_SUPERBLOCK_SIZE;
    if ((start + span.begin) / PAGE != (start + span.end - 1) / PAGE)
        return is_device(image.descriptor()) ? EOPNOTSUPP : replace_in_copy(path, image, bytes_of(after));
    const auto changed = bytes_of(after).subspan(span.begin, span.end - span.begin);
    if (const int err = write_at(image.descriptor(), changed, start + span.begin); err != 0)
        return err;
    return flush(image.descriptor());
}
