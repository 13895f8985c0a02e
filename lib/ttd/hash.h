// Hashing for builder and verifier: which digest the superblock names, a digest
// context for every thread, and digest(salt || block).
#pragma once

#include <cstddef>
#include <cstdint>

#include "ttd/engine.h"

// Selects the digest and signature rows of ctx->superblock, starts the crypto
// library and sets info.hash_size.  EINVAL for an unknown code, EOPNOTSUPP when the
// library does not start, ENOENT when the digest is not to be had.  Logs.
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
[[nodiscard]] int ttd_hash_block(ttd_ctx *ctx, const void *data, std::size_t length, tcrypto_ctx *digest,
                                 std::uint8_t *out);

// The same for `count` blocks of `length` bytes that lie one after the other; the
// hashes are packed at `out`.  Blocks of zeros take the remembered hash when there
// is one for this length.
[[nodiscard]] int ttd_hash_blocks(ttd_ctx *ctx, const void *data, std::size_t length, std::size_t count,
                                  tcrypto_ctx *digest, std::uint8_t *out);

// The same without a message, for several threads at once.
[[nodiscard]] int ttd_hash_blocks_quietly(ttd_ctx *ctx, const void *data, std::size_t length,
                                          std::size_t count, tcrypto_ctx *digest, std::uint8_t *out);

// Remembers digest(salt || zero data block) in ctx->zero_hash.  Called in set-up,
// once salt and block size are known.  ENOMEM (logs), ENXIO.
[[nodiscard]] int ttd_hash_zero_block(ttd_ctx *ctx, tcrypto_ctx *digest);
