// The proof of many neighbouring blocks.  The outcome is that of ttd_verify_block on
// each of them: result, reports, texts, their order and the verified bits.
#pragma once

#include "ttd/verify.h"

// Proves every block of the range, in order, whatever happens to the others.
// `data`, which may be null, is the aligned buffer of the range's blocks, as far as
// they are present.  EIO when any block failed.  Blocks that are not present (see
// ttd_info) and indices above the block count fail by being counted.
[[nodiscard]] int ttd_verify_range(ttd_ctx *ctx, const ttd_range *range, tcrypto_ctx *digest,
                                   const void *data, ttd_mismatch_function callback, void *arg);
