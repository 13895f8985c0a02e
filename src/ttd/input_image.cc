#include "ttd/input_image.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "base/host.h"
#include "base/log.h"

namespace {

constexpr std::uint64_t LET_GO_SIZE = 1024 * 1024;  // bytes, released together

// A page fault maps this many bytes around it, as far as they are in memory.  No page is
// smaller than 4 KiB.
constexpr std::uint64_t FAULT_AROUND_SIZE = 64 * 1024;

bool same_time(const timespec &a, const timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool is_fetched(std::uint8_t *bytes, std::uint64_t size) {
    return madvise(bytes, size, MADV_POPULATE_READ) == 0;
}

// `size`: up to FAULT_AROUND_SIZE.
bool is_in_memory(std::uint8_t *bytes, std::uint64_t size) {
    std::uint8_t pages[FAULT_AROUND_SIZE / 4096];
    std::fill(std::begin(pages), std::end(pages), 1);
    return mincore(bytes, size, pages) == 0 &&
           std::all_of(std::begin(pages), std::end(pages),
                       [](std::uint8_t state) { return (state & 1) != 0; });
}

}  // namespace

ttd_input_image::~ttd_input_image() {
    if (mapping_)
        munmap(mapping_, size());
}

int ttd_input_image::open(const char *path) {
    int err = file_.open(path);
    if (err == 0 && fstat(file_.descriptor(), &opened_) != 0)
        err = errno;
    if (err != 0)
        return MKTFS_FAIL(err, "failed to open '%s' (%s)\n", path, strerror(err));
    sparse_ = mktfs_is_sparse(opened_);
    return 0;
}

// Nothing else uses the descriptor's offset, so threads may move it.
std::uint64_t ttd_input_image::seek(std::uint64_t offset, int whence) const {
    const off_t found = lseek(file_.descriptor(), static_cast<off_t>(offset), whence);
    if (found >= 0)
        return static_cast<std::uint64_t>(found);
    return whence == SEEK_DATA && errno != ENXIO ? offset : size();  // unknown: take it for data
}

std::uint64_t ttd_input_image::next_data(std::uint64_t offset) const {
    if (offset >= size())
        return size();
    return sparse_ ? std::min(seek(offset, SEEK_DATA), size()) : offset;
}

std::uint64_t ttd_input_image::next_hole(std::uint64_t offset) const {
    return sparse_ && offset < size() ? std::min(seek(offset, SEEK_HOLE), size()) : size();
}

int ttd_input_image::read(std::uint64_t offset, std::uint8_t *buffer, std::uint64_t length,
                          std::uint64_t &done) const {
    return file_.read(offset, buffer, length, done);
}

void ttd_input_image::map() {
    if (size() == 0)
        return;
    void *bytes = mmap(nullptr, size(), PROT_READ, MAP_SHARED, file_.descriptor(), 0);
    if (bytes == MAP_FAILED)
        return;
    mapping_ = static_cast<std::uint8_t *>(bytes);
    madvise(mapping_, size(), MADV_SEQUENTIAL);
}

// Fetches the pages by calls that return an error where a page fault would end the process.
// The first page of each window brings the others, if they are in memory.
const std::uint8_t *ttd_input_image::in_place(std::uint64_t offset, std::uint64_t length) const {
    if (!mapping_ || offset >= size() || length > size() - offset)
        return nullptr;
    const std::uint64_t page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    std::uint64_t next = 0;
    for (std::uint64_t at = offset / page * page; at < offset + length; at = next) {
        next = std::min((at / FAULT_AROUND_SIZE + 1) * FAULT_AROUND_SIZE, offset + length);
        std::uint8_t *bytes = mapping_ + at;
        if (!is_fetched(bytes, 1) || (!is_in_memory(bytes, next - at) && !is_fetched(bytes, next - at)))
            return nullptr;
    }
    return mapping_ + offset;
}

void ttd_input_image::let_go(std::uint64_t offset, std::uint64_t length) const {
    const std::uint64_t end = (offset + length) / LET_GO_SIZE * LET_GO_SIZE;
    if (mapping_ && end > offset && end <= size())
        madvise(mapping_ + end - LET_GO_SIZE, LET_GO_SIZE, MADV_DONTNEED);
}

bool ttd_input_image::has_changed() const {
    struct stat now {};
    return fstat(file_.descriptor(), &now) != 0 || now.st_size != opened_.st_size ||
           !same_time(now.st_mtim, opened_.st_mtim);
}
