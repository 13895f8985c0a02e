#include "tcrypto/openssl/ossl.h"

#include <cstring>

#include <openssl/err.h>

TH_LOG_CONTEXT_DEFINE(tc_openssl_log, "tc_openssl");

namespace {

// Without the line end, which the logger adds itself.
void log_error(const char *message, const char *file, std::uint32_t line) {
    const th_log_call_site site = {
        .line = line,
        .file = file,
        .flags = TH_LOG_ERROR,
        .context = &tc_openssl_log,
    };
    th_log_ex(&site, "%.*s", static_cast<int>(std::strcspn(message, "\n")), message);
}

}  // namespace

int ossl_fail(int code, const char *message, const char *file, std::uint32_t line) {
    if (const unsigned long error = ERR_get_error()) {
        char text[256];
        ERR_error_string_n(error, text, sizeof(text));
        log_error(text, file, line);
    }
    log_error(message, file, line);
    ERR_clear_error();
    return code;
}

void ossl_clear_errors() {
    ERR_clear_error();
}

int ossl_register_all(std::span<const tcrypto_algorithm> algorithms) {
    for (const tcrypto_algorithm &algorithm : algorithms) {
        if (const int err = register_algorithm(&algorithm); err != TCRYPTO_OK)
            return err;
    }
    return TCRYPTO_OK;
}
