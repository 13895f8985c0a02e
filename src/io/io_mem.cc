// The memory kinds: a growable buffer of the object's own, and the caller's fixed
// buffer.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "io/io_mem.h"

namespace {

constexpr std::uint64_t MAX_END = std::numeric_limits<std::int64_t>::max();

void mem_destroy(mktfs_io &io) {
    free(io_mem(io).buffer);
    delete &io_mem(io);
}

void memwrap_destroy(mktfs_io &io) {
    delete &io_mem(io);
}

int make_room(mktfs_io &io, std::uint64_t end) {
    const io_mem_state &mem = io_mem(io);
    if (end <= mem.capacity)
        return 0;
    return mem.flags & IO_FIXED ? ERANGE : io_mem_resize(io, end);
}

}  // namespace

int io_mem_check_read(const io_mem_state &mem, std::int64_t offset, std::uint64_t length,
                      std::uint64_t limit) {
    if (offset < 0 || static_cast<std::uint64_t>(offset) > limit || !mem.buffer)
        return EINVAL;
    return length > limit - static_cast<std::uint64_t>(offset) ? ERANGE : 0;
}

std::uint8_t *io_mem_buf(mktfs_io &io) {
    return io_mem(io).buffer;
}

const std::uint8_t *io_mem_bytes(mktfs_io &io) {
    return io_mem(io).buffer;
}

int io_mem_read(mktfs_io &io, std::int64_t offset, void *buffer, std::uint64_t length) {
    const io_mem_state &mem = io_mem(io);
    if (const int err = io_mem_check_read(mem, offset, length, mem.capacity); err != 0)
        return err;
    memcpy(buffer, mem.buffer + offset, length);
    return 0;
}

int io_mem_write(mktfs_io &io, std::int64_t offset, const void *buffer, std::uint64_t length) {
    io_mem_state &mem = io_mem(io);
    if (offset < -1 || !mem.buffer)
        return EINVAL;
    const std::uint64_t start = static_cast<std::uint64_t>(offset == -1 ? mem.position : offset);
    // No buffer can be that long, so an end that does not fit a position is out of
    // memory, or out of range, like every other end that is too high.
    const std::uint64_t end =
        length > MAX_END - start ? std::numeric_limits<std::uint64_t>::max() : start + length;
    if (const int err = make_room(io, end); err != 0)
        return err;
    if (length > 0 && mem.flags & IO_READ_ONLY)
        return EACCES;
    memmove(mem.buffer + start, buffer, length);
    mem.position = static_cast<std::int64_t>(end);
    mem.data_size = std::max(mem.data_size, end);
    return 0;
}

std::uint64_t io_mem_datasize(mktfs_io &io) {
    return io_mem(io).data_size;
}

std::uint64_t io_mem_size(mktfs_io &io) {
    return io_mem(io).capacity;
}

int io_mem_resize(mktfs_io &io, std::uint64_t size) {
    io_mem_state &mem = io_mem(io);
    if (mem.flags & IO_FIXED)
        return ENOSYS;
    if (size < mem.capacity)
        return ERANGE;
    void *buffer = size > MAX_END ? nullptr : realloc(mem.buffer, std::max<std::uint64_t>(size, 1));
    if (!buffer)
        return ENOMEM;
    mem.buffer = static_cast<std::uint8_t *>(buffer);
    mem.capacity = size;
    return 0;
}

void io_mem_reset(mktfs_io &io) {
    io_mem(io).position = 0;
    io_mem(io).data_size = 0;
}

int io_mem_prune(mktfs_io &io, std::int64_t offset, std::uint64_t length) {
    io_mem_state &mem = io_mem(io);
    const std::uint64_t start = static_cast<std::uint64_t>(offset);
    if (start > mem.data_size || length > mem.data_size - start)
        return ERANGE;
    if (length == 0)
        return 0;
    if (mem.flags & IO_READ_ONLY)
        return EACCES;
    mem.data_size -= length;
    memmove(mem.buffer + start, mem.buffer + start + length, mem.data_size - start);
    memset(mem.buffer + mem.data_size, 0, length);
    mem.position = std::max<std::int64_t>(mem.position - static_cast<std::int64_t>(length), 0);
    return 0;
}

constexpr mktfs_io_ops mem_io_ops = [] {
    mktfs_io_ops ops = IO_MEM_OPS;
    ops.destroy = mem_destroy;
    return ops;
}();

constexpr mktfs_io_ops memwrap_io_ops = [] {
    mktfs_io_ops ops = IO_MEM_OPS;
    ops.destroy = memwrap_destroy;  // the buffer stays the caller's
    return ops;
}();

int io_mem_make(const mktfs_io_ops &ops, const io_mem_state &initial, mktfs_io **io) {
    std::unique_ptr<io_mem_state> mem(new (std::nothrow) io_mem_state(initial));
    if (!mem)
        return ENOMEM;
    if (const int err = io_make(ops, mem.get(), io); err != 0)
        return err;
    mem.release();
    return 0;
}

int mktfs_io_mem_create(std::uint64_t size, mktfs_io **io) {
    if (!io)
        return EINVAL;
    *io = nullptr;
    // At least one byte, so that an empty object has a buffer, too.
    void *buffer = size > MAX_END ? nullptr : calloc(std::max<std::uint64_t>(size, 1), 1);
    if (!buffer)
        return ENOMEM;
    const int err =
        io_mem_make(mem_io_ops, {.capacity = size, .buffer = static_cast<std::uint8_t *>(buffer)}, io);
    if (err != 0)
        free(buffer);
    return err;
}

int mktfs_io_memwrap_create(void *buffer, std::uint64_t size, mktfs_io **io) {
    if (!io)
        return EINVAL;
    *io = nullptr;
    return io_mem_make(memwrap_io_ops,
                       {.capacity = size, .buffer = static_cast<std::uint8_t *>(buffer), .flags = IO_FIXED},
                       io);
}
