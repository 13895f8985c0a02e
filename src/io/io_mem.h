// The private states behind I/O objects, and what the memory kind lends to the
// mapping kinds.  Only the files of this folder include this.
#pragma once

#include <cstdint>

#include "io/holes.h"
#include "io/io.h"

inline constexpr std::uint32_t IO_FIXED = 0x1;       // the store may not be resized
inline constexpr std::uint32_t IO_READ_ONLY = 0x2;   // memory kinds: the bytes may not change
inline constexpr std::uint32_t IO_BORROWED = 0x100;  // file kind: never close the descriptor

// State of the memory, memory-wrap and both mapping kinds.
struct io_mem_state {
    std::uint64_t capacity = 0;
    std::uint8_t *buffer = nullptr;  // malloc'd, the caller's or a mapping, by kind
    std::int64_t position = 0;       // where an append writes next; never negative
    std::uint64_t data_size = 0;     // highest byte written plus one
    std::uint32_t flags = 0;
    std::uint64_t virtual_size = 0;  // overflow mapping: how far reads may reach
    io_holes *holes = nullptr;       // mapping kinds: owned
};

inline io_mem_state &io_mem(mktfs_io &io) {
    return *static_cast<io_mem_state *>(io.state);
}

// An object of a memory or mapping kind; ENOMEM leaves the buffer to the caller.
[[nodiscard]] int io_mem_make(const mktfs_io_ops &ops, const io_mem_state &initial, mktfs_io **io);

// Checks a read against `limit` bytes and the presence of a buffer: 0, EINVAL or
// ERANGE in the order that mktfs_io_read promises.
[[nodiscard]] int io_mem_check_read(const io_mem_state &mem, std::int64_t offset, std::uint64_t length,
                                    std::uint64_t limit);

std::uint8_t *io_mem_buf(mktfs_io &io);
int io_mem_read(mktfs_io &io, std::int64_t offset, void *buffer, std::uint64_t length);
int io_mem_write(mktfs_io &io, std::int64_t offset, const void *buffer, std::uint64_t length);
std::uint64_t io_mem_datasize(mktfs_io &io);
std::uint64_t io_mem_size(mktfs_io &io);
int io_mem_resize(mktfs_io &io, std::uint64_t size);
void io_mem_reset(mktfs_io &io);
int io_mem_prune(mktfs_io &io, std::int64_t offset, std::uint64_t length);
const std::uint8_t *io_mem_bytes(mktfs_io &io);

// What the memory and mapping kinds start from: each replaces or adds what is its own, and
// each needs a destroy of its own.
inline constexpr mktfs_io_ops IO_MEM_OPS = {
    .buf = io_mem_buf,
    .read = io_mem_read,
    .write = io_mem_write,
    .datasize = io_mem_datasize,
    .size = io_mem_size,
    .resize = io_mem_resize,
    .reset = io_mem_reset,
    .prune = io_mem_prune,
    .bytes = io_mem_bytes,
};
