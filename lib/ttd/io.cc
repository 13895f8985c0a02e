#include "ttd/io.h"

int ttd_io_read(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    return io->read(io, offset, buffer, length);
}

void ttd_io_destroy(ttd_io *io) {
    if (!io)
        return;
    io->destroy(io);
    delete io;
}
