// The operations that every kind shares: the checks before dispatch, and merge.
#include "io/io.h"

#include <errno.h>

#include <algorithm>
#include <new>

#include "io/io_state.h"

namespace {

constexpr std::uint64_t CHUNK = 4096;  // bytes on the stack

int copy_in_chunks(mktfs_io *destination, mktfs_io *source, std::uint64_t length, mktfs_io_moved moved) {
    std::uint8_t chunk[CHUNK];
    for (std::uint64_t done = 0; done < length;) {
        const std::uint64_t step = std::min(CHUNK, length - done);
        if (const int err = mktfs_io_read(source, static_cast<std::int64_t>(done), chunk, step); err != 0)
            return err;
        if (const int err = mktfs_io_write(destination, -1, chunk, step); err != 0)
            return err;
        done += step;
        moved(step);
    }
    return 0;
}

}  // namespace

int io_make(const mktfs_io_ops &ops, void *state, mktfs_io **io) {
    *io = new (std::nothrow) mktfs_io{&ops, state};
    return *io ? 0 : ENOMEM;
}

std::uint8_t *mktfs_io_buf(mktfs_io *io) {
    return io ? io->ops->buf(*io) : nullptr;
}

int mktfs_io_read(mktfs_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    return !io || !buffer || length == 0 ? EINVAL : io->ops->read(*io, offset, buffer, length);
}

int mktfs_io_write(mktfs_io *io, std::int64_t offset, const void *buffer, std::uint64_t length) {
    return !io || !buffer ? EINVAL : io->ops->write(*io, offset, buffer, length);
}

std::uint64_t mktfs_io_datasize(mktfs_io *io) {
    return io ? io->ops->datasize(*io) : 0;
}

std::uint64_t mktfs_io_size(mktfs_io *io) {
    return io ? io->ops->size(*io) : 0;
}

int mktfs_io_resize(mktfs_io *io, std::uint64_t size) {
    return io ? io->ops->resize(*io, size) : EINVAL;
}

void mktfs_io_reset(mktfs_io *io) {
    if (io)
        io->ops->reset(*io);
}

int mktfs_io_prune(mktfs_io *io, std::int64_t offset, std::uint64_t length) {
    return !io || offset < 0 ? EINVAL : io->ops->prune(*io, offset, length);
}

void mktfs_io_destroy(mktfs_io *io) {
    if (!io)
        return;
    io->ops->destroy(*io);
    delete io;
}

int mktfs_io_merge(mktfs_io *destination, mktfs_io *source, std::uint64_t length, mktfs_io_moved moved) {
    length = std::min(mktfs_io_datasize(source), length);
    if (length == 0)
        return 0;
    const std::uint8_t *bytes = source->ops->bytes ? source->ops->bytes(*source) : nullptr;
    const bool readable = length <= mktfs_io_size(source);  // else as far as reads get
    if (bytes && readable && destination && destination->ops->append)
        return destination->ops->append(*destination, *source, bytes, length, moved);
    return copy_in_chunks(destination, source, length, moved);
}

void mktfs_io_drop(mktfs_io *io, std::uint64_t offset, std::uint64_t length) {
    if (io && io->ops->drop)
        io->ops->drop(*io, offset, length);
}

std::uint64_t mktfs_io_hole(mktfs_io *io, std::uint64_t offset) {
    return io && io->ops->hole ? io->ops->hole(*io, offset) : 0;
}

int mktfs_io_extend(mktfs_io *io, std::uint64_t size) {
    if (!io)
        return EINVAL;
    return io->ops->extend ? io->ops->extend(*io, size) : EOPNOTSUPP;
}

int mktfs_io_descriptor(const mktfs_io *io) {
    return io && io->ops->descriptor ? io->ops->descriptor(*io) : -1;
}

int mktfs_io_close(mktfs_io *io) {
    return io && io->ops->close ? io->ops->close(*io) : 0;
}
