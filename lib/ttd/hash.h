// Hashing for builder and verifier: which digest the superblock names, a digest context for
// each thread, and digest(salt || block).
#pragma once

#include <cstddef>
#include <cstdint>

#include "ttd/engine.h"

// Selects the digest and signature rows of ctx->superblock, starts the crypto
// library and sets info.hash_size.  EINVAL for an unknown code, EOPNOTSUPP when the
// library does not start, ENOENT when no provider has the digest.  Logs.
[[nodiscard]] int ttd_tcrypto_init(ttd_ctx *ctx);
// Releases the cached digest contexts and the library; nothing when not started.
void ttd_tcrypto_uninit(ttd_ctx *ctx);

// The calling thread's digest context: its slot when its kernel thread id is at
// most 63, else a fresh one.  Given back with ttd_hash_done.  ENOENT; logs.
[[nodiscard]] int ttd_hash_init(ttd_ctx *ctx, tcrypto_ctx **out);
void ttd_hash_done(tcrypto_ctx *digest);

// The crypto library's steps with its errors turned into ENXIO; each logs.
[[nodiscard]] int ttd_hash_reset(tcrypto_ctx *digest);
[[nodiscard]] int ttd_hash_update(tcrypto_ctx *digest, const void *data, std::size_t length);
[[nodiscard]] int ttd_hash_final(tcrypto_ctx *digest, std::uint8_t *out);

// Writes digest(salt || data) to `out`, hash_size bytes.  Null data hashes the salt
// alone (the empty hash).  `digest` is the calling thread's context.  ENXIO when a
// crypto step fails (`out` is then undefined); logs that step.
[[nodiscard]] int ttd_hash_block(const ttd_ctx *ctx, const void *data, std::size_t length,
                                 tcrypto_ctx *digest, std::uint8_t *out);

// Blocks that lie one after the other.
using ttd_block_run = tcrypto_block_run;

// Where hashing a run of blocks stopped.
struct ttd_hash_failure {
    std::size_t block = 0;  // index in the run; the hashes before it are there
    tcrypto_digest_step step = TCRYPTO_STEP_INIT;
    int err = TCRYPTO_OK;
};

// Hashes a run of blocks as ttd_hash_block would one by one; the hashes are packed at
// `out`.  Blocks of zeros take the remembered hash when there is one for this length.
// ENXIO: `failure` says where it stopped.  Does not log, so that any thread may call it
// with its own digest context.
[[nodiscard]] int ttd_hash_blocks(const ttd_ctx *ctx, const ttd_block_run &run, tcrypto_ctx *digest,
                                  std::uint8_t *out, ttd_hash_failure *failure);
// Logs what ttd_hash_block logs of such a failure and returns its result, ENXIO.
[[nodiscard]] int ttd_hash_report(const ttd_hash_failure &failure);

// Remembers digest(salt || zero data block) in info.zero_hash.  Called in set-up,
// once salt and block size are known.  ENOMEM (logs), ENXIO.
[[nodiscard]] int ttd_hash_zero_block(ttd_ctx *ctx, tcrypto_ctx *digest);
