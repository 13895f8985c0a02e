// A fuzzer's input as a build file, read through the same calls as any other.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

class build_file_input {
public:
    build_file_input(const std::uint8_t *data, std::size_t size)
        : descriptor_(memfd_create("in", MFD_CLOEXEC)) {
        if (descriptor_ < 0 || write(descriptor_, data, size) != static_cast<ssize_t>(size))
            std::abort();
        path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    }
    ~build_file_input() { close(descriptor_); }
    build_file_input(const build_file_input &) = delete;
    build_file_input &operator=(const build_file_input &) = delete;

    [[nodiscard]] const char *path() const { return path_.c_str(); }

private:
    int descriptor_;
    std::string path_;
};

// What the scanner copies to standard output is of no interest.
inline void discard_standard_output() {
    if (!std::freopen("/dev/null", "w", stdout))
        std::abort();
}
