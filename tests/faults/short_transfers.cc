// Preloaded: every read and write moves less than was asked for: one byte (SHORT_TRANSFER=one) or one byte
// less.
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace {

std::size_t shortened(std::size_t length) {
    static const char *mode = std::getenv("SHORT_TRANSFER");
    if (mode == nullptr || length < 2)
        return length;
    return *mode == 'o' ? 1 : length - 1;
}

}  // namespace

ssize_t read(int descriptor, void *bytes, std::size_t length) {
    return syscall(SYS_read, descriptor, bytes, shortened(length));
}

ssize_t write(int descriptor, const void *bytes, std::size_t length) {
    return syscall(SYS_write, descriptor, bytes, shortened(length));
}

// What pread and pwrite are called with 64-bit offsets.
ssize_t pread64(int descriptor, void *bytes, std::size_t length, off64_t offset) {
    return syscall(SYS_pread64, descriptor, bytes, shortened(length), offset);
}

ssize_t pwrite64(int descriptor, const void *bytes, std::size_t length, off64_t offset) {
    return syscall(SYS_pwrite64, descriptor, bytes, shortened(length), offset);
}
