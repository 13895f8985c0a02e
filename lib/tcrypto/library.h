// The reference count of the library.
#pragma once

#include "tcrypto/provider.h"

// Whether a tcrypto_init is in force.  Takes no lock.
[[nodiscard]] bool tcrypto_is_initialised();

// tcrypto_init with the one provider that it adds under `name`, tags "*".
[[nodiscard]] int tcrypto_start_library(std::uint32_t flags, const char *name,
                                        const tcrypto_provider &provider);
