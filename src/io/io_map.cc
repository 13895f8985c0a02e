// The mapping kinds: a whole file as read-only memory, and the same with zeros
// past the end.
#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "base/log.h"
#include "io/io_mem.h"
#include "th/file.h"

namespace {

// Null for an empty file; `error` is 0 or the system's.
std::uint8_t *map(const th_file &file, int &error) {
    void *bytes = nullptr;
    if (file.size() > 0)
        bytes = mmap(nullptr, file.size(), PROT_READ, MAP_SHARED, file.descriptor(), 0);
    error = bytes == MAP_FAILED ? errno : 0;
    return error == 0 ? static_cast<std::uint8_t *>(bytes) : nullptr;
}

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
    if (const int err = io_mem_check_read(mem, offset, length, mem.virtual_size); err != 0)
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
    th_file file;
    if (const int err = file.open(path); err != 0)
        return MKTFS_FAIL(err, "failed to open '%s' (%s)\n", path, strerror(err));
    int map_error = 0;
    std::uint8_t *bytes = map(file, map_error);
    if (map_error != 0)
        return MKTFS_FAIL(map_error, "failed to mmap '%s' (%s)\n", path, strerror(map_error));
    // Without them reads are only slower.
    io_holes *holes = new (std::nothrow) io_holes(file.descriptor(), file.size());
    const io_mem_state initial = {.capacity = file.size(),
                                  .buffer = bytes,
                                  .data_size = file.size(),
                                  .flags = IO_FIXED | IO_READ_ONLY,
                                  .virtual_size = virtual_size,
                                  .holes = holes};
    if (const int err = io_mem_make(ops, initial, io); err != 0) {
        delete holes;
        unmap(bytes, file.size());
        return err;
    }
    return 0;
}

}  // namespace

constexpr mktfs_io_ops mmap_io_ops = [] {
    mktfs_io_ops ops = IO_MEM_OPS;
    ops.destroy = map_destroy;
    ops.drop = map_drop;
    ops.hole = map_hole;
    return ops;
}();

constexpr mktfs_io_ops mmap_overflow_io_ops = [] {
    mktfs_io_ops ops = mmap_io_ops;
    ops.read = overflow_read;
    ops.size = overflow_size;
    return ops;
}();

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
