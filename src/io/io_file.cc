// The file kind: an open descriptor, owned or borrowed.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "base/log.h"
#include "io/io_mem.h"

namespace {

struct file_state {
    int descriptor = -1;
    off_t offset = 0;  // remembered: the file offset after the last read or reset
    std::uint32_t flags = 0;
    std::uint8_t *mapping = nullptr;  // handed out by buf
    std::uint64_t mapping_length = 0;
};

constexpr std::uint64_t MAX_SIZE = std::numeric_limits<off_t>::max();
// Pieces of this size copy a mapping about four times as fast as single pages, and faster
// than larger ones; several of them pass between drops.
constexpr std::uint64_t MERGE_PIECE = 256 * 1024;
constexpr std::uint64_t DROP_WINDOW = 8 * MERGE_PIECE;

file_state &file(mktfs_io &io) {
    return *static_cast<file_state *>(io.state);
}

// The error of a call that failed or moved no byte: at the end of a file errno
// stays as it was.
int transfer_error() {
    return errno != 0 ? errno : EIO;
}

// Calls step(done) until `length` bytes are moved.  `done` counts the bytes moved.
// Returns 0 or the error that stopped it.
template <class Step>
int transfer(std::uint64_t length, std::uint64_t &done, Step step) {
    for (done = 0; done < length;) {
        errno = 0;
        const ssize_t moved = step(done);
        if (moved > 0)
            done += static_cast<std::uint64_t>(moved);
        else if (errno != EINTR)
            return transfer_error();
    }
    return 0;
}

int seek(const file_state &state, off_t offset, int whence, off_t &position) {
    position = lseek(state.descriptor, offset, whence);
    return position < 0 ? errno : 0;
}

int restore_offset(const file_state &state) {
    off_t position = 0;
    return seek(state, state.offset, SEEK_SET, position);
}

// The file's length; leaves the file offset at the remembered one.
int find_length(const file_state &state, std::uint64_t &length) {
    off_t end = 0;
    length = 0;
    if (const int err = seek(state, 0, SEEK_END, end); err != 0)
        return err;
    if (const int err = restore_offset(state); err != 0)
        return err;
    length = static_cast<std::uint64_t>(end);
    return 0;
}

void drop_mapping(file_state &state) {
    if (state.mapping)
        munmap(state.mapping, state.mapping_length);
    state.mapping = nullptr;
    state.mapping_length = 0;
}

std::uint8_t *file_buf(mktfs_io &io) {
    file_state &state = file(io);
    std::uint64_t length = 0;
    drop_mapping(state);
    if (find_length(state, length) != 0 || length == 0)
        return nullptr;
    void *mapping = mmap(nullptr, length, PROT_READ, MAP_SHARED, state.descriptor, 0);
    if (mapping == MAP_FAILED)
        return nullptr;
    state.mapping = static_cast<std::uint8_t *>(mapping);
    state.mapping_length = length;
    return state.mapping;
}

int file_read(mktfs_io &io, std::int64_t offset, void *buffer, std::uint64_t length) {
    file_state &state = file(io);
    off_t position = 0;
    if (const int err = seek(state, offset, SEEK_SET, position); err != 0)
        return err;
    std::uint64_t done = 0;
    const auto step = [&](std::uint64_t from) {
        return read(state.descriptor, static_cast<std::uint8_t *>(buffer) + from, length - from);
    };
    if (const int err = transfer(length, done, step); err != 0)
        return err;
    return seek(state, 0, SEEK_CUR, state.offset);
}

int file_write(mktfs_io &io, std::int64_t offset, const void *buffer, std::uint64_t length) {
    const file_state &state = file(io);
    off_t position = 0;
    const bool appends = offset == -1;
    if (const int err = seek(state, appends ? 0 : offset, appends ? SEEK_END : SEEK_SET, position); err != 0)
        return err;
    if (!appends && position != offset)
        return EIO;
    std::uint64_t done = 0;
    return transfer(length, done, [&](std::uint64_t from) {
        return write(state.descriptor, static_cast<const std::uint8_t *>(buffer) + from, length - from);
    });
}

std::uint64_t file_size(mktfs_io &io) {
    std::uint64_t length = 0;
    return find_length(file(io), length) == 0 ? length : 0;
}

int file_resize(mktfs_io &io, std::uint64_t size) {
    const file_state &state = file(io);
    if (state.flags & IO_FIXED)
        return ENOSYS;
    std::uint64_t length = 0;
    if (const int err = find_length(state, length); err != 0)
        return err;
    if (size < length)
        return ERANGE;
    if (size > MAX_SIZE)
        return EFBIG;
    return TEMP_FAILURE_RETRY(ftruncate(state.descriptor, static_cast<off_t>(size))) == 0 ? 0 : errno;
}

bool is_regular(const file_state &state) {
    struct stat status {};
    return fstat(state.descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

int file_extend(mktfs_io &io, std::uint64_t size) {
    if (!is_regular(file(io)))
        return EOPNOTSUPP;
    const int err = file_resize(io, size);
    return err == 0 || err == ERANGE ? err : EOPNOTSUPP;
}

int file_close(mktfs_io &io) {
    file_state &state = file(io);
    if (state.flags & IO_BORROWED || state.descriptor < 0)
        return 0;
    return close(std::exchange(state.descriptor, -1)) != 0 ? errno : 0;
}

void file_destroy(mktfs_io &io) {
    file_close(io);
    drop_mapping(file(io));
    delete &file(io);
}

void file_reset(mktfs_io &io) {
    file(io).offset = 0;
    (void)restore_offset(file(io));
}

int file_prune(mktfs_io &, std::int64_t, std::uint64_t) {
    return ENOSYS;
}

// Writes one piece at `offset`.  The system reports a mapping that lost its file as a bad
// address.
int write_piece(const file_state &state, off_t offset, const std::uint8_t *bytes, std::uint64_t length,
                std::uint64_t &done) {
    const int err = transfer(length, done, [&](std::uint64_t from) {
        return pwrite(state.descriptor, bytes + from, length - from, offset + static_cast<off_t>(from));
    });
    return err == EFAULT ? EIO : err;
}

bool has_holes(mktfs_io &source, std::uint64_t length) {
    for (std::uint64_t at = 0; at < length; at += IO_SMALLEST_HOLE)
        if (mktfs_io_hole(&source, at) > 0)
            return true;
    return false;
}

// Repeats a hole of the source in the file, which then ends there.
int append_hole(const file_state &state, off_t end) {
    return TEMP_FAILURE_RETRY(ftruncate(state.descriptor, end)) == 0 ? 0 : errno;
}

// What is appended: the first `length` bytes of a source, which lie at `bytes`.
struct appended_bytes {
    mktfs_io &source;
    const std::uint8_t *bytes;
    std::uint64_t length;
    mktfs_io_moved moved;
};

// `written`: bytes that reached the file, also on failure.
int append_pieces(const file_state &state, off_t start, const appended_bytes &from, std::uint64_t &written) {
    const bool keeps_holes = is_regular(state);
    const std::uint64_t length = from.length;
    std::uint64_t dropped = 0;
    for (written = 0; written < length;) {
        const std::uint64_t hole = keeps_holes ? mktfs_io_hole(&from.source, written) : 0;
        std::uint64_t done = std::min(hole, length - written);
        const int err = done > 0
                            ? append_hole(state, start + static_cast<off_t>(written + done))
                            : write_piece(state, start + static_cast<off_t>(written), from.bytes + written,
                                          std::min(MERGE_PIECE, length - written), done);
        written += done;
        from.moved(done);
        if (err != 0)
            return err;
        if (written - dropped >= DROP_WINDOW || written == length) {
            mktfs_io_drop(&from.source, dropped, written - dropped);
            dropped = written;
        }
    }
    return 0;
}

int file_append(mktfs_io &io, mktfs_io &source, const std::uint8_t *bytes, std::uint64_t length,
                mktfs_io_moved moved) {
    const file_state &state = file(io);
    off_t start = 0;
    if (const int err = seek(state, 0, SEEK_END, start); err != 0)
        return err;
    // Blocks reserved in one call are faster to write and lie together; where that fails,
    // the writes allocate them.
    if (length > MERGE_PIECE && !has_holes(source, length))
        (void)fallocate(state.descriptor, FALLOC_FL_KEEP_SIZE, start, static_cast<off_t>(length));
    std::uint64_t written = 0;
    const int err = append_pieces(state, start, {source, bytes, length, moved}, written);
    // As after a write, the file offset is behind the data.
    off_t position = 0;
    const int seek_error = seek(state, start + static_cast<off_t>(written), SEEK_SET, position);
    return err != 0 ? err : seek_error;
}

int file_descriptor(const mktfs_io &io) {
    return static_cast<const file_state *>(io.state)->descriptor;
}

// An object without a descriptor.
int make_file(std::uint32_t flags, mktfs_io_ptr &io) {
    std::unique_ptr<file_state> state(new (std::nothrow) file_state{.flags = flags});
    if (!state)
        return ENOMEM;
    if (const int err = io_make(file_io_ops, state.get(), th_out(io)); err != 0)
        return err;
    state.release();
    return 0;
}

// Completes the object, or destroys it.  A file that was just opened is at its beginning,
// whatever the system says, unless it has no position at all.
int take_descriptor(mktfs_io_ptr made, int descriptor, bool just_opened, mktfs_io **io) {
    file_state &state = file(*made);
    state.descriptor = descriptor;
    off_t position = 0;
    const int err = seek(state, 0, SEEK_CUR, position);
    if (err != 0 && (!just_opened || err == ESPIPE))
        return err;
    state.offset = err == 0 ? position : 0;
    *io = made.release();
    return 0;
}

}  // namespace

constinit const mktfs_io_ops file_io_ops = {
    .buf = file_buf,
    .read = file_read,
    .write = file_write,
    .datasize = file_size,
    .size = file_size,
    .resize = file_resize,
    .destroy = file_destroy,
    .reset = file_reset,
    .prune = file_prune,
    .append = file_append,
    .extend = file_extend,
    .descriptor = file_descriptor,
    .close = file_close,
};

int mktfs_io_fd_create(int descriptor, mktfs_io **io) {
    if (!io)
        return EINVAL;
    *io = nullptr;
    if (descriptor < 0)
        return EINVAL;
    mktfs_io_ptr made;
    if (const int err = make_file(IO_BORROWED, made); err != 0)
        return err;
    return take_descriptor(std::move(made), descriptor, false, io);
}

// The object comes first: a lack of memory leaves no file behind.
int mktfs_io_file_create(const char *path, int flags, mode_t mode, mktfs_io **io) {
    if (!path || !io)
        return EINVAL;
    *io = nullptr;
    mktfs_io_ptr made;
    if (const int err = make_file(0, made); err != 0)
        return err;
    const int descriptor = static_cast<int>(TEMP_FAILURE_RETRY(open(path, flags | O_CLOEXEC, mode)));
    if (descriptor < 0) {
        const int err = errno;
        return MKTFS_FAIL(err, "failed to open '%s' (%s)\n", path, strerror(err));
    }
    return take_descriptor(std::move(made), descriptor, true, io);
}
