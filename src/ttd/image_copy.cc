#include "ttd/image_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "ttd/bytes.h"

namespace {

constexpr std::uint64_t ZERO_PIECE = 256 * 1024;

bool is_regular(const mktfs_io &output) {
    struct stat status {};
    return fstat(mktfs_io_descriptor(&output), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

ttd_image_copy::ttd_image_copy(mktfs_io &output)
    : output_(output), regular_(is_regular(output)), start_(regular_ ? mktfs_io_size(&output) : 0) {}

// Blocks reserved in one call are faster to write and lie together; where that fails, the
// writes allocate them.
void ttd_image_copy::reserve(std::uint64_t length) {
    if (regular_ && length > 0)
        (void)fallocate(mktfs_io_descriptor(&output_), FALLOC_FL_KEEP_SIZE, static_cast<off_t>(start_),
                        static_cast<off_t>(length));
}

int ttd_image_copy::write_at(std::uint64_t offset, const std::uint8_t *bytes, std::uint64_t length) const {
    const int descriptor = mktfs_io_descriptor(&output_);
    for (std::uint64_t done = 0; done < length;) {
        const ssize_t put =
            pwrite(descriptor, bytes + done, length - done, static_cast<off_t>(offset + done));
        if (put > 0)
            done += static_cast<std::uint64_t>(put);
        else if (put == 0)
            return EIO;
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

void ttd_image_copy::write(std::uint64_t offset, const std::uint8_t *bytes, std::uint64_t length) {
    if (error_ != 0)
        return;
    const int err =
        regular_ ? write_at(start_ + offset, bytes, length) : mktfs_io_write(&output_, -1, bytes, length);
    int none = 0;
    if (err != 0)
        error_.compare_exchange_strong(none, err);
    else if (!regular_)
        appended_ += length;
}

std::uint64_t ttd_image_copy::size() const {
    return regular_ ? mktfs_io_size(&output_) - start_ : appended_;
}

int ttd_image_copy::append_zeros(std::uint64_t count) {
    ttd_bytes zeros;
    if (!zeros.allocate(ZERO_PIECE))
        return ENOMEM;
    while (count > 0) {
        const std::uint64_t piece = std::min(count, ZERO_PIECE);
        if (const int err = mktfs_io_write(&output_, -1, zeros.data(), piece); err != 0)
            return err;
        count -= piece;
    }
    return 0;
}

int ttd_image_copy::finish(std::uint64_t size_wanted) {
    if (error_ != 0)
        return error_;
    const std::uint64_t there = size();
    if (there >= size_wanted || mktfs_io_extend(&output_, start_ + size_wanted) == 0)
        return 0;
    return append_zeros(size_wanted - there);
}
