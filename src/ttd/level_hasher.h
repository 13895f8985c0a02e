// One level of the hash tree: the hashes of all blocks below it, made by as many workers
// as there are.  Messages and outcome are those of hashing block after block.
#pragma once

#include <cstdint>

#include "talg/workers.h"
#include "tcrypto/tcrypto.h"
#include "ttd/bytes.h"
#include "ttd/engine.h"
#include "ttd/image_copy.h"
#include "ttd/input_image.h"

// What the hashing works with.
struct ttd_build_means {
    const ttd_input_image &input;
    ttd_image_copy *copy = nullptr;  // gets the input's bytes; null: none
    talg_workers *workers = nullptr;
    unsigned worker_count = 1;
};

// `level`: where the level lies, in hash blocks; hashes go to the slots from the first on.
// `digest` is the caller's own.  Failures are logged; ENOMEM, EINVAL, ENXIO or a read error.

// The hashes of the first `count` blocks of the covered area, whose bytes go to the copy.
[[nodiscard]] int ttd_hash_data(ttd_ctx &ctx, tcrypto_ctx *digest, const ttd_build_means &means,
                                std::uint64_t count, std::uint8_t *level);

// The hashes of the `count` hash blocks at `below`.
[[nodiscard]] int ttd_hash_level(ttd_ctx &ctx, tcrypto_ctx *digest, const ttd_build_means &means,
                                 const std::uint8_t *below, std::uint64_t count, std::uint8_t *level);

// Writes `count` copies of a hash, side by side.
void ttd_fill_slots(std::uint8_t *out, std::uint64_t count, const ttd_bytes &hash);
