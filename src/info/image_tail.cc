#include "info/image_tail.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

#include "base/input_file.h"
#include "ttd/format.h"

namespace {

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
    mktfs_input_file file;
    const int err = file.open(path);
    *size = file.size();
    if (err != 0)
        return err;
    if (*size < TTD_SUPERBLOCK_SIZE)
        return EINVAL;
    return read_exactly(file.descriptor(), reinterpret_cast<std::uint8_t *>(superblock), sizeof *superblock,
                        static_cast<off_t>(*size - TTD_SUPERBLOCK_SIZE));
}
