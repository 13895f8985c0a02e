// Digests: init (any time), update, final; an operation out of this order is
// TCRYPTO_E_STATE.  final ends the digest whether it succeeds or not.  On every
// operation: TCRYPTO_E_ALGORITHM_TYPE for a context of another kind,
// TCRYPTO_E_NO_FUNCTION for an operation that the provider lacks,
// TCRYPTO_E_INTERNAL when the provider fails (logs).
#pragma once

#include <cstddef>
#include <cstdint>

struct tcrypto_ctx;

// See tcrypto_request_algorithm; _supported only asks.
[[nodiscard]] int tcrypto_digest_request(const char *name, const char *plugin, std::uint32_t flags,
                                         tcrypto_ctx **out);
[[nodiscard]] int tcrypto_digest_supported(const char *name, const char *plugin, std::uint32_t flags);
[[nodiscard]] int tcrypto_digest_init(tcrypto_ctx *ctx);
[[nodiscard]] int tcrypto_digest_update(tcrypto_ctx *ctx, const void *data, std::size_t length);
// Writes tcrypto_digestsize() bytes; `out_length` may be null.
[[nodiscard]] int tcrypto_digest_final(tcrypto_ctx *ctx, std::uint8_t *out, std::size_t *out_length);
// init, update and final in one call.
[[nodiscard]] int tcrypto_digest(tcrypto_ctx *ctx, const void *data, std::size_t length, std::uint8_t *out,
                                 std::size_t *out_length);
// A second context, the caller's, that continues from the same point; *out is null on
// failure.
[[nodiscard]] int tcrypto_digest_copy(tcrypto_ctx *ctx, tcrypto_ctx **out);
// Bytes that the digest produces; 0 for a context of another kind.
[[nodiscard]] std::size_t tcrypto_digestsize(const tcrypto_ctx *ctx);

enum tcrypto_digest_step {
    TCRYPTO_STEP_INIT,
    TCRYPTO_STEP_SALT,
    TCRYPTO_STEP_DATA,
    TCRYPTO_STEP_FINAL,
};

// Bytes of a caller, borrowed.
struct tcrypto_bytes {
    const void *data = nullptr;
    std::size_t length = 0;
};

// Blocks that lie one after the other, borrowed.
struct tcrypto_block_run {
    const void *data = nullptr;
    std::size_t length = 0;  // of each block, bytes
    std::size_t count = 0;   // blocks
};

// Where tcrypto_digest_blocks stopped.
struct tcrypto_block_failure {
    std::size_t block = 0;  // index of the block; the results before it are there
    tcrypto_digest_step step = TCRYPTO_STEP_INIT;
};

// Digests of many blocks at once: digest(salt || block) of each, packed at `out`,
// tcrypto_digestsize() bytes each.  Equals init, update(salt), update(block), final for
// every block, and leaves the context as final does.  Uses the processor's widest kernel
// for this digest where there is one.  Stops at the first failure, which `failure`
// (optional) then describes.
[[nodiscard]] int tcrypto_digest_blocks(tcrypto_ctx *ctx, const tcrypto_bytes &salt,
                                        const tcrypto_block_run &run, std::uint8_t *out,
                                        tcrypto_block_failure *failure = nullptr);
