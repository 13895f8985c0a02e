#include "tcrypto/tcrypto.h"

#include <string_view>

#include "tcrypto/library.h"
#include "tcrypto/openssl/provider.h"

// Hands the built-in provider to the library.
int tcrypto_init(std::uint32_t flags, const char *plugin) {
    constexpr const char *OPENSSL_NAME = "openssl";
    if (plugin && std::string_view(plugin) != OPENSSL_NAME)
        return TCRYPTO_E_UNSUPPORTED;
    return tcrypto_start_library(flags, OPENSSL_NAME, tcrypto_openssl_provider);
}
