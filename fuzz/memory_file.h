// Bytes of a fuzzer as a file without a name on disk, read through the same calls as
// any other.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "support/require.h"

class memory_file {
public:
    memory_file(const void *data, std::size_t size) : descriptor_(memfd_create("in", MFD_CLOEXEC)) {
        require(descriptor_ >= 0 && write(descriptor_, data, size) == static_cast<ssize_t>(size));
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~memory_file() { close(descriptor_); }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;

    [[nodiscard]] const char *path() const { return path_.c_str(); }
    [[nodiscard]] int descriptor() const { return descriptor_; }

private:
    int descriptor_;
    std::string path_;
};
