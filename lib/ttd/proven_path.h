// The hash blocks between the root and the data blocks of a range.  Neighbouring data
// blocks share all of their path but its end, so what was loaded last is kept at each
// level, and level-0 blocks are hashed several at a time.  The context's caches, where
// there are some, are asked first and get what was loaded.
//
// A step that fails counts against the data block that is being proven, even if it was done
// ahead for a later one; the next data block tries again.
#pragma once

#include <cstdint>

#include "ttd/hash.h"
#include "ttd/mismatch.h"
#include "ttd/path.h"

class ttd_proven_path {
public:
    // For data blocks below `end`, asked for in ascending order.  Borrows everything.
    ttd_proven_path(const ttd_ctx &ctx, tcrypto_ctx *digest, const ttd_listener &listener, std::uint32_t end)
        : ctx_(ctx), digest_(digest), listener_(listener), end_(end) {}

    // Makes room for a range of that many blocks.  False when memory is out.
    [[nodiscard]] bool allocate(std::uint32_t count);

    // The hash that the tree vouches for, valid until the next call.  Null when the path
    // does not prove, which has been reported.
    [[nodiscard]] const std::uint8_t *hash_of(std::uint32_t block);

private:
    // Neighbouring hash blocks of one level with their computed hashes.
    struct window {
        ttd_bytes blocks;
        ttd_bytes hashes;
        std::size_t room = 0;     // hash blocks
        std::uint32_t first = 0;  // index in the level
        std::uint32_t count = 0;
        std::uint32_t keep_from = 0;  // earlier ones would leave the caches within this range
        // The hash block behind them could not be loaded, which is not reported yet.
        bool failed = false;
        ttd_hash_failure failure;  // err is TCRYPTO_OK when it was no digest step
    };

    [[nodiscard]] bool allocate(window &at, std::size_t room);
    [[nodiscard]] const std::uint8_t *prove(std::uint32_t block);
    [[nodiscard]] bool load(window &at, unsigned level, const ttd_path_step &step);
    [[nodiscard]] std::uint32_t wanted(const window &at, unsigned level, std::uint32_t local) const;
    void read_blocks(window &at, const ttd_path_step &step, std::uint32_t count);
    void hash_blocks(window &at, std::uint32_t global);
    [[nodiscard]] std::uint32_t hash_missing(window &at, std::uint32_t global, std::uint32_t from);

    const ttd_ctx &ctx_;
    tcrypto_ctx *const digest_;
    const ttd_listener listener_;
    const std::uint32_t end_;
    window levels_[TTD_MAX_LEVELS];
    const std::uint8_t *leaf_ = nullptr;  // the proven level-0 block that was used last
    std::uint32_t leaf_index_ = 0;
};
