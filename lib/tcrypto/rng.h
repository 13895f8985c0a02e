// Random generators: instantiate (any time; again to start afresh), then reseed and
// generate, which are TCRYPTO_E_STATE before it.  Other errors as for digests.
#pragma once

#include <cstddef>
#include <cstdint>

struct tcrypto_ctx;

// See tcrypto_request_algorithm; _supported only asks.
[[nodiscard]] int tcrypto_rng_request(const char *name, const char *plugin, std::uint32_t flags,
                                      tcrypto_ctx **out);
[[nodiscard]] int tcrypto_rng_supported(const char *name, const char *plugin, std::uint32_t flags);
// Seeds the generator from the system; the personalisation text may be empty.
[[nodiscard]] int tcrypto_rng_instantiate(tcrypto_ctx *ctx, const void *personalisation, std::size_t length);
[[nodiscard]] int tcrypto_rng_reseed(tcrypto_ctx *ctx, const void *additional, std::size_t length);
// Fills all `length` bytes of `out`.
[[nodiscard]] int tcrypto_rng_generate(tcrypto_ctx *ctx, void *out, std::size_t length);
// Security strength in bits; 0 for a context of another kind.
[[nodiscard]] std::uint32_t tcrypto_rng_strength(const tcrypto_ctx *ctx);

// Fills `out` from the process-wide cryptographic generator (no context and no
// tcrypto_init needed).  TCRYPTO_E_INTERNAL when the generator fails.
[[nodiscard]] int tcrypto_random_bytes(void *out, std::size_t length);
