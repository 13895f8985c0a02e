// The scanner with a log function that returns: it must reach the end of input
// with no more tokens than bytes, at positions that never go back.
#include <cstdlib>

#include "base/log.h"
#include "base_grammar.h"
#include "build_file_input.h"
#include "buildfile/parser.h"
#include "buildfile/scanner.h"
#include "fs/filesystem.h"

namespace {

constexpr mktfs_backend backend = {.name = "FUZZ", .parser = {.scanner_context = base_scanner_context}};

[[gnu::format(printf, 2, 3)]] int ignore(int, const char *, ...) {
    return 0;
}

bool has_text(int token) {
    return token == BASE_NAME || token == BASE_VALUE || token == BASE_PATH || token == BASE_CONTENTS;
}

int current_line() {
    const char *file = nullptr;
    int line = 0;
    int column = 0;
    base_scanner_context(&file, &line, &column);
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    discard_standard_output();
    mktfs_register_log_fct(ignore);
    mktfs_set_backend(&backend);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const build_file_input input(data, size);
    std::size_t tokens = 0;
    int line = 1;
    base_scanner_open(input.path());
    while (const int token = base_lex()) {
        if (has_text(token))
            std::free(base_lval.text);
        if (++tokens > size || current_line() < line)
            std::abort();
        line = current_line();
    }
    base_scanner_close();
    return 0;
}
