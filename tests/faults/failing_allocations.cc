// The program with one allocation failing: of its own the one that FAIL_ALLOCATION
// numbers, from 1, or of the crypto library's the one that FAIL_CRYPTO_ALLOCATION
// numbers.  When the number is never reached, "not reached" ends standard error.
#include <openssl/crypto.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// Allocations up to and with the one that fails; 0: none does.
long own = 0;
long crypto = 0;

bool fails(long &until_failure) {
    return until_failure > 0 && --until_failure == 0;
}

void report_not_reached() {
    static constexpr char text[] = "not reached\n";
    if ((own > 0 || crypto > 0) && ::write(STDERR_FILENO, text, sizeof text - 1) < 0)
        std::abort();
}

long number_in(const char *variable) {
    const char *number = std::getenv(variable);
    return number != nullptr ? std::atol(number) : 0;
}

}  // namespace

// Linked with -Wl,--wrap, which turns calls of NAME into __wrap_NAME.
#define WRAP(result, name, failure, parameters, ...)                                                         \
    extern "C" result __real_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters;                                                              \
    extern "C" result __wrap_##name parameters {                                                             \
        return fails(own) ? failure : __real_##name(__VA_ARGS__);                                            \
    }
WRAP(void *, malloc, nullptr, (std::size_t size), size)
WRAP(void *, calloc, nullptr, (std::size_t count, std::size_t size), count, size)
WRAP(void *, realloc, nullptr, (void *memory, std::size_t size), memory, size)
WRAP(char *, strdup, nullptr, (const char *text), text)

namespace {

void *crypto_malloc(std::size_t size, const char *, int) {
    return fails(crypto) ? nullptr : __real_malloc(size);
}
void *crypto_realloc(void *memory, std::size_t size, const char *, int) {
    return fails(crypto) ? nullptr : __real_realloc(memory, size);
}
void crypto_free(void *memory, const char *, int) {
    std::free(memory);
}

}  // namespace

extern "C" int __real_main(int argc, char **argv);
extern "C" int __wrap_main(int argc, char **argv);
extern "C" int __wrap_main(int argc, char **argv) {
    own = number_in("FAIL_ALLOCATION");
    crypto = number_in("FAIL_CRYPTO_ALLOCATION");
    if (crypto > 0 && CRYPTO_set_mem_functions(crypto_malloc, crypto_realloc, crypto_free) != 1)
        std::abort();
    std::atexit(report_not_reached);
    return __real_main(argc, argv);
}

// The other forms of operator new and delete end in these.
void *operator new(std::size_t size) {
    void *memory = fails(own) ? nullptr : __real_malloc(size);
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
