// The engine's I/O object.
#pragma once

#include <cstdint>

// Where the engine reads from.  `read` returns 0 or an errno value; `destroy` ends
// what the handle stands for (ttd_io_destroy frees the record itself, made with new).
struct ttd_io {
    int (*read)(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) = nullptr;
    void (*destroy)(ttd_io *io) = nullptr;
    void *handle = nullptr;
};

// Reads exactly `length` bytes into the caller's buffer: 0 or the error of the slot.
[[nodiscard]] int ttd_io_read(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length);
void ttd_io_destroy(ttd_io *io);  // null-safe
