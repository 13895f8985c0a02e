#include "io/holes.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "base/host.h"

namespace {

constexpr std::size_t MOST = 4096;

bool is_sparse(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && mktfs_is_sparse(status);
}

// The next place of a kind (SEEK_HOLE, SEEK_DATA), or the end when there is none.
std::uint64_t next(int descriptor, std::uint64_t from, int kind, std::uint64_t size) {
    const off_t found = lseek(descriptor, static_cast<off_t>(from), kind);
    return found < 0 ? size : std::min(static_cast<std::uint64_t>(found), size);
}

}  // namespace

io_holes::io_holes(int descriptor, std::uint64_t size) noexcept {
    if (!is_sparse(descriptor))
        return;
    ranges_.reset(new (std::nothrow) range[MOST]);
    for (std::uint64_t at = 0; ranges_ && at < size && count_ < MOST;) {
        const std::uint64_t start = next(descriptor, at, SEEK_HOLE, size);
        at = next(descriptor, start, SEEK_DATA, size);
        if (at - start >= IO_SMALLEST_HOLE)
            ranges_[count_++] = {start, at};
    }
}

std::uint64_t io_holes::length_at(std::uint64_t offset) const {
    const range *end = ranges_.get() + count_;
    const range *hole = std::ranges::upper_bound(ranges_.get(), end, offset, {}, &range::end);
    return hole != end && hole->start <= offset ? hole->end - offset : 0;
}
