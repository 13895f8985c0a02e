// The scanner with a log function that returns: it must reach the end of input
// with no more tokens than bytes.
#include <cstdlib>

#include "base/log.h"
#include "base_grammar.h"
#include "buildfile/parser.h"
#include "fs/filesystem.h"
#include "memory_file.h"

static constexpr mktfs_backend backend = {.name = "FUZZ", .parser = mktfs_base_parser};

static int ignore(int, const char *, ...) {
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    discard_standard_output();
    mktfs_register_log_fct(ignore);
    mktfs_set_backend(&backend);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const memory_file input(data, size);
    std::size_t tokens = 0;
    base_scanner_open(input.path());
    while (const int token = base_lex()) {
        if (token >= BASE_NAME)
            std::free(base_lval.text);
        if (++tokens > size)
            std::abort();
    }
    return base_scanner_close();
}
