// A regular file or block device that is read at offsets.  Does not log.
#pragma once

#include <fcntl.h>

#include <cstddef>
#include <cstdint>

// Owns its descriptor.  Threads may read at the same time.
class th_file {
public:
    th_file() = default;
    th_file(const th_file &) = delete;
    th_file &operator=(const th_file &) = delete;
    ~th_file();

    // Called once.  `access` is O_RDONLY or O_RDWR.  Never waits for the other end of a
    // pipe.  EISDIR, EINVAL for any other kind of file, or the system's error number.
    [[nodiscard]] int open(const char *path, int access = O_RDONLY);
    // Takes over a descriptor that is open for reading; same errors.
    [[nodiscard]] int adopt(int descriptor);

    // Reads `length` bytes; `done` counts what was read, also on failure.  EIO when the
    // file ends before, else the system's error number.
    [[nodiscard]] int read(std::uint64_t offset, void *out, std::uint64_t length, std::uint64_t &done) const;

    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] std::uint64_t size() const { return size_; }  // bytes, when it was opened

private:
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
};
