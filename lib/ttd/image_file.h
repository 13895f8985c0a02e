// An image in a regular file or on a block device, and its superblock, the last 4096
// bytes.  Does not log.
#pragma once

#include <cstddef>
#include <cstdint>

#include "th/file.h"

struct ttd_superblock;

class ttd_image_file {
public:
    // Opens the image; `writable` for its superblock to be replaced.  EISDIR, or EINVAL
    // for another kind of file or one that is too short (its size is then known); else
    // the system's error number.
    [[nodiscard]] int open(const char *path, bool writable);
    // Takes over a descriptor that is open for reading; same errors.
    [[nodiscard]] int adopt(int descriptor);

    // Reads `length` bytes.  EIO when the file ends before them.
    [[nodiscard]] int read(std::uint64_t offset, void *out, std::size_t length) const;
    [[nodiscard]] int read_superblock(ttd_superblock *superblock) const;

    [[nodiscard]] int descriptor() const { return file_.descriptor(); }
    [[nodiscard]] std::uint64_t size() const { return file_.size(); }  // bytes

private:
    th_file file_;
};
