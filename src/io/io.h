// I/O objects: the tool's one abstraction of a byte store with a position.  Five
// kinds share one operation table: growable memory, wrapped memory, a read-only
// mapping of a file, the same with zeros past the end, and an open file.
//
// Offsets and sizes are bytes.  Functions return 0 or an errno value and do not
// log, except the constructors that open files.  An object serves one thread at a
// time; reads of mappings may run in parallel.  An object owns its state and what it
// opened or allocated itself; a wrapped buffer or a borrowed descriptor stays the
// caller's.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "th/handle.h"

struct mktfs_io;

// Told of each further `bytes` that were copied.
using mktfs_io_moved = void (*)(std::uint64_t bytes);

// The functions below make the checks that their comments name, then call the slot; each
// slot does and returns what its function promises.
struct mktfs_io_ops {
    // Every kind fills the slots from here ...
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
    // ... to here.  Null in the rest means that the kind has no such thing.
    // The bytes [0, data size) if they are in memory already (nothing is mapped for this);
    // a merge into a file takes them from there.
    const std::uint8_t *(*bytes)(mktfs_io &io) = nullptr;
    // Appends the first `length` bytes of `source`, which lie at `bytes`, and drops
    // them from the source as it goes.
    int (*append)(mktfs_io &io, mktfs_io &source, const std::uint8_t *bytes, std::uint64_t length,
                  mktfs_io_moved moved) = nullptr;
    void (*drop)(mktfs_io &io, std::uint64_t offset, std::uint64_t length) = nullptr;
    std::uint64_t (*hole)(mktfs_io &io, std::uint64_t offset) = nullptr;
    int (*extend)(mktfs_io &io, std::uint64_t size) = nullptr;
    int (*descriptor)(const mktfs_io &io) = nullptr;
    int (*close)(mktfs_io &io) = nullptr;
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
// The caller's buffer, borrowed for the object's life, as a fixed object of that
// capacity.  ENOMEM.
[[nodiscard]] int mktfs_io_memwrap_create(void *buffer, std::uint64_t size, mktfs_io **io);
// Maps a whole file or block device read-only; the object is fixed, and writing or
// pruning its bytes gives EACCES.  EINVAL for a missing argument, else the error
// number of opening or mapping; logs both.  A directory (EISDIR) and whatever else
// has no size, like a FIFO or character device (EINVAL), count as failed to open
// and are never waited for.
[[nodiscard]] int mktfs_io_mmap_create(const char *path, mktfs_io **io);
// The same; reads may go up to `virtual_size`, past the file's end they are zeros.
[[nodiscard]] int mktfs_io_mmap_overflow_create(const char *path, std::uint64_t virtual_size, mktfs_io **io);
// Wraps an open descriptor, which stays open on destroy.  EINVAL when negative.
[[nodiscard]] int mktfs_io_fd_create(int descriptor, mktfs_io **io);
// Opens a file with open(2) flags and mode (close-on-exec is added).  Logs a
// failed open and returns its error number.
[[nodiscard]] int mktfs_io_file_create(const char *path, int flags, mode_t mode, mktfs_io **io);

// ---- Operations.  A null object gives EINVAL, null or 0.

// The object's bytes, borrowed; null when it has none.  A file is mapped, until the
// next call or destroy.
[[nodiscard]] std::uint8_t *mktfs_io_buf(mktfs_io *io);
// Reads exactly `length` bytes.  EINVAL for a null buffer, a length of 0 or an
// offset outside the object; ERANGE when the end lies outside; EIO or the system's
// error number for files.  Memory is bounded by its capacity, not its data size.
[[nodiscard]] int mktfs_io_read(mktfs_io *io, std::int64_t offset, void *buffer, std::uint64_t length);
// Writes exactly `length` bytes (0 is allowed); offset -1 appends.  EINVAL for a
// null buffer or a lower offset; ERANGE past the end of a fixed object, ENOMEM when
// another cannot grow; the system's error number for files, which may then hold a
// part of the bytes.
[[nodiscard]] int mktfs_io_write(mktfs_io *io, std::int64_t offset, const void *buffer, std::uint64_t length);
// Memory: the highest byte written plus one; files and mappings: the file's length.
[[nodiscard]] std::uint64_t mktfs_io_datasize(mktfs_io *io);
// How far reads may reach.
[[nodiscard]] std::uint64_t mktfs_io_size(mktfs_io *io);
// Makes the object larger; new bytes of memory are undefined, those of a file zero.
// ENOSYS for a fixed object, ERANGE for a smaller size, ENOMEM.
[[nodiscard]] int mktfs_io_resize(mktfs_io *io, std::uint64_t size);
// Sets the position to the start; the data size of memory becomes 0 (the bytes stay).
void mktfs_io_reset(mktfs_io *io);
// Takes a range out of the data of a memory object and moves the rest down.  EINVAL
// for a negative offset, ERANGE for a range that ends behind the data, ENOSYS for
// files.
[[nodiscard]] int mktfs_io_prune(mktfs_io *io, std::int64_t offset, std::uint64_t length);
void mktfs_io_destroy(mktfs_io *io);

// Appends the first min(data size of the source, length) bytes of the source to the
// destination, in pieces; `moved` is told of each.  0 for a null source or nothing to copy;
// EINVAL for a null destination; else the first error of a read or write, EIO for a mapping
// that lost its file, with what comes before it copied.  Ranges of a mapping that were
// copied into a file are dropped as by mktfs_io_drop; its holes become holes of a regular
// file.
[[nodiscard]] int mktfs_io_merge(
    mktfs_io *destination, mktfs_io *source, std::uint64_t length,
    mktfs_io_moved moved = [](std::uint64_t) {});

// Tells a mapping that the range will not be read again soon: the whole pages in it
// no longer count as the process's memory (reading them again works, and is slower).
// Nothing for other kinds and for ranges outside the file.
void mktfs_io_drop(mktfs_io *io, std::uint64_t offset, std::uint64_t length);

// Bytes from `offset` on that a mapping knows to be zeros without looking: a hole of
// a sparse file.  0 where there is data, for other kinds and for null.
[[nodiscard]] std::uint64_t mktfs_io_hole(mktfs_io *io, std::uint64_t offset);

// Makes a file longer by a hole, which reads as zeros.  0; ERANGE when the file is
// longer already; EOPNOTSUPP when there can be no hole (another kind of object,
// another file than a regular one, a failure): then write zeros instead.
[[nodiscard]] int mktfs_io_extend(mktfs_io *io, std::uint64_t size);

// The descriptor of a file object, borrowed; -1 for every other kind and null.
[[nodiscard]] int mktfs_io_descriptor(const mktfs_io *io);

// Closes the descriptor of an owning file object and reports what close said
// (write errors of some file systems appear only here); 0 for every other kind.
// The object may only be destroyed afterwards.
[[nodiscard]] int mktfs_io_close(mktfs_io *io);

using mktfs_io_ptr = th_handle<mktfs_io, mktfs_io_destroy>;

// For the kinds: an object around `state`, which it owns from then on; ENOMEM leaves it alone.
[[nodiscard]] int io_make(const mktfs_io_ops &ops, void *state, mktfs_io **io);
