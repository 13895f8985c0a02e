// How a hash that differs from the expected one is reported.
#pragma once

#include <cstdint>

#include "ttd/engine.h"

// What a mismatch callback is told.
struct ttd_mismatch {
    std::uint8_t level = 0;
    std::uint32_t data_block = 0;
    std::uint32_t hash_block = 0;  // within its level; 0 for a data block itself
    std::int64_t offset = 0;       // in the image, bytes
};

using ttd_mismatch_function = void (*)(void *arg, const ttd_mismatch *report);

// Receives mismatches, besides the log.
struct ttd_listener {
    ttd_mismatch_function callback = nullptr;
    void *arg = nullptr;
};

// Two hashes that should be the same.
struct ttd_hash_pair {
    const std::uint8_t *expected = nullptr;
    const std::uint8_t *computed = nullptr;
};

// Prints both hashes through the engine log at level 0.
void ttd_print_hash_pair(const ttd_ctx &ctx, const ttd_hash_pair &hashes);

// Logs the mismatch, with the hashes unless the trace has printed them, and tells the
// listener.  Returns EIO.
[[nodiscard]] int ttd_report_mismatch(const ttd_ctx &ctx, const ttd_hash_pair &hashes,
                                      const ttd_mismatch &mismatch, const ttd_listener &listener);

// True when every step is traced.
[[nodiscard]] inline bool ttd_is_tracing(const ttd_ctx &ctx) {
    return ctx.verbosity > 2;
}
