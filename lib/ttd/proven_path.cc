#include "ttd/proven_path.h"

#include <algorithm>
#include <cstring>

#include "ttd/caches.h"

namespace {

// Level-0 blocks are hashed in pieces of at most about this many bytes.
constexpr std::size_t PIECE_SIZE = 256 * 1024;

bool copy_from(ttd_lru_cache *cache, std::uint32_t key, std::uint8_t *out, std::size_t size) {
    ttd_cache_pin pin;
    if (!cache || ttd_lru_cache_get(cache, key, th_out(pin)) != 0)
        return false;
    std::memcpy(out, ttd_cache_buffer(pin.get()), size);
    return true;
}

// True, too, when there is no cache.
bool copy_into(ttd_lru_cache *cache, talg_slab *slab, std::uint32_t key, const std::uint8_t *bytes,
               std::size_t size) {
    if (!cache)
        return true;
    auto *buffer = static_cast<std::uint8_t *>(ttd_slab_alloc(slab));
    if (!buffer)
        return false;
    std::memcpy(buffer, bytes, size);
    ttd_cache_pin pin;
    if (ttd_lru_cache_add(cache, key, buffer, slab, th_out(pin)) == 0)
        return true;
    ttd_slab_free(slab, buffer);
    return false;
}

}  // namespace

bool ttd_proven_path::allocate(window &at, std::size_t room) {
    at.room = room;
    return at.blocks.allocate(room * ctx_.info.hash_block_size) &&
           at.hashes.allocate(room * ctx_.info.hash_size);
}

bool ttd_proven_path::allocate(std::uint32_t count) {
    const std::size_t spanned = count / ctx_.info.hashes_per_block + 2;
    if (!allocate(levels_[0], std::min(PIECE_SIZE / ctx_.info.hash_block_size, spanned)))
        return false;
    const std::size_t leaves =
        (std::size_t{end_} + ctx_.info.hashes_per_block - 1) / ctx_.info.hashes_per_block;
    const std::size_t slots = ttd_lru_cache_slots(ctx_.block_cache);
    levels_[0].keep_from = static_cast<std::uint32_t>(leaves - std::min(leaves, slots));
    for (unsigned level = 1; level < ctx_.info.levels; ++level)
        if (!allocate(levels_[level], 1))
            return false;
    return true;
}

const std::uint8_t *ttd_proven_path::hash_of(std::uint32_t block) {
    const std::uint32_t index = block / ctx_.info.hashes_per_block;
    if (!leaf_ || leaf_index_ != index) {
        leaf_ = prove(block);
        leaf_index_ = index;
    }
    if (!leaf_)
        return nullptr;
    const std::uint32_t entry = block - index * ctx_.info.hashes_per_block;
    return leaf_ + std::size_t{entry} * ctx_.info.hash_size;
}

// The proven level-0 block above `block`, or null.
const std::uint8_t *ttd_proven_path::prove(std::uint32_t block) {
    const std::uint8_t *expected = ctx_.info.root_hash.data();
    for (unsigned level = ctx_.info.levels;;) {
        const ttd_path_step step = ttd_path_step_at(ctx_.info, block, --level);
        window &at = levels_[level];
        if (step.local - at.first >= at.count && !load(at, level, step))
            return nullptr;
        const std::size_t index = step.local - at.first;
        const std::uint8_t *computed = at.hashes.data() + index * ctx_.info.hash_size;
        if (std::memcmp(expected, computed, ctx_.info.hash_size) != 0) {
            (void)ttd_report_mismatch(ctx_, {expected, computed},
                                      {static_cast<std::uint8_t>(level), block, step.local, step.offset},
                                      listener_);
            return nullptr;
        }
        const std::uint8_t *bytes = at.blocks.data() + index * ctx_.info.hash_block_size;
        if (level == 0)
            return bytes;
        expected = bytes + std::size_t{step.entry} * ctx_.info.hash_size;
    }
}

// Makes the window begin at this step's hash block, unless that one fails.
bool ttd_proven_path::load(window &at, unsigned level, const ttd_path_step &step) {
    const bool failed_ahead = at.failed && step.local == at.first + at.count;
    if (!failed_ahead) {
        at.failed = false;
        at.failure = {};
        at.first = step.local;
        read_blocks(at, step, wanted(at, level, step.local));
        hash_blocks(at, step.global);
    }
    if (at.count != 0 && !failed_ahead)
        return true;
    at.failed = false;
    if (at.failure.err != TCRYPTO_OK)
        (void)ttd_hash_report(at.failure);
    return false;
}

// No more than the range needs, so that nothing is read needlessly.
std::uint32_t ttd_proven_path::wanted(const window &at, unsigned level, std::uint32_t local) const {
    if (level != 0)
        return 1;
    const std::uint32_t last = (end_ - 1) / ctx_.info.hashes_per_block;
    return static_cast<std::uint32_t>(std::min<std::size_t>(at.room, last - local + 1));
}

void ttd_proven_path::read_blocks(window &at, const ttd_path_step &step, std::uint32_t count) {
    const std::size_t size = ctx_.info.hash_block_size;
    std::int64_t offset = step.offset;
    for (at.count = 0; at.count < count; ++at.count) {
        std::uint8_t *block = at.blocks.data() + at.count * size;
        const std::uint32_t key = step.global + at.count;
        if (!copy_from(ctx_.block_cache, key, block, size) &&
            (ttd_io_read(ctx_.hash_io, offset, block, size) != 0 ||
             (step.local + at.count >= at.keep_from &&
              !copy_into(ctx_.block_cache, ctx_.block_slab, key, block, size)))) {
            at.failed = true;
            return;
        }
        offset += static_cast<std::int64_t>(size);
    }
}

// Cuts the window at the first block that cannot be hashed.
void ttd_proven_path::hash_blocks(window &at, std::uint32_t global) {
    const std::size_t size = ctx_.info.hash_size;
    for (std::uint32_t i = 0; i < at.count;) {
        if (copy_from(ctx_.hash_cache, global + i, at.hashes.data() + i * size, size))
            ++i;
        else
            i = hash_missing(at, global, i);
    }
}

// Hashes the blocks from `from` on, which the cache does not have; returns the first one
// that is not hashed.
std::uint32_t ttd_proven_path::hash_missing(window &at, std::uint32_t global, std::uint32_t from) {
    const std::size_t size = ctx_.info.hash_size;
    const ttd_block_run run = {.data = at.blocks.data() + std::size_t{from} * ctx_.info.hash_block_size,
                               .length = ctx_.info.hash_block_size,
                               .count = at.count - from};
    if (ttd_hash_blocks(&ctx_, run, digest_, at.hashes.data() + from * size, &at.failure) != 0) {
        at.count = from + static_cast<std::uint32_t>(at.failure.block);
        at.failed = true;
    }
    for (std::uint32_t i = from; i < at.count; ++i) {
        if (at.first + i < at.keep_from ||
            copy_into(ctx_.hash_cache, ctx_.hash_slab, global + i, at.hashes.data() + i * size, size))
            continue;
        at.count = i;
        at.failed = true;
        at.failure = {};
    }
    return at.count;
}
