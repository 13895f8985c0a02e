// I/O objects: the tool's one abstraction of a byte store with a position.  Five
// kinds share one operation table: growable memory, wrapped memory, a read-only
// mapping of a file, the same with zeros past the end, and an open file.
//
// Offsets and sizes are bytes.  Functions return 0 or an errno value and do not
// log, except the constructors that open files.  An object serves one thread at a
// time; reads of mappings may run in parallel.  Destroying owns up to nothing but
// the object's own state (a wrapped buffer or borrowed descriptor stays the
// caller's).
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "th/handle.h"

struct mktfs_io;

// Every slot gets the object after the checks of the functions below; none may
// be null.
struct mktfs_io_ops {
    // The bytes as memory, or null when there are none.
    std::uint8_t *(*buf)(mktfs_io &io) = nullptr;
    int (*read)(mktfs_io &io, std::int64_t offset, void *buffer, std::uint64_t length) = nullptr;
    // Offset -1 appends.
    int (*write)(mktfs_io &io, std::int64_t offset, const void *buffer, std::uint64_t length) = nullptr;
    std::uint64_t (*datasize)(mktfs_io &io) = nullptr;
    std::uint64_t (*size)(mktfs_io &io) = nullptr;
    int (*resize)(mktfs_io &io, std::uint64_t size) = nullptr;
    void (*destroy)(mktfs_io &io) = nullptr;
    void (*reset)(mktfs_io &io) = nullptr;
    int (*prune)(mktfs_io &io, std::int64_t offset, std::uint64_t length) = nullptr;
};

struct mktfs_io {
    const mktfs_io_ops *ops = nullptr;  // shared, static
    void *state = nullptr;              // owned, of the kind's own type
};

extern const mktfs_io_ops mem_io_ops;
extern const mktfs_io_ops memwrap_io_ops;
extern const mktfs_io_ops mmap_io_ops;
extern const mktfs_io_ops mmap_overflow_io_ops;
extern const mktfs_io_ops file_io_ops;

// ---- Constructors: `io` receives the new object, or null on failure.

// A growable, zero-filled buffer of `size` bytes.  ENOMEM.
[[nodiscard]] int mktfs_io_mem_create(std::uint64_t size, mktfs_io **io);
// The caller's buffer as a fixed object of that capacity.  ENOMEM.
[[nodiscard]] int mktfs_io_memwrap_create(void *buffer, std::uint64_t size, mktfs_io **io);
// Maps a whole file read-only.  EINVAL for a missing argument, else the error
// number of opening or mapping; logs both.  Directories are refused (EISDIR).
[[nodiscard]] int mktfs_io_mmap_create(const char *path, mktfs_io **io);
// The same; reads may go up to `virtual_size`, past the file's end they are zeros.
[[nodiscard]] int mktfs_io_mmap_overflow_create(const char *path, std::uint64_t virtual_size, mktfs_io **io);
// Wraps an open descriptor, which stays open on destroy.  EINVAL when negative.
[[nodiscard]] int mktfs_io_fd_create(int descriptor, mktfs_io **io);
// Opens a file with open(2) flags and mode (close-on-exec is added).  Logs a
// failed open and returns its error number.
[[nodiscard]] int mktfs_io_file_create(const char *path, int flags, mode_t mode, mktfs_io **io);

// ---- Operations

[[nodiscard]] std::uint8_t *mktfs_io_buf(mktfs_io *io);  // null for a null object
[[nodiscard]] int mktfs_io_read(mktfs_io *io, std::int64_t offset, void *buffer, std::uint64_t length);
[[nodiscard]] int mktfs_io_write(mktfs_io *io, std::int64_t offset, const void *buffer, std::uint64_t length);
[[nodiscard]] std::uint64_t mktfs_io_datasize(mktfs_io *io);
[[nodiscard]] std::uint64_t mktfs_io_size(mktfs_io *io);
[[nodiscard]] int mktfs_io_resize(mktfs_io *io, std::uint64_t size);
void mktfs_io_reset(mktfs_io *io);
[[nodiscard]] int mktfs_io_prune(mktfs_io *io, std::int64_t offset, std::uint64_t length);
void mktfs_io_destroy(mktfs_io *io);

// Appends the first min(data size of the source, length) bytes of the source to
// the destination.  0 for a null source; EINVAL for a null destination; else the
// first error of a read or write.
[[nodiscard]] int mktfs_io_merge(mktfs_io *destination, mktfs_io *source, std::uint64_t length);

// The descriptor of a file object; -1 for every other kind and null.
[[nodiscard]] int mktfs_io_descriptor(const mktfs_io *io);

// Closes the descriptor of an owning file object and reports what close said
// (write errors of some file systems appear only here); 0 for every other kind.
// The object may only be destroyed afterwards.
[[nodiscard]] int mktfs_io_close(mktfs_io *io);

using mktfs_io_ptr = th_handle<mktfs_io, mktfs_io_destroy>;
