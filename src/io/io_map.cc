// The mapping kinds: a whole file as read-only memory, and the same with zeros
// past the end.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "base/log.h"
#include "io/io_state.h"

namespace {

// The file behind a mapping while it is being made.
class source_file {
public:
    // Never waits: a FIFO would block an open without O_NONBLOCK.
    explicit source_file(const char *path)
        : descriptor_(static_cast<int>(TEMP_FAILURE_RETRY(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)))),
          error_(descriptor_ < 0 ? errno : 0) {}
    ~source_file() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    source_file(const source_file &) = delete;
    source_file &operator=(const source_file &) = delete;

    // 0, or why the file cannot be taken as an input.
    [[nodiscard]] int find_size(std::uint64_t &size) const {
        struct stat status {};
        if (error_ != 0)
            return error_;
        if (fstat(descriptor_, &status) != 0)
            return errno;
        if (S_ISDIR(status.st_mode))
            return EISDIR;
        if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode))
            return EINVAL;
        const off_t end = S_ISREG(status.st_mode) ? status.st_size : lseek(descriptor_, 0, SEEK_END);
        size = static_cast<std::uint64_t>(end);
        return end < 0 ? errno : 0;
    }

    // Null for an empty file; `error` is 0 or the system's.
    [[nodiscard]] std::uint8_t *map(std::uint64_t size, int &error) const {
        error = 0;
        void *bytes = size == 0 ? nullptr : mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor_, 0);
        if (bytes == MAP_FAILED) {
            error = errno;
            return nullptr;
        }
        return static_cast<std::uint8_t *>(bytes);
    }

    // Null when memory is out, which only costs speed.
    [[nodiscard]] io_holes *find_holes(std::uint64_t size) const {
        return new (std::nothrow) io_holes(descriptor_, size);
    }

private:
    int descriptor_;
    int error_;
};

void unmap(std::uint8_t *bytes, std::uint64_t size) {
    if (bytes)
        munmap(bytes, size);
}

void map_destroy(mktfs_io &io) {
    unmap(io_mem(io).buffer, io_mem(io).capacity);
    delete io_mem(io).holes;
    delete &io_mem(io);
}

void map_drop(mktfs_io &io, std::uint64_t offset, std::uint64_t length) {
    const io_mem_state &mem = io_mem(io);
    const std::uint64_t page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    if (offset >= mem.capacity)
        return;
    const std::uint64_t end = offset + std::min(length, mem.capacity - offset);
    const std::uint64_t first_page = (offset + page - 1) / page * page;
    // The page with the end of the file holds nothing behind it.
    const std::uint64_t last_page = end == mem.capacity ? end : end / page * page;
    if (first_page < last_page)
        madvise(mem.buffer + first_page, last_page - first_page, MADV_DONTNEED);
}

std::uint64_t map_hole(mktfs_io &io, std::uint64_t offset) {
    const io_mem_state &mem = io_mem(io);
    return mem.holes ? mem.holes->length_at(offset) : 0;
}

int overflow_read(mktfs_io &io, std::int64_t offset, void *buffer, std::uint64_t length) {
    const io_mem_state &mem = io_mem(io);
    const int err = io_mem_check_read(mem, offset, length, mem.virtual_size);
    if (err != 0)
        return err;
    const std::uint64_t start = std::min(static_cast<std::uint64_t>(offset), mem.capacity);
    const std::uint64_t inside = std::min(length, mem.capacity - start);
    memcpy(buffer, mem.buffer + start, inside);
    memset(static_cast<std::uint8_t *>(buffer) + inside, 0, length - inside);
    return 0;
}

std::uint64_t overflow_size(mktfs_io &io) {
    return io_mem(io).virtual_size;
}

int map_file(const mktfs_io_ops &ops, const char *path, std::uint64_t virtual_size, mktfs_io **io) {
    const source_file file(path);
    std::uint64_t size = 0;
    int err = file.find_size(size);
    if (err != 0)
        return MKTFS_FAIL(err, "failed to open '%s' (%s)\n", path, strerror(err));
    std::uint8_t *bytes = file.map(size, err);
    if (err != 0)
        return MKTFS_FAIL(err, "failed to mmap '%s' (%s)\n", path, strerror(err));
    io_holes *holes = file.find_holes(size);
    err = io_mem_make(ops,
                      {.capacity = size,
                       .buffer = bytes,
                       .data_size = size,
                       .flags = IO_FIXED | IO_READ_ONLY,
                       .virtual_size = virtual_size,
                       .holes = holes},
                      io);
    if (err != 0) {
        delete holes;
        unmap(bytes, size);
    }
    return err;
}

}  // namespace

constinit const mktfs_io_ops mmap_io_ops = {
    .buf = io_mem_buf,
    .read = io_mem_read,
    .write = io_mem_write,
    .datasize = io_mem_datasize,
    .size = io_mem_size,
    .resize = io_mem_resize,
    .destroy = map_destroy,
    .reset = io_mem_reset,
    .prune = io_mem_prune,
    .bytes = io_mem_bytes,
    .drop = map_drop,
    .hole = map_hole,
};

constinit const mktfs_io_ops mmap_overflow_io_ops = {
    .buf = io_mem_buf,
    .read = overflow_read,
    .write = io_mem_write,
    .datasize = io_mem_datasize,
    .size = overflow_size,
    .resize = io_mem_resize,
    .destroy = map_destroy,
    .reset = io_mem_reset,
    .prune = io_mem_prune,
    .bytes = io_mem_bytes,
    .drop = map_drop,
    .hole = map_hole,
};

int mktfs_io_mmap_create(const char *path, mktfs_io **io) {
    if (!path || !io)
        return EINVAL;
    *io = nullptr;
    return map_file(mmap_io_ops, path, 0, io);
}

int mktfs_io_mmap_overflow_create(const char *path, std::uint64_t virtual_size, mktfs_io **io) {
    if (!path || !io)
        return EINVAL;
    *io = nullptr;
    return map_file(mmap_overflow_io_ops, path, virtual_size, io);
}
