// The block verification engine: proves that data blocks of an image are what
// its signed superblock vouches for, by walking the hash tree from the root hash
// down.
//
// Threads: a prepared context may be used from several threads, each with its own
// digest context (ttd_hash_init).
#pragma once

#include <cstdint>

#include "ttd/engine.h"
#include "ttd/mismatch.h"

struct talg_workers;

// Told of `count` further blocks, from `first` on.
using ttd_passed_function = void (*)(void *arg, std::uint32_t first, std::uint32_t count);

// A byte request, turned into blocks by ttd_setup_verify.
struct ttd_range {
    std::uint32_t first = 0;           // data block
    std::uint32_t end = 0;             // one past the last
    std::uint64_t aligned_offset = 0;  // of the first block, bytes
    std::uint64_t aligned_length = 0;  // bytes, possibly cut to the caller's maximum
    std::uint64_t skip = 0;            // requested offset - aligned offset
    std::uint64_t count = 0;           // requested bytes that the aligned buffer holds
    talg_bitmap *bitmap = nullptr;     // optional, borrowed; bit i: block first + i
    // Optional, called by ttd_verify_range: `hashed` with blocks whose bytes are no longer
    // needed, in any order and from any worker; `passed` with blocks that are done, in
    // order.
    ttd_passed_function hashed = nullptr;
    ttd_passed_function passed = nullptr;
    void *passed_arg = nullptr;  // of both
    // Optional, borrowed: the pool that hashes (and reads) data blocks in ttd_verify_range.
    talg_workers *workers = nullptr;
    unsigned worker_count = 1;  // that the pool was made with
};

// Fills the range of a request of `length` bytes at `offset` of the inner image.  EINVAL
// for a negative offset and for blocks beyond 2^32 - 1.  A request of no bytes, or at or
// beyond the end of the inner image, sets count to 0 and leaves the other fields.
[[nodiscard]] int ttd_setup_verify(const ttd_ctx *ctx, std::int64_t offset, std::uint64_t length,
                                   std::uint64_t max_length, ttd_range *range);

// Proves one data block; its bytes are `data`, or read by the engine when null.
// Sets the block's verified bit, or clears it on every failure: EINVAL for an index
// beyond the block count, ENOMEM, EIO for a read error, a digest error or a
// mismatch (logged, and reported to `callback` when there is one).
[[nodiscard]] int ttd_verify_block(ttd_ctx *ctx, std::uint32_t block, const ttd_range *range,
                                   tcrypto_ctx *digest, const void *data, ttd_mismatch_function callback,
                                   void *arg);

// Makes one bit for every data block that is present.  The bitmap's error; does not log.
[[nodiscard]] int ttd_create_vblkbitmap(ttd_ctx *ctx);
void ttd_free_vblkbitmap(ttd_ctx *ctx);
