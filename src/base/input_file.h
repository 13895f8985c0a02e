// A file that is read as an image: a regular file or block device, open read-only.
#pragma once

#include <cstdint>

// Owns its descriptor.
class mktfs_input_file {
public:
    mktfs_input_file() = default;
    ~mktfs_input_file();
    mktfs_input_file(const mktfs_input_file &) = delete;
    mktfs_input_file &operator=(const mktfs_input_file &) = delete;

    // Called once.  Never waits for the other end of a pipe.  EISDIR, EINVAL for any
    // other kind of file, or the system's error number.  Does not log.
    [[nodiscard]] int open(const char *path);

    [[nodiscard]] int descriptor() const { return descriptor_; }
    [[nodiscard]] std::uint64_t size() const { return size_; }  // bytes, when it was opened

private:
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
};
