#include "talg/memalign.h"

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

namespace {

std::size_t page_size() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// The next multiple of `unit`, a power of two; wraps to 0 at the end of the
// address space.
constexpr std::size_t round_up(std::size_t value, std::size_t unit) {
    return (value + unit - 1) & ~(unit - 1);
}

// Unmaps, leaving errno alone: the failing step before it is what counts.
void unmap(char *start, std::size_t length) {
    const int saved = errno;
    if (length != 0)
        munmap(start, length);
    errno = saved;
}

void *fail(int err) {
    errno = err;
    return nullptr;
}

}  // namespace

void *talg_memalign_alloc(std::size_t size, std::size_t alignment) {
    if (alignment == 0)
        alignment = 1;
    if (!std::has_single_bit(alignment) || size == 0)
        return fail(EINVAL);
    const std::size_t page = page_size();
    const std::size_t boundary = round_up(alignment, page);
    const std::size_t length = round_up(size, page);
    std::size_t reserved = 0;
    if (length == 0 || __builtin_add_overflow(boundary - page, length, &reserved))
        return fail(ENOMEM);

    void *mapping = mmap(nullptr, reserved, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED)
        return nullptr;
    char *const start = static_cast<char *>(mapping);
    const auto address = reinterpret_cast<std::uintptr_t>(start);
    const std::size_t head = round_up(address, boundary) - address;
    char *const memory = start + head;
    unmap(start, head);
    unmap(memory + length, reserved - head - length);
    if (mprotect(memory, length, PROT_READ | PROT_WRITE) != 0) {
        unmap(memory, length);
        return nullptr;
    }
    return memory;
}

void talg_memalign_free(void *memory, std::size_t size) noexcept {
    if (memory && munmap(memory, round_up(size, page_size())) != 0) {
        std::fprintf(stderr, "talg_memalign_free: failed to munmap (%d)\n", errno);
        std::abort();
    }
}
