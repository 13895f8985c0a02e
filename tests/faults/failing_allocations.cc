// The program with one allocation of its own failing: the one that FAIL_ALLOCATION
// numbers, from 1.  When the number is never reached, "not reached" ends standard error.
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

long until_failure = 0;  // 0: none fails

bool fails() {
    return until_failure > 0 && --until_failure == 0;
}

void report_not_reached() {
    static constexpr char text[] = "not reached\n";
    if (until_failure > 0 && ::write(STDERR_FILENO, text, sizeof text - 1) < 0)
        std::abort();
}

}  // namespace

// Linked with -Wl,--wrap, which turns calls of NAME into __wrap_NAME.
#define WRAP(result, name, failure, parameters, ...)                                                         \
    extern "C" result __real_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters {                                                             \
        return fails() ? failure : __real_##name(__VA_ARGS__);                                               \
    }
WRAP(void *, malloc, nullptr, (std::size_t size), size)
WRAP(void *, calloc, nullptr, (std::size_t count, std::size_t size), count, size)
WRAP(void *, realloc, nullptr, (void *memory, std::size_t size), memory, size)
WRAP(char *, strdup, nullptr, (const char *text), text)

extern "C" int __real_main(int argc, char **argv);
extern "C" int __wrap_main(int argc, char **argv);
extern "C" int __wrap_main(int argc, char **argv) {
    const char *number = std::getenv("FAIL_ALLOCATION");
    until_failure = number != nullptr ? std::atol(number) : 0;
    std::atexit(report_not_reached);
    return __real_main(argc, argv);
}

// The other forms of operator new and delete end in these.
void *operator new(std::size_t size) {
    void *memory = fails() ? nullptr : __real_malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}
void operator delete(void *memory) noexcept {
    std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}
