// What fuzzers make of their bytes: a file, or a small image.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "support/require.h"
#include "ttd/format.h"

// A file without a name on disk, read through the same calls as any other.
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

using image_bytes = std::vector<std::uint8_t>;

// One byte of choices, the superblock's signed fields, where mutations hit them, then what
// lies in front of the superblock.
struct image_input {
    image_input(const std::uint8_t *data, std::size_t size) {
        const std::uint8_t *const end = data + size;
        choices = size > 0 ? *data++ : std::uint8_t{0};
        const auto fields = std::min<std::size_t>(static_cast<std::size_t>(end - data), TTD_SIGNED_SIZE);
        std::memcpy(&superblock, data, fields);
        image.assign(data + fields, end);
        image.resize(image.size() + TTD_SUPERBLOCK_SIZE);
        if (choose(0)) {  // which few inputs would hit
            superblock.magic = TTD_MAGIC;
            superblock.version = TTD_VERSION;
        }
        store();
    }

    [[nodiscard]] bool choose(unsigned bit) const {
        return (choices >> bit & 1) != 0;
    }  // Puts the superblock at its place.
    void store() {
        std::memcpy(image.data() + image.size() - TTD_SUPERBLOCK_SIZE, &superblock, sizeof superblock);
    }

    std::uint8_t choices = 0;
    ttd_superblock superblock{};
    image_bytes image;
};

// Takes the place of a log function.
inline int log_nothing(int, const char *, ...) {
    return 0;
}
